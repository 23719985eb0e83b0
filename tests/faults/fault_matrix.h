// What the fault matrix injects: one VDDK entry point failing once, failing
// always (with an I/O error that is neither retried-away nor masked), or taking
// 200 ms, through the stand-in's control interface.
#pragma once

#include <stdint.h>

#include <gtest/gtest.h>

#include <dbtest/vddk_install.h>
#include <vddksim.h>

namespace faulttest {

enum class Fault { Once, Always, Slow };
inline constexpr Fault kFaults[] = {Fault::Once, Fault::Always, Fault::Slow};
inline constexpr VixError kInjectedError = VIX_E_DISK_NOIO;
inline constexpr uint32_t kAlways = 1000000;
inline constexpr uint32_t kSlowMicroseconds = 200000;

inline const char *FaultName(Fault fault) {
    return fault == Fault::Once ? "once" : fault == Fault::Always ? "always" : "slow";
}

// Forgets every earlier script and latency, then sets up fault for function.
inline ::testing::AssertionResult Inject(const dbtest::VddkSimControl &sim, const char *function, Fault fault) {
    sim.VddkSim_Reset();
    const int set = fault == Fault::Slow
                        ? sim.VddkSim_SetLatency(function, kSlowMicroseconds)
                        : sim.ScriptResult(function, fault == Fault::Once ? 1 : kAlways, kInjectedError);
    if (set == 1) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "the stand-in refused the fault for " << function;
}

}  // namespace faulttest
