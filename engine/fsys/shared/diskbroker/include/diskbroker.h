// diskBroker: the one service object through which the agent's jobs reach VMware
// disks. It reads the agent's settings, chooses where VMware calls run (threading
// model), writes the VDDK configuration file, initialises VDDK with log callbacks
// that keep its warnings and panics, and wraps the VDDK calls with the agent's own
// rules (clean-up before connect, retried access preparation, error masking).
//
// Lifetime. Production code reaches the object through GetInstance (one per
// process, kept in the base library's singleton storage). The storage never
// destroys what it holds at process exit, because the destructor stops a thread
// and unloads VDDK, neither of which may happen under the loader lock. Whoever
// owns shut-down calls ReleaseInstance from an ordinary thread before the process
// ends (or before diskBroker.dll is unloaded).
//
// Tests construct and destroy instances directly: the constructor reads the
// registry afresh, so each instance sees the settings of the test that made it.
#pragma once

#include <stdarg.h>
#include <stdint.h>

#include <map>
#include <memory>
#include <optional>
#include <type_traits>
#include <vector>

#include <diskbroker_export.h>
#include <skclass_mini/win.h>
#include <winnetwk.h>
#include <skclass_mini/handles.h>
#include <skclass_mini/singleton.h>
#include <skclass_mini/strings.h>
#include <vddkcache.h>
#include <vixreadwritehandle.h>
#include <vmware/vddk_api.h>

class vixWorkerThread;
class vixDiskLibGlue;
class vixMntapiGlue;

// Orders wide texts without regard to case (paths and share names).
struct diskBrokerLessNoCase {
    bool operator()(const wcstring &a, const wcstring &b) const { return comparei(a, b) < 0; }
};

// A parent link rewritten in a child's descriptor, so it can be put back.
struct diskBrokerParentLink {
    wcstring descriptorPath;  // the child whose descriptor was rewritten
    wcstring originalParent;  // the parent path it named before
    wcstring localParent;     // the parent path it names now
    wcstring share;           // the m_shareDriveLetterMap key whose drive it uses
};
using DiskInfoList = std::vector<diskBrokerParentLink>;

// A network share mapped to a drive for remote parent disks.
struct diskBrokerShareDrive {
    wcstring drive;
    uint32_t referenceCount = 1;
};

// A local DOS device that stands for a remote share.
struct diskBrokerDeviceMapping {
    wcstring remoteShare;
    wcstring localDevice;  // one digit, a colon and a backslash
    uint32_t referenceCount = 0;
};

// A VDDK handle (disk or disk set) opened through a device mapping.
template <typename VddkHandle>
struct diskBrokerMappingUse {
    wcstring localDevice;
    VddkHandle handle = nullptr;
    uint32_t value = 0;
};

class DISKBROKER_API diskBroker {
public:
    // Threading models ("vixDiskLib Threading Model").
    static constexpr uint32_t kWorkerThreadModel = 0;
    static constexpr uint32_t kNoThreadingModel = 1;

    // The process-wide object, constructed on first use. Null only when the
    // construction is re-entered on the constructing thread (the storage refuses
    // it; the refusal is logged).
    static skclass::shared_ptr<diskBroker> GetInstance();
    // Drops the process-wide object. The destructor (VDDK exit, worker stop,
    // library unload) runs here if nobody else holds it, else when the last
    // holder lets go. Call from an ordinary thread, never from DllMain or a
    // static destructor. A later GetInstance constructs a new object.
    static void ReleaseInstance();

    // Start-up: settings, threading model, configuration file, VDDK InitEx.
    // Never throws; failures are logged and leave lastError set.
    diskBroker();
    // VixDiskLib_Exit, then releases everything. Must not run under the loader lock.
    ~diskBroker();
    diskBroker(const diskBroker &) = delete;
    diskBroker &operator=(const diskBroker &) = delete;

    // Exits VDDK and releases the worker (model 0) or the disk library binding
    // (model 1). A second call does nothing. The mount binding stays.
    void VixDiskLib_Exit();

    // --- Connections and access preparation -------------------------------
    // Always asks VDDK to clean up stale connections for params first; the
    // connect result is returned unchanged. Unknown models: 0, connection untouched.
    VixError VixDiskLib_ConnectEx(const VixDiskLibConnectParams *params, char readOnly, const char *snapshotRef,
                                  const char *transportModes, VixDiskLibConnection *connection);
    // Releases drive mappings nobody uses any more, then disconnects. params is
    // not used.
    VixError VixDiskLib_Disconnect(VixDiskLibConnection connection, const VixDiskLibConnectParams *params);
    VixError VixDiskLib_Cleanup(const VixDiskLibConnectParams *params, uint32 *numCleanedUp, uint32 *numRemaining);
    // Up to 10 attempts, each failure followed by 1000 ms and one EndAccess,
    // whose result then stands. Codes 20 and 3014 end at once and are masked
    // (result 0, last error cleared); other failures set the last error.
    // Null params->vmxSpec: 0, nothing called.
    VixError VixDiskLib_PrepareForAccess(const VixDiskLibConnectParams *params, const char *identity);
    // Up to 10 attempts, 1000 ms apart (codes 20 and 3014 end at once). Every
    // failure is logged and masked: the result is always 0.
    VixError VixDiskLib_EndAccess(const VixDiskLibConnectParams *params, const char *identity);

    // VDDK's text for error (UTF-8 decoded; VDDK's buffer freed). Left
    // untouched when there is no binding to ask.
    void GetErrorText(VixError error, wcstring &text);
    // VDDK's own narrow text; release it with the library's FreeErrorText.
    // Null for an unknown threading model or a missing binding.
    char *VixDiskLib_GetErrorText(VixError error, const char *locale);

    // --- Disk handles ------------------------------------------------------
    // Opens path and hands back the service's handle (*handle; null on
    // failure). tag "Read" or "Write" (any case) sets the statistics kind;
    // transportMode receives VDDK's choice. 2 when the handle or its worker
    // cannot be allocated. Unknown models: the record is allocated and set in
    // *handle with no disk behind it, and 0 is returned.
    VixError VixDiskLib_Open(VixDiskLibConnection connection, const char *path, uint32 flags, const wchar_t *tag,
                             _vixReadWriteHandle **handle, wcstring &transportMode);
    VixError VixDiskLib_Create(VixDiskLibConnection connection, const char *path,
                               const VixDiskLibCreateParams *createParams, VixDiskLibProgressFunc progressFunc,
                               void *progressCallbackData);
    // Logs the handle's statistics and closes it. In the worker model the
    // record is freed; in the no-threading model it is not (the caller's).
    // A null handle, or one without a disk, gives 0.
    VixError VixDiskLib_Close(_vixReadWriteHandle *handle);
    // Per-handle calls: on the caller's thread, or on the handle's own worker
    // when one is configured.
    VixError VixDiskLib_Read(_vixReadWriteHandle *handle, VixDiskLibSectorType startSector,
                             VixDiskLibSectorType numSectors, uint8 *readBuffer);
    VixError VixDiskLib_Write(_vixReadWriteHandle *handle, VixDiskLibSectorType startSector,
                              VixDiskLibSectorType numSectors, const uint8 *writeBuffer);
    VixError VixDiskLib_ReadMetadata(_vixReadWriteHandle *handle, const char *key, char *buffer, size_t bufferLength,
                                     size_t *requiredLength);
    VixError VixDiskLib_WriteMetadata(_vixReadWriteHandle *handle, const char *key, const char *value);
    VixError VixDiskLib_GetMetadataKeys(_vixReadWriteHandle *handle, char *buffer, size_t bufferLength,
                                        size_t *requiredLength);
    VixError VixDiskLib_GetInfo(_vixReadWriteHandle *handle, VixDiskLibInfo **info);
    // Forwarded as they are (main worker in the worker model).
    const char *VixDiskLib_GetTransportMode(VixDiskLibHandle diskHandle);
    const char *VixDiskLib_ListTransportModes();
    void VixDiskLib_FreeInfo(VixDiskLibInfo *info);
    VixError VixDiskLib_CreateChild(VixDiskLibHandle diskHandle, const char *childPath, VixDiskLibDiskType diskType,
                                    VixDiskLibProgressFunc progressFunc, void *progressCallbackData);
    VixError VixDiskLib_Clone(VixDiskLibConnection dstConnection, const char *dstPath,
                              VixDiskLibConnection srcConnection, const char *srcPath,
                              const VixDiskLibCreateParams *createParams, VixDiskLibProgressFunc progressFunc,
                              void *progressCallbackData, char overWrite);
    VixError VixDiskLib_SpaceNeededForClone(VixDiskLibHandle diskHandle, VixDiskLibDiskType diskType,
                                            uint64 *spaceNeeded);

    // --- Local disk chains -------------------------------------------------
    // For tag "Read" (any case): walks ancestorLocations (folders, no trailing
    // backslash) from the last to the first, finds the current disk's parent
    // in each (FindMatchingDisk) and relinks the current disk to it where its
    // descriptor names another path; then opens path as VixDiskLib_Open does.
    // 16030, nothing opened and *handle null, when a parent is missing or a
    // link cannot be rewritten; links rewritten before the failure stay.
    VixError VixDiskLib_OpenLocal(VixDiskLibConnection connection, const char *path, uint32 flags,
                                  const wchar_t *tag, _vixReadWriteHandle **handle, wcstring &transportMode,
                                  std::vector<wcstring> &ancestorLocations);
    // The file name (no folder) of the first location\baseName*.vmdk whose
    // disk base name is baseName (case-sensitive); empty when none or when the
    // folder cannot be searched (logged).
    wcstring FindMatchingDisk(const wcstring &location, const wcstring &baseName);
    // The parentFileNameHint of a monolithic sparse disk; empty for a disk
    // without embedded descriptor or parent, and for one that cannot be read
    // (logged).
    wcstring GetParentDiskPath(const wcstring &childDisk);
    // Rewrites the child's parentCID (the parent's CID) and parentFileNameHint
    // (parentDisk) in place, inside its descriptor area. False, child
    // untouched, when the parent has no valid CID, a file cannot be read, or
    // the new text would not fit the area (each logged).
    bool UpdateParentDiskLink(const wcstring &childDisk, const wcstring &parentDisk);

    // --- Remote parent mapping ---------------------------------------------
    // Relinks the chain below childDisk so that parents on a network share
    // are reached through a connected drive (MapNetworkShareToLocalDrive);
    // the links are put back at the next Disconnect that removes the device
    // the child was reached through, or when the service ends. True when
    // the child cannot be accessed or was relinked already (nothing to do).
    bool MapRemoteParentDiskPathToLocal(const wcstring &childDisk);
    // Connects share (\\server\share) and returns the drive Windows chose,
    // with a trailing backslash; empty on failure (logged).
    wcstring MapNetworkShareToLocalDrive(wcstring share);
    // Cancels a drive connection, forced when a plain cancel fails.
    bool CancelNetworkShareConnection(wcstring drive);
    // The two Windows networking calls of the mapping: mpr.dll's in
    // production. Test seam: a test can answer them (Wine has no network).
    struct NetworkCalls {
        DWORD(WINAPI *useConnection)(HWND, LPNETRESOURCEW, LPCWSTR, LPCWSTR, DWORD, LPWSTR, LPDWORD, LPDWORD);
        DWORD(WINAPI *cancelConnection)(LPCWSTR, DWORD, BOOL);
    };
    void UseNetworkCalls(const NetworkCalls &calls) { networkCalls = calls; }
    // What the mapping holds now (for tests and diagnostics): the device
    // mapping table and the connected share drives, each copied under its lock.
    std::vector<diskBrokerDeviceMapping> DeviceMappings();
    std::map<wcstring, diskBrokerShareDrive, diskBrokerLessNoCase> ShareDrives();

    // --- Mounting disk sets ------------------------------------------------
    // Initialises the mount library with the service's own configuration
    // file, library directory and log callbacks (the caller's log, warn,
    // panic, libDir and configFile are not used). The generated file is
    // deleted afterwards in every model, whatever the result. Unknown
    // models: 0, nothing called.
    VixError VixMntapi_Init(uint32 majorVersion, uint32 minorVersion, VixDiskLibGenericLogFunc *log,
                            VixDiskLibGenericLogFunc *warn, VixDiskLibGenericLogFunc *panic, const char *libDir,
                            const char *configFile);
    void VixMntapi_Exit();
    // Opens diskNames as one set. When the first try fails on a share (or
    // with 21), the share is mapped to a device, every name is rewritten onto
    // it, their parents relinked, and the open is tried once more; the set
    // then holds a reference on the device until CloseDiskSet.
    VixError VixMntapi_OpenDisks(VixDiskLibConnection connection, const char **diskNames, size_t numberOfDisks,
                                 uint32 openFlags, VixDiskSetHandle *diskSet);
    VixError VixMntapi_CloseDiskSet(VixDiskSetHandle diskSet);
    VixError VixMntapi_GetVolumeHandles(VixDiskSetHandle diskSet, size_t *numberOfVolumes,
                                        VixVolumeHandle **volumeHandles);
    void VixMntapi_FreeVolumeHandles(VixVolumeHandle *volumeHandles);
    VixError VixMntapi_MountVolume(VixVolumeHandle volumeHandle, Bool readOnly);
    VixError VixMntapi_DismountVolume(VixVolumeHandle volumeHandle, Bool force);
    VixError VixMntapi_GetVolumeInfo(VixVolumeHandle volumeHandle, VixVolumeInfo **info);
    void VixMntapi_FreeVolumeInfo(VixVolumeInfo *info);

    // --- Read-ahead cache --------------------------------------------------
    // Per job: startReadCacheThread once; per disk: set diskHandle, broker,
    // extentFilePath and metadataFilePath, startDiskReadBuffer,
    // GetDiskCacheBuffer until 0x2000FE0C, closeReadCacheThread; finally
    // stopReadCacheThread. Results: 0 or the cache's 0xE000xxxx / 0x2000xxxx codes.
    long startReadCacheThread(diskReadContextStruct *context, unsigned long bufferCount, unsigned long bufferSizeKB,
                              unsigned long raisePriority);
    long startDiskReadBuffer(diskReadContextStruct *context);
    long GetDiskCacheBuffer(diskReadContextStruct *context, unsigned char *destination, unsigned int *length);
    long closeReadCacheThread(diskReadContextStruct *context);
    long stopReadCacheThread(diskReadContextStruct *context);

    // --- Write-behind cache ------------------------------------------------
    // Per job: startWriteCacheThread once; per disk: set broker, diskHandle
    // and diskSize, startDiskWriteBuffer, PutDiskCacheBuffer per run,
    // closeWriteCacheThread; finally stopWriteCacheThread.
    long startWriteCacheThread(diskWriteContextStruct *context, unsigned long bufferCount, unsigned long bufferSizeKB,
                               unsigned long raisePriority, unsigned long minRunSizeKB);
    long startDiskWriteBuffer(diskWriteContextStruct *context);
    long PutDiskCacheBuffer(diskWriteContextStruct *context, unsigned char *data, unsigned long long startSector,
                            unsigned long long sectorCount);
    long closeWriteCacheThread(diskWriteContextStruct *context);
    long stopWriteCacheThread(diskWriteContextStruct *context);

    // --- VDDK log ----------------------------------------------------------
    // Appends each cached VDDK warning and panic line (with a "\n") that out
    // does not already contain, then empties the cache. The cache is
    // process-wide: the first caller takes the lines of every thread.
    void GetCachedVDDKlog(wcstring *out);

    // --- State -------------------------------------------------------------
    uint32_t ThreadingModel() const { return threadingModel; }
    bool UsesWorkerForReadWrite() const { return useWorkerForReadWrite; }
    bool PreservesIniFile() const { return preserveIniFile; }
    // The last failure kept by InitEx, PrepareForAccess or EndAccess (0 and
    // empty when none, or when it was masked). Last writer wins; the two
    // always belong to the same failure.
    VixError LastError() const;
    wcstring LastErrorText() const;

private:
    // Writes the VDDK configuration file (or picks the user's) and returns its
    // path in iniPath. Sets preserveIniFile. Returns true; a file that cannot
    // be created makes it try the next name.
    bool createVDDkIniFile(wcstring &iniPath);
    // Adds one line to the process-wide cache of VDDK warnings and panics
    // (at most 100, oldest dropped) and clears message.
    static void CaptureLog(const wchar_t *prefix, wcstring &message);
    static void ClearCapturedLog();
    // The callbacks handed to VixDiskLib_InitEx (log, warning, panic). They
    // run on whatever thread VDDK reports from; a text that formats to nothing
    // or to more than 2047 characters is dropped. Panic returns normally.
    static void VddkLogCallback(const char *format, va_list args);
    static void VddkWarningCallback(const char *format, va_list args);
    static void VddkPanicCallback(const char *format, va_list args);

    void ReadThreadingSettings();
    void StartWorkerModel(const char *configFile);
    void StartNoThreadingModel(const char *configFile);
    void KeepInitExFailure(VixError result);
    void DeleteIniFile(const wcstring &iniPath) const;
    VixError RouteEndAccess(const VixDiskLibConnectParams *params, const char *identity);
    // Removes every device mapping whose reference count is 0, under
    // deviceMappingLock (Disconnect).
    void ReleaseUnusedDriveMappings();
    // Undoes one device mapping (relinked descriptors, DOS device); the
    // mapping code that adds entries provides it.
    void UndoDriveMapping(const diskBrokerDeviceMapping &mapping);
    // Disk handles: the per-handle call path (the handle's own worker, the
    // main worker's binding on the caller's thread, or the glue).
    template <typename OnWorker, typename OnGlue>
    VixError RouteHandleCall(_vixReadWriteHandle *handle, OnWorker onWorker, OnGlue onGlue);
    VixError OpenThroughModel(VixDiskLibConnection connection, const char *path, uint32 flags, bool impersonate,
                              VixDiskLibHandle *vixHandle);
    VixError CreateThroughModel(VixDiskLibConnection connection, const char *path,
                                const VixDiskLibCreateParams *createParams, VixDiskLibProgressFunc progressFunc,
                                void *progressCallbackData);
    bool StartHandleWorker(_vixReadWriteHandle &record, bool impersonate);
    void LogTransportMode(const char *path, VixDiskLibHandle vixHandle, wcstring &transportMode);
    // Closes the VDDK handle through the main worker (statistics logged) and
    // stops the handle's worker; the record itself is the caller's to free.
    VixError CloseVixHandle(_vixReadWriteHandle &record);
    // Where a handle meets the remote-parent mapping: whether an open or
    // create failure is due to a parent on a share that could be mapped
    // (then mappedPath is the path to retry, localDevice the mapping used,
    // which now holds one more reference), and the reference a handle, or a
    // create, holds on that mapping.
    bool MapRemoteParent(VixError error, const char *path, cstring &mappedPath, wcstring &localDevice);
    // The failure check itself; share is the mapped share ("server\share\").
    bool CheckRemoteParentFailure(VixError error, const char *path, wcstring &share, wcstring &localDevice,
                                  wcstring &rewrittenPath);
    // Maps the share of a \\server\share\...\folder\file path to a device
    // name ("1:" to "9:"), reusing or counting an existing entry. 0 or a
    // Win32 error (logged).
    DWORD MapShareToDevice(const wcstring &path, wcstring &share, wcstring &localDevice, wcstring &lastFolder,
                           wcstring &fileName);
    DWORD DefineShareDevice(const wcstring &share, wcstring &localDevice);
    // Removal of a device mapping: links relinked through it are put back,
    // then the DOS device definition goes.
    void RevertLocalParentDiskPathToRemote(const wcstring &localDevice);
    void RevertLinks(const DiskInfoList &links);
    // One reference on a connected share drive less; the connection is
    // cancelled with the last one. shareDriveLetterLock held.
    void ReleaseShareDrive(const wcstring &share);
    bool RelinkToShareDrive(const wcstring &current, const wcstring &parent, DiskInfoList &links,
                            wcstring &localParent);
    // The share's connected drive: counted once more, or connected now.
    bool AcquireShareDrive(const wcstring &share, wcstring &drive);
    // At the service's end: every mapping, link and connection still held.
    void ReleaseAllRemoteParentMappings();
    // Mount calls: model 0 on the worker, model 1 through the mount binding,
    // other models Result{} without a call.
    template <typename Result, typename Call>
    Result RouteMount(Call call);
    VixError RetryOpenDisksOnShare(VixError error, VixDiskLibConnection connection, const char **diskNames,
                                   size_t numberOfDisks, uint32 openFlags, VixDiskSetHandle *diskSet);
    void AddHandleMappingUse(const wcstring &localDevice, VixDiskLibHandle vixHandle);
    void ReleaseHandleMapping(VixDiskLibHandle vixHandle);
    void ReleaseDeviceReference(const wcstring &localDevice);
    void DecrementDeviceReference(const wcstring &localDevice);  // deviceMappingLock held
    void KeepLastError(VixError error);
    void ClearLastError();

    // The dispatch rule of every VMware-facing operation: model 0 runs
    // onWorker(vixWorkerThread&), model 1 onGlue(vixDiskLibGlue&), any other
    // model returns Result{} (0, or null) without calling anything. A model
    // whose binding is missing (worker or glue could not be created) returns
    // MissingBinding<Result>() instead of reaching for it.
    template <typename Result, typename OnWorker, typename OnGlue>
    Result Route(OnWorker onWorker, OnGlue onGlue) {
        if (threadingModel == kWorkerThreadModel)
            return workerThread ? onWorker(*workerThread) : MissingBinding<Result>();
        if (threadingModel == kNoThreadingModel)
            return diskLibGlue ? onGlue(*diskLibGlue) : MissingBinding<Result>();
        return Result();
    }
    template <typename Result>
    static Result MissingBinding() {
        if constexpr (std::is_same_v<Result, VixError>)
            return kNoBindingResult;
        else
            return Result();
    }
    // What a binding answers for a function it could not resolve; used alike
    // when the binding itself is missing.
    static constexpr VixError kNoBindingResult = 0xFFFFFFFFE000FE4Eull;

    uint32_t threadingModel = kWorkerThreadModel;
    bool useWorkerForReadWrite = false;
    std::unique_ptr<vixWorkerThread> workerThread;  // model 0 only
    std::unique_ptr<vixDiskLibGlue> diskLibGlue;    // model 1 only
    std::unique_ptr<vixMntapiGlue> mntapiGlue;      // model 1 only
    // Written by whichever job thread failed last: both under lastErrorLock.
    VixError lastError = 0;
    wcstring lastErrorText;
    mutable skclass::CriticalSection lastErrorLock;
    bool preserveIniFile = false;

    // Remote parent bookkeeping, each container under the lock named with it.
    std::map<wcstring, DiskInfoList, diskBrokerLessNoCase> m_childParentLinkMap;      // childParentLinkLock
    std::map<wcstring, diskBrokerShareDrive, diskBrokerLessNoCase> m_shareDriveLetterMap;  // shareDriveLetterLock
    std::optional<skclass::CriticalSection> childParentLinkLock;
    std::optional<skclass::CriticalSection> shareDriveLetterLock;
    std::vector<diskBrokerDeviceMapping> deviceMappings;                              // deviceMappingLock
    std::vector<diskBrokerMappingUse<VixDiskLibHandle>> handleMappings;               // deviceMappingLock
    std::vector<diskBrokerMappingUse<VixDiskSetHandle>> diskSetMappings;              // deviceMappingLock
    std::optional<skclass::CriticalSection> deviceMappingLock;
    // Lock order: deviceMappingLock, childParentLinkLock, shareDriveLetterLock.
    NetworkCalls networkCalls{&WNetUseConnectionW, &WNetCancelConnection2W};
};
