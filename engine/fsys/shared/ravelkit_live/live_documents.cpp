// Information documents written as XML files: a VM's backup information and
// the objects of a kind (hosts, virtual machines).
#include "live_props.h"
#include "live_served.h"

namespace ravelkit_live {

namespace {

// "[datastore] folder/disk.vmdk" of each virtual disk, in device order.
std::vector<std::string> DiskFiles(CXmlReader &devices) {
    std::vector<std::string> files;
    if (!devices.SelectFirstChild()) return files;
    do {
        if (XsiType(devices) != "VirtualDisk" || !devices.SelectFirstChild()) continue;
        do {
            std::string file;
            if (LocalName(devices) == L"backing" && ChildText(devices, L"fileName", file)) files.push_back(file);
        } while (devices.SelectNextSibling());
        devices.SelectParent();
    } while (devices.SelectNextSibling());
    devices.SelectParent();
    return files;
}

void SnapshotNames(const _vmc::VmSnapshotInfo &tree, CXmlBuilder &xml) {
    for (const _vmc::VmSnapshotInfo &child : tree.children) {
        xml.StartElement(L"Snapshot");
        xml.AddAttribute(L"name", Wide(child.name));
        xml.AddAttribute(L"moRef", Wide(child.moRef));
        xml.EndElement();
        SnapshotNames(child, xml);
    }
}

int Save(const CXmlBuilder &xml, const char *outputFile) {
    if (!outputFile || !*outputFile) return Fail(kBadArgument, "no output file");
    if (!xml.SaveUtf8(Wide(outputFile).c_str()))
        return Fail(kBadArgument, std::string("cannot write '") + outputFile + "' (Windows error " +
                                      std::to_string(GetLastError()) + ")");
    return kOk;
}

}  // namespace

int Served::vmcGetVmBackupInfo(void *session, const char *vm, const char *outputFile) {
    Session *s = SessionOf(session, "vmcGetVmBackupInfo");
    if (!s) return kBadSession;
    if (!vm || !*vm) return Fail(kBadArgument, "vmcGetVmBackupInfo: no VM name");
    std::string ref, powerState, host, tracking;
    std::vector<std::string> disks;
    int result = FindByName(*s, "VirtualMachine", vm, ref);
    if (result == kOk)
        result = ReadProperties(*s, "VirtualMachine", ref,
                                {"runtime.powerState", "runtime.host", "config.changeTrackingEnabled",
                                 "config.hardware.device"},
                                [&](const std::string &path, CXmlReader &val) {
                                    if (path == "runtime.powerState") powerState = TextOf(val);
                                    else if (path == "runtime.host") host = TextOf(val);
                                    else if (path == "config.changeTrackingEnabled") tracking = TextOf(val);
                                    else disks = DiskFiles(val);
                                });
    _vmc::VmSnapshotInfo tree;
    if (result == kOk) result = vmcGetVmSnapshotTree(session, vm, tree);
    if (result != kOk) return result;
    CXmlBuilder xml;
    xml.StartElement(L"VmBackupInfo");
    xml.AddAttribute(L"name", Wide(vm));
    xml.AddAttribute(L"moRef", Wide(ref));
    xml.AddAttribute(L"host", Wide(host));
    xml.AddAttribute(L"powerState", Wide(powerState));
    xml.AddAttribute(L"changeTracking", tracking == "true" ? L"1" : L"0");
    for (const std::string &disk : disks) {
        xml.StartElement(L"Disk");
        xml.AddAttribute(L"path", Wide(disk));
        xml.EndElement();
    }
    SnapshotNames(tree, xml);
    xml.EndElement();
    return Save(xml, outputFile);
}

// The objects of a kind: "host" (HostSystem) or "vm..." (VirtualMachine, as in
// the view name "vm_3"), optionally only the one named.
int Served::vmcGetObjectInfo(void *session, const char *root, const char *type, const char *name,
                             const char *outputFile) {
    Session *s = SessionOf(session, "vmcGetObjectInfo");
    if (!s) return kBadSession;
    const std::string kind = type ? type : "";
    const char *managed = kind == "host" ? "HostSystem" : kind.compare(0, 2, "vm") == 0 ? "VirtualMachine" : nullptr;
    if (!managed) return Fail(kNotSupported, "vmcGetObjectInfo: object kind '" + kind + "' is not supported");
    CXmlBuilder xml;
    xml.StartElement(L"ObjectInfo");
    xml.AddAttribute(L"root", Wide(root ? root : ""));
    xml.AddAttribute(L"type", Wide(kind));
    if (name) xml.AddAttribute(L"name", Wide(name));
    const int result = ForEachObject(*s, managed, {"name"}, [&](const std::string &ref, const std::string &,
                                                                  CXmlReader &val) {
        const std::string objectName = TextOf(val);
        if (name && *name && objectName != name) return;
        xml.StartElement(Wide(managed).c_str());
        xml.AddAttribute(L"name", Wide(objectName));
        xml.AddAttribute(L"moRef", Wide(ref));
        xml.EndElement();
    });
    if (result != kOk) return result;
    xml.EndElement();
    return Save(xml, outputFile);
}

}  // namespace ravelkit_live
