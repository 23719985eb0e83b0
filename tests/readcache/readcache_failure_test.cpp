// The read cache when a pass does not run to its end: a read failure, a cancel
// from either side; and the read thread's identity.
#include "readcache_fixture.h"

#include <vddksim.h>

#include <dbtest/token_user.h>

namespace readcachetest {
namespace {

class ReadCacheFailureTest : public servicetest::InEachModel<ReadCacheTest> {
protected:
    // The bytes a close left queued, which the next pass delivers first.
    static std::vector<uint8_t> QueuedBytes(diskReadContextStruct &context) {
        std::vector<uint8_t> bytes;
        for (diskCacheBuffer *buffer = context.filledQueue.head; buffer; buffer = buffer->next)
            bytes.insert(bytes.end(), buffer->data, buffer->data + buffer->filled);
        return bytes;
    }
    // After a close: the next pass on the same context delivers what was left
    // queued, then its own disk whole, and a pass that runs to its end loses
    // no buffer.
    void ExpectNextPassAfterLeftovers(uint32_t buffersInCirculation) {
        diskReadContextStruct &context = cache->context;
        EXPECT_EQ(context.freeQueue.Count() + context.filledQueue.Count(), buffersInCirculation);
        std::vector<uint8_t> expected = QueuedBytes(context);
        _vixReadWriteHandle *handle = OpenDisk("memdisk://next?size=300000&seed=77");
        ASSERT_NE(handle, nullptr);
        const std::vector<uint8_t> next = DirectRead(handle, {{{0, 300000}}});
        expected.insert(expected.end(), next.begin(), next.end());
        Prepare(context, handle, WriteExtentList(L"next.xml", {{{0, 300000}}}));
        Stream stream;
        ASSERT_TRUE(StreamPass(context, 65536, stream));
        EXPECT_EQ(stream.lastResult, kEndOfData);
        EXPECT_TRUE(stream.bytes == expected) << stream.bytes.size() << " bytes, expected " << expected.size();
        EXPECT_EQ(cache->Close(), 0);
        EXPECT_EQ(context.freeQueue.Count(), buffersInCirculation);
        EXPECT_EQ(context.filledQueue.Count(), 0u);
        CloseDisk(handle);
    }
};

// Steps: 1. the read at sector 512 is scripted to fail; 2. the read thread
// fills four buffers (sectors 0-511) and fails on the fifth; 3. the consumer,
// with four buffers queued, gets the error and no data, on every call.
TEST_P(ReadCacheFailureTest, AReadFailureEndsThePassBeforeQueuedData) {
    ASSERT_TRUE(OpenWithCache("memdisk://fail?size=4194304&seed=2", 8, 64, {{{0, 4194304}}}));
    ASSERT_EQ(sim.VddkSim_ScriptResult("VixDiskLib_Read", 1, VIX_E_DISK_NOIO, nullptr, 512, 512), 1);
    ASSERT_EQ(service->startDiskReadBuffer(&cache->context), 0);
    ASSERT_EQ(WaitForSingleObject(cache->context.passEndedEvent.get(), kTimeoutMs), WAIT_OBJECT_0);
    EXPECT_EQ(cache->context.filledQueue.Count(), 4u);

    std::vector<uint8_t> bytes(4096, 0xA5);
    for (int call = 0; call < 2; ++call) {
        unsigned length = 4096;
        EXPECT_EQ(service->GetDiskCacheBuffer(&cache->context, bytes.data(), &length), kReadError);
        EXPECT_EQ(length, 4096u) << "left as it was";
    }
    EXPECT_EQ(bytes, std::vector<uint8_t>(4096, 0xA5)) << "nothing copied after the error";
    EXPECT_EQ(cache->context.errorText, VddkErrorText(VIX_E_DISK_NOIO));
    EXPECT_EQ(cache->Close(), 0);
    // The four filled buffers stay queued; the one the failed read was for
    // leaves circulation.
    EXPECT_EQ(cache->context.filledQueue.Count(), 4u);
    ExpectNextPassAfterLeftovers(7);
}

// The job gives up mid-disk: what is queued is still delivered, then a call
// returns 0 without touching the length. The buffer the read thread was
// filling when it saw the cancel may leave circulation.
TEST_P(ReadCacheFailureTest, ACancelledPassEndsWithoutLengthAndLeavesTheRingWhole) {
    ASSERT_TRUE(OpenWithCache("memdisk://cancel?size=4194304&seed=6", 4, 64, {{{0, 4194304}}}));
    ASSERT_EQ(service->startDiskReadBuffer(&cache->context), 0);
    std::vector<uint8_t> bytes(65536);
    unsigned length = 65536;
    ASSERT_EQ(service->GetDiskCacheBuffer(&cache->context, bytes.data(), &length), 0);
    cache->context.cancelRequested = 1;
    long result = 0;
    for (int calls = 0; calls < 100 && result == 0 && cache->context.readActive; ++calls) {
        length = 65536;
        result = service->GetDiskCacheBuffer(&cache->context, bytes.data(), &length);
    }
    EXPECT_EQ(result, 0);
    EXPECT_FALSE(cache->context.readActive);
    EXPECT_EQ(length, 65536u) << "the call that ends a cancelled pass leaves the length alone";
    EXPECT_EQ(cache->Close(), 0);
    const uint32_t circulating = cache->context.freeQueue.Count() + cache->context.filledQueue.Count();
    EXPECT_GE(circulating, 3u);
    ExpectNextPassAfterLeftovers(circulating);
}

// Steps: 1. with one buffer the read thread fills it and waits for another
// (the consumer holds it); with none it waits from the start; 2. close
// cancels that wait, and returns once the read thread is out of the pass.
TEST_P(ReadCacheFailureTest, CloseCancelsAReadThreadWaitingForABuffer) {
    for (unsigned long bufferCount : {1ul, 0ul}) {
        SCOPED_TRACE(bufferCount);
        ASSERT_TRUE(OpenWithCache("memdisk://held?size=1048576&seed=9", bufferCount, 64, {{{0, 1048576}}}));
        ASSERT_EQ(service->startDiskReadBuffer(&cache->context), 0);
        std::vector<uint8_t> bytes(100);
        unsigned length = 100;
        if (bufferCount) {
            ASSERT_EQ(service->GetDiskCacheBuffer(&cache->context, bytes.data(), &length), 0);
        }
        EXPECT_EQ(cache->Close(), 0);
        EXPECT_EQ(WaitForSingleObject(cache->context.passEndedEvent.get(), 0), WAIT_OBJECT_0);
        EXPECT_EQ(cache->context.freeQueue.Count() + cache->context.filledQueue.Count(), 0u)
            << "the held buffer leaves circulation until stop frees it";
    }
}

// Steps: 1. four buffers of 64 KB, a disk of 160 KB: the read thread fills
// buffers 0 and 1, half of 2, and ends the disk; 2. the consumer has taken
// 100 bytes of buffer 0 and closes; 3. the next pass delivers buffers 1 and 2
// of the old disk first, then its own; buffer 0 is out of circulation.
TEST_P(ReadCacheFailureTest, AnEarlyCloseLeavesItsQueuedBuffersToTheNextPass) {
    ASSERT_TRUE(OpenWithCache("memdisk://early?size=163840&seed=12", 4, 64, {{{0, 163840}}}));
    ASSERT_EQ(service->startDiskReadBuffer(&cache->context), 0);
    std::vector<uint8_t> bytes(100);
    unsigned length = 100;
    ASSERT_EQ(service->GetDiskCacheBuffer(&cache->context, bytes.data(), &length), 0);
    ASSERT_EQ(WaitForSingleObject(cache->context.passEndedEvent.get(), kTimeoutMs), WAIT_OBJECT_0);
    EXPECT_EQ(cache->Close(), 0);
    const std::vector<uint8_t> whole = DirectRead(disk, {{{0, 163840}}});
    EXPECT_TRUE(QueuedBytes(cache->context) == std::vector<uint8_t>(whole.begin() + 65536, whole.end()));
    ExpectNextPassAfterLeftovers(3);
}

INSTANTIATE_TEST_SUITE_P(Models, ReadCacheFailureTest, ::testing::ValuesIn(AllModels()), ModelName);

// The read thread reads under the identity of the job thread that started it.
// Only where the read thread itself calls VDDK: handle workers read on their
// own thread.
using ReadCacheIdentityTest = servicetest::InEachModel<ReadCacheTest>;

TEST_P(ReadCacheIdentityTest, AnImpersonatingJobLendsItsTokenToTheReadThread) {
    disk = OpenDisk("memdisk://who?size=65536&seed=1");
    ASSERT_NE(disk, nullptr);
    if (!ImpersonateSelf(SecurityImpersonation)) GTEST_SKIP() << "ImpersonateSelf failed: " << GetLastError();
    const std::string recorded = dbtest::ThreadUserText();
    cache = std::make_unique<CacheContext>(*service);
    const long started = cache->Start(2, 64);
    RevertToSelf();
    ASSERT_EQ(started, 0);
    ASSERT_FALSE(recorded.empty()) << "the job thread's token names no user";
    Prepare(cache->context, disk, WriteExtentList(L"who.xml", {{{0, 65536}}}));
    Stream stream;
    ASSERT_TRUE(StreamPass(cache->context, 65536, stream));
    EXPECT_EQ(stream.lastResult, kEndOfData);
    EXPECT_EQ(cache->Close(), 0);
    EXPECT_EQ(sim.LastArg("user.VixDiskLib_Read"), recorded);
}

INSTANTIATE_TEST_SUITE_P(ReadThreadCallsVddk, ReadCacheIdentityTest,
                         ::testing::Values(Model{L"", 0}, Model{L"no threading", 0}), ModelName);

// 1. A pass whose read thread is held inside a VMware read; 2. stop gives it
// its grace and returns; 3. what the thread may still touch (its buffer, the
// histogram) was kept, not freed; 4. released, the thread leaves.
TEST_F(ReadCacheTest, StopAfterItsGraceKeepsWhatTheThreadStillUses) {
    StartService(Model{L"", 0});
    _vixReadWriteHandle *handle = OpenDisk("memdisk://stuck?size=1048576&seed=4");
    ASSERT_NE(handle, nullptr);
    diskReadContextStruct context;
    ASSERT_EQ(service->startReadCacheThread(&context, 2, 64, 0), 0);
    skclass::UniqueHandle thread;
    ASSERT_TRUE(DuplicateHandle(GetCurrentProcess(), context.threadHandle, GetCurrentProcess(), thread.put(),
                                SYNCHRONIZE, FALSE, 0));
    ASSERT_TRUE(sim.VddkSim_BlockNextCall("VixDiskLib_Read"));
    Prepare(context, handle, WriteExtentList(L"stuck.xml", {{{0, 1048576}}}));
    ASSERT_EQ(service->startDiskReadBuffer(&context), 0);
    ASSERT_EQ(sim.VddkSim_WaitBlocked("VixDiskLib_Read", kTimeoutMs), 1);

    EXPECT_EQ(service->stopReadCacheThread(&context), 0);
    EXPECT_EQ(context.allBuffers, nullptr);
    EXPECT_EQ(context.depthHistogram, nullptr);
    sim.VddkSim_Release("VixDiskLib_Read");
    EXPECT_EQ(WaitForSingleObject(thread.get(), kTimeoutMs), WAIT_OBJECT_0) << "the thread leaves once released";
    CloseDisk(handle);
}

// A size that wraps or a count no memory holds would leave the read thread
// without buffers it can fill. (Buffers of 0 KB, refused by the check both
// caches share: the write cache's tests.)
TEST_F(ReadCacheTest, NullContextsAndSizesThatCannotWorkAreRefusedBeforeAnythingIsMade) {
    StartService(Model{L"", 0});
    unsigned length = 100;
    EXPECT_EQ(service->startReadCacheThread(nullptr, 2, 64, 0), static_cast<long>(0xE0008442));
    EXPECT_EQ(service->startDiskReadBuffer(nullptr), kXmlError);
    EXPECT_EQ(service->GetDiskCacheBuffer(nullptr, nullptr, &length), 0);
    EXPECT_EQ(service->closeReadCacheThread(nullptr), 0);
    EXPECT_EQ(service->stopReadCacheThread(nullptr), 0);
    diskReadContextStruct unstarted;
    EXPECT_EQ(service->GetDiskCacheBuffer(&unstarted, nullptr, &length), kReadError);
    EXPECT_EQ(length, 100u);
    EXPECT_EQ(service->VixDiskLib_Read(nullptr, 0, 1, nullptr), VixError(VIX_E_INVALID_ARG));
    const struct {
        unsigned long count, sizeKB;
    } refused[] = {{2, 4194304}, {0xFFFFFFFFul, 64}};
    for (const auto &sizes : refused) {
        diskReadContextStruct context;
        EXPECT_EQ(service->startReadCacheThread(&context, sizes.count, sizes.sizeKB, 0),
                  static_cast<long>(0xE0008442));
        EXPECT_EQ(context.allBuffers, nullptr);
        EXPECT_EQ(context.threadHandle, nullptr);
        EXPECT_EQ(context.startEvent, nullptr);
        EXPECT_EQ(service->stopReadCacheThread(&context), 0);
    }
}

}  // namespace
}  // namespace readcachetest
