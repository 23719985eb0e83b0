// Bounded waits for tests: one timeout for what must happen, events to wait on.
#pragma once
#include <functional>
#include <memory>
#include <skclass_mini/handles.h>

namespace dbtest {

// How long anything that must happen may take before the test calls it a hang.
constexpr DWORD kTimeoutMs = 10000;

inline skclass::UniqueHandle NewEvent(bool manualReset = true) {
    return skclass::UniqueHandle(CreateEventW(nullptr, manualReset ? TRUE : FALSE, FALSE, nullptr));
}

inline bool Signalled(const skclass::UniqueHandle &event, DWORD milliseconds = kTimeoutMs) {
    return WaitForSingleObject(event.get(), milliseconds) == WAIT_OBJECT_0;
}

// For states that no event announces (e.g. a queue length): re-checks,
// yielding in between, until true or kTimeoutMs has passed.
inline bool Eventually(const std::function<bool()> &condition) {
    const ULONGLONG start = GetTickCount64();
    while (!condition()) {
        if (GetTickCount64() - start > kTimeoutMs) return false;
        SwitchToThread();
    }
    return true;
}

// Runs body on a thread of its own and waits at most milliseconds for the
// thread's whole end, so a thread the test starts next never overlaps it.
// False when it did not end: the thread is then left behind, still running
// body, so a hang fails the test instead of hanging it (keep what body uses
// alive on the heap, or abandon it with the thread). A Windows thread, not a
// detached std::thread: winpthreads lost a thread started while a detached one
// was still ending (it never ran, about once in 20 runs of the worker tests).
inline bool RunsWithin(std::function<void()> body, DWORD milliseconds = kTimeoutMs) {
    struct Job {
        std::function<void()> body;
        static DWORD WINAPI Main(void *self) {
            static_cast<Job *>(self)->body();
            return 0;
        }
    };
    auto job = std::make_unique<Job>();
    job->body = std::move(body);
    skclass::UniqueHandle thread(CreateThread(nullptr, 0, &Job::Main, job.get(), 0, nullptr));
    if (!thread) return false;
    if (WaitForSingleObject(thread.get(), milliseconds) == WAIT_OBJECT_0) return true;
    job.release();  // still in use by the thread left behind
    return false;
}

}  // namespace dbtest
