#include "interrupt.h"

#include <skclass_mini/win.h>

#include <atomic>

#include "errors.h"

namespace dbtool {
namespace {

std::atomic<bool> g_interrupted{false};

BOOL WINAPI OnConsoleEvent(DWORD event) {
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) return FALSE;
    // The second press: the user does not want to wait for the clean end.
    if (g_interrupted.exchange(true)) return FALSE;
    return TRUE;
}

}  // namespace

void InstallInterruptHandler() {
    static const bool installed = SetConsoleCtrlHandler(OnConsoleEvent, TRUE) != FALSE;
    (void)installed;
}

void RequestInterrupt() { g_interrupted = true; }
void ClearInterrupt() { g_interrupted = false; }
bool Interrupted() { return g_interrupted; }

void ThrowIfInterrupted(const std::wstring &what) {
    if (g_interrupted) throw Failure(what + L" was interrupted (Ctrl-C); its outputs are incomplete");
}

}  // namespace dbtool
