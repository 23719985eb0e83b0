// The worker thread and its call records.
#include <skclass_mini/workerthread.h>

#include <process.h>
#include <skclass_mini/com.h>

// ---- SyncCall ----------------------------------------------------------------

namespace {

// Done events of finished records, for reuse. Under Wine, creating and closing
// an event costs about as much as half a call's hand-off, and so does the
// ResetEvent a reused event needs; callers build one record per call. So a
// finished record's event goes on the dirty list, an idle worker thread resets
// dirty events before it sleeps (off the caller's path), and a new record takes
// a clean one. At most kCapacity events are kept.
class DoneEventPool {
public:
    // A non-signalled event, clean from the pool or new; null if none could be
    // created.
    HANDLE Take() {
        AcquireSRWLockExclusive(&lock_);
        HANDLE event = cleanCount_ > 0 ? clean_[--cleanCount_] : nullptr;
        ReleaseSRWLockExclusive(&lock_);
        return event != nullptr ? event : CreateEventA(nullptr, TRUE, FALSE, nullptr);
    }
    // An event whose record is finished with it; its state is unknown.
    void Give(HANDLE event) {
        AcquireSRWLockExclusive(&lock_);
        const bool kept = cleanCount_ + dirtyCount_ < kCapacity;
        if (kept) dirty_[dirtyCount_++] = event;
        ReleaseSRWLockExclusive(&lock_);
        if (!kept) CloseHandle(event);
    }
    // Resets the dirty events and makes them clean. Called by worker threads
    // that are about to wait for work.
    void CleanDirty() {
        HANDLE resetting[kCapacity];
        AcquireSRWLockExclusive(&lock_);
        const size_t count = dirtyCount_;
        for (size_t i = 0; i < count; ++i) resetting[i] = dirty_[i];
        dirtyCount_ = 0;
        ReleaseSRWLockExclusive(&lock_);
        if (count == 0) return;
        for (size_t i = 0; i < count; ++i) ResetEvent(resetting[i]);
        AcquireSRWLockExclusive(&lock_);
        for (size_t i = 0; i < count; ++i) {
            if (cleanCount_ < kCapacity) {
                clean_[cleanCount_++] = resetting[i];
            } else {
                CloseHandle(resetting[i]);
            }
        }
        ReleaseSRWLockExclusive(&lock_);
    }
    // Runs when the DLL is unloaded or the process ends. A thread killed at
    // process exit may have died holding the lock: then leave the handles.
    ~DoneEventPool() {
        if (!TryAcquireSRWLockExclusive(&lock_)) return;
        while (cleanCount_ > 0) CloseHandle(clean_[--cleanCount_]);
        while (dirtyCount_ > 0) CloseHandle(dirty_[--dirtyCount_]);
        ReleaseSRWLockExclusive(&lock_);
    }

private:
    static constexpr size_t kCapacity = 64;
    SRWLOCK lock_ = SRWLOCK_INIT;
    HANDLE clean_[kCapacity] = {};  // non-signalled; guarded by lock_
    HANDLE dirty_[kCapacity] = {};  // state unknown; guarded by lock_
    size_t cleanCount_ = 0;         // guarded by lock_
    size_t dirtyCount_ = 0;         // guarded by lock_
};

DoneEventPool g_idleDoneEvents;

}  // namespace

SyncCall::SyncCall(WorkerThread *worker_) : worker(worker_), callerThreadId(GetCurrentThreadId()) {
    doneEvent.reset(g_idleDoneEvents.Take());
    doneEventFresh_ = true;
}

SyncCall::~SyncCall() {
    if (doneEvent) g_idleDoneEvents.Give(doneEvent.release());
}

void SyncCall::Invoke() {
    queued = false;
    if (worker == nullptr) return;
    if (GetCurrentThreadId() == worker->ThreadId()) {
        // Queuing here would wait for ourselves forever.
        queued = true;
        doneEventFresh_ = false;
        RunAndSignal();
        return;
    }
    if (!doneEvent) {
        doneEvent.reset(CreateEventA(nullptr, TRUE, FALSE, nullptr));
        doneEventFresh_ = true;
    }
    if (!doneEvent) return;  // nothing to wait on: do not queue
    if (!doneEventFresh_) ResetEvent(doneEvent.get());
    doneEventFresh_ = false;
    bool wakeWorker = false;
    if (!worker->Enqueue(this, wakeWorker)) return;
    queued = true;
    if (wakeWorker) {
        // One system call for wake-and-wait instead of SetEvent + wait: the
        // hand-off then costs what a bare two-thread event ping-pong costs.
        if (SignalObjectAndWait(worker->wakeEvent_.get(), doneEvent.get(), INFINITE, FALSE) != WAIT_FAILED) return;
        SetEvent(worker->wakeEvent_.get());  // the call is queued: we must wait for it in any case
        WaitForSingleObject(doneEvent.get(), INFINITE);
    } else {
        WaitForSingleObject(doneEvent.get(), INFINITE);
    }
}

void SyncCall::RunAndSignal() {
    // Copy the handle first: once signalled, the record (on the caller's
    // stack) may be gone.
    const HANDLE done = doneEvent.get();
    try {
        Execute();
    } catch (...) {
        // Swallowed so that the worker lives on; the record's result slot
        // keeps whatever Execute left there.
    }
    if (done != nullptr) SetEvent(done);
}

// ---- WorkerThread ------------------------------------------------------------

WorkerThread::WorkerThread(int comThreadingModel, const wchar_t *threadName)
    : comThreadingModel_(comThreadingModel),
      threadName_(threadName != nullptr ? threadName : L""),
      wakeEvent_(CreateEventW(nullptr, FALSE, FALSE, nullptr)) {}

WorkerThread::~WorkerThread() { WorkerThread::StopThread(); }

bool WorkerThread::StartThread(unsigned /*flags*/) {
    skclass::CsLock lock(queueLock_);
    if (started_) return true;
    if (!wakeEvent_) return false;
    unsigned id = 0;
    // Suspended until threadId_ is set, so the thread and its callers see it.
    const uintptr_t handle = _beginthreadex(nullptr, 0, &WorkerThread::ThreadMain, this, CREATE_SUSPENDED, &id);
    if (handle == 0) return false;
    thread_.reset(reinterpret_cast<HANDLE>(handle));
    threadId_ = id;
    started_ = true;
    stopping_ = false;
    ResumeThread(thread_.get());
    return true;
}

void WorkerThread::StopThread() {
    bool wake = false;
    skclass::UniqueHandle thread;
    {
        skclass::CsLock lock(queueLock_);
        stopping_ = true;
        std::swap(wake, workerWaiting_);
        if (GetCurrentThreadId() != threadId_) thread = std::move(thread_);
    }
    if (wake) SetEvent(wakeEvent_.get());
    if (!thread) return;  // never started, already stopped, or we are the worker
    WaitForSingleObject(thread.get(), INFINITE);
    skclass::CsLock lock(queueLock_);
    started_ = false;
    threadId_ = 0;
}

bool WorkerThread::Call(WorkerThread *worker, ThreadCall *call) {
    if (worker == nullptr || call == nullptr) return false;
    bool wakeWorker = false;
    if (!worker->Enqueue(call, wakeWorker)) return false;
    // Signalled outside the lock so the worker does not wake into a held lock.
    if (wakeWorker) SetEvent(worker->wakeEvent_.get());
    return true;
}

bool WorkerThread::Enqueue(ThreadCall *call, bool &wakeWorker) {
    if (call == nullptr) return false;
    skclass::CsLock lock(queueLock_);
    if (!started_ || stopping_) return false;
    try {
        queue_.push_back(call);
    } catch (...) {
        return false;
    }
    wakeWorker = workerWaiting_;
    workerWaiting_ = false;
    return true;
}

uint32_t WorkerThread::NumberOfOutstandingCalls() const {
    skclass::CsLock lock(queueLock_);
    return static_cast<uint32_t>(queue_.size());
}

bool WorkerThread::IsRunning() const {
    skclass::CsLock lock(queueLock_);
    return started_ && !stopping_;
}

void WorkerThread::SetThreadName(DWORD threadId, const wchar_t *name) {
    if (name == nullptr) return;
    // Looked up at run time: older Windows and Wine lack SetThreadDescription.
    using SetThreadDescriptionFn = HRESULT(WINAPI *)(HANDLE, PCWSTR);
    const HMODULE kernel = GetModuleHandleW(L"kernel32.dll");
    if (kernel == nullptr) return;
    const auto address = reinterpret_cast<void (*)()>(GetProcAddress(kernel, "SetThreadDescription"));
    if (address == nullptr) return;
    const auto setDescription = reinterpret_cast<SetThreadDescriptionFn>(address);
    skclass::UniqueHandle thread(OpenThread(THREAD_SET_LIMITED_INFORMATION, FALSE, threadId));
    if (thread) setDescription(thread.get(), name);
}

void WorkerThread::Run() {
    while (ThreadCall *call = Dequeue()) {
        try {
            call->RunAndSignal();
        } catch (...) {
            // A record that lets an exception out must not end the worker.
        }
    }
}

ThreadCall *WorkerThread::Dequeue() {
    queueLock_.Enter();
    for (;;) {
        if (!queue_.empty()) {
            ThreadCall *call = queue_.front();
            queue_.pop_front();
            queueLock_.Leave();
            return call;
        }
        if (stopping_) {
            queueLock_.Leave();
            return nullptr;
        }
        workerWaiting_ = true;
        queueLock_.Leave();
        g_idleDoneEvents.CleanDirty();  // while the caller wakes up, not on its path
        WaitForSingleObject(wakeEvent_.get(), INFINITE);
        queueLock_.Enter();
    }
}

void WorkerThread::RunLeftoverCalls() {
    {
        skclass::CsLock lock(queueLock_);
        stopping_ = true;
    }
    // Nothing new is queued once stopping_ is set; whatever is left was
    // accepted and its caller waits for it.
    while (ThreadCall *call = Dequeue()) {
        try {
            call->RunAndSignal();
        } catch (...) {
        }
    }
}

unsigned __stdcall WorkerThread::ThreadMain(void *self) {
    WorkerThread *worker = static_cast<WorkerThread *>(self);
    SetThreadName(GetCurrentThreadId(), worker->threadName_.c_str());
    std::unique_ptr<ComEnvironment> com = ComEnvironmentFactory::Create(worker->comThreadingModel_);
    try {
        worker->Run();
    } catch (...) {
        // No exception leaves the thread.
    }
    worker->RunLeftoverCalls();
    return 0;
}
