// Streams through the read cache compared byte for byte with direct reads, in
// every threading model: whole disks, changed-block lists over several areas,
// several disks on one read thread, and the length of every returned piece.
#include <numeric>

#include <vddksim.h>

#include "readcache_fixture.h"

namespace readcachetest {
namespace {

class ReadCacheStreamTest : public servicetest::InEachModel<ReadCacheTest> {
protected:
    // Streams one disk through a prepared context and compares everything;
    // given expectedReads, also the number of VDDK reads the pass made.
    void StreamAndCompare(CacheContext &cache, _vixReadWriteHandle *handle, const std::vector<Area> &areas,
                          unsigned requestBytes, uint64_t capacity, int64_t expectedReads = -1) {
        Prepare(cache.context, handle, WriteExtentList(L"extents.xml", areas));
        const uint64_t readsBefore = Calls("VixDiskLib_Read");
        Stream stream;
        ASSERT_TRUE(StreamPass(cache.context, requestBytes, stream));
        EXPECT_EQ(stream.lastResult, kEndOfData);
        if (expectedReads >= 0) {
            EXPECT_EQ(Calls("VixDiskLib_Read") - readsBefore, uint64_t(expectedReads));
        }
        EXPECT_EQ(stream.bytes, DirectRead(handle, areas));
        EXPECT_EQ(stream.lengths, ExpectedLengths(BufferFills(areas, capacity), requestBytes))
            << "a call never copies from two buffers";
        EXPECT_EQ(cache.Close(), 0);
    }

    // Every buffer is back in the free queue and no slot holds one.
    static ::testing::AssertionResult RingWhole(diskReadContextStruct &context, uint32_t bufferCount) {
        if (context.freeQueue.Count() == bufferCount && context.filledQueue.Count() == 0 && !context.fillBuffer &&
            !context.drainBuffer)
            return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure() << "free " << context.freeQueue.Count() << ", filled "
                                             << context.filledQueue.Count() << ", fill " << context.fillBuffer
                                             << ", drain " << context.drainBuffer;
    }
};

size_t CountStartLines(const std::vector<std::wstring> &lines) {
    size_t count = 0;
    for (const std::wstring &line : lines)
        if (line.rfind(L"VixDiskLib_Read(): Read thread '", 0) == 0 && line.size() > 7 &&
            line.compare(line.size() - 7, 7, L"' Start") == 0)
            ++count;
    return count;
}

TEST_P(ReadCacheStreamTest, WholeDisksOneAfterAnotherOnOneReadThread) {
    const uint64_t memBytes = 3 * 1048576 + 4096 + 700;  // the 700 bytes are no whole sector
    const std::string memPath = "memdisk://whole?size=" + std::to_string(memBytes) + "&seed=11";
    const std::string sparsePath =
        CreateSparseDisk(L"whole.vmdk", 8192, {{0, 16}, {1000, 300}, {8000, 192}}, 5);  // 4 MiB

    CacheContext cache(*service);
    ASSERT_EQ(cache.Start(4, 64), 0);
    EXPECT_TRUE(log.Contains(L"startReadCacheThread(): Allocating 4 buffers of size 64"));
    EXPECT_TRUE(log.Contains(L"diskBroker::startReadCacheThread : Thread is not impersonating !"));
    const HANDLE thread = cache.context.threadHandle;

    struct Disk {
        std::string path;
        uint64_t bytes;
        unsigned request;
    };
    // 10000-byte requests cut every 64 KB buffer into uneven pieces; the 4 MiB
    // disk fills its last buffer exactly, so an empty buffer ends that pass.
    for (const Disk &disk : {Disk{memPath, memBytes, 10000}, Disk{sparsePath, 8192 * 512, 10000},
                             Disk{"memdisk://again?size=200000&seed=3", 200000, 65536}}) {
        SCOPED_TRACE(disk.path);
        _vixReadWriteHandle *handle = OpenDisk(disk.path);
        ASSERT_NE(handle, nullptr);
        StreamAndCompare(cache, handle, {{{0, disk.bytes}}}, disk.request, 65536);
        EXPECT_TRUE(RingWhole(cache.context, 4));
        CloseDisk(handle);
    }
    EXPECT_EQ(cache.context.threadHandle, thread);
    EXPECT_EQ(CountStartLines(log.Lines()), 1u) << "one read thread serves every disk";
    EXPECT_EQ(log.Count(L"Read thread:  End of disk."), 3u);
    EXPECT_EQ(log.Count(L"Main Thread: End of Data. "), 3u);
}

TEST_P(ReadCacheStreamTest, ChangedBlockListsReadEachExtentWithinItsBounds) {
    _vixReadWriteHandle *handle = OpenDisk("memdisk://cbt?size=16777216&seed=21");
    ASSERT_NE(handle, nullptr);
    {
        // Buffers of 256 KB (512 sectors). Reads, in sectors:
        //   [0,128) and [128,256): adjacent extents, still one read each;
        //   zero-length and sub-sector extents: no read;
        //   1000 bytes at 1536: sector 3 only (the partial sector is dropped);
        //   [2048, 2048+1367): 255 (rest of the buffer), 512, 512, 88;
        //   3 sectors at 3000000 / 512 = 5859.
        const std::vector<Area> areas{
            {{0, 65536}, {65536, 65536}, {200704, 0}, {1536, 1000}, {4096, 300}},
            {{1048576, 700000}, {3000000, 1536}},
        };
        CacheContext cache(*service);
        ASSERT_EQ(cache.Start(3, 256), 0);
        StreamAndCompare(cache, handle, areas, 300000, 262144, 8);
    }
    std::vector<Area> many(20);  // 20 x 100 extents of 1 to 8 sectors, with gaps
    uint64_t offset = 0;
    for (size_t a = 0; a < many.size(); ++a) {
        for (size_t e = 0; e < 100; ++e, offset += 512 * (1 + e % 5)) {
            many[a].push_back({offset, 512 * (1 + (a * 7 + e * 3) % 8)});
            offset += many[a].back().length;
        }
    }
    CacheContext cache(*service);
    ASSERT_EQ(cache.Start(8, 128), 0);
    StreamAndCompare(cache, handle, many, 131072, 131072);
    CloseDisk(handle);
}

// The walk goes from area to area only through an area's first extent: an
// area without one ends the disk, and the areas after it are not read.
TEST_P(ReadCacheStreamTest, AnAreaWithoutExtentsEndsTheDisk) {
    _vixReadWriteHandle *handle = OpenDisk("memdisk://gap?size=1048576&seed=5");
    ASSERT_NE(handle, nullptr);
    CacheContext cache(*service);
    ASSERT_EQ(cache.Start(2, 64), 0);
    Prepare(cache.context, handle, WriteExtentList(L"gap.xml", {{{0, 4096}}, {}, {{65536, 4096}}}));
    const uint64_t readsBefore = Calls("VixDiskLib_Read");
    Stream stream;
    ASSERT_TRUE(StreamPass(cache.context, 65536, stream));
    EXPECT_EQ(stream.lastResult, kEndOfData);
    EXPECT_EQ(Calls("VixDiskLib_Read") - readsBefore, 1u);
    EXPECT_EQ(stream.bytes, DirectRead(handle, {{{0, 4096}}}));
    EXPECT_EQ(log.Count(L"GetNextDiskExtent(): End of disk"), 1u);
    EXPECT_EQ(cache.Close(), 0);
    CloseDisk(handle);
}

// The consumer samples the filled queue's depth once per waiting round; the
// close logs every depth 0..bufferCount and the counts add up to the total.
TEST_P(ReadCacheStreamTest, CloseLogsTheDepthHistogram) {
    _vixReadWriteHandle *handle = OpenDisk("memdisk://depth?size=1048576&seed=8");
    ASSERT_NE(handle, nullptr);
    CacheContext cache(*service);
    ASSERT_EQ(cache.Start(3, 64), 0);
    Prepare(cache.context, handle, WriteExtentList(L"depth.xml", {{{0, 1048576}}}));
    Stream stream;
    ASSERT_TRUE(StreamPass(cache.context, 65536, stream));
    const uint64_t samples = cache.context.depthHistogram->totalSamples;
    EXPECT_GE(samples, 17u) << "one round at least per buffer taken, and the one that ends the pass";
    log.Clear();
    EXPECT_EQ(cache.Close(), 0);
    const std::vector<std::wstring> lines = log.Lines();
    ASSERT_EQ(lines.size(), 5u) << ::testing::PrintToString(lines);
    EXPECT_EQ(lines[0], L"TRPX Buffered Reads Performance Tuning Analysis. Total no of reads: '" +
                            std::to_wstring(samples) + L"'");
    uint64_t sum = 0;
    for (int depth = 0; depth <= 3; ++depth) {
        const std::wstring prefix = L"\t Read Buffer Depth: '" + std::to_wstring(depth) + L"'    Occurences: '";
        ASSERT_EQ(lines[depth + 1].rfind(prefix, 0), 0u) << ::testing::PrintToString(lines[depth + 1]);
        sum += std::stoull(lines[depth + 1].substr(prefix.size()));
    }
    EXPECT_EQ(sum, samples);
    EXPECT_EQ(cache.context.depthHistogram->totalSamples, 0u) << "the next disk starts a fresh histogram";
    CloseDisk(handle);
}

INSTANTIATE_TEST_SUITE_P(Models, ReadCacheStreamTest, ::testing::ValuesIn(AllModels()), ModelName);

}  // namespace
}  // namespace readcachetest
