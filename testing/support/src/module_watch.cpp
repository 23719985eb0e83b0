// Unload notifications from the loader, for ModuleUnloadWatch.
#include <dbtest/module_watch.h>

#include <winternl.h>

namespace dbtest {

namespace {

// LDR_DLL_NOTIFICATION_DATA: the same for loads and unloads.
struct DllNotification {
    ULONG flags;
    const UNICODE_STRING *fullDllName;
    const UNICODE_STRING *baseDllName;
    void *dllBase;
    ULONG sizeOfImage;
};

constexpr ULONG kReasonUnloaded = 2;

using Callback = void(CALLBACK *)(ULONG reason, const void *data, void *context);
using Register = LONG(NTAPI *)(ULONG flags, Callback callback, void *context, void **cookie);
using Unregister = LONG(NTAPI *)(void *cookie);

// Through void (*)(), the type any function pointer may be cast from and to.
template <typename Function>
Function NtdllEntry(const char *name) {
    return reinterpret_cast<Function>(
        reinterpret_cast<void (*)()>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), name)));
}

}  // namespace

ModuleUnloadWatch::ModuleUnloadWatch(const wchar_t *path) : unloaded_(NewEvent()) {
    module_ = GetModuleHandleW(path);
    const auto registerNotification = NtdllEntry<Register>("LdrRegisterDllNotification");
    if (module_ && registerNotification && registerNotification(0, &Notified, this, &cookie_) != 0) cookie_ = nullptr;
    // Gone between the look and the registration: announced by nobody.
    if (cookie_ && !GetModuleHandleW(path)) SetEvent(unloaded_.get());
}

ModuleUnloadWatch::~ModuleUnloadWatch() {
    const auto unregisterNotification = NtdllEntry<Unregister>("LdrUnregisterDllNotification");
    if (cookie_ && unregisterNotification) unregisterNotification(cookie_);
}

// Runs under the loader lock: compares and signals, nothing more.
void CALLBACK ModuleUnloadWatch::Notified(ULONG reason, const void *data, void *context) {
    const auto *watch = static_cast<ModuleUnloadWatch *>(context);
    if (reason == kReasonUnloaded && static_cast<const DllNotification *>(data)->dllBase == watch->module_)
        SetEvent(watch->unloaded_.get());
}

bool ModuleUnloadWatch::Unloaded(DWORD milliseconds) const {
    if (!module_) return true;
    // Without the notification (not registered) the wait can only fail.
    return cookie_ && Signalled(unloaded_, milliseconds);
}

}  // namespace dbtest
