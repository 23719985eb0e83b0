// What the crash child commits, shared with the test that checks its files:
// commit i of a seed is always the same runs, and the child tells the test
// how many commits returned through a counter in shared memory.
#pragma once
#include <stdint.h>

#include <random>
#include <string>
#include <utility>
#include <vector>

#include <windows.h>

namespace sectorcrash {

// Runs fall in [0, kSectors), so the test's bitmap stays small.
constexpr uint64_t kSectors = uint64_t(1) << 20;
// Every kCompactEvery-th commit is followed by an end (compaction) and a new start.
constexpr uint64_t kCompactEvery = 5;

// Commit number index: one to three runs (start, count). mt19937_64's
// sequence is fixed by the standard, so child and test agree.
inline std::vector<std::pair<uint64_t, uint64_t>> CommitRuns(uint64_t seed, uint64_t index) {
    std::mt19937_64 random(seed * 1000003 + index);
    std::vector<std::pair<uint64_t, uint64_t>> runs;
    for (uint64_t n = 1 + random() % 3; n > 0; --n) {
        const uint64_t state = random();
        runs.push_back({state % (kSectors - 64), 1 + (state >> 40) % 64});
    }
    return runs;
}

// Shared with the child: acknowledged = commits that returned 0 so far (the
// next one the child makes is number acknowledged). Read and written only
// through Interlocked calls.
struct Shared {
    LONG64 acknowledged;
};

inline uint64_t Acknowledged(Shared *shared) {
    return static_cast<uint64_t>(InterlockedCompareExchange64(&shared->acknowledged, 0, 0));
}

inline std::wstring SharedName(DWORD parent) { return L"Local\\sector-crash-" + std::to_wstring(parent); }
inline std::wstring AckEventName(DWORD parent) { return L"Local\\sector-crash-ack-" + std::to_wstring(parent); }

}  // namespace sectorcrash
