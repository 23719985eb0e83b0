// Bounded waits for tests: one timeout for what must happen, events to wait on.
#pragma once
#include <functional>
#include <memory>
#include <thread>
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

// Runs body on a thread of its own and waits for its end at most
// milliseconds. False when it did not end: the thread is then left behind,
// still running body, so a hang fails the test instead of hanging it (keep
// what body uses alive on the heap, or abandon it with the thread).
inline bool RunsWithin(std::function<void()> body, DWORD milliseconds = kTimeoutMs) {
    auto ended = std::make_shared<skclass::UniqueHandle>(NewEvent());
    std::thread([body = std::move(body), ended] {
        body();
        SetEvent(ended->get());
    }).detach();
    return Signalled(*ended, milliseconds);
}

}  // namespace dbtest
