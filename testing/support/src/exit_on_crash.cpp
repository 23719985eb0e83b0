// Part of every test program and of every child program a test starts (see
// diskbroker_exit_on_crash in cmake/Testing.cmake): a crash ends the process
// with exit code 70 and a line on stderr. Under Wine a crash in a process with
// several threads could end it with exit code 0, which CTest takes for a pass.
#include <skclass_mini/crash_exit.h>

namespace {

// Before main, so before any test or thread starts.
const bool g_exitOnCrash = (skclass::ExitOnUnhandledException(70), true);

}  // namespace
