// The stand-in's VM entry points: configuration state, change tracking,
// snapshots, disks, the information documents and the host list.
#include <algorithm>

#include <skxml/xmlbuilder.h>

#include "state.h"

using namespace ravelsim;

namespace {

constexpr int kBadArgument = 3;
constexpr int kBadSession = 5;
constexpr int kNotFound = 2;
constexpr int kFileNotWritten = 7;
constexpr int kSnapshotGone = 53;

std::wstring Wide(const std::string &utf8) {
    if (utf8.empty()) return std::wstring();
    const int n = MultiByteToWideChar(CP_UTF8, 0, utf8.c_str(), static_cast<int>(utf8.size()), nullptr, 0);
    std::wstring out(static_cast<size_t>(n), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, utf8.c_str(), static_cast<int>(utf8.size()), &out[0], n);
    return out;
}

// Looks the VM up for an entry point; null with the failure in *result.
Vm *VmFor(void *session, const char *name, int *result) {
    if (!ValidSession(session)) {
        *result = kBadSession;
        return nullptr;
    }
    Vm *vm = FindVm(name ? name : "");
    if (!vm) {
        Get().lastErrorText = std::string("The object '") + Text(name) + "' was not found";
        Get().lastErrorCode = 25;
        *result = kNotFound;
    }
    return vm;
}

void BackupInfo(const Vm &vm, CXmlBuilder &xml) {
    xml.StartElement(L"VmBackupInfo");
    xml.AddAttribute(L"name", Wide(vm.name));
    xml.AddAttribute(L"moRef", Wide(vm.moRef));
    xml.AddAttribute(L"host", Wide(vm.hostMoRef));
    xml.AddAttribute(L"powerState", Wide(vm.powerState));
    xml.AddAttribute(L"changeTracking", vm.ctEnabled ? L"1" : L"0");
    for (const std::string &disk : vm.disks) {
        xml.StartElement(L"Disk");
        xml.AddAttribute(L"path", Wide(disk));
        xml.EndElement();
    }
    for (const std::string &snapshot : vm.snapshots) {
        xml.StartElement(L"Snapshot");
        xml.AddAttribute(L"name", Wide(snapshot));
        xml.EndElement();
    }
    xml.EndElement();
}

void ObjectInfo(const char *root, const char *type, const char *name, CXmlBuilder &xml) {
    const std::string kind = Text(type);
    xml.StartElement(L"ObjectInfo");
    xml.AddAttribute(L"root", Wide(Text(root)));
    xml.AddAttribute(L"type", Wide(kind));
    if (name) xml.AddAttribute(L"name", Wide(name));
    if (kind == "host") {
        for (const Host &host : Get().inventory.hosts) {
            xml.StartElement(L"HostSystem");
            xml.AddAttribute(L"name", Wide(host.name));
            xml.AddAttribute(L"moRef", Wide(host.moRef));
            xml.EndElement();
        }
    } else {
        for (const Vm &vm : Get().inventory.vms) {
            if (name && vm.name != name) continue;
            xml.StartElement(L"VirtualMachine");
            xml.AddAttribute(L"name", Wide(vm.name));
            xml.AddAttribute(L"moRef", Wide(vm.moRef));
            xml.EndElement();
        }
    }
    xml.EndElement();
}

int Save(const CXmlBuilder &xml, const char *outputFile) {
    if (!outputFile) return kBadArgument;
    if (xml.SaveUtf8(Wide(outputFile).c_str())) return 0;
    return Fail(kFileNotWritten, std::string("cannot write ") + outputFile, 0);
}

// Into a caller's stream through its buffer only (see ravelkit_api.h).
void PutText(std::wstringstream &out, const std::wstring &text) {
    out.rdbuf()->sputn(text.data(), static_cast<std::streamsize>(text.size()));
}

}  // namespace

extern "C" {

int vmcSetVmPowerOrConfigState(void *session, const char *vmName, const char *state) {
    RAVELSIM_ENTER(Args({vmName, state}));
    skclass::CsLock hold(Get().lock);
    int result = 0;
    Vm *vm = VmFor(session, vmName, &result);
    if (!vm) return result;
    const std::string what = Text(state);
    if (what == "reload") return 0;
    if (what == "enableChangeTracking") {
        if (!vm->ctSupported) return Fail(6, "Change tracking is not supported by this virtual machine", 0);
        vm->ctEnabled = true;
        Persist();
        return 0;
    }
    if (what == "poweredOn" || what == "poweredOff" || what == "suspended") {
        vm->powerState = what;
        Persist();
        return 0;
    }
    return Fail(kBadArgument, "unknown state " + what, 0);
}

int vmcIsChangeTrackingEnabled(void *session, const std::string &vmName, bool &enabled, bool &supported) {
    RAVELSIM_ENTER(vmName);
    skclass::CsLock hold(Get().lock);
    int result = 0;
    const Vm *vm = VmFor(session, vmName.c_str(), &result);
    if (!vm) return result;
    enabled = vm->ctEnabled;
    supported = vm->ctSupported;
    return 0;
}

int vmcCreateSnapshot(void *session, const char *name, const char *description, const char *vmName, bool memory,
                      bool quiesce) {
    RAVELSIM_ENTER(Args({name, description, vmName, memory ? "memory" : "-", quiesce ? "quiesce" : "-"}));
    {
        skclass::CsLock hold(Get().lock);
        int result = 0;
        Vm *vm = VmFor(session, vmName, &result);
        if (!vm) return result;
        if (!name || !*name) return Fail(kBadArgument, "a snapshot needs a name", 0);
        vm->snapshots.push_back(name);
        Persist();
    }
    Log(std::string("snapshot '") + name + "' of '" + vmName + "' created");
    return 0;
}

int vmcCreateSnapshotEx(void *session, const char *name, const char *description, const char *vmName, bool memory,
                        bool quiesce, std::string &snapshotRef) {
    const int result = vmcCreateSnapshot(session, name, description, vmName, memory, quiesce);
    if (result == 0) snapshotRef = std::string("snapshot-") + name;
    return result;
}

int vmcRemoveSnapshot(void *session, const char *name, const char *vmName, bool removeChildren, bool consolidate) {
    RAVELSIM_ENTER(Args({name, vmName, removeChildren ? "children" : "-", consolidate ? "consolidate" : "-"}));
    {
        skclass::CsLock hold(Get().lock);
        int result = 0;
        Vm *vm = VmFor(session, vmName, &result);
        if (!vm) return result;
        auto &list = vm->snapshots;
        auto it = std::find(list.begin(), list.end(), std::string(Text(name)));
        if (it == list.end()) return Fail(kSnapshotGone, std::string("no snapshot ") + Text(name), 0);
        list.erase(it);
        Persist();
    }
    Log(std::string("snapshot '") + name + "' of '" + vmName + "' removed");
    return 0;
}

int vmcRemoveAllSnapshots(void *session, const char *vmName) {
    RAVELSIM_ENTER(Args({vmName}));
    skclass::CsLock hold(Get().lock);
    int result = 0;
    Vm *vm = VmFor(session, vmName, &result);
    if (!vm) return result;
    vm->snapshots.clear();
    Persist();
    return 0;
}

int vmcGetVmDiskDetails(void *session, const char *vmName, int index, _vmc::_VmDiskDetails &disk) {
    RAVELSIM_ENTER(Args({vmName, std::to_string(index).c_str()}));
    skclass::CsLock hold(Get().lock);
    int result = 0;
    const Vm *vm = VmFor(session, vmName, &result);
    if (!vm) return result;
    if (index < 0 || static_cast<size_t>(index) >= vm->disks.size()) return kBadArgument;
    disk = _vmc::_VmDiskDetails();
    disk.fileName = vm->disks[static_cast<size_t>(index)];
    disk.diskMode = vm->diskMode;
    disk.key = 2000 + index;
    return 0;
}

int vmcGetAllVmDiskDetails(void *session, const char *vmName, std::vector<_vmc::_VmDiskDetails> &disks) {
    RAVELSIM_ENTER(Args({vmName}));
    skclass::CsLock hold(Get().lock);
    int result = 0;
    const Vm *vm = VmFor(session, vmName, &result);
    if (!vm) return result;
    disks.clear();
    for (size_t i = 0; i < vm->disks.size(); ++i) {
        _vmc::_VmDiskDetails disk;
        disk.fileName = vm->disks[i];
        disk.diskMode = vm->diskMode;
        disk.key = 2000 + static_cast<int>(i);
        disks.push_back(disk);
    }
    return 0;
}

int vmcGetVmSnapshotTree(void *session, const char *vmName, _vmc::VmSnapshotInfo &tree) {
    RAVELSIM_ENTER(Args({vmName}));
    skclass::CsLock hold(Get().lock);
    int result = 0;
    const Vm *vm = VmFor(session, vmName, &result);
    if (!vm) return result;
    tree = _vmc::VmSnapshotInfo();
    tree.name = vm->name;
    tree.moRef = vm->moRef;
    for (const std::string &name : vm->snapshots) {
        _vmc::VmSnapshotInfo child;
        child.name = name;
        tree.children.push_back(child);
    }
    return 0;
}

int vmcGetVmBackupInfo(void *session, const char *vmName, const char *outputFile) {
    RAVELSIM_ENTER(Args({vmName, outputFile}));
    CXmlBuilder xml;
    {
        skclass::CsLock hold(Get().lock);
        int result = 0;
        const Vm *vm = VmFor(session, vmName, &result);
        if (!vm) return result;
        BackupInfo(*vm, xml);
    }
    return Save(xml, outputFile);
}

int vmcGetVmBackupInfoStrm(void *session, const char *vmName, std::wstringstream &out) {
    RAVELSIM_ENTER(Args({vmName}));
    CXmlBuilder xml;
    skclass::CsLock hold(Get().lock);
    int result = 0;
    const Vm *vm = VmFor(session, vmName, &result);
    if (!vm) return result;
    BackupInfo(*vm, xml);
    PutText(out, xml.GetXML());
    return 0;
}

int vmcGetObjectInfo(void *session, const char *root, const char *type, const char *name, const char *outputFile) {
    RAVELSIM_ENTER(Args({root, type, name, outputFile}));
    CXmlBuilder xml;
    {
        skclass::CsLock hold(Get().lock);
        if (!ValidSession(session)) return kBadSession;
        ObjectInfo(root, type, name, xml);
    }
    return Save(xml, outputFile);
}

int vmcGetObjectInfoStrm(void *session, const char *root, const char *type, const char *name,
                         std::wstringstream &out) {
    RAVELSIM_ENTER(Args({root, type, name}));
    CXmlBuilder xml;
    skclass::CsLock hold(Get().lock);
    if (!ValidSession(session)) return kBadSession;
    ObjectInfo(root, type, name, xml);
    PutText(out, xml.GetXML());
    return 0;
}

#ifndef RAVELSIM_OMIT_GETALLHOSTS
int vmcGetAllHosts(void *session, std::vector<_vmc::_HostSummary> *hosts) {
    RAVELSIM_ENTER(std::string(hosts ? "list" : "(null)"));
    skclass::CsLock hold(Get().lock);
    if (!ValidSession(session)) return kBadSession;
    if (!hosts) return kBadArgument;
    hosts->clear();
    for (const Host &host : Get().inventory.hosts) {
        _vmc::_HostSummary summary;
        summary.name = host.name;
        summary.moRef = host.moRef;
        summary.majorVersion = host.major;
        summary.minorVersion = host.minor;
        hosts->push_back(summary);
    }
    return 0;
}
#endif

}  // extern "C"
