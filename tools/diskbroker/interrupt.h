// Ctrl-C and Ctrl-Break end a transfer cleanly: the console handler only sets
// a flag, and the transfer loops check it between buffers and throw, so the
// caches are closed, the disks closed and the outputs left marked incomplete
// by the same unwinding that handles any other failure.
#pragma once
#include <string>

namespace dbtool {

// Installs the console handler (once per process). A second Ctrl-C while the
// first is being handled ends the process the default way.
void InstallInterruptHandler();
// What the handler does; public so tests can interrupt without a console.
void RequestInterrupt();
void ClearInterrupt();
bool Interrupted();
// Throws Failure "<what> was interrupted ..." when an interrupt was requested.
void ThrowIfInterrupted(const std::wstring &what);

}  // namespace dbtool
