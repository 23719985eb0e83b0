// Part of the vSphere layer: the VM lock (VDDK access preparation), vSphere
// tasks and the event extension. Task and event failures are warnings
// (0x2000xxxx) on purpose: a backup goes on without them.
#include <memory>

#include <diskbroker.h>

#include "vmtools_internal.h"

using namespace vmtools;

namespace {

const wchar_t kAccessLabel[] = L"vddkSetupVMAccessControl()";
const wchar_t kCreateTaskLabel[] = L"vddkCreateVMwareTask()";
const wchar_t kRegisterLabel[] = L"vddkRegisterVSphereEventExtension()";
const wchar_t kUnregisterLabel[] = L"vddkUnRegisterVSphereEventExtension()";  // capital R, as the log always had

// The host reference inside a VM's host text "name (<host-N>)": what follows
// "(<", without a ">)" that may end it; empty without "(<".
std::string HostReference(const std::string &hostText) {
    const size_t open = hostText.find("(<");
    if (open == std::string::npos) return std::string();
    std::string reference = hostText.substr(open + 2);
    const size_t close = reference.find(">)");
    if (close != std::string::npos) reference.erase(close, 2);
    return reference;
}

// Connection parameters naming the VM by its managed object reference; the
// texts live as long as the object.
struct VmConnection {
    cstring vmxSpec, server, user, password;
    VixDiskLibConnectParams params{};
    VmConnection(const std::string &moRef, const wcstring &serverName, const wcstring &userName,
                 const wcstring &passwordText, uint32_t port)
        : vmxSpec("moRef=" + moRef), server(Utf8(serverName)), user(Utf8(userName)), password(Utf8(passwordText)) {
        params.vmxSpec = &vmxSpec[0];
        params.serverName = &server[0];
        params.credType = VIXDISKLIB_CRED_UID;
        params.creds.uid.userName = &user[0];
        params.creds.uid.password = &password[0];
        params.port = port;
    }
    ~VmConnection() { SecureZeroMemory(&password[0], password.size()); }
};

uint32_t LockOrRelease(bool prepare, const wcstring &identity, const wcstring &vmName, const wcstring &serverName,
                       const wcstring &userName, const wcstring &password, uint32_t port, soapVmToolsWrapper *wrapper,
                       void *session, wcstring &vddkLogOut) {
    if (!wrapper) return dbresult::kNullArgument;
    std::unique_ptr<_vmc::_ObjDetails> details(new (std::nothrow) _vmc::_ObjDetails());
    if (!details) return dbresult::kOutOfResources;
    int result = wrapper->vmcGetServerDetails(session, details.get());
    if (result != 0) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"%s: vmcGetServerDetails failed, result = 0X%X", kAccessLabel, result);
        return dbresult::kObjectDetailsUnreadable;
    }
    if (details->type != "VirtualCenter") return dbresult::kOk;  // only vCenter can lock a VM
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"%s Getting moRef for VM '%s'", kAccessLabel, vmName.c_str());
    result = wrapper->vmcGetObjDetails(session, Utf8(vmName).c_str(), nullptr, nullptr, "DataSet2a", details.get());
    if (result != 0) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"%s: vmcGetObjDetails failed, result = 0X%X", kAccessLabel, result);
        return dbresult::kObjectDetailsUnreadable;
    }
    skclass::shared_ptr<diskBroker> broker = diskBroker::GetInstance();
    if (!broker) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"%s Could not get a handle to vix disk lib. ", kAccessLabel);
        return dbresult::kNoDiskBrokerService;
    }
    VmConnection vm(details->moRef, serverName, userName, password, port);
    const cstring who = Utf8(identity);
    const wcstring spec = Wide(vm.vmxSpec);
    const VixError error = prepare ? broker->VixDiskLib_PrepareForAccess(&vm.params, who.c_str())
                                   : broker->VixDiskLib_EndAccess(&vm.params, who.c_str());
    if (error == VIX_OK) return dbresult::kOk;
    wcstring text;
    broker->GetErrorText(error, text);
    if (prepare) {
        broker->GetCachedVDDKlog(&vddkLogOut);
        SK_Zprintf_2(SK_SOURCE_FILE, 0,
                     L"%s Failure preparing VM for access: server '%s' VM '%s'. Error Text: '%s' Error: '%d'",
                     kAccessLabel, serverName.c_str(), spec.c_str(), text.c_str(), static_cast<int>(error));
        return dbresult::kAccessPrepareFailed;
    }
    SK_Zprintf_2(SK_SOURCE_FILE, 0,
                 L"%s Failure releasing VM from access: server '%s' VM '%s'. Error Text: '%s' Error: '%d'",
                 kAccessLabel, serverName.c_str(), spec.c_str(), text.c_str(), static_cast<int>(error));
    return dbresult::kAccessEndFailed;
}

uint32_t CreateTask(wcstring &taskOut, const wcstring &vmName, const wcstring &text3, const wcstring &text4, bool flag,
                    soapVmToolsWrapper *wrapper, void *session) {
    if (!wrapper || !session) return dbresult::kNullArgument;
    std::unique_ptr<_vmc::_ObjDetails> details(new (std::nothrow) _vmc::_ObjDetails());
    if (!details) return dbresult::kOutOfResources;
    int result = wrapper->vmcGetObjDetails(session, Utf8(vmName).c_str(), nullptr, nullptr, "DataSet2a", details.get());
    if (result != 0) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"%s: vmcGetObjDetails failed, result = 0X%X", kCreateTaskLabel, result);
        return dbresult::kObjectDetailsUnreadable;
    }
    const std::string host = HostReference(details->host);
    std::string task;
    result = wrapper->vmcCreateTask(session, task, host.c_str(), "HostSystem", Utf8(text3).c_str(), nullptr,
                                    Utf8(text4).c_str(), flag);
    if (result != 0) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"%s: vmcCreateTask() failed, result = 0X%X", kCreateTaskLabel, result);
        return dbresult::kTaskCreateFailed;
    }
    taskOut = Wide(task);
    return dbresult::kOk;
}

// One library call of a task or event function: logs a failure under label
// with format (null: silent) and returns failureCode.
template <typename Call>
uint32_t OneCall(soapVmToolsWrapper *wrapper, void *session, const wchar_t *label, const wchar_t *format,
                 uint32_t failureCode, Call call) {
    if (!wrapper || !session) return dbresult::kNullArgument;
    const int result = call();
    if (result == 0) return dbresult::kOk;
    if (format) SK_Zprintf_2(SK_SOURCE_FILE, 0, format, label, result);
    return failureCode;
}

// Whether the extension is registered; false (logged) when the library cannot tell.
bool IsRegistered(soapVmToolsWrapper &wrapper, void *session, const cstring &key, const wchar_t *label,
                  bool &registered) {
    registered = false;
    const int result = wrapper.vmcIsEventExtensionRegistered(session, key.c_str(), &registered);
    if (result == 0) return true;
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"%s: vmcIsEventExtensionRegistered() failed, result = 0X%X", label, result);
    return false;
}

}  // namespace

extern "C" {

uint32_t vddkSetupVMAccessControl(bool prepare, const wcstring &identity, const wcstring &vmName,
                                  const wcstring &serverName, const wcstring &userName, const wcstring &password,
                                  uint32_t port, soapVmToolsWrapper *wrapper, void *session, wcstring &vddkLogOut) {
    return Guarded(L"vddkSetupVMAccessControl", [&] {
        return LockOrRelease(prepare, identity, vmName, serverName, userName, password, port, wrapper, session,
                             vddkLogOut);
    });
}

uint32_t vddkCreateVMwareTask(wcstring &taskOut, const wcstring &vmName, const wcstring &text3, const wcstring &text4,
                              bool flag, soapVmToolsWrapper *wrapper, void *session) {
    return Guarded(L"vddkCreateVMwareTask",
                   [&] { return CreateTask(taskOut, vmName, text3, text4, flag, wrapper, session); });
}

uint32_t vddkCancelVMwareTask(const wcstring &task, soapVmToolsWrapper *wrapper, void *session) {
    return Guarded(L"vddkCancelVMwareTask", [&] {
        return OneCall(wrapper, session, L"vddkCancelVMwareTask()", L"%s: vmcCancelTask() failed, result = 0X%X",
                       dbresult::kTaskCancelFailed,
                       [&] { return wrapper->vmcCancelTask(session, Utf8(task).c_str()); });
    });
}

uint32_t vddkSetVMwareTaskState(const wcstring &task, const wcstring &state, soapVmToolsWrapper *wrapper,
                                void *session) {
    return Guarded(L"vddkSetVMwareTaskState", [&] {
        return OneCall(wrapper, session, L"vddkSetVMwareTaskState()", L"%s: vmcSetTaskState() failed, result = 0X%X",
                       dbresult::kTaskStateFailed,
                       [&] { return wrapper->vmcSetTaskState(session, Utf8(task).c_str(), Utf8(state).c_str()); });
    });
}

uint32_t vddkUpdateVMwareTaskProgress(const wcstring &task, int32_t percent, soapVmToolsWrapper *wrapper,
                                      void *session) {
    return Guarded(L"vddkUpdateVMwareTaskProgress", [&] {
        return OneCall(wrapper, session, L"vddkUpdateVMwareTaskProgress()", nullptr, dbresult::kTaskProgressFailed,
                       [&] { return wrapper->vmcUpdateTaskProgress(session, Utf8(task).c_str(), percent); });
    });
}

uint32_t vddkSetVMwareTaskDescription(const wcstring &s1, const wcstring &s2, const wcstring *s3, const wcstring *s4,
                                      soapVmToolsWrapper *wrapper, void *session) {
    return Guarded(L"vddkSetVMwareTaskDescription", [&] {
        const cstring t3 = s3 ? Utf8(*s3) : cstring(), t4 = s4 ? Utf8(*s4) : cstring();
        return OneCall(wrapper, session, L"vddkSetVMwareTaskDescription()",
                       L"%s: vmcSetTaskDescription() failed, result = 0X%X", dbresult::kTaskDescriptionFailed, [&] {
                           return wrapper->vmcSetTaskDescription(session, Utf8(s1).c_str(), Utf8(s2).c_str(),
                                                                 s3 ? t3.c_str() : nullptr, s4 ? t4.c_str() : nullptr);
                       });
    });
}

uint32_t vddkRegisterVSphereEventExtension(const wcstring &s1, const wcstring &s2, const wcstring &s3,
                                           const wcstring &s4, const wcstring &s5, const wcstring &s6,
                                           const wcstring &s7, const wcstring &s8, const wcstring &s9,
                                           const wcstring &s10, const wcstring &s11, const wcstring &s12,
                                           const wcstring &s13, int64_t number, soapVmToolsWrapper *wrapper,
                                           void *session) {
    return Guarded(L"vddkRegisterVSphereEventExtension", [&] {
        if (!wrapper || !session) return dbresult::kNullArgument;
        const cstring key = Utf8(s1);
        bool registered = false;
        if (!IsRegistered(*wrapper, session, key, kRegisterLabel, registered)) return dbresult::kExtensionRegisterFailed;
        if (registered) return dbresult::kOk;
        const int result = wrapper->vmcRegisterEventExtension(
            session, key.c_str(), Utf8(s2).c_str(), Utf8(s3).c_str(), Utf8(s4).c_str(), Utf8(s5).c_str(),
            Utf8(s6).c_str(), Utf8(s7).c_str(), Utf8(s8).c_str(), Utf8(s9).c_str(), Utf8(s10).c_str(),
            Utf8(s11).c_str(), Utf8(s12).c_str(), Utf8(s13).c_str(), number);
        if (result == 0) return dbresult::kOk;
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"%s: vmcRegisterEventExtension() failed, result = 0X%X", kRegisterLabel,
                     result);
        return dbresult::kExtensionRegisterFailed;
    });
}

uint32_t vddkUnregisterVSphereEventExtension(const wcstring &key, soapVmToolsWrapper *wrapper, void *session) {
    return Guarded(L"vddkUnregisterVSphereEventExtension", [&] {
        if (!wrapper || !session) return dbresult::kNullArgument;
        const cstring narrowKey = Utf8(key);
        bool registered = false;
        if (!IsRegistered(*wrapper, session, narrowKey, kUnregisterLabel, registered))
            return dbresult::kExtensionUnregisterFailed;
        if (!registered) return dbresult::kOk;
        const int result = wrapper->vmcUnregisterEventExtension(session, narrowKey.c_str());
        if (result == 0) return dbresult::kOk;
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"%s: vmcUnRegisterEventExtension() failed, result = 0X%X", kUnregisterLabel,
                     result);
        return dbresult::kExtensionUnregisterFailed;
    });
}

}  // extern "C"
