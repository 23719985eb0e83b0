// Disk handles: creating and opening disks, the per-handle calls (read, write,
// metadata, information) with their statistics, close, and the VDDK disk calls
// that are forwarded as they are.
#include <new>

#include <diskbroker.h>
#include <skclass_mini/workerthread.h>
#include <skstdutl/sklog.h>
#include <vixdisklibglue.h>
#include <vixworkerthread.h>

#include "diskbroker_private.h"

using diskbroker_detail::Guarded;

namespace {

// The result of a call that an exception ended inside the library.
constexpr VixError kExceptionResult = VIX_E_FAIL;

// A share path (also the deduplication device "\\.stofs"): VDDK must reach it
// under the job's identity, so the worker impersonates the caller for it.
bool IsNetworkPath(const char *path) { return path && path[0] == '\\' && path[1] == '\\'; }

uint32_t StatisticsKindOf(const wchar_t *tag) {
    if (!tag) return _vixReadWriteStats::kNone;
    const std::wstring text(tag);
    if (comparei(text, L"Read") == 0) return _vixReadWriteStats::kRead;
    if (comparei(text, L"Write") == 0) return _vixReadWriteStats::kWrite;
    return _vixReadWriteStats::kNone;
}

VixError RefuseNullHandle(const wchar_t *operation) {
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"diskBroker::%s: invalid (null) disk handle", operation);
    return VIX_E_INVALID_ARG;
}

}  // namespace

template <typename OnWorker, typename OnGlue>
VixError diskBroker::RouteHandleCall(_vixReadWriteHandle *handle, OnWorker onWorker, OnGlue onGlue) {
    if (threadingModel == kNoThreadingModel) return diskLibGlue ? onGlue(*diskLibGlue) : kNoBindingResult;
    if (threadingModel != kWorkerThreadModel) return VIX_OK;
    if (useWorkerForReadWrite && handle->worker) return onWorker(*handle->worker);
    // The main worker's binding, called on this thread: reads and writes of
    // different handles then run in parallel instead of queuing behind
    // Open/Close on the main worker.
    if (!workerThread || !workerThread->diskLibGlue) return kNoBindingResult;
    return onGlue(*workerThread->diskLibGlue);
}

VixError diskBroker::OpenThroughModel(VixDiskLibConnection connection, const char *path, uint32 flags,
                                      bool impersonate, VixDiskLibHandle *vixHandle) {
    return Route<VixError>(
        [&](vixWorkerThread &worker) { return worker.VixDiskLib_Open(connection, path, flags, vixHandle, impersonate); },
        [&](vixDiskLibGlue &glue) { return glue.VixDiskLib_Open(connection, path, flags, vixHandle); });
}

VixError diskBroker::VixDiskLib_Open(VixDiskLibConnection connection, const char *path, uint32 flags,
                                     const wchar_t *tag, _vixReadWriteHandle **handle, wcstring &transportMode) {
    return Guarded(L"VixDiskLib_Open", kExceptionResult, [&]() -> VixError {
        transportMode.clear();
        if (!handle) return RefuseNullHandle(L"VixDiskLib_Open");
        *handle = nullptr;
        const wcstring threadName = wcstring(L"vixWorker") + (tag ? tag : L"") + L"Thread";
        std::unique_ptr<_vixReadWriteHandle> record(new (std::nothrow) _vixReadWriteHandle());
        if (!record) return VIX_E_OUT_OF_MEMORY;
        *handle = record.get();
        record->stats.name = wcstring::FromUtf8(path);
        record->stats.kind = StatisticsKindOf(tag);
        if (threadingModel != kWorkerThreadModel && threadingModel != kNoThreadingModel) {
            // Handed out without a disk behind it; Close of it gives 0.
            record.release();
            return VIX_OK;
        }
        const bool impersonate = threadingModel == kWorkerThreadModel && IsNetworkPath(path);
        VixDiskLibHandle vixHandle = nullptr;
        VixError result = OpenThroughModel(connection, path, flags, impersonate, &vixHandle);
        if (result != VIX_OK) {
            cstring mappedPath;
            wcstring localDevice;
            if (MapRemoteParent(result, path, mappedPath, localDevice)) {
                result = OpenThroughModel(connection, mappedPath.c_str(), flags, impersonate, &vixHandle);
                if (result == VIX_OK)
                    AddHandleMappingUse(localDevice, vixHandle);
                else
                    ReleaseDeviceReference(localDevice);  // no handle keeps it
            }
        }
        if (result != VIX_OK) {
            *handle = nullptr;
            return result;
        }
        record->vixHandle = vixHandle;
        if (threadingModel == kWorkerThreadModel && useWorkerForReadWrite) {
            if (!StartHandleWorker(*record, impersonate)) {
                CloseVixHandle(*record);
                *handle = nullptr;
                return VIX_E_OUT_OF_MEMORY;
            }
            // The calling thread gets the name, not the new worker: debugger
            // sessions have always found the job thread under it.
            WorkerThread::SetThreadName(GetCurrentThreadId(), threadName.c_str());
        }
        LogTransportMode(path, vixHandle, transportMode);
        record.release();
        return VIX_OK;
    });
}

bool diskBroker::StartHandleWorker(_vixReadWriteHandle &record, bool impersonate) {
    record.worker.reset(new (std::nothrow) vixWorkerThread(impersonate));
    if (record.worker && record.worker->IsRunning() && record.worker->diskLibGlue) {
        // VDDK belongs to the service: a handle's worker going away must not
        // exit the library under every other handle and connection.
        record.worker->diskLibGlue->exitLibraryOnDestroy = false;
        if (record.worker->mntapiGlue) record.worker->mntapiGlue->exitLibraryOnDestroy = false;
        return true;
    }
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"diskBroker::VixDiskLib_Open: could not start the disk's worker thread");
    record.worker.reset();
    return false;
}

void diskBroker::LogTransportMode(const char *path, VixDiskLibHandle vixHandle, wcstring &transportMode) {
    const char *mode = VixDiskLib_GetTransportMode(vixHandle);
    if (!mode) return;
    transportMode = wcstring::FromUtf8(mode);
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"The disk '%s' is using the transport mode '%s'.", wcstring::FromUtf8(path).c_str(),
                 transportMode.c_str());
}

VixError diskBroker::CreateThroughModel(VixDiskLibConnection connection, const char *path,
                                        const VixDiskLibCreateParams *createParams,
                                        VixDiskLibProgressFunc progressFunc, void *progressCallbackData) {
    const bool impersonate = IsNetworkPath(path);
    return Route<VixError>(
        [&](vixWorkerThread &worker) {
            return worker.VixDiskLib_Create(connection, path, createParams, progressFunc, progressCallbackData,
                                            impersonate);
        },
        [&](vixDiskLibGlue &glue) {
            return glue.VixDiskLib_Create(connection, path, createParams, progressFunc, progressCallbackData);
        });
}

VixError diskBroker::VixDiskLib_Create(VixDiskLibConnection connection, const char *path,
                                       const VixDiskLibCreateParams *createParams,
                                       VixDiskLibProgressFunc progressFunc, void *progressCallbackData) {
    return Guarded(L"VixDiskLib_Create", kExceptionResult, [&] {
        VixError result = CreateThroughModel(connection, path, createParams, progressFunc, progressCallbackData);
        cstring mappedPath;
        wcstring localDevice;
        if (result != VIX_OK && MapRemoteParent(result, path, mappedPath, localDevice)) {
            result = CreateThroughModel(connection, mappedPath.c_str(), createParams, progressFunc,
                                        progressCallbackData);
            // No handle keeps the mapping: its reference goes at once.
            ReleaseDeviceReference(localDevice);
        }
        return result;
    });
}

VixError diskBroker::VixDiskLib_Close(_vixReadWriteHandle *handle) {
    return Guarded(L"VixDiskLib_Close", kExceptionResult, [&]() -> VixError {
        if (!handle || !handle->vixHandle) return VIX_OK;
        ReleaseHandleMapping(handle->vixHandle);
        if (threadingModel == kWorkerThreadModel) {
            std::unique_ptr<_vixReadWriteHandle> record(handle);
            return CloseVixHandle(*record);
        }
        if (threadingModel == kNoThreadingModel) {
            // The record stays the caller's in this model, as it always has.
            return diskLibGlue ? diskLibGlue->VixDiskLib_Close(handle->vixHandle, &handle->stats) : kNoBindingResult;
        }
        return VIX_OK;
    });
}

VixError diskBroker::CloseVixHandle(_vixReadWriteHandle &record) {
    VixError result = workerThread ? workerThread->VixDiskLib_Close(record.vixHandle, &record.stats) : kNoBindingResult;
    if (record.worker) {
        record.worker->StopThread();
        record.worker.reset();
    }
    record.vixHandle = nullptr;
    return result;
}

VixError diskBroker::VixDiskLib_Read(_vixReadWriteHandle *handle, VixDiskLibSectorType startSector,
                                     VixDiskLibSectorType numSectors, uint8 *readBuffer) {
    if (!handle) return RefuseNullHandle(L"VixDiskLib_Read");
    return RouteHandleCall(
        handle,
        [&](vixWorkerThread &worker) {
            return worker.VixDiskLib_Read(handle->vixHandle, startSector, numSectors, readBuffer, &handle->stats);
        },
        [&](vixDiskLibGlue &glue) {
            return glue.VixDiskLib_Read(handle->vixHandle, startSector, numSectors, readBuffer, &handle->stats);
        });
}

VixError diskBroker::VixDiskLib_Write(_vixReadWriteHandle *handle, VixDiskLibSectorType startSector,
                                      VixDiskLibSectorType numSectors, const uint8 *writeBuffer) {
    if (!handle) return RefuseNullHandle(L"VixDiskLib_Write");
    return RouteHandleCall(
        handle,
        [&](vixWorkerThread &worker) {
            return worker.VixDiskLib_Write(handle->vixHandle, startSector, numSectors, writeBuffer, &handle->stats);
        },
        [&](vixDiskLibGlue &glue) {
            return glue.VixDiskLib_Write(handle->vixHandle, startSector, numSectors, writeBuffer, &handle->stats);
        });
}

VixError diskBroker::VixDiskLib_ReadMetadata(_vixReadWriteHandle *handle, const char *key, char *buffer,
                                             size_t bufferLength, size_t *requiredLength) {
    if (!handle) return RefuseNullHandle(L"VixDiskLib_ReadMetadata");
    auto call = [&](auto &binding) {
        return binding.VixDiskLib_ReadMetadata(handle->vixHandle, key, buffer, bufferLength, requiredLength);
    };
    return RouteHandleCall(handle, call, call);
}

VixError diskBroker::VixDiskLib_WriteMetadata(_vixReadWriteHandle *handle, const char *key, const char *value) {
    if (!handle) return RefuseNullHandle(L"VixDiskLib_WriteMetadata");
    auto call = [&](auto &binding) { return binding.VixDiskLib_WriteMetadata(handle->vixHandle, key, value); };
    return RouteHandleCall(handle, call, call);
}

VixError diskBroker::VixDiskLib_GetMetadataKeys(_vixReadWriteHandle *handle, char *buffer, size_t bufferLength,
                                                size_t *requiredLength) {
    if (!handle) return RefuseNullHandle(L"VixDiskLib_GetMetadataKeys");
    auto call = [&](auto &binding) {
        return binding.VixDiskLib_GetMetadataKeys(handle->vixHandle, buffer, bufferLength, requiredLength);
    };
    return RouteHandleCall(handle, call, call);
}

VixError diskBroker::VixDiskLib_GetInfo(_vixReadWriteHandle *handle, VixDiskLibInfo **info) {
    if (!handle) return RefuseNullHandle(L"VixDiskLib_GetInfo");
    auto call = [&](auto &binding) { return binding.VixDiskLib_GetInfo(handle->vixHandle, info); };
    return RouteHandleCall(handle, call, call);
}

const char *diskBroker::VixDiskLib_GetTransportMode(VixDiskLibHandle diskHandle) {
    auto call = [&](auto &binding) { return binding.VixDiskLib_GetTransportMode(diskHandle); };
    return Route<const char *>(call, call);
}

const char *diskBroker::VixDiskLib_ListTransportModes() {
    auto call = [&](auto &binding) { return binding.VixDiskLib_ListTransportModes(); };
    return Route<const char *>(call, call);
}

void diskBroker::VixDiskLib_FreeInfo(VixDiskLibInfo *info) {
    auto call = [&](auto &binding) { binding.VixDiskLib_FreeInfo(info); };
    Route<void>(call, call);
}

VixError diskBroker::VixDiskLib_CreateChild(VixDiskLibHandle diskHandle, const char *childPath,
                                            VixDiskLibDiskType diskType, VixDiskLibProgressFunc progressFunc,
                                            void *progressCallbackData) {
    auto call = [&](auto &binding) {
        return binding.VixDiskLib_CreateChild(diskHandle, childPath, diskType, progressFunc, progressCallbackData);
    };
    return Route<VixError>(call, call);
}

VixError diskBroker::VixDiskLib_Clone(VixDiskLibConnection dstConnection, const char *dstPath,
                                      VixDiskLibConnection srcConnection, const char *srcPath,
                                      const VixDiskLibCreateParams *createParams, VixDiskLibProgressFunc progressFunc,
                                      void *progressCallbackData, char overWrite) {
    auto call = [&](auto &binding) {
        return binding.VixDiskLib_Clone(dstConnection, dstPath, srcConnection, srcPath, createParams, progressFunc,
                                        progressCallbackData, overWrite);
    };
    return Route<VixError>(call, call);
}

VixError diskBroker::VixDiskLib_SpaceNeededForClone(VixDiskLibHandle diskHandle, VixDiskLibDiskType diskType,
                                                    uint64 *spaceNeeded) {
    auto call = [&](auto &binding) { return binding.VixDiskLib_SpaceNeededForClone(diskHandle, diskType, spaceNeeded); };
    return Route<VixError>(call, call);
}
