// vixWorkerThread: the queued path to the VMware bindings, and impersonation.
#include <vixworkerthread.h>

#include <new>
#include <utility>

#include <skstdutl/sklog.h>

#include "vixworkercalls.h"

namespace {

// The binding method of the same name, called on whatever thread runs this.
template <vixApi Id>
struct vixGlueCall;

#define VIXWORKER_GLUE_CALL(glueMember, name, ret)                                    \
    template <>                                                                       \
    struct vixGlueCall<vixApi::name> {                                                \
        template <typename... Args>                                                   \
        static ret Run(vixWorkerThread &worker, Args... args) {                       \
            if (!worker.glueMember) return vixbinding::UnresolvedResult<ret>();       \
            return worker.glueMember->name(args...);                                  \
        }                                                                             \
    };
#define VIXWORKER_DISKLIB_GLUE_CALL(name, ret, params, args) VIXWORKER_GLUE_CALL(diskLibGlue, name, ret)
#define VIXWORKER_MNTAPI_GLUE_CALL(name, ret, params, args) VIXWORKER_GLUE_CALL(mntapiGlue, name, ret)
VDDK_DISKLIB_ENTRY_POINTS(VIXWORKER_DISKLIB_GLUE_CALL)
VDDK_MNTAPI_ENTRY_POINTS(VIXWORKER_MNTAPI_GLUE_CALL)
#undef VIXWORKER_MNTAPI_GLUE_CALL
#undef VIXWORKER_DISKLIB_GLUE_CALL
#undef VIXWORKER_GLUE_CALL

// Calls the binding with the first Count stored arguments: the extras that
// only the worker uses (the impersonation flag) are not the binding's.
template <vixApi Id, typename Arguments, size_t... Index>
auto CallGlueWith(vixWorkerThread &worker, Arguments &arguments, std::index_sequence<Index...>) {
    return vixGlueCall<Id>::Run(worker, std::get<Index>(arguments)...);
}

}  // namespace

vixWorkerThread::vixWorkerThread(bool impersonate) : WorkerThread(2, L"vixMainWorkerThread") {
    if (impersonate) DuplicateCallerToken();
    if (!StartThread(0)) return;
    diskLibGlue.reset(new (std::nothrow) vixDiskLibGlue());
    mntapiGlue.reset(new (std::nothrow) vixMntapiGlue());
}

vixWorkerThread::~vixWorkerThread() {
    // The thread that owns the libraries also ends them: their exits are its
    // last calls, then it is joined, and only then do the bindings unload
    // them, so no thread that may call into VDDK is alive when it goes.
    if (IsRunning() && diskLibGlue && diskLibGlue->exitLibraryOnDestroy && diskLibGlue->OK()) {
        VixDiskLib_Exit();
        diskLibGlue->exitLibraryOnDestroy = false;
    }
    if (IsRunning() && mntapiGlue && mntapiGlue->exitLibraryOnDestroy && mntapiGlue->OK()) {
        VixMntapi_Exit();
        mntapiGlue->exitLibraryOnDestroy = false;
    }
    StopThread();
    diskLibGlue.reset();
    mntapiGlue.reset();
    CloseToken();
}

skclass::shared_ptr<vixWorkerThread> vixWorkerThread::GetInstance() {
    wcstring error;
    auto instance = skclass::GetSingleton<vixWorkerThread>("vixWorkerThread", &error);
    if (!instance) SK_Zprintf_2(SK_SOURCE_FILE, 0, L"vixWorkerThread::GetInstance: %s", error.c_str());
    return instance;
}

void vixWorkerThread::Run() {
    if (HANDLE token = impersonationToken.load()) {
        if (!ImpersonateLoggedOnUser(token))
            SK_Zprintf_2(SK_SOURCE_FILE, 0, L"vixWorkerThread::Run: Failed to Impersonate main job thread Error=%lu",
                         GetLastError());
    }
    WorkerThread::Run();
    CloseToken();
}

void vixWorkerThread::CloseToken() { skclass::UniqueHandle closing(impersonationToken.exchange(nullptr)); }

bool vixWorkerThread::DuplicateCallerToken() {
    if (impersonationToken.load()) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"vixWorkerThread: Error, already impersonating. ");
        return false;
    }
    skclass::UniqueHandle threadToken;
    if (!OpenThreadToken(GetCurrentThread(), TOKEN_DUPLICATE, TRUE, threadToken.put()) || !threadToken) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"vixWorkerThread: Failed to Open duplicate thread token Error = %lu ",
                     GetLastError());
        return false;
    }
    skclass::UniqueHandle duplicate;
    if (!DuplicateTokenEx(threadToken.get(), TOKEN_DUPLICATE | TOKEN_IMPERSONATE | TOKEN_QUERY, nullptr,
                          SecurityImpersonation, TokenImpersonation, duplicate.put())) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"vixWorkerThread: Failed to Duplicate thread token Error = %lu ",
                     GetLastError());
        return false;
    }
    // Two job threads may race here: the first token stored decides.
    HANDLE expected = nullptr;
    if (!impersonationToken.compare_exchange_strong(expected, duplicate.get())) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"vixWorkerThread: Error, already impersonating. ");
        return false;
    }
    duplicate.release();
    return true;
}

void vixWorkerThread::TakeCallerTokenFor(const wchar_t *recordName) {
    if (impersonationToken.load()) return;
    if (!DuplicateCallerToken())
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"vixWorkerThread::::%s: Failed to duplicate main job thread token ",
                     recordName);
}

void vixWorkerThread::ImpersonateFor(const wchar_t *recordName) {
    HANDLE token = impersonationToken.load();
    if (!token || isImpersonating) return;
    if (ImpersonateLoggedOnUser(token))
        isImpersonating = true;
    else
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"vixWorkerThread::%s: Failed to Impersonate main job thread Error=%lu",
                     recordName, GetLastError());
}

template <vixApi Id, typename Arguments>
auto vixWorkerThread::RunOnWorker(Arguments &arguments) {
    constexpr const wchar_t *impersonatingRecord = vixWorkerPolicy<Id>::kImpersonatingRecord;
    if constexpr (impersonatingRecord != nullptr) ImpersonateFor(impersonatingRecord);
    constexpr size_t bindingArguments = std::tuple_size_v<Arguments> - (impersonatingRecord != nullptr ? 1 : 0);
    return CallGlueWith<Id>(*this, arguments, std::make_index_sequence<bindingArguments>{});
}

template <vixApi Id, typename Arguments>
auto vixWorkerThread::Dispatch(Arguments arguments) {
    if (GetCurrentThreadId() == ThreadId()) return RunOnWorker<Id>(arguments);
    constexpr const wchar_t *impersonatingRecord = vixWorkerPolicy<Id>::kImpersonatingRecord;
    if constexpr (impersonatingRecord != nullptr) {
        bool &impersonate = std::get<std::tuple_size_v<Arguments> - 1>(arguments);
        if (impersonate) TakeCallerTokenFor(impersonatingRecord);
        impersonate = false;
    }
    vixWorkerCall<Id> record(this, std::move(arguments));
    record.Invoke();
    if constexpr (!std::is_void_v<typename vixWorkerCall<Id>::Result>) return record.result;
}

#define VIXWORKER_FORWARD(name, ret, params, args)                                                 \
    ret vixWorkerThread::name params {                                                            \
        return Dispatch<vixApi::name>(typename vixWorkerCall<vixApi::name>::Arguments(            \
            std::tuple_cat(std::make_tuple args, vixWorkerPolicy<vixApi::name>::DefaultExtras()))); \
    }
VDDK_DISKLIB_ENTRY_POINTS(VIXWORKER_FORWARD)
VDDK_MNTAPI_ENTRY_POINTS(VIXWORKER_FORWARD)
#undef VIXWORKER_FORWARD

VixError vixWorkerThread::VixDiskLib_Read(VixDiskLibHandle diskHandle, VixDiskLibSectorType startSector,
                                          VixDiskLibSectorType numSectors, uint8 *readBuffer,
                                          _vixReadWriteStats *stats) {
    return Dispatch<vixApi::VixDiskLib_Read>(SKWT_VixDiskLib_ReadCall::Arguments(diskHandle, startSector, numSectors,
                                                                                readBuffer, stats));
}

VixError vixWorkerThread::VixDiskLib_Write(VixDiskLibHandle diskHandle, VixDiskLibSectorType startSector,
                                           VixDiskLibSectorType numSectors, const uint8 *writeBuffer,
                                           _vixReadWriteStats *stats) {
    return Dispatch<vixApi::VixDiskLib_Write>(SKWT_VixDiskLib_WriteCall::Arguments(diskHandle, startSector,
                                                                                  numSectors, writeBuffer, stats));
}

VixError vixWorkerThread::VixDiskLib_Close(VixDiskLibHandle diskHandle, _vixReadWriteStats *stats) {
    return Dispatch<vixApi::VixDiskLib_Close>(SKWT_VixDiskLib_CloseCall::Arguments(diskHandle, stats));
}

VixError vixWorkerThread::VixDiskLib_Create(const VixDiskLibConnection connection, const char *path,
                                            const VixDiskLibCreateParams *createParams,
                                            VixDiskLibProgressFunc progressFunc, void *progressCallbackData,
                                            bool impersonate) {
    return Dispatch<vixApi::VixDiskLib_Create>(SKWT_VixDiskLib_CreateCall::Arguments(
        connection, path, createParams, progressFunc, progressCallbackData, impersonate));
}

VixError vixWorkerThread::VixDiskLib_Open(const VixDiskLibConnection connection, const char *path, uint32 flags,
                                          VixDiskLibHandle *diskHandle, bool impersonate) {
    return Dispatch<vixApi::VixDiskLib_Open>(
        SKWT_VixDiskLib_OpenCall::Arguments(connection, path, flags, diskHandle, impersonate));
}

void vixWorkerThread::GetErrorText(VixError error, wcstring &text) {
    char *raw = VixDiskLib_GetErrorText(error, nullptr);
    if (!raw) return;
    text = wcstring::FromUtf8(raw);
    VixDiskLib_FreeErrorText(raw);
}
