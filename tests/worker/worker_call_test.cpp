// Calls through the worker thread: error texts with and without a library,
// and the order of destruction. (A call made on the worker thread itself:
// skclass's workerthread_test. Statistics in the records: the service's
// handle tests in the worker models.)
#include <thread>

#include <vixworkerthread.h>

#include "worker_fixture.h"

namespace workertest {
namespace {

// Nothing installed: the bindings refuse, and the text asked for stays as it
// was. Then with the library: the text decoded, and freed through the worker.
TEST_F(WorkerTest, GetErrorTextLeavesTheTextAloneWithoutALibraryAndFreesItThroughTheWorker) {
    worker = std::make_unique<vixWorkerThread>(false);
    wcstring text = L"canary";
    worker->GetErrorText(16000, text);
    EXPECT_EQ(text, L"canary");
    Install();
    ASSERT_NO_FATAL_FAILURE(StartWorker());
    worker->GetErrorText(VIX_E_DISK_OUTOFRANGE, text);
    EXPECT_EQ(text, L"Sector range out of bounds");
    EXPECT_EQ(Calls("VixDiskLib_FreeErrorText"), 1u);
}

// 1. Hold VixDiskLib_Exit in the stand-in while another thread destroys the worker.
// 2. The worker thread still runs then: the libraries are exited before the thread stops.
// 3. Release: both libraries were exited once, VDDK's own thread is gone, so is the worker's.
TEST_F(WorkerTest, DestructionExitsBothLibrariesBeforeStoppingTheThread) {
    Install();
    ASSERT_NO_FATAL_FAILURE(StartWorker());
    ASSERT_EQ(worker->VixDiskLib_Disconnect(connection), VIX_OK);
    connection = nullptr;
    ASSERT_NE(sim.VddkSim_BackgroundThreadId(), 0u);
    skclass::UniqueHandle workerThread(OpenThread(SYNCHRONIZE, FALSE, worker->ThreadId()));
    ASSERT_TRUE(workerThread);
    ASSERT_TRUE(sim.VddkSim_BlockNextCall("VixDiskLib_Exit"));
    vixWorkerThread *destroying = worker.release();
    skclass::UniqueHandle destroyed(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    std::thread destroyer([&] {
        delete destroying;
        SetEvent(destroyed.get());
    });
    const bool held = sim.VddkSim_WaitBlocked("VixDiskLib_Exit", kTimeoutMs) != 0;
    const DWORD threadWhileHeld = WaitForSingleObject(workerThread.get(), 0);
    sim.VddkSim_Release("VixDiskLib_Exit");
    const bool finished = WaitForSingleObject(destroyed.get(), kTimeoutMs) == WAIT_OBJECT_0;
    if (!finished) {
        destroyer.detach();
        FAIL() << "the destructor did not return";
    }
    destroyer.join();
    EXPECT_TRUE(held);
    EXPECT_EQ(threadWhileHeld, static_cast<DWORD>(WAIT_TIMEOUT)) << "the worker thread had already stopped";
    EXPECT_EQ(WaitForSingleObject(workerThread.get(), 0), static_cast<DWORD>(WAIT_OBJECT_0));
    EXPECT_EQ(Calls("VixDiskLib_Exit"), 1u);
    EXPECT_EQ(Calls("VixMntapi_Exit"), 1u);
    EXPECT_EQ(sim.VddkSim_BackgroundThreadId(), 0u);
}

}  // namespace
}  // namespace workertest
