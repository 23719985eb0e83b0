// COM environments for worker threads.
#include <skclass_mini/com.h>

#include <objbase.h>
#include <skclass_mini/dawdle.h>
#include "dawdle_internal.h"

namespace {

// Dispatches every message waiting for this thread, so that calls into the
// apartment from other threads are served while we wait.
void PumpMessages() {
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
}

DWORD RemainingMilliseconds(DWORD total, ULONGLONG start) {
    if (total == INFINITE) return INFINITE;
    const ULONGLONG elapsed = GetTickCount64() - start;
    return elapsed >= total ? 0 : static_cast<DWORD>(total - elapsed);
}

// Waits like WaitForMultipleObjects, pumping messages whenever one arrives.
// count may be 0 (a pure pause).
DWORD PumpingWait(DWORD count, const HANDLE *handles, BOOL waitAll, DWORD milliseconds) {
    const ULONGLONG start = GetTickCount64();
    const DWORD flags = MWMO_INPUTAVAILABLE | (waitAll ? MWMO_WAITALL : 0);
    for (;;) {
        const DWORD remaining = RemainingMilliseconds(milliseconds, start);
        const DWORD result = MsgWaitForMultipleObjectsEx(count, handles, remaining, QS_ALLINPUT, flags);
        if (result != WAIT_OBJECT_0 + count) return result;
        PumpMessages();
        if (RemainingMilliseconds(milliseconds, start) == 0) {
            return count == 0 ? WAIT_TIMEOUT : WaitForMultipleObjects(count, handles, waitAll, 0);
        }
    }
}

class ComEnvironmentImpl : public ComEnvironment {
public:
    explicit ComEnvironmentImpl(DWORD coInit) : status_(CoInitializeEx(nullptr, coInit)) {}
    ~ComEnvironmentImpl() override {
        if (SUCCEEDED(status_)) CoUninitialize();
    }
    HRESULT Status() const override { return status_; }

private:
    HRESULT status_;
};

// Model 0: the thread does not use COM; nothing to initialise.
class NoComEnvironment : public ComEnvironment {
public:
    HRESULT Status() const override { return S_OK; }
};

}  // namespace

SingleThreadedCom::SingleThreadedCom() : initResult_(CoInitialize(nullptr)) {}

SingleThreadedCom::~SingleThreadedCom() {
    if (SUCCEEDED(initResult_)) CoUninitialize();
}

DWORD SingleThreadedCom::WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
    return PumpingWait(1, &handle, FALSE, milliseconds);
}

DWORD SingleThreadedCom::WaitForMultipleObjects(DWORD count, const HANDLE *handles, BOOL waitAll,
                                                DWORD milliseconds) {
    return PumpingWait(count, handles, waitAll, milliseconds);
}

void SingleThreadedCom::Dawdle(DWORD milliseconds) {
    const unsigned long scaled = skclass::detail::RecordAndScaleDawdle(milliseconds);
    if (scaled == 0) {
        PumpMessages();
        SwitchToThread();
        return;
    }
    PumpingWait(0, nullptr, FALSE, scaled);
}

std::unique_ptr<ComEnvironment> ComEnvironmentFactory::Create(int comThreadingModel) {
    try {
        switch (comThreadingModel) {
            case 1: return std::make_unique<ComEnvironmentImpl>(COINIT_APARTMENTTHREADED);
            case 2: return std::make_unique<ComEnvironmentImpl>(COINIT_MULTITHREADED);
            default: return std::make_unique<NoComEnvironment>();
        }
    } catch (...) {
        return nullptr;
    }
}
