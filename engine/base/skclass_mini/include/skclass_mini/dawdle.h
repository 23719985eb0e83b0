// The time seam: every wait that exists only to let time pass (retry back-offs,
// fixed delays) goes through Dawdle, never through Sleep directly. Tests compress
// time with SetTimeScale and still see what was asked for.
#pragma once
#include <stdint.h>
#include <skclass_mini/export.h>

namespace skclass {

// Waits milliseconds x the current scale (rounded down; 0 yields the processor).
SKCLASS_API void Dawdle(unsigned long milliseconds);

// 1.0 in production. A test sets e.g. 0.001 or 0 and restores 1.0 afterwards.
SKCLASS_API void SetTimeScale(double scale);
SKCLASS_API double GetTimeScale();

// Sum of the milliseconds requested through Dawdle since the last reset,
// process-wide, before scaling.
SKCLASS_API uint64_t DawdleRequestedMilliseconds();
SKCLASS_API void ResetDawdleRequested();

}  // namespace skclass
