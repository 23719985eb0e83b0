// COM apartments around worker threads.
#pragma once
#include <memory>
#include <skclass_mini/export.h>
#include <skclass_mini/win.h>

// CoInitialize(NULL) for the life of the object; CoUninitialize only if that
// succeeded (S_OK or S_FALSE).
class SKCLASS_API SingleThreadedCom {
public:
    SingleThreadedCom();
    virtual ~SingleThreadedCom();
    SingleThreadedCom(const SingleThreadedCom &) = delete;
    SingleThreadedCom &operator=(const SingleThreadedCom &) = delete;
    HRESULT InitResult() const { return initResult_; }
    // Waits that keep the apartment serviced (messages pumped while waiting).
    virtual DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds);
    virtual DWORD WaitForMultipleObjects(DWORD count, const HANDLE *handles, BOOL waitAll,
                                         DWORD milliseconds);
    // A pause that keeps the apartment serviced; goes through skclass::Dawdle.
    virtual void Dawdle(DWORD milliseconds);

private:
    HRESULT initResult_;
};

// An initialised COM environment for the calling thread.
class SKCLASS_API ComEnvironment {
public:
    virtual ~ComEnvironment() = default;
    // The HRESULT of the initialisation (S_OK, S_FALSE, or a failure).
    virtual HRESULT Status() const = 0;
};

// COM threading models of WorkerThread: 0 none, 1 single-threaded apartment,
// 2 multithreaded apartment.
class SKCLASS_API ComEnvironmentFactory {
public:
    static std::unique_ptr<ComEnvironment> Create(int comThreadingModel);
};
