// A thread that runs queued call records in FIFO order, and the record types.
#pragma once
#include <stdint.h>
#include <atomic>
#include <deque>
#include <memory>
#include <skclass_mini/export.h>
#include <skclass_mini/handles.h>
#include <skclass_mini/strings.h>

class WorkerThread;

// A unit of work handed to a WorkerThread.
class SKCLASS_API ThreadCall {
public:
    virtual ~ThreadCall() = default;
    virtual void Invoke() = 0;        // on the caller's thread: queue and wait
    virtual void RunAndSignal() = 0;  // on the worker thread: Execute, then release the caller
    virtual void Execute() = 0;       // on the worker thread: the work itself
};

// A record that blocks its caller on its own manual-reset event until the worker
// has run it. The record lives on the caller's stack.
class SKCLASS_API SyncCall : public ThreadCall {
public:
    explicit SyncCall(WorkerThread *worker);
    // Hands doneEvent back to a small process-wide pool of idle events, so the
    // next record does not pay for creating and closing one.
    ~SyncCall() override;

    // ResetEvent(doneEvent), WorkerThread::Call, WaitForSingleObject(INFINITE).
    // If the worker refuses the call (not running), Execute runs nowhere and
    // Invoke returns at once with Queued() false. Called on the worker thread
    // itself, it runs Execute at once instead of waiting on its own queue.
    void Invoke() override;
    // True once Invoke has had the call run (queued to the worker, or run
    // directly on the worker thread).
    bool Queued() const { return queued; }
    // Execute, then SetEvent(doneEvent) on every path (also when Execute throws:
    // the exception is swallowed so that the worker lives on).
    void RunAndSignal() override;

    WorkerThread *worker;
    DWORD callerThreadId;
    bool queued = false;
    // Manual-reset (CreateEventA(NULL, TRUE, FALSE, NULL)), provided
    // non-signalled by the constructor (new, or a reset one from the pool);
    // Invoke resets it before queuing unless it is unused, and creates it
    // again if the owner closed it.
    skclass::UniqueHandle doneEvent;

private:
    // doneEvent is known to be non-signalled (as the constructor provided it,
    // not used yet), so Invoke can skip ResetEvent: one system call fewer on
    // the hot path.
    bool doneEventFresh_ = true;
};

class SKCLASS_API WorkerThread {
public:
    // comThreadingModel: see ComEnvironmentFactory (0 none, 1 STA, 2 MTA).
    WorkerThread(int comThreadingModel, const wchar_t *threadName);
    // StopThread(). A derived class that overrides Run must call StopThread in
    // its own destructor: by the time this one runs, the override is gone.
    virtual ~WorkerThread();
    WorkerThread(const WorkerThread &) = delete;
    WorkerThread &operator=(const WorkerThread &) = delete;

    // Starts the thread (flags reserved, pass 0). True once the thread runs.
    bool StartThread(unsigned flags);
    // Asks the loop to end after the queued calls, waits for the thread and
    // closes it. Calls queued before the stop all run (also when Run returns
    // early); later ones are refused. Safe to call twice. Must not be called
    // under the loader lock; called on the worker thread itself it only asks
    // the loop to end (a later call from another thread joins).
    virtual void StopThread();

    // Queues call for the worker; false when the worker is not running.
    static bool Call(WorkerThread *worker, ThreadCall *call);

    uint32_t NumberOfOutstandingCalls() const;
    // 0 before StartThread and after StopThread, so a later thread that gets
    // the same id is never taken for the worker.
    DWORD ThreadId() const { return threadId_.load(); }
    bool IsRunning() const;
    const wcstring &ThreadName() const { return threadName_; }

    // Gives a thread a debugger name (SetThreadDescription where the OS has it).
    static void SetThreadName(DWORD threadId, const wchar_t *name);

protected:
    // The thread body: the call loop. Overrides do their set-up, call the base
    // Run, then clean up.
    virtual void Run();

private:
    friend class SyncCall;  // queues and wakes the worker in one step with its own wait
    // Queues call; wakeWorker tells whether the worker sleeps and must be
    // signalled (wakeEvent_). False when the worker is not running.
    bool Enqueue(ThreadCall *call, bool &wakeWorker);
    static unsigned __stdcall ThreadMain(void *self);
    ThreadCall *Dequeue();  // blocks; null when stopping and the queue is empty
    void RunLeftoverCalls();  // after Run: refuses new calls, runs the queued ones

    int comThreadingModel_;
    wcstring threadName_;
    skclass::UniqueHandle thread_;
    std::atomic<DWORD> threadId_{0};
    mutable skclass::CriticalSection queueLock_;
    std::deque<ThreadCall *> queue_;  // guarded by queueLock_
    bool started_ = false;            // guarded by queueLock_
    bool stopping_ = false;           // guarded by queueLock_
    // True while the worker waits (or is about to wait) on wakeEvent_: only
    // then does a caller signal it, so a busy worker costs callers no signal.
    bool workerWaiting_ = false;      // guarded by queueLock_
    skclass::UniqueHandle wakeEvent_; // auto-reset; set when workerWaiting_ is cleared
};
