// A write pass from start to close: how it ends, how a failure ends it, what
// close logs and resets, and what start refuses.
#include <thread>

#include "writecache_fixture.h"

namespace writecachetest {
namespace {

const wchar_t kEndOfDiskLine[] = L"Write thread:  End of disk.";
constexpr long kWriteFailed = static_cast<long>(0xE0009579);
constexpr long kStartRefused = static_cast<long>(0xE0008442);

// A last put that fills its buffer ends the pass on end of data. Close logs
// the filled queue's depth counts for 0..bufferCount, then resets the pass and
// the counts, which the program reads for the next pass.
TEST_F(WriteCacheTest, ClosingAfterAFullBufferEndsOnEndOfDataAndLogsTheDepths) {
    const std::wstring header = L"TRPX Buffered Writes Performance Tuning Analysis. Total no of Writes: '";
    ASSERT_EQ(StartCache(2, 4), 0);
    StartPass(16 * 512);
    EXPECT_EQ(Put(0, 16), 0);
    EXPECT_EQ(Close(), 0);
    EXPECT_TRUE(log.Contains(kEndOfDiskLine));
    EXPECT_EQ(log.Count(L"diskBroker::WriteDiskExtents() Acknowledged the receipt of the last buffer. "), 0u);
    EXPECT_EQ(WrittenSectors(), 16u);
    EXPECT_EQ(Mismatches(), 0u);
    EXPECT_EQ(context.endOfData, 0) << "reset for the next pass";
    EXPECT_EQ(log.CountStartingWith(header), 1u);
    EXPECT_EQ(log.Count(header + L"0'"), 0u) << "the writer waited at least once";
    EXPECT_EQ(log.CountStartingWith(L"\t Write Buffer Depth: '"), 3u);
    EXPECT_EQ(context.depthHistogram->totalSamples, 0u);
    for (uint32_t depth = 0; depth <= 2; ++depth) EXPECT_EQ(context.depthHistogram->counts[depth], 0u) << depth;
}

// 1 close starts while the writer is held inside the last buffer's write;
// 2 close must still be waiting; 3 released, the write ends and close returns
// well before its 5-second recheck would.
TEST_F(WriteCacheTest, CloseReturnsAsSoonAsTheWriterHasWrittenTheLastBuffer) {
    ASSERT_EQ(StartCache(2, 4), 0);
    StartPass(4 * 512);
    EXPECT_EQ(Put(0, 4), 0);
    sim.VddkSim_BlockNextCall("VixDiskLib_Write");
    skclass::UniqueHandle closed(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    std::thread closer([&] {
        Close();
        SetEvent(closed.get());
    });
    EXPECT_EQ(sim.VddkSim_WaitBlocked("VixDiskLib_Write", kTimeoutMs), 1);
    EXPECT_EQ(WaitForSingleObject(closed.get(), kMustNotHappenMs), DWORD(WAIT_TIMEOUT));
    sim.VddkSim_Release("VixDiskLib_Write");
    EXPECT_EQ(WaitForSingleObject(closed.get(), 4000), DWORD(WAIT_OBJECT_0));
    closer.join();
    EXPECT_EQ(WrittenSectors(), 4u);
    EXPECT_EQ(Mismatches(), 0u);
}

// 1 the writer is held in the first buffer's write, scripted to fail; 2 two
// more buffers queue behind it and a third is partly filled; 3 released, the
// failure discards them all; later puts fail at once; 4 the next pass starts
// clean.
TEST_F(WriteCacheTest, AWriteFailureDiscardsTheQueueAndFailsLaterPuts) {
    ASSERT_EQ(StartCache(4, 4), 0);
    StartPass(28 * 512);
    sim.ScriptResult("VixDiskLib_Write", 1, VIX_E_DISK_FULL);
    sim.VddkSim_BlockNextCall("VixDiskLib_Write");
    EXPECT_EQ(Put(0, 8), 0);
    ASSERT_EQ(sim.VddkSim_WaitBlocked("VixDiskLib_Write", kTimeoutMs), 1);
    EXPECT_EQ(Put(8, 16), 0);
    EXPECT_EQ(Put(24, 4), 0);
    sim.VddkSim_Release("VixDiskLib_Write");
    ASSERT_TRUE(log.WaitFor(FailureLine(0, 8, VIX_E_DISK_FULL), kTimeoutMs));
    EXPECT_EQ(Put(28, 4), kWriteFailed);
    EXPECT_EQ(Close(), 0);
    EXPECT_EQ(Writes(), 1u);
    EXPECT_EQ(WrittenSectors(), 0u);
    EXPECT_EQ(context.freeQueue.Count(), 4u) << "every buffer is back, none left queued for the next pass";
    EXPECT_EQ(context.filledQueue.Count(), 0u);

    log.Clear();
    StartPass(20 * 512);
    EXPECT_EQ(Put(100, 20), 0);
    EXPECT_EQ(Close(), 0);
    EXPECT_EQ(WrittenSectors(), 20u);
    EXPECT_EQ(Mismatches(), 0u);
}

// Sizes no pass can move with (a run table of 0 KB runs, buffers of 0 bytes)
// are refused before anything is made: no buffer, no thread. The other buffer
// sizes are refused by the check both caches share, tested through the read
// cache. Null contexts and data are refused
// before use; a pass without a disk handle fails its first write with 1000.
TEST_F(WriteCacheTest, WhatCannotWorkIsRefusedBeforeUse) {
    EXPECT_EQ(StartCache(2, 4, 0), kStartRefused);
    EXPECT_EQ(StartCache(2, 0, 1), kStartRefused);
    EXPECT_EQ(context.allBuffers, nullptr);
    EXPECT_EQ(context.threadHandle, nullptr);

    unsigned char sector[512] = {};
    EXPECT_EQ(service->startWriteCacheThread(nullptr, 2, 4, 0, 1), kStartRefused);
    EXPECT_EQ(service->startDiskWriteBuffer(nullptr), kStartRefused);
    EXPECT_EQ(service->PutDiskCacheBuffer(nullptr, sector, 0, 1), kWriteFailed);
    EXPECT_EQ(service->closeWriteCacheThread(nullptr), 0);
    EXPECT_EQ(service->stopWriteCacheThread(nullptr), 0);
    ASSERT_EQ(StartCache(2, 4), 0);
    StartPass(16 * 512);
    EXPECT_EQ(service->PutDiskCacheBuffer(&context, nullptr, 0, 1), kWriteFailed);
    context.diskHandle = nullptr;
    EXPECT_EQ(Put(0, 8), 0);
    ASSERT_TRUE(log.WaitFor(FailureLine(0, 8, VIX_E_INVALID_HANDLE), kTimeoutMs));
    EXPECT_EQ(Put(8, 8), kWriteFailed);
    EXPECT_EQ(Close(), 0);
    EXPECT_EQ(Writes(), 0u);
    EXPECT_EQ(WrittenSectors(), 0u);
}

TEST_F(WriteCacheTest, TheWriterRunsUnderTheJobsToken) {
    ASSERT_TRUE(ImpersonateSelf(SecurityImpersonation));
    const long started = StartCache(2, 4);
    RevertToSelf();
    ASSERT_EQ(started, 0);
    if (log.Count(L"diskBroker::startWriteCacheThread : Thread is not impersonating !"))
        GTEST_SKIP() << "this Windows (Wine) shows no impersonation token to OpenThreadToken";
    StartPass(8 * 512);
    EXPECT_EQ(Put(0, 8), 0);
    EXPECT_EQ(Close(), 0);
    EXPECT_FALSE(sim.LastArg("user.VixDiskLib_Write").empty()) << "the write ran under the job thread's token";
}

}  // namespace
}  // namespace writecachetest
