// Virtual machines and hosts: details of a VM by name, change tracking,
// reload, and the list of hosts.
#include <stdlib.h>
#include "live_props.h"
#include "live_served.h"

namespace ravelkit_live {

namespace {

// Disk modes of the VM's disks, comma separated; a raw mapping reports its
// compatibility mode when that is "physicalMode".
std::string DiskModes(CXmlReader &devices) {
    std::string modes;
    if (!devices.SelectFirstChild()) return modes;
    do {
        if (XsiType(devices) != "VirtualDisk" || !devices.SelectFirstChild()) continue;
        do {
            if (LocalName(devices) != L"backing") continue;
            std::string mode, compatibility;
            ChildText(devices, L"diskMode", mode);
            ChildText(devices, L"compatibilityMode", compatibility);
            if (compatibility == "physicalMode") mode = compatibility;
            modes += (modes.empty() ? "" : ",") + mode;
        } while (devices.SelectNextSibling());
        devices.SelectParent();
    } while (devices.SelectNextSibling());
    devices.SelectParent();
    return modes;
}

// "vmx-15" -> "15".
std::string HardwareVersion(const std::string &version) {
    const size_t dash = version.rfind('-');
    return dash == std::string::npos ? version : version.substr(dash + 1);
}

// The virtual disks of a device list: file, mode, capacity and device key.
std::vector<_vmc::_VmDiskDetails> Disks(CXmlReader &devices) {
    std::vector<_vmc::_VmDiskDetails> disks;
    if (!devices.SelectFirstChild()) return disks;
    do {
        if (XsiType(devices) != "VirtualDisk") continue;
        _vmc::_VmDiskDetails disk;
        std::string key, kb, bytes;
        ChildText(devices, L"key", key);
        ChildText(devices, L"capacityInKB", kb);
        ChildText(devices, L"capacityInBytes", bytes);
        disk.key = atoi(key.c_str());
        disk.capacityBytes = !bytes.empty() ? _atoi64(bytes.c_str()) : _atoi64(kb.c_str()) * 1024;
        if (devices.SelectFirstChild()) {
            do {
                if (LocalName(devices) != L"backing") continue;
                ChildText(devices, L"fileName", disk.fileName);
                ChildText(devices, L"diskMode", disk.diskMode);
            } while (devices.SelectNextSibling());
            devices.SelectParent();
        }
        disks.push_back(disk);
    } while (devices.SelectNextSibling());
    devices.SelectParent();
    return disks;
}

int VmOf(Session &s, const char *name, std::string &moRef) {
    if (!name || !*name) return Fail(kBadArgument, "no VM name");
    return FindByName(s, "VirtualMachine", name, moRef);
}

int Reconfigure(Session &s, const std::string &vm, const char *what, const Arguments &spec) {
    CXmlReader answer;
    int result = Call(s, L"ReconfigVM_Task",
                      [&](CXmlBuilder &b) {
                          MoRef(b, L"_this", "VirtualMachine", vm);
                          b.StartElement(L"spec");
                          spec(b);
                          b.EndElement();
                      },
                      answer);
    if (result != kOk) return result;
    if (!answer.SelectSingleNode(L"returnval")) return Fail(kServerFault, std::string(what) + ": no task", kOtherFaultNumber);
    result = WaitForTask(s, TextOf(answer));
    if (result == kOk) Log(std::string(what) + " done for " + vm);
    return result;
}

}  // namespace

int Served::vmcGetObjDetails(void *session, const char *name, const char *, const char *moRefIn, const char *,
                             _vmc::_ObjDetails *details) {
    Session *s = SessionOf(session, "vmcGetObjDetails");
    if (!s) return kBadSession;
    if (!details) return Fail(kBadArgument, "vmcGetObjDetails: no details record");
    std::string vm = moRefIn && *moRefIn ? moRefIn : "";
    if (vm.empty()) {
        const int found = VmOf(*s, name, vm);
        if (found != kOk) return found;
    }
    _vmc::_ObjDetails out;
    out.moRef = vm;
    std::string hostRef;
    int result = ReadProperties(*s, "VirtualMachine", vm,
                                {"name", "runtime.powerState", "guest.hostName", "runtime.host",
                                 "config.version", "config.hardware.device"},
                                [&](const std::string &path, CXmlReader &val) {
                                    if (path == "name") out.type = TextOf(val);
                                    else if (path == "runtime.powerState") out.powerState = TextOf(val);
                                    else if (path == "guest.hostName") out.guestHostName = TextOf(val);
                                    else if (path == "runtime.host") hostRef = TextOf(val);
                                    else if (path == "config.version") out.hardwareVersion = HardwareVersion(TextOf(val));
                                    else if (path == "config.hardware.device") out.diskMode = DiskModes(val);
                                });
    if (result != kOk) return result;
    if (!hostRef.empty()) {
        std::string hostName;
        result = ReadProperties(*s, "HostSystem", hostRef, {"name"},
                                [&](const std::string &, CXmlReader &val) { hostName = TextOf(val); });
        if (result != kOk) return result;
        out.host = hostName + " (<" + hostRef + ">)";
    }
    *details = out;
    return kOk;
}

int Served::vmcGetAllVmDiskDetails(void *session, const char *vm, std::vector<_vmc::_VmDiskDetails> &disks) {
    Session *s = SessionOf(session, "vmcGetAllVmDiskDetails");
    if (!s) return kBadSession;
    std::string ref;
    int result = VmOf(*s, vm, ref);
    if (result != kOk) return result;
    std::vector<_vmc::_VmDiskDetails> found;
    result = ReadProperties(*s, "VirtualMachine", ref, {"config.hardware.device"},
                            [&](const std::string &, CXmlReader &val) { found = Disks(val); });
    if (result == kOk) disks = found;
    return result;
}

int Served::vmcGetAllHosts(void *session, std::vector<_vmc::_HostSummary> *hosts) {
    Session *s = SessionOf(session, "vmcGetAllHosts");
    if (!s) return kBadSession;
    if (!hosts) return Fail(kBadArgument, "vmcGetAllHosts: no list");
    std::vector<_vmc::_HostSummary> found;
    const int result = ForEachObject(*s, "HostSystem", {"name", "config.product.version"},
                                     [&](const std::string &ref, const std::string &path, CXmlReader &val) {
                                         if (found.empty() || found.back().moRef != ref) {
                                             found.emplace_back();
                                             found.back().moRef = ref;
                                         }
                                         const std::string text = TextOf(val);
                                         if (path == "name") found.back().name = text;
                                         if (path != "config.product.version") return;
                                         int major = 0, minor = 0;
                                         if (sscanf(text.c_str(), "%d.%d", &major, &minor) >= 1) {
                                             found.back().majorVersion = static_cast<int16_t>(major);
                                             found.back().minorVersion = static_cast<int16_t>(minor);
                                         }
                                     });
    if (result != kOk) return result;
    *hosts = found;
    return kOk;
}

int Served::vmcIsChangeTrackingEnabled(void *session, const std::string &vm, bool &enabled, bool &supported) {
    Session *s = SessionOf(session, "vmcIsChangeTrackingEnabled");
    if (!s) return kBadSession;
    std::string ref;
    int result = VmOf(*s, vm.c_str(), ref);
    if (result != kOk) return result;
    enabled = supported = false;
    return ReadProperties(*s, "VirtualMachine", ref, {"config.changeTrackingEnabled", "capability.changeTrackingSupported"},
                          [&](const std::string &path, CXmlReader &val) {
                              const bool on = TextOf(val) == "true";
                              if (path == "config.changeTrackingEnabled") enabled = on;
                              else supported = on;
                          });
}

int Served::vmcSetVmPowerOrConfigState(void *session, const char *vm, const char *state) {
    Session *s = SessionOf(session, "vmcSetVmPowerOrConfigState");
    if (!s) return kBadSession;
    const std::string what = state ? state : "";
    std::string ref;
    if (what != "reload" && what != "enableChangeTracking")
        return Fail(kNotSupported, "vmcSetVmPowerOrConfigState: state '" + what + "' is not supported");
    int result = VmOf(*s, vm, ref);
    if (result != kOk) return result;
    if (what == "enableChangeTracking")
        return Reconfigure(*s, ref, "enableChangeTracking",
                           [](CXmlBuilder &b) { Element(b, L"changeTrackingEnabled", "true"); });
    CXmlReader answer;
    return Call(*s, L"Reload", [&](CXmlBuilder &b) { MoRef(b, L"_this", "VirtualMachine", ref); }, answer);
}

}  // namespace ravelkit_live
