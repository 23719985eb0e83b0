// A write cache over a verifying memory disk of the VDDK stand-in, reached
// through the production path: a diskBroker on the stand-in, a local
// connection and a handle opened with the tag "Write". The stand-in counts
// every written sector that differs from the disk's pattern, so each test
// checks the written bytes sector by sector.
#pragma once

#include <string>
#include <vector>

#include <dbtest/wait.h>

#include "service_fixture.h"

namespace writecachetest {

using dbtest::kTimeoutMs;  // for what must happen
// How long a test watches for something that must not happen.
constexpr DWORD kMustNotHappenMs = 200;
constexpr uint64_t kSeed = 11;

class WriteCacheTest : public servicetest::ConnectedServiceTest {
protected:
    void SetUp() override;
    void TearDown() override;

    // startWriteCacheThread with the test's context; the result is returned.
    long StartCache(unsigned long bufferCount, unsigned long bufferSizeKB, unsigned long minRunSizeKB = 1,
                    unsigned long raisePriority = 0);
    // One pass on the memory disk that expects diskSize bytes.
    void StartPass(uint64_t diskSize);
    // Puts sectors [first, first + count) with the disk's own pattern.
    long Put(uint64_t first, uint64_t count);
    long Close() { return service->closeWriteCacheThread(&context); }

    uint64_t WrittenSectors() const { return sim.VddkSim_MemDiskWrittenSectors("wc"); }
    uint64_t Mismatches() const { return sim.VddkSim_MemDiskMismatches("wc"); }
    uint64_t Writes() const { return Calls("VixDiskLib_Write"); }
    // The write thread's failure line for a run, as VDDK's text gives it.
    std::wstring FailureLine(uint64_t start, uint64_t count, VixError error) const;

    _vixReadWriteHandle *disk = nullptr;
    diskWriteContextStruct context;
    bool cacheStarted = false;
};

}  // namespace writecachetest
