// The unhandled-exception exit: no allocation, no lock and no C runtime here,
// because the thread that crashed may hold any of them.
#include <skclass_mini/crash_exit.h>

#include <stdint.h>
#include <skclass_mini/win.h>

namespace skclass {
namespace {

// Set before any thread starts, read only by the filter.
unsigned g_crashExitCode = 1;

char *PutHex(char *out, uint64_t value, int digits) {
    for (int shift = (digits - 1) * 4; shift >= 0; shift -= 4) *out++ = "0123456789ABCDEF"[(value >> shift) & 0xF];
    return out;
}

char *PutText(char *out, const char *text) {
    while (*text) *out++ = *text++;
    return out;
}

LONG WINAPI ExitOnCrash(EXCEPTION_POINTERS *info) {
    char line[80];
    char *end = PutText(line, "unhandled exception 0x");
    end = PutHex(end, info->ExceptionRecord->ExceptionCode, 8);
    end = PutText(end, " at 0x");
    end = PutHex(end, reinterpret_cast<uintptr_t>(info->ExceptionRecord->ExceptionAddress), 16);
    end = PutText(end, "\r\n");
    DWORD written = 0;
    WriteFile(GetStdHandle(STD_ERROR_HANDLE), line, static_cast<DWORD>(end - line), &written, nullptr);
    TerminateProcess(GetCurrentProcess(), g_crashExitCode);
    return EXCEPTION_EXECUTE_HANDLER;
}

}  // namespace

void ExitOnUnhandledException(unsigned exitCode) {
    g_crashExitCode = exitCode;
    SetUnhandledExceptionFilter(ExitOnCrash);
}

}  // namespace skclass
