// The time seam.
#include <skclass_mini/dawdle.h>

#include <atomic>
#include <skclass_mini/win.h>
#include "dawdle_internal.h"

namespace skclass {
namespace {

// Plain atomics: constant-initialised, no destructor, safe from any thread and
// during process exit.
std::atomic<double> g_scale{1.0};
std::atomic<uint64_t> g_requestedMilliseconds{0};

}  // namespace

namespace detail {

unsigned long RecordAndScaleDawdle(unsigned long milliseconds) {
    g_requestedMilliseconds.fetch_add(milliseconds, std::memory_order_relaxed);
    const double scaled = static_cast<double>(milliseconds) * g_scale.load(std::memory_order_relaxed);
    if (!(scaled >= 1.0)) return 0;  // also catches NaN
    if (scaled >= static_cast<double>(INFINITE - 1)) return INFINITE - 1;
    return static_cast<unsigned long>(scaled);
}

}  // namespace detail

void Dawdle(unsigned long milliseconds) {
    const unsigned long scaled = detail::RecordAndScaleDawdle(milliseconds);
    if (scaled == 0) {
        SwitchToThread();
    } else {
        Sleep(scaled);
    }
}

void SetTimeScale(double scale) {
    g_scale.store(scale >= 0.0 ? scale : 0.0, std::memory_order_relaxed);
}

double GetTimeScale() { return g_scale.load(std::memory_order_relaxed); }

uint64_t DawdleRequestedMilliseconds() { return g_requestedMilliseconds.load(std::memory_order_relaxed); }

void ResetDawdleRequested() { g_requestedMilliseconds.store(0, std::memory_order_relaxed); }

}  // namespace skclass
