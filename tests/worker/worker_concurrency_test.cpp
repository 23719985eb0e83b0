// Many job threads through one worker: every caller gets its own result.
#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <dbtest/wait.h>

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
    // Shared, so that what the jobs use stays alive with them if they hang.
    auto exports = std::make_shared<dbtest::VddkDiskLibExports>();  // frees texts without a second hand-off
    ASSERT_EQ(exports->Load(pinned.get()), vddk::kDiskLibEntryPointCount);
    auto wrong = std::make_shared<std::atomic<int>>(0);
    auto start = std::make_shared<skclass::UniqueHandle>(dbtest::NewEvent());
    vixWorkerThread *target = worker.get();
    ASSERT_TRUE(RunOnJobThread([target, exports, wrong, start] {
        std::vector<std::thread> jobs;
        for (int t = 0; t < kJobThreads; ++t) {
            jobs.emplace_back([=] {
                WaitForSingleObject(start->get(), kTimeoutMs);
                for (int i = 0; i < kCallsPerThread; ++i) {
                    const VixError code = 20000 + VixError(t) * 5000 + VixError(i % 5000);
                    char *text = target->VixDiskLib_GetErrorText(code, nullptr);
                    if (!text || std::string(text) != "Unknown error " + std::to_string(code)) ++*wrong;
                    exports->VixDiskLib_FreeErrorText(text);
                }
            });
        }
        SetEvent(start->get());
        for (std::thread &job : jobs) job.join();
    }));
    EXPECT_EQ(wrong->load(), 0);
    EXPECT_EQ(worker->NumberOfOutstandingCalls(), 0u);
    EXPECT_EQ(Calls("VixDiskLib_FreeErrorText"), uint64_t(kJobThreads) * kCallsPerThread);
}

}  // namespace
}  // namespace workertest
