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
    void SetUp() override {
        ServiceTest::SetUp();
        StartService(servicetest::AllModels().front());
        disk = OpenDisk("memdisk://wc?size=16777216&seed=11&verify=1", L"Write");
        ASSERT_NE(disk, nullptr);
        log.Clear();
    }
    void TearDown() override {
        if (cacheStarted) {
            if (context.writeActive) Close();
            service->stopWriteCacheThread(&context);
        }
        if (disk) CloseDisk(disk);
        ConnectedServiceTest::TearDown();
    }

    // startWriteCacheThread with the test's context; the result is returned.
    long StartCache(unsigned long bufferCount, unsigned long bufferSizeKB, unsigned long minRunSizeKB = 1) {
        cacheStarted = true;
        return service->startWriteCacheThread(&context, bufferCount, bufferSizeKB, 0, minRunSizeKB);
    }
    // One pass on the memory disk that expects diskSize bytes.
    void StartPass(uint64_t diskSize) {
        context.broker = skclass::shared_ptr<diskBroker>(service.get(), [](diskBroker *) {});
        context.diskHandle = disk;
        context.diskSize = diskSize;
        ASSERT_EQ(service->startDiskWriteBuffer(&context), 0);
    }
    // Puts sectors [first, first + count) with the disk's own pattern.
    long Put(uint64_t first, uint64_t count) {
        std::vector<uint8_t> bytes = servicetest::PatternBytes(kSeed, first, count);
        return service->PutDiskCacheBuffer(&context, bytes.data(), first, count);
    }
    long Close() { return service->closeWriteCacheThread(&context); }

    uint64_t WrittenSectors() const { return sim.VddkSim_MemDiskWrittenSectors("wc"); }
    uint64_t Mismatches() const { return sim.VddkSim_MemDiskMismatches("wc"); }
    uint64_t Writes() const { return Calls("VixDiskLib_Write"); }
    // The write thread's failure line for a run, as VDDK's text gives it.
    std::wstring FailureLine(uint64_t start, uint64_t count, VixError error) const {
        return L"diskBroker::WriteDiskExtents() Could not write to the disk. start Sector: '" + std::to_wstring(start) +
               L"', Num of sectors: '" + std::to_wstring(count) + L"' Error Text: '" + VddkErrorText(error) +
               L"' Error: '" + std::to_wstring(static_cast<long long>(error)) + L"' ";
    }

    _vixReadWriteHandle *disk = nullptr;
    diskWriteContextStruct context;
    bool cacheStarted = false;
};

}  // namespace writecachetest
