// Part of every stand-in DLL: keeps the shared threads runtime loaded for the
// life of the process (see diskbroker_standin_threads_runtime in
// testing/CMakeLists.txt). Unloaded with the last stand-in copy, it would
// leave its TLS index taken, and the next copy's load would take another.
#include <windows.h>

namespace {

bool PinThreadsRuntime() {
    HMODULE runtime = nullptr;
    // Only takes a reference on a module already loaded (as our import), so
    // it is safe while the loader runs our initialisation.
    return GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN, L"libwinpthread-1.dll", &runtime) != FALSE;
}

const bool g_pinned = PinThreadsRuntime();

}  // namespace
