#include <gtest/gtest.h>

#include <objbase.h>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>
#include <skclass_mini/workerthread.h>
#include <dbtest/wait.h>

namespace {

using namespace dbtest;

// A record that holds the worker inside Execute until the test opens the gate.
class GateCall : public SyncCall {
public:
    explicit GateCall(WorkerThread *worker) : SyncCall(worker) {}
    void Execute() override {
        SetEvent(entered.get());
        WaitForSingleObject(gate.get(), kTimeoutMs);
    }
    skclass::UniqueHandle entered = NewEvent();
    skclass::UniqueHandle gate = NewEvent();
};

// A fire-and-forget record: appends its number to a log on the worker thread.
class LogCall : public ThreadCall {
public:
    LogCall(int number, std::vector<int> *log) : number_(number), log_(log) {}
    void Invoke() override {}
    void RunAndSignal() override { Execute(); }
    void Execute() override { log_->push_back(number_); }

private:
    int number_;
    std::vector<int> *log_;
};

// A synchronous record running any function on the worker.
class FunctionCall : public SyncCall {
public:
    FunctionCall(WorkerThread *worker, std::function<void()> body) : SyncCall(worker), body_(std::move(body)) {}
    void Execute() override { body_(); }

private:
    std::function<void()> body_;
};

class WorkerThreadTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(worker->StartThread(0)); }
    void TearDown() override {
        // A test that found a hang leaks the worker rather than hang here too.
        if (HasFailure()) worker.release();
    }
    std::unique_ptr<WorkerThread> worker = std::make_unique<WorkerThread>(0, L"testWorker");
};

TEST_F(WorkerThreadTest, ACallMadeOnTheWorkerThreadRunsAtOnce) {
    DWORD outerThread = 0, innerThread = 0;
    FunctionCall outer(worker.get(), [&] {
        outerThread = GetCurrentThreadId();
        FunctionCall inner(worker.get(), [&] { innerThread = GetCurrentThreadId(); });
        inner.Invoke();
    });
    ASSERT_TRUE(RunsWithin([&] { outer.Invoke(); }));
    EXPECT_TRUE(outer.Queued());
    EXPECT_EQ(outerThread, worker->ThreadId());
    EXPECT_EQ(innerThread, worker->ThreadId());
}

// 1. Hold the worker inside a call; queue five fire-and-forget calls and one
//    that its caller waits for: the queue counts them.
// 2. Stop from another thread: a later call is refused at once.
// 3. Release the worker: the stop runs everything queued, in queue order.
TEST_F(WorkerThreadTest, StopRunsTheQueuedCallsInOrderAndRefusesLaterOnes) {
    GateCall gate(worker.get());
    std::thread holder([&] { gate.Invoke(); });
    ASSERT_TRUE(Signalled(gate.entered));
    std::vector<int> log;  // touched on the worker thread only
    std::vector<std::unique_ptr<LogCall>> calls;
    for (int i = 1; i <= 5; ++i) {
        calls.push_back(std::make_unique<LogCall>(i, &log));
        ASSERT_TRUE(WorkerThread::Call(worker.get(), calls.back().get()));
        EXPECT_EQ(worker->NumberOfOutstandingCalls(), static_cast<uint32_t>(i));
    }
    FunctionCall waited(worker.get(), [&] { log.push_back(6); });
    std::thread caller([&] { waited.Invoke(); });
    ASSERT_TRUE(Eventually([&] { return worker->NumberOfOutstandingCalls() == 6; }));
    std::thread stopper([&] { worker->StopThread(); });
    ASSERT_TRUE(Eventually([&] { return !worker->IsRunning(); }));
    FunctionCall late(worker.get(), [&] { log.push_back(7); });
    late.Invoke();  // refused: returns at once
    EXPECT_FALSE(late.Queued());
    SetEvent(gate.gate.get());
    holder.join();
    caller.join();
    stopper.join();
    EXPECT_EQ(log, (std::vector<int>{1, 2, 3, 4, 5, 6}));
    EXPECT_TRUE(waited.Queued());
    EXPECT_EQ(worker->NumberOfOutstandingCalls(), 0u);
    worker->StopThread();  // a second stop is harmless
    late.Invoke();         // and a stopped worker refuses as a stopping one did
    EXPECT_FALSE(late.Queued());
}

TEST_F(WorkerThreadTest, AnExecuteThatThrowsStillReleasesItsCaller) {
    FunctionCall throwing(worker.get(), [] { throw std::runtime_error("VDDK went away"); });
    ASSERT_TRUE(RunsWithin([&] { throwing.Invoke(); }));
    bool ran = false;
    FunctionCall next(worker.get(), [&] { ran = true; });
    ASSERT_TRUE(RunsWithin([&] { next.Invoke(); }));
    EXPECT_TRUE(ran);
}

// A worker whose Run ends before serving anything: what was queued still runs.
class EarlyExitWorker : public WorkerThread {
public:
    EarlyExitWorker() : WorkerThread(0, L"earlyExit") {}
    ~EarlyExitWorker() override { StopThread(); }
    skclass::UniqueHandle runGate = NewEvent();

protected:
    void Run() override { WaitForSingleObject(runGate.get(), kTimeoutMs); }
};

TEST(WorkerThreadRun, CallsQueuedBeforeAnEarlyEndOfRunStillComplete) {
    auto early = std::make_unique<EarlyExitWorker>();
    ASSERT_TRUE(early->StartThread(0));
    bool ran = false;
    FunctionCall call(early.get(), [&] { ran = true; });
    skclass::UniqueHandle returned = NewEvent();
    std::thread caller([&] { call.Invoke(); SetEvent(returned.get()); });
    ASSERT_TRUE(Eventually([&] { return early->NumberOfOutstandingCalls() == 1; }));
    SetEvent(early->runGate.get());
    const bool completed = Signalled(returned);
    EXPECT_TRUE(completed);
    if (!completed) {  // leave the stuck pieces alone
        caller.detach();
        early.release();
        return;
    }
    caller.join();
    EXPECT_TRUE(ran);
}

TEST(WorkerThreadSetup, InitialisesTheRequestedComApartment) {
    struct Expectation { int model; DWORD probe; HRESULT expected; };
    // S_FALSE: the thread already has that apartment; S_OK: it had none.
    const Expectation cases[] = {
        {0, COINIT_MULTITHREADED, S_OK},
        {1, COINIT_APARTMENTTHREADED, S_FALSE},
        {2, COINIT_MULTITHREADED, S_FALSE},
    };
    for (const Expectation &c : cases) {
        SCOPED_TRACE(testing::Message() << "model " << c.model);
        WorkerThread worker(c.model, L"comWorker");
        ASSERT_TRUE(worker.StartThread(0));
        HRESULT probed = E_FAIL;
        FunctionCall call(&worker, [&] {
            probed = CoInitializeEx(nullptr, c.probe);
            if (SUCCEEDED(probed)) CoUninitialize();
        });
        call.Invoke();
        EXPECT_EQ(probed, c.expected);
    }
}

TEST(WorkerThreadSetup, RefusesCallsBeforeStart) {
    WorkerThread worker(0, L"idle");
    bool ran = false;
    FunctionCall early(&worker, [&] { ran = true; });
    early.Invoke();
    EXPECT_FALSE(early.Queued());
    EXPECT_FALSE(ran);
    EXPECT_FALSE(worker.IsRunning());
}

}  // namespace
