#include "writecache_fixture.h"

#include <string.h>

namespace writecachetest {

std::vector<unsigned char> Pattern(uint64_t first, uint64_t count) {
    std::vector<unsigned char> bytes(size_t(count * 512));
    for (size_t word = 0; word < bytes.size() / 8; ++word) {
        const uint64_t value = VddkSimPatternWord(kSeed, first * 64 + word);
        memcpy(&bytes[word * 8], &value, 8);
    }
    return bytes;
}

void WriteCacheTest::SetUp() {
    ServiceTest::SetUp();
    service = Start();
    ASSERT_EQ(service->VixDiskLib_ConnectEx(&local, 0, nullptr, nullptr, &connection), VixError(VIX_OK));
    wcstring mode;
    ASSERT_EQ(service->VixDiskLib_Open(connection, "memdisk://wc?size=16777216&seed=11&verify=1", 0, L"Write",
                                       &disk, mode),
              VixError(VIX_OK));
    log.Clear();
}

void WriteCacheTest::TearDown() {
    if (cacheStarted) {
        if (context.writeActive) Close();
        service->stopWriteCacheThread(&context);
    }
    if (disk) service->VixDiskLib_Close(disk);
    if (connection) service->VixDiskLib_Disconnect(connection, &local);
    service.reset();
    ServiceTest::TearDown();
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
    std::vector<unsigned char> bytes = Pattern(first, count);
    return service->PutDiskCacheBuffer(&context, bytes.data(), first, count);
}

size_t WriteCacheTest::LinesStartingWith(const std::wstring &prefix) const {
    size_t count = 0;
    for (const std::wstring &line : log.Lines()) count += line.compare(0, prefix.size(), prefix) == 0;
    return count;
}

std::wstring WriteCacheTest::FailureLine(uint64_t start, uint64_t count, VixError error) const {
    return L"diskBroker::WriteDiskExtents() Could not write to the disk. start Sector: '" + std::to_wstring(start) +
           L"', Num of sectors: '" + std::to_wstring(count) + L"' Error Text: '" + VddkErrorText(error) +
           L"' Error: '" + std::to_wstring(static_cast<long long>(error)) + L"' ";
}

}  // namespace writecachetest
