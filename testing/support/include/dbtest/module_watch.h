// Waiting for a module to leave the process: the loader announces every
// unload (LdrRegisterDllNotification), so a test waits on an event for the
// last reference to go instead of polling for it.
#pragma once
#include <windows.h>

#include <skclass_mini/handles.h>

#include "wait.h"

namespace dbtest {

class ModuleUnloadWatch {
public:
    // Watches the module loaded from path, if one is loaded now.
    explicit ModuleUnloadWatch(const wchar_t *path);
    ~ModuleUnloadWatch();
    ModuleUnloadWatch(const ModuleUnloadWatch &) = delete;
    ModuleUnloadWatch &operator=(const ModuleUnloadWatch &) = delete;

    // True when the module was not loaded, or has been unloaded, or unloads
    // within milliseconds.
    bool Unloaded(DWORD milliseconds = kTimeoutMs) const;

private:
    static void CALLBACK Notified(ULONG reason, const void *data, void *context);

    HMODULE module_ = nullptr;
    skclass::UniqueHandle unloaded_;
    void *cookie_ = nullptr;
};

}  // namespace dbtest
