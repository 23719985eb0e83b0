// Streams through the read cache compared byte for byte with direct reads, in
// every threading model: whole disks, a changed-block list over several areas,
// several disks on one read thread.
#include <vddksim.h>

#include "readcache_fixture.h"

namespace readcachetest {
namespace {

class ReadCacheStreamTest : public servicetest::InEachModel<ReadCacheTest> {
protected:
    // Streams the disk `cache` was prepared for and compares every byte.
    void StreamAndCompare(_vixReadWriteHandle *handle, const std::vector<Area> &areas, unsigned requestBytes) {
        Stream stream;
        ASSERT_TRUE(StreamPass(cache->context, requestBytes, stream));
        EXPECT_EQ(stream.lastResult, kEndOfData);
        EXPECT_EQ(stream.bytes, DirectRead(handle, areas));
        EXPECT_EQ(cache->Close(), 0);
    }
};

TEST_P(ReadCacheStreamTest, WholeDisksOneAfterAnotherOnOneReadThread) {
    const uint64_t memBytes = 3 * 1048576 + 4096 + 700;  // the 700 bytes are no whole sector
    const std::string memPath = "memdisk://whole?size=" + std::to_string(memBytes) + "&seed=11";
    const std::string sparsePath =
        CreateSparseDisk(L"whole.vmdk", 8192, {{0, 16}, {1000, 300}, {8000, 192}}, 5);  // 4 MiB

    cache = std::make_unique<CacheContext>(*service);
    ASSERT_EQ(cache->Start(4, 64), 0);
    const HANDLE thread = cache->context.threadHandle;

    struct Disk {
        std::string path;
        uint64_t bytes;
    };
    // The 4 MiB disk fills its last buffer exactly, so an empty buffer ends
    // that pass.
    for (const Disk &each : {Disk{memPath, memBytes}, Disk{sparsePath, 8192 * 512}}) {
        SCOPED_TRACE(each.path);
        _vixReadWriteHandle *handle = OpenDisk(each.path);
        ASSERT_NE(handle, nullptr);
        Prepare(cache->context, handle, WriteExtentList(L"extents.xml", {{{0, each.bytes}}}));
        StreamAndCompare(handle, {{{0, each.bytes}}}, 10000);
        CloseDisk(handle);
    }
    EXPECT_EQ(cache->context.threadHandle, thread) << "one read thread serves every disk";
}

TEST_P(ReadCacheStreamTest, ChangedBlockListsDeliverEachExtentsWholeSectors) {
    // Buffers of 256 KB (512 sectors). Delivered, in sectors: [0,256) from two
    // adjacent extents; nothing of the zero-length and sub-sector ones; sector
    // 3 only of 1000 bytes at 1536 (the partial sector is dropped); 1367 from
    // 2048, across four buffers; 3 at 3000000 / 512 = 5859.
    const std::vector<Area> areas{
        {{0, 65536}, {65536, 65536}, {200704, 0}, {1536, 1000}, {4096, 300}},
        {{1048576, 700000}, {3000000, 1536}},
    };
    ASSERT_TRUE(OpenWithCache("memdisk://cbt?size=16777216&seed=21", 3, 256, areas));
    StreamAndCompare(disk, areas, 300000);
}

// The walk goes from area to area only through an area's first extent: an
// area without one ends the disk, and the areas after it are not read.
TEST_P(ReadCacheStreamTest, AnAreaWithoutExtentsEndsTheDisk) {
    ASSERT_TRUE(OpenWithCache("memdisk://gap?size=1048576&seed=5", 2, 64, {{{0, 4096}}, {}, {{65536, 4096}}}));
    Stream stream;
    ASSERT_TRUE(StreamPass(cache->context, 65536, stream));
    EXPECT_EQ(stream.lastResult, kEndOfData);
    EXPECT_EQ(stream.bytes, DirectRead(disk, {{{0, 4096}}}));
}

INSTANTIATE_TEST_SUITE_P(Models, ReadCacheStreamTest, ::testing::ValuesIn(AllModels()), ModelName);

}  // namespace
}  // namespace readcachetest
