#include "readcache_fixture.h"

#include <dbtest/files.h>

namespace readcachetest {

CacheContext::~CacheContext() {
    if (!started_) return;
    service_.closeReadCacheThread(&context);
    service_.stopReadCacheThread(&context);
}

long CacheContext::Start(unsigned long bufferCount, unsigned long bufferSizeKB) {
    started_ = true;
    return service_.startReadCacheThread(&context, bufferCount, bufferSizeKB, 0);
}

void ReadCacheTest::TearDown() {
    CloseDiskAndCache();
    ConnectedServiceTest::TearDown();
}

void ReadCacheTest::CloseDiskAndCache() {
    cache.reset();
    if (disk) CloseDisk(disk);
    disk = nullptr;
}

::testing::AssertionResult ReadCacheTest::OpenWithCache(const std::string &path, unsigned long bufferCount,
                                                        unsigned long bufferSizeKB, const std::vector<Area> &areas) {
    CloseDiskAndCache();
    disk = OpenDisk(path);
    if (!disk) return ::testing::AssertionFailure() << "could not open " << path;
    cache = std::make_unique<CacheContext>(*service);
    const long started = cache->Start(bufferCount, bufferSizeKB);
    if (started != 0) return ::testing::AssertionFailure() << "startReadCacheThread gave 0x" << std::hex << started;
    Prepare(cache->context, disk, WriteExtentList(L"extents.xml", areas));
    return ::testing::AssertionSuccess();
}

std::string ReadCacheTest::CreateSparseDisk(const std::wstring &name, uint64_t capacity,
                                            const std::vector<Extent> &writtenSectors, uint64_t seed) {
    const std::string path = servicetest::Utf8(data.File(name));
    VixDiskLibCreateParams params = {VIXDISKLIB_DISK_MONOLITHIC_SPARSE, VIXDISKLIB_ADAPTER_SCSI_LSILOGIC, 7, capacity,
                                     512, 512};
    EXPECT_EQ(service->VixDiskLib_Create(connection, path.c_str(), &params, nullptr, nullptr), VixError(VIX_OK));
    _vixReadWriteHandle *handle = OpenDisk(path, L"Write");
    if (!handle) return path;
    for (const Extent &run : writtenSectors) {
        const std::vector<uint8_t> bytes = servicetest::PatternBytes(seed, run.offset, run.length);
        EXPECT_EQ(service->VixDiskLib_Write(handle, run.offset, run.length, bytes.data()), VixError(VIX_OK));
    }
    CloseDisk(handle);
    return path;
}

std::wstring ReadCacheTest::WriteFileText(const std::wstring &name, const std::string &text) {
    const std::wstring path = data.File(name);
    EXPECT_TRUE(dbtest::WriteWholeFile(path, text)) << "error " << GetLastError();
    return path;
}

std::wstring ReadCacheTest::WriteExtentList(const std::wstring &name, const std::vector<Area> &areas) {
    std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<DiskChangeInfo startOffset=\"0\">\r\n";
    for (const Area &area : areas) {
        const uint64_t start = area.empty() ? 0 : area.front().offset;
        xml += " <area startoffset=\"" + std::to_string(start) + "\" startlength=\"" +
               std::to_string(area.size()) + "\">\r\n";
        for (const Extent &extent : area)
            xml += "  <extent offset=\"" + std::to_string(extent.offset) + "\" length=\"" +
                   std::to_string(extent.length) + "\"/>\r\n";
        xml += " </area>\r\n";
    }
    xml += "</DiskChangeInfo>\r\n";
    return WriteFileText(name, xml);
}

std::vector<uint8_t> ReadCacheTest::DirectRead(_vixReadWriteHandle *handle, const std::vector<Area> &areas) {
    std::vector<uint8_t> bytes;
    for (const Area &area : areas) {
        for (const Extent &extent : area) {
            const uint64_t first = extent.offset / 512, count = extent.length / 512;
            if (count == 0) continue;
            const size_t at = bytes.size();
            bytes.resize(at + count * 512);
            EXPECT_EQ(service->VixDiskLib_Read(handle, first, count, &bytes[at]), VixError(VIX_OK));
        }
    }
    return bytes;
}

void ReadCacheTest::Prepare(diskReadContextStruct &context, _vixReadWriteHandle *handle,
                            const std::wstring &extentList) {
    context.broker = service;
    context.diskHandle = handle;
    context.extentFilePath = extentList;
    context.metadataFilePath = data.File(L"metadata-" + std::to_wstring(++metadataFiles) + L".bin");
}

::testing::AssertionResult ReadCacheTest::StreamPass(diskReadContextStruct &context, unsigned requestBytes,
                                                     Stream &stream, size_t maxCalls) {
    const long started = service->startDiskReadBuffer(&context);
    if (started != 0) return ::testing::AssertionFailure() << "startDiskReadBuffer gave 0x" << std::hex << started;
    std::vector<uint8_t> chunk(requestBytes);
    for (size_t call = 0; call < maxCalls; ++call) {
        unsigned length = requestBytes;
        stream.lastResult = service->GetDiskCacheBuffer(&context, chunk.data(), &length);
        if (stream.lastResult != 0) return ::testing::AssertionSuccess();
        if (!context.readActive) {  // the pass was cancelled: nothing copied
            stream.cancelled = true;
            if (length != requestBytes) return ::testing::AssertionFailure() << "a cancelled call set the length";
            return ::testing::AssertionSuccess();
        }
        if (length > requestBytes) return ::testing::AssertionFailure() << "length grew to " << length;
        stream.lengths.push_back(length);
        stream.bytes.insert(stream.bytes.end(), chunk.begin(), chunk.begin() + length);
    }
    return ::testing::AssertionFailure() << "no end of data after " << maxCalls << " calls";
}

}  // namespace readcachetest
