// vixWorkerThread: runs VMware library calls on one dedicated thread
// ("vixMainWorkerThread"). A job thread's call becomes a call record on its own
// stack (SKWT_<function>Call), is queued, and the job thread blocks on the
// record's own event until the worker has made the call. A call made on the
// worker thread itself goes straight to the binding, never through the queue.
//
// The worker can take over a job thread's security token (the first Create or
// Open that asks for it, or the constructor), so that VMware's file and network
// access happens under the job's identity for the rest of the worker's life.
#pragma once
#include <stdint.h>

#include <atomic>
#include <memory>
#include <tuple>

#include <diskbroker_export.h>
#include <skclass_mini/singleton.h>
#include <skclass_mini/strings.h>
#include <skclass_mini/workerthread.h>
#include <vixapi.h>
#include <vixdisklibglue.h>
#include <vixmntapiglue.h>
#include <vixreadwritestats.h>

template <vixApi Id>
class vixWorkerCall;  // the call records (SKWT_<function>Call)

class DISKBROKER_API vixWorkerThread : public WorkerThread {
public:
    // Starts the thread (MTA); with impersonate, first takes the calling
    // thread's token (DuplicateCallerToken) for the thread to run under. Only
    // when the thread runs are the bindings created (here, on this thread);
    // otherwise every call answers as an unresolved entry point.
    explicit vixWorkerThread(bool impersonate = false);
    // Deletes the bindings (library exit and unload), closes the token, stops
    // the thread. Not under the loader lock.
    ~vixWorkerThread() override;

    // The process-wide worker (impersonate false), or null when its creation
    // is re-entered on the creating thread (logged).
    static skclass::shared_ptr<vixWorkerThread> GetInstance();

    // One method per library function, with the binding's arguments and result.
    // Blocks until the worker has run the call (no time limit: VMware calls
    // may take as long as they take).
#define VIXWORKERTHREAD_DECLARE(name, ret, params, args) ret name params;
    VDDK_DISKLIB_ENTRY_POINTS(VIXWORKERTHREAD_DECLARE)
    VDDK_MNTAPI_ENTRY_POINTS(VIXWORKERTHREAD_DECLARE)
#undef VIXWORKERTHREAD_DECLARE

    // Read, Write and Close carrying the handle's statistics (may be null).
    VixError VixDiskLib_Read(VixDiskLibHandle diskHandle, VixDiskLibSectorType startSector,
                             VixDiskLibSectorType numSectors, uint8 *readBuffer, _vixReadWriteStats *stats);
    VixError VixDiskLib_Write(VixDiskLibHandle diskHandle, VixDiskLibSectorType startSector,
                              VixDiskLibSectorType numSectors, const uint8 *writeBuffer, _vixReadWriteStats *stats);
    VixError VixDiskLib_Close(VixDiskLibHandle diskHandle, _vixReadWriteStats *stats);
    // Create and Open that, with impersonate, hand the calling thread's token
    // to the worker (taken once; a failure is logged and the call made anyway).
    VixError VixDiskLib_Create(const VixDiskLibConnection connection, const char *path,
                               const VixDiskLibCreateParams *createParams, VixDiskLibProgressFunc progressFunc,
                               void *progressCallbackData, bool impersonate);
    VixError VixDiskLib_Open(const VixDiskLibConnection connection, const char *path, uint32 flags,
                             VixDiskLibHandle *diskHandle, bool impersonate);

    // The library's text for error (UTF-8 decoded), its buffer freed through
    // the library again. text stays untouched when no text comes back.
    void GetErrorText(VixError error, wcstring &text);

    // Owned bindings, null when the thread could not start. Callers that may
    // bypass the worker (per-handle reads and writes) call these directly.
    std::unique_ptr<vixDiskLibGlue> diskLibGlue;
    std::unique_ptr<vixMntapiGlue> mntapiGlue;

protected:
    // Impersonates a token taken by the constructor, runs the call loop, then
    // closes the token.
    void Run() override;

private:
    template <vixApi Id>
    friend class vixWorkerCall;

    // Runs the call here when on the worker thread, else queues a record.
    // arguments: the library's, then the extras (statistics, impersonate).
    template <vixApi Id, typename Arguments>
    auto Dispatch(Arguments arguments);
    template <vixApi Id, typename Arguments>
    auto RunOnWorker(Arguments &arguments);
    // Caller's side of Create/Open: the token, once.
    void TakeCallerTokenFor(const wchar_t *recordName);
    // Worker's side of Create/Open: impersonate the held token, once.
    void ImpersonateFor(const wchar_t *recordName);
    // Duplicates the calling thread's impersonation token into
    // impersonationToken. False (logged) when a token is already held, the
    // thread has no token, or the duplication fails.
    bool DuplicateCallerToken();
    void CloseToken();

    wcstring unusedText_;  // kept empty for the object's life
    // Written by callers, read by the worker: atomic so the first writer wins.
    std::atomic<HANDLE> impersonationToken{nullptr};
    bool isImpersonating = false;  // worker thread only
};
