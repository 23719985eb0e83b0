#include "worker_fixture.h"

#include <dbtest/wait.h>

namespace workertest {

namespace {

// Set once a test left a worker hanging.
bool g_workerLeftHanging = false;

}  // namespace

void WorkerTest::SetUp() {
    BindingTest::SetUp();
    // What hung one test's worker (one that queues to itself) would hang every
    // next one for its whole bound, past CTest's: they fail at once instead.
    if (g_workerLeftHanging) FAIL() << "not run: an earlier test left a worker hanging";
}

void WorkerTest::TearDown() {
    if (abandoned) {
        g_workerLeftHanging = true;
        worker.release();
    } else if (worker) {
        if (connection) worker->VixDiskLib_Disconnect(connection);
        worker.reset();
    }
    BindingTest::TearDown();
}

void WorkerTest::StartWorker() {
    // Its first calls can hang on a worker that queues to itself: bounded like
    // a job's.
    ASSERT_TRUE(RunOnJobThread([this] {
        worker = std::make_unique<vixWorkerThread>(false);
        ASSERT_TRUE(worker->diskLibGlue && worker->diskLibGlue->OK());
        ASSERT_TRUE(Attach(worker->diskLibGlue->moduleHandle.get()));
        ASSERT_EQ(worker->VixDiskLib_InitEx(8, 0, nullptr, nullptr, nullptr, nullptr, nullptr), VIX_OK);
        ASSERT_EQ(worker->VixDiskLib_Connect(nullptr, &connection), VIX_OK);
    }));
    // Its assertions failed on the job thread, out of this one's sight.
    ASSERT_FALSE(HasFatalFailure()) << "the worker did not start";
}

VixDiskLibHandle WorkerTest::OpenMemDisk(const std::string &name, bool impersonate) {
    VixDiskLibHandle handle = nullptr;
    const std::string path = "memdisk://" + name + "?size=1048576";
    EXPECT_EQ(worker->VixDiskLib_Open(connection, path.c_str(), 0, &handle, impersonate), VIX_OK);
    return handle;
}

::testing::AssertionResult WorkerTest::RunOnJobThread(std::function<void()> body) {
    if (dbtest::RunsWithin(std::move(body), kTimeoutMs)) return ::testing::AssertionSuccess();
    abandoned = true;
    return ::testing::AssertionFailure() << "the job thread did not finish within " << kTimeoutMs << " ms";
}

::testing::AssertionResult WorkerTest::RunImpersonating(std::function<void()> body, bool *impersonated) {
    *impersonated = false;
    return RunOnJobThread([body, impersonated] {
        if (!ImpersonateSelf(SecurityImpersonation)) return;
        *impersonated = true;
        body();
        RevertToSelf();
    });
}

}  // namespace workertest
