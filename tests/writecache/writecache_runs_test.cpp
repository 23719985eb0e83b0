// How puts become runs and writes: merging, splitting across buffers, a full
// run table, and a long stream of odd-sized runs.
#include <random>

#include "writecache_fixture.h"

namespace writecachetest {
namespace {

const wchar_t kLastBufferLine[] = L"diskBroker::WriteDiskExtents() Acknowledged the receipt of the last buffer. ";

TEST_F(WriteCacheTest, AdjacentPutsMergeIntoOneRunAndOneWrite) {
    ASSERT_EQ(StartCache(2, 64), 0);
    StartPass(16 * 512);
    EXPECT_EQ(Put(0, 8), 0);
    EXPECT_EQ(Put(8, 8), 0);
    ASSERT_NE(context.fillBuffer, nullptr);
    const diskCacheRunTable &table = *context.fillBuffer->runTable;
    ASSERT_EQ(table.runsUsed, 1u);
    EXPECT_EQ(table.runs[0].startSector, 0u);
    EXPECT_EQ(table.runs[0].sectorCount, 16u);

    EXPECT_EQ(Close(), 0);
    EXPECT_EQ(Writes(), 1u);
    EXPECT_EQ(WrittenSectors(), 16u);
    EXPECT_EQ(Mismatches(), 0u);
    EXPECT_TRUE(log.Contains(kLastBufferLine)) << "a partly filled buffer is the last one";
    EXPECT_EQ(log.Count(L"Write thread:  End of disk."), 0u);
}

// One sector apart is not adjacent: two runs, two writes, the second at its
// own sector with its own bytes (a merge would shift it onto sector 8).
TEST_F(WriteCacheTest, RunsOneSectorApartStayTwoRuns) {
    ASSERT_EQ(StartCache(2, 64), 0);
    StartPass(16 * 512);
    EXPECT_EQ(Put(0, 8), 0);
    EXPECT_EQ(Put(9, 8), 0);
    ASSERT_NE(context.fillBuffer, nullptr);
    const diskCacheRunTable &table = *context.fillBuffer->runTable;
    ASSERT_EQ(table.runsUsed, 2u);
    EXPECT_EQ(table.runs[1].startSector, 9u);
    EXPECT_EQ(table.runs[1].sectorCount, 8u);

    EXPECT_EQ(Close(), 0);
    EXPECT_EQ(Writes(), 2u);
    EXPECT_EQ(WrittenSectors(), 16u);
    EXPECT_EQ(Mismatches(), 0u);
}

TEST_F(WriteCacheTest, APutLargerThanTheFreeSpaceContinuesInTheNextBuffer) {
    ASSERT_EQ(StartCache(3, 4), 0);  // 8 sectors a buffer
    StartPass(12 * 512);
    EXPECT_EQ(Put(100, 12), 0);
    ASSERT_NE(context.fillBuffer, nullptr);
    EXPECT_EQ(context.fillBuffer->filled, 4u * 512);
    const diskCacheRunTable &table = *context.fillBuffer->runTable;
    ASSERT_EQ(table.runsUsed, 1u);
    EXPECT_EQ(table.runs[0].startSector, 108u);
    EXPECT_EQ(table.runs[0].sectorCount, 4u);

    EXPECT_EQ(Close(), 0);
    EXPECT_EQ(Writes(), 2u);
    EXPECT_EQ(WrittenSectors(), 12u);
    EXPECT_EQ(Mismatches(), 0u);
}

// runCapacity 2: a table takes runs while runsUsed <= 2, so three runs.
TEST_F(WriteCacheTest, AFullRunTableHandsItsBufferOn) {
    ASSERT_EQ(StartCache(2, 8, 4), 0);  // 16 sectors a buffer
    StartPass(22 * 512);
    for (uint64_t first : {0, 10, 20}) EXPECT_EQ(Put(first, 1), 0);
    EXPECT_EQ(Put(21, 1), 0) << "an adjacent run still merges into a full table";
    ASSERT_NE(context.fillBuffer, nullptr);
    EXPECT_EQ(context.fillBuffer->runTable->runsUsed, 3u);

    // Kept on purpose (agents size minRunSizeKB so that a table never fills
    // first): a fourth run that would fit is dropped, its buffer handed on,
    // and the put reports success.
    EXPECT_EQ(Put(30, 1), 0);
    EXPECT_EQ(context.fillBuffer, nullptr);

    // One that would not fit goes whole into the next buffer.
    for (uint64_t first : {40, 50, 60}) EXPECT_EQ(Put(first, 1), 0);
    EXPECT_EQ(Put(70, 14), 0);
    ASSERT_NE(context.fillBuffer, nullptr);
    EXPECT_EQ(context.fillBuffer->runTable->runsUsed, 1u);
    EXPECT_EQ(context.fillBuffer->runTable->runs[0].startSector, 70u);

    EXPECT_EQ(Close(), 0);
    EXPECT_EQ(Writes(), 7u);
    EXPECT_EQ(WrittenSectors(), 21u) << "sector 30 was never written";
    EXPECT_EQ(Mismatches(), 0u);
    EXPECT_TRUE(log.Contains(L"Disk size: '11264' Data Written: '10752' "));
}

// A sequential restore in odd-sized runs: one write per buffer, every byte
// in place, every buffer back in the free queue.
TEST_F(WriteCacheTest, AStreamOfOddSizedRunsWritesOncePerBuffer) {
    ASSERT_EQ(StartCache(4, 16), 0);  // 32 sectors a buffer
    const uint64_t total = 4096;
    StartPass(total * 512);
    std::mt19937 random(5);
    for (uint64_t first = 0; first < total;) {
        const uint64_t count = std::min<uint64_t>(1 + random() % 100, total - first);
        ASSERT_EQ(Put(first, count), 0);
        first += count;
    }
    EXPECT_EQ(Close(), 0);
    EXPECT_EQ(Writes(), total / 32);
    EXPECT_EQ(WrittenSectors(), total);
    EXPECT_EQ(Mismatches(), 0u);
    EXPECT_EQ(context.freeQueue.Count(), 4u);
    EXPECT_EQ(log.CountStartingWith(L"Disk size:"), 0u);
}

}  // namespace
}  // namespace writecachetest
