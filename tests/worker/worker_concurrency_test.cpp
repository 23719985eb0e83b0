// Many job threads through one worker: every caller gets its own result.
#include <atomic>
#include <string>

#include "worker_fixture.h"

namespace workertest {
namespace {

constexpr int kJobThreads = 8;
constexpr int kCallsPerThread = 10000;

// Each call through the worker asks for a code no other call in flight uses (above VDDK's own
// codes, so the stand-in answers "Unknown error <code>"): a result handed to
// the wrong caller, or a caller released before its call ran, shows as a
// wrong or missing text.
TEST_F(WorkerTest, EightJobThreadsEachGetTheirOwnResults) {
    Install();
    ASSERT_NO_FATAL_FAILURE(StartWorker());
    // On the heap: left behind, with the threads, if they hang.
    struct Shared {
        vixWorkerThread *worker;
        dbtest::VddkDiskLibExports vddk;  // frees texts without a second hand-off
        skclass::UniqueHandle start{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
        std::atomic<int> wrong{0};
        struct Job {
            Shared *shared;
            VixError firstCode;
        } jobs[kJobThreads];
        skclass::UniqueHandle threads[kJobThreads];
    };
    auto shared = std::make_unique<Shared>();
    shared->worker = worker.get();
    ASSERT_EQ(shared->vddk.Load(pinned.get()), vddk::kDiskLibEntryPointCount);
    auto body = [](void *data) -> DWORD {
        const Shared::Job &job = *static_cast<Shared::Job *>(data);
        WaitForSingleObject(job.shared->start.get(), kTimeoutMs);
        for (int i = 0; i < kCallsPerThread; ++i) {
            const VixError code = job.firstCode + VixError(i % 5000);
            char *text = job.shared->worker->VixDiskLib_GetErrorText(code, nullptr);
            if (!text || std::string(text) != "Unknown error " + std::to_string(code)) ++job.shared->wrong;
            job.shared->vddk.VixDiskLib_FreeErrorText(text);
        }
        return 0;
    };
    HANDLE handles[kJobThreads];
    for (int t = 0; t < kJobThreads; ++t) {
        shared->jobs[t] = {shared.get(), 20000 + VixError(t) * 5000};
        shared->threads[t].reset(CreateThread(nullptr, 0, body, &shared->jobs[t], 0, nullptr));
        ASSERT_TRUE(shared->threads[t]);
        handles[t] = shared->threads[t].get();
    }
    SetEvent(shared->start.get());
    if (WaitForMultipleObjects(kJobThreads, handles, TRUE, kTimeoutMs) != WAIT_OBJECT_0) {
        shared.release();
        abandoned = true;
        FAIL() << "the job threads did not finish within " << kTimeoutMs << " ms";
    }
    EXPECT_EQ(shared->wrong.load(), 0);
    EXPECT_EQ(worker->NumberOfOutstandingCalls(), 0u);
    EXPECT_EQ(Calls("VixDiskLib_GetErrorText"), uint64_t(kJobThreads) * kCallsPerThread);
    EXPECT_EQ(Calls("VixDiskLib_FreeErrorText"), uint64_t(kJobThreads) * kCallsPerThread);
}

}  // namespace
}  // namespace workertest
