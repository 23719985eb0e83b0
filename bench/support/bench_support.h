// What the benches share: a clock, busy work that stands for a job's own work,
// a reading of how much a second thread helps right now, and the stand-in
// installed the production way in a private registry.
#pragma once
#include <stdio.h>

#include <string>
#include <thread>

#include <dbtest/registry_sandbox.h>
#include <dbtest/temp_dir.h>
#include <dbtest/vddk_install.h>
#include <skclass_mini/win.h>

namespace benchsupport {

inline double Now() {
    LARGE_INTEGER frequency, counter;
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&counter);
    return double(counter.QuadPart) / double(frequency.QuadPart);
}

// The job's own work on a buffer (compression, say): busy, as real work is.
inline void Work(double milliseconds) {
    const double end = Now() + milliseconds / 1000;
    while (milliseconds > 0 && Now() < end) {
    }
}

// What the machine lends a second thread right now: 1.0 when the two threads
// take turns, 2.0 when each has a core. Overlap goals need about 2.
inline double TwoThreadSpeedUp() {
    const int spins = 100;
    double start = Now();
    for (int i = 0; i < 2 * spins; ++i) Work(1);
    const double alone = Now() - start;
    start = Now();
    std::thread other([] {
        for (int i = 0; i < spins; ++i) Work(1);
    });
    for (int i = 0; i < spins; ++i) Work(1);
    other.join();
    return alone / (Now() - start);
}

// Installs the stand-in for the main product under install, with HKLM
// sandboxed by registry; says why on stderr when it cannot.
inline bool InstallStandin(const dbtest::RegistrySandbox &registry, const dbtest::TempDir &install) {
    std::string error;
    if (registry.Ok() && !install.Path().empty() &&
        dbtest::InstallVddkStandin(install.Path(), 0, dbtest::VddkVariant::Normal, &error))
        return true;
    fprintf(stderr, "cannot install the VDDK stand-in: %s\n", error.c_str());
    return false;
}

}  // namespace benchsupport
