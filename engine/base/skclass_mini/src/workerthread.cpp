// The worker thread and its call records.
#include <skclass_mini/workerthread.h>

#include <process.h>
#include <skclass_mini/com.h>

// ---- SyncCall ----------------------------------------------------------------

SyncCall::SyncCall(WorkerThread *worker_)
    : worker(worker_), callerThreadId(GetCurrentThreadId()), doneEvent(CreateEventA(nullptr, TRUE, FALSE, nullptr)) {}

void SyncCall::Invoke() {
    queued = false;
    if (worker == nullptr) return;
    if (GetCurrentThreadId() == worker->ThreadId()) {
        // Queuing here would wait for ourselves forever.
        queued = true;
        RunAndSignal();
        return;
    }
    if (!doneEvent) doneEvent.reset(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    if (!doneEvent) return;  // nothing to wait on: do not queue
    ResetEvent(doneEvent.get());
    if (!WorkerThread::Call(worker, this)) return;
    queued = true;
    WaitForSingleObject(doneEvent.get(), INFINITE);
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
}

bool WorkerThread::Call(WorkerThread *worker, ThreadCall *call) {
    if (worker == nullptr || call == nullptr) return false;
    bool wake = false;
    {
        skclass::CsLock lock(worker->queueLock_);
        if (!worker->started_ || worker->stopping_) return false;
        try {
            worker->queue_.push_back(call);
        } catch (...) {
            return false;
        }
        std::swap(wake, worker->workerWaiting_);
    }
    // Signalled outside the lock so the worker does not wake into a held lock.
    if (wake) SetEvent(worker->wakeEvent_.get());
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
