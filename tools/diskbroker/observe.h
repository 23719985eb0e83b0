// What the program learns besides the calls' results: the library's log lines
// (the handle statistics, write failures that surface only in the log) and
// the caches' buffer-depth histograms.
#pragma once
#include <stdint.h>

#include <string>
#include <vector>

#include <skclass_mini/handles.h>

struct bufferDepthHistogram;

namespace dbtool {

// Sees every line the library logs while it exists (a capture sink of the
// product's log); keeps only the lines the program reports on.
class LogWatch {
public:
    LogWatch();
    ~LogWatch();
    LogWatch(const LogWatch &) = delete;
    LogWatch &operator=(const LogWatch &) = delete;

    // "VixDiskLib_Read(...) No of reads: ..." / "VixDiskLib_Write(...) No of
    // writes: ...": one per contiguous extent, the last at close.
    std::vector<std::wstring> TakeStatistics();
    // Lines that report data lost by a cache: failed reads or writes, and a
    // write pass whose byte count differs from what was expected.
    std::vector<std::wstring> TakeProblems();

    void Keep(const wchar_t *text);  // the sink's entry; public for tests

private:
    skclass::CriticalSection lock_;
    std::vector<std::wstring> statistics_;  // lock_
    std::vector<std::wstring> problems_;    // lock_
    int sinkId_ = 0;
};

// A copy of a depth histogram taken before the cache's close resets it.
struct DepthReading {
    uint64_t samples = 0;
    std::vector<uint32_t> counts;  // index = depth of the filled queue when sampled

    static DepthReading Of(const bufferDepthHistogram *histogram);
    // "<emptyVerdict>" when the waiting side mostly found the queue empty,
    // else "<fullVerdict>", with the share of empty samples and the mean depth.
    std::wstring Describe(const std::wstring &emptyVerdict, const std::wstring &fullVerdict) const;
};

}  // namespace dbtool
