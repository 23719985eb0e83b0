// The capture sinks registered with SK_AddLogSink.
#pragma once
#include <skstdutl/sklog.h>

namespace sklog {

// Calls every sink in registration order, outside the file lock. A sink that
// logs does not reach the sinks again (the nested line goes to the file only).
void DeliverToSinks(const SK_LogRecord &record) noexcept;

}  // namespace sklog
