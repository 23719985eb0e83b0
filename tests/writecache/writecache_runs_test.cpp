// How puts become runs and writes: merging, splitting across buffers, a full
// run table, and a long stream of odd-sized runs.
#include <random>
#include <utility>
#include <vector>

#include "writecache_fixture.h"

namespace writecachetest {
namespace {

const wchar_t kLastBufferLine[] = L"diskBroker::WriteDiskExtents() Acknowledged the receipt of the last buffer. ";

// One pass a row, buffers of 8 sectors: what the close writes. (The run
// table itself is not looked at: a wrong one shows as a write too many or
// too few, or as a mismatch.)
TEST_F(WriteCacheTest, PutsBecomeRunsAndEachRunOneWrite) {
    const struct {
        const char *what;
        std::vector<std::pair<uint64_t, uint64_t>> puts;  // first sector, count
        uint64_t writes;
    } rows[] = {
        {"adjacent puts merge into one run", {{0, 3}, {3, 3}}, 1},
        // A merge would shift the second run onto sector 3: a mismatch.
        {"one sector apart is not adjacent", {{0, 3}, {4, 3}}, 2},
        {"a put larger than the free space continues in the next buffer", {{100, 12}}, 2},
    };
    ASSERT_EQ(StartCache(3, 4), 0);
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        uint64_t sectors = 0;
        for (const auto &put : row.puts) sectors += put.second;
        const uint64_t writesBefore = Writes(), writtenBefore = WrittenSectors();
        log.Clear();
        StartPass(sectors * 512);
        for (const auto &put : row.puts) EXPECT_EQ(Put(put.first, put.second), 0);
        EXPECT_EQ(Close(), 0);
        EXPECT_EQ(Writes() - writesBefore, row.writes);
        EXPECT_EQ(WrittenSectors() - writtenBefore, sectors);
        EXPECT_EQ(Mismatches(), 0u);
        EXPECT_TRUE(log.Contains(kLastBufferLine)) << "a partly filled buffer is the last one";
        EXPECT_EQ(log.Count(L"Write thread:  End of disk."), 0u);
    }
}

// runCapacity 2: a table takes runs while runsUsed <= 2, so three runs.
TEST_F(WriteCacheTest, AFullRunTableHandsItsBufferOn) {
    ASSERT_EQ(StartCache(2, 8, 4), 0);  // 16 sectors a buffer
    StartPass(22 * 512);
    for (uint64_t first : {0, 10, 20}) EXPECT_EQ(Put(first, 1), 0);
    EXPECT_EQ(Put(21, 1), 0) << "an adjacent run still merges into a full table";

    // Kept on purpose (agents size minRunSizeKB so that a table never fills
    // first): a fourth run that would fit is dropped, its buffer handed on,
    // and the put reports success.
    EXPECT_EQ(Put(30, 1), 0);

    // One that would not fit goes whole into the next buffer.
    for (uint64_t first : {40, 50, 60}) EXPECT_EQ(Put(first, 1), 0);
    EXPECT_EQ(Put(70, 14), 0);

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
}

}  // namespace
}  // namespace writecachetest
