// A plug-in that keeps a started worker thread in a process-wide singleton,
// like the product's worker-thread singletons, for the process exit tests.
#include <skclass_mini/singleton.h>
#include <skclass_mini/workerthread.h>

namespace {

const char kKey[] = "exitTest.worker";

struct HeldWorker {
    HeldWorker() : worker(2, L"exitTestWorker") { worker.StartThread(0); }
    ~HeldWorker() { worker.StopThread(); }
    WorkerThread worker;
};

class NoteCall : public SyncCall {
public:
    explicit NoteCall(WorkerThread *worker) : SyncCall(worker) {}
    void Execute() override { ran = true; }
    bool ran = false;
};

}  // namespace

// Creates the singleton and runs one call through its worker; 1 on success.
extern "C" __declspec(dllexport) int StartHeldWorker() {
    auto held = skclass::GetSingleton<HeldWorker>(kKey);
    if (!held || !held->worker.IsRunning()) return 0;
    NoteCall call(&held->worker);
    call.Invoke();
    return call.ran ? 1 : 0;
}

// Takes the worker out of the storage and stops it; 1 if it was there.
extern "C" __declspec(dllexport) int StopHeldWorker() {
    auto released = std::static_pointer_cast<HeldWorker>(skclass::ReleaseSingleton(kKey));
    if (!released) return 0;
    released->worker.StopThread();
    return 1;
}
