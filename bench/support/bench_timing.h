// The benches' clock and statistics: a clock, busy work that stands for a
// job's own work, medians, and a reading of how much a second thread helps
// right now.
#pragma once
#include <algorithm>
#include <thread>
#include <vector>

#include <windows.h>

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

inline double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
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

}  // namespace benchsupport
