#include "writecache_fixture.h"

namespace writecachetest {

void WriteCacheTest::SetUp() {
    ServiceTest::SetUp();
    StartService(servicetest::AllModels().front());
    disk = OpenDisk("memdisk://wc?size=16777216&seed=11&verify=1", L"Write");
    ASSERT_NE(disk, nullptr);
    log.Clear();
}

void WriteCacheTest::TearDown() {
    if (cacheStarted) {
        if (context.writeActive) Close();
        service->stopWriteCacheThread(&context);
    }
    if (disk) CloseDisk(disk);
    ConnectedServiceTest::TearDown();
}

long WriteCacheTest::StartCache(unsigned long bufferCount, unsigned long bufferSizeKB, unsigned long minRunSizeKB,
                                unsigned long raisePriority) {
    cacheStarted = true;
    return service->startWriteCacheThread(&context, bufferCount, bufferSizeKB, raisePriority, minRunSizeKB);
}

void WriteCacheTest::StartPass(uint64_t diskSize) {
    context.broker = skclass::shared_ptr<diskBroker>(service.get(), [](diskBroker *) {});
    context.diskHandle = disk;
    context.diskSize = diskSize;
    ASSERT_EQ(service->startDiskWriteBuffer(&context), 0);
}

long WriteCacheTest::Put(uint64_t first, uint64_t count) {
    std::vector<uint8_t> bytes = servicetest::PatternBytes(kSeed, first, count);
    return service->PutDiskCacheBuffer(&context, bytes.data(), first, count);
}

std::wstring WriteCacheTest::FailureLine(uint64_t start, uint64_t count, VixError error) const {
    return L"diskBroker::WriteDiskExtents() Could not write to the disk. start Sector: '" + std::to_wstring(start) +
           L"', Num of sectors: '" + std::to_wstring(count) + L"' Error Text: '" + VddkErrorText(error) +
           L"' Error: '" + std::to_wstring(static_cast<long long>(error)) + L"' ";
}

}  // namespace writecachetest
