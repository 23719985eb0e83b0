// A process that crashes ends with an exit code of its own choosing. Under
// Wine an unhandled exception in a process with several threads can end it
// with exit code 0, so a crashed run would read as a good one; on Windows the
// code is the exception's, whose low byte (all a shell sees) can be 0 too.
#pragma once
#include <skclass_mini/export.h>

namespace skclass {

// From now on an exception that no handler takes writes one line to stderr
// ("unhandled exception 0x<code> at 0x<address>") and ends the process with
// exitCode. Call it first thing in main, before any thread starts.
SKCLASS_API void ExitOnUnhandledException(unsigned exitCode);

}  // namespace skclass
