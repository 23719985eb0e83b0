// Child process of the exit tests. Argument: the scenario.
//   leave-alive      start the worker singleton and return from main
//   busy-at-exit     also leave a call running on the worker when main returns
//   release-and-free release the singleton, stop the worker, FreeLibrary
//   crash            an access violation no handler takes, with the worker
//                    and a blocked thread alive (exit code 70 expected)
//   hang             a line of output, then never end
// Exit code 0 = the scenario ran to its end; anything else = where it failed.
#include <stdio.h>
#include <string.h>
#include <thread>
#include <skclass_mini/workerthread.h>

namespace {

using StartFn = int (*)();

StartFn Export(HMODULE module, const char *name) {
    return reinterpret_cast<StartFn>(reinterpret_cast<void (*)()>(GetProcAddress(module, name)));
}

// A call that never ends by itself: the worker is inside it at exit.
class StuckCall : public SyncCall {
public:
    StuckCall(WorkerThread *worker, HANDLE entered) : SyncCall(worker), entered_(entered) {}
    void Execute() override {
        SetEvent(entered_);
        WaitForSingleObject(forever_.get(), INFINITE);
    }

private:
    HANDLE entered_;
    skclass::UniqueHandle forever_{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
};

int LeaveBusyWorker() {
    // A worker of our own (held in a leaked object, as a singleton would be)
    // with a caller thread blocked in a call when main returns.
    WorkerThread *worker = new WorkerThread(0, L"busyAtExit");
    if (!worker->StartThread(0)) return 5;
    HANDLE entered = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    std::thread([worker, entered] {
        StuckCall call(worker, entered);
        call.Invoke();
    }).detach();
    return WaitForSingleObject(entered, 10000) == WAIT_OBJECT_0 ? 0 : 6;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 2) return 2;
    HMODULE module = LoadLibraryW(L"skclass_exit_module.dll");
    if (module == nullptr) return 3;
    if (Export(module, "StartHeldWorker")() != 1) return 4;
    if (strcmp(argv[1], "leave-alive") == 0) return 0;
    if (strcmp(argv[1], "busy-at-exit") == 0) return LeaveBusyWorker();
    if (strcmp(argv[1], "hang") == 0) {
        puts("hanging");
        fflush(stdout);
        Sleep(INFINITE);
    }
    if (strcmp(argv[1], "crash") == 0) {
        if (LeaveBusyWorker() != 0) return 9;
        RaiseException(EXCEPTION_ACCESS_VIOLATION, 0, 0, nullptr);
        return 0;
    }
    if (strcmp(argv[1], "release-and-free") == 0) {
        if (Export(module, "StopHeldWorker")() != 1) return 7;
        if (!FreeLibrary(module)) return 8;
        return 0;
    }
    return 2;
}
