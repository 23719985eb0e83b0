// Our declarations of VMware's public VDDK C interface (vixDiskLib + vixMntapi),
// written from the published ABI facts. The two X-macro lists at the end are the
// single source of truth for the entry points: the bindings, the worker call
// records and the VDDK stand-in all expand from them.
#pragma once

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint8_t uint8;
typedef uint16_t uint16;
typedef uint32_t uint32;
typedef uint64_t uint64;
typedef int32_t int32;
typedef char Bool;

typedef uint64 VixError;
typedef uint64 VixDiskLibSectorType;

#define VIX_OK 0
#define VIX_ERROR_CODE(err) ((err) & 0xFFFF)
#define VIX_SUCCEEDED(err) (VIX_OK == (err))
#define VIX_FAILED(err) (VIX_OK != (err))
#define VIXDISKLIB_SECTOR_SIZE 512

// Result codes the library and the stand-in name.
enum {
    VIX_E_FAIL = 1,
    VIX_E_OUT_OF_MEMORY = 2,
    VIX_E_INVALID_ARG = 3,
    VIX_E_FILE_NOT_FOUND = 4,
    VIX_E_OBJECT_IS_BUSY = 5,
    VIX_E_NOT_SUPPORTED = 6,
    VIX_E_FILE_ERROR = 7,
    VIX_E_DISK_FULL = 8,
    VIX_E_INCORRECT_FILE_TYPE = 9,
    VIX_E_CANCELLED = 10,
    VIX_E_FILE_READ_ONLY = 11,
    VIX_E_FILE_ALREADY_EXISTS = 12,
    VIX_E_FILE_ACCESS_ERROR = 13,
    VIX_E_FILE_ALREADY_LOCKED = 15,
    VIX_E_NOT_SUPPORTED_ON_REMOTE_OBJECT = 20,
    VIX_E_FILE_TOO_BIG = 21,
    VIX_E_FILE_NAME_INVALID = 22,
    VIX_E_ALREADY_EXISTS = 23,
    VIX_E_BUFFER_TOOSMALL = 24,
    VIX_E_OBJECT_NOT_FOUND = 25,
    VIX_E_HOST_NOT_CONNECTED = 26,
    VIX_E_INVALID_UTF8_STRING = 27,
    VIX_E_AUTHENTICATION_FAIL = 35,
    VIX_E_INVALID_HANDLE = 1000,
    VIX_E_NOT_SUPPORTED_ON_HANDLE_TYPE = 1001,
    VIX_E_TOO_MANY_HANDLES = 1002,
    VIX_E_HOST_USER_PERMISSIONS = 3014,
    VIX_E_HOST_FILE_ERROR_EOF = 14005,
    VIX_E_HOST_SERVER_NOT_FOUND = 14008,
    VIX_E_HOST_NETWORK_CONN_REFUSED = 14009,
    VIX_E_DISK_INVAL = 16000,
    VIX_E_DISK_NOINIT = 16001,
    VIX_E_DISK_NOIO = 16002,
    VIX_E_DISK_PARTIALCHAIN = 16003,
    VIX_E_DISK_NEEDSREPAIR = 16006,
    VIX_E_DISK_OUTOFRANGE = 16007,
    VIX_E_DISK_CID_MISMATCH = 16008,
    VIX_E_DISK_CANTSHRINK = 16009,
    VIX_E_DISK_UNSUPPORTEDDISKVERSION = 16011,
    VIX_E_DISK_OPENPARENT = 16012,
    VIX_E_DISK_NOTSUPPORTED = 16013,
    VIX_E_DISK_INVALIDPARTITIONTABLE = 16018,
    VIX_E_DISK_TOOMANYREDO = 16028,
    VIX_E_DISK_INVALIDCHAIN = 16030,
    VIX_E_DISK_KEY_NOTFOUND = 16052,
    VIX_E_DISK_SUBSYSTEM_INIT_FAIL = 16053,
    VIX_E_DISK_INVALID_CONNECTION = 16054,
    VIX_E_DISK_ENCODING = 16061,
    VIX_E_DISK_CANTREPAIR = 16062,
    VIX_E_DISK_INVALIDDISK = 16063,
    VIX_E_DISK_CAPACITY_MISMATCH = 16067,
    VIX_E_DISK_ATTACH_ROOTLINK = 16069,
    VIX_E_CANNOT_CONNECT_TO_HOST = 18000,
    VIX_E_MNTAPI_INCOMPATIBLE_VERSION = 24300,
    VIX_E_MNTAPI_OS_ERROR = 24301,
    VIX_E_MNTAPI_VOLUME_NOT_MOUNTED = 24304,
    VIX_E_MNTAPI_VOLUME_ALREADY_MOUNTED = 24305
};

enum {
    VIXDISKLIB_FLAG_OPEN_UNBUFFERED = 0x01,
    VIXDISKLIB_FLAG_OPEN_SINGLE_LINK = 0x02,
    VIXDISKLIB_FLAG_OPEN_READ_ONLY = 0x04,
    VIXDISKLIB_FLAG_OPEN_COMPRESSION_ZLIB = 0x10,
    VIXDISKLIB_FLAG_OPEN_COMPRESSION_FASTLZ = 0x20,
    VIXDISKLIB_FLAG_OPEN_COMPRESSION_SKIPZ = 0x40
};

#define VIXDISKLIB_HWVERSION_WORKSTATION_4 3
#define VIXDISKLIB_HWVERSION_WORKSTATION_5 4
#define VIXDISKLIB_HWVERSION_WORKSTATION_6 6
#define VIXDISKLIB_HWVERSION_ESX30 4
#define VIXDISKLIB_HWVERSION_ESX4X 7
#define VIXDISKLIB_HWVERSION_ESX50 8
#define VIXDISKLIB_HWVERSION_ESX51 9
#define VIXDISKLIB_HWVERSION_ESX55 10
#define VIXDISKLIB_HWVERSION_ESX60 11
#define VIXDISKLIB_HWVERSION_ESX65 13

#define VIXMNTAPI_MAJOR_VERSION 1
#define VIXMNTAPI_MINOR_VERSION 0

typedef enum {
    VIXDISKLIB_CRED_UID = 1,
    VIXDISKLIB_CRED_SESSIONID = 2,
    VIXDISKLIB_CRED_TICKETID = 3,
    VIXDISKLIB_CRED_SSPI = 4,
    VIXDISKLIB_CRED_UNKNOWN = 256
} VixDiskLibCredType;

typedef enum {
    VIXDISKLIB_SPEC_VMX = 0,
    VIXDISKLIB_SPEC_VSTORAGE_OBJECT = 1,
    VIXDISKLIB_SPEC_UNKNOWN = 2
} VixDiskLibSpecType;

typedef enum {
    VIXDISKLIB_DISK_MONOLITHIC_SPARSE = 1,
    VIXDISKLIB_DISK_MONOLITHIC_FLAT = 2,
    VIXDISKLIB_DISK_SPLIT_SPARSE = 3,
    VIXDISKLIB_DISK_SPLIT_FLAT = 4,
    VIXDISKLIB_DISK_VMFS_FLAT = 5,
    VIXDISKLIB_DISK_STREAM_OPTIMIZED = 6,
    VIXDISKLIB_DISK_VMFS_THIN = 7,
    VIXDISKLIB_DISK_VMFS_SPARSE = 8,
    VIXDISKLIB_DISK_UNKNOWN = 256
} VixDiskLibDiskType;

typedef enum {
    VIXDISKLIB_ADAPTER_IDE = 1,
    VIXDISKLIB_ADAPTER_SCSI_BUSLOGIC = 2,
    VIXDISKLIB_ADAPTER_SCSI_LSILOGIC = 3,
    VIXDISKLIB_ADAPTER_UNKNOWN = 256
} VixDiskLibAdapterType;

typedef enum {
    VIXMNTAPI_NO_OS = 0,
    VIXMNTAPI_WINDOWS = 1,
    VIXMNTAPI_OTHER = 255
} VixOsFamily;

typedef enum {
    VIXMNTAPI_UNKNOWN_VOLTYPE = 0,
    VIXMNTAPI_BASIC_PARTITION = 1,
    VIXMNTAPI_GPT_PARTITION = 2,
    VIXMNTAPI_DYNAMIC_VOLUME = 3,
    VIXMNTAPI_LVM_VOLUME = 4
} VixVolumeType;

typedef struct VixDiskLibConnectParam *VixDiskLibConnection;
typedef struct VixDiskLibHandleStruct *VixDiskLibHandle;
typedef struct VixDiskSetHandleStruct *VixDiskSetHandle;
typedef struct VixVolumeHandleStruct *VixVolumeHandle;
typedef struct VixDiskLibConnectParamsState VixDiskLibConnectParamsState;

// VMware's Windows headers bracket everything in pack(4) ("VMware libs need 4");
// only VixDiskLibCreateParams is declared with natural 8-byte packing.
#pragma pack(push, 4)

typedef struct {
    uint32 cylinders;
    uint32 heads;
    uint32 sectors;
} VixDiskLibGeometry;

typedef struct {
    char *userName;
    char *password;
} VixDiskLibUidPasswdCreds;

typedef struct {
    char *cookie;
    char *userName;
    char *key;
} VixDiskLibSessionIdCreds;

struct VixDiskLibTicketIdCreds;

typedef struct {
    char *id;
    char *datastoreMoRef;
    char *ssId;
} VixDiskLibVStorageObjectSpec;

// The 6.7+ layout; zero-filled it is safe for every library version.
typedef struct {
    char *vmxSpec;
    char *serverName;
    char *thumbPrint;
    long privateUse;
    VixDiskLibCredType credType;
    union {
        VixDiskLibUidPasswdCreds uid;
        VixDiskLibSessionIdCreds sessionId;
        struct VixDiskLibTicketIdCreds *ticketId;
    } creds;
    uint32 port;
    uint32 nfcHostPort;
    char *vimApiVer;
    char reserved[8];
    VixDiskLibConnectParamsState *state;
    union {
        VixDiskLibVStorageObjectSpec vStorageObjSpec;
    } spec;
    VixDiskLibSpecType specType;
} VixDiskLibConnectParams;

typedef struct {
    VixDiskLibGeometry biosGeo;
    VixDiskLibGeometry physGeo;
    VixDiskLibSectorType capacity;
    VixDiskLibAdapterType adapterType;
    int numLinks;
    char *parentFileNameHint;
    char *uuid;
    uint32 logicalSectorSize;   // VDDK 7.0+ only
    uint32 physicalSectorSize;  // VDDK 7.0+ only
} VixDiskLibInfo;

typedef struct {
    VixOsFamily family;
    uint32 majorVersion;
    uint32 minorVersion;
    Bool osIs64Bit;
    char *vendor;
    char *edition;
    char *osFolder;
} VixOsInfo;

typedef struct {
    VixVolumeType type;
    Bool isMounted;
    char *symbolicLink;
    size_t numGuestMountPoints;
    char *inGuestMountPoints[1];  // really numGuestMountPoints entries
} VixVolumeInfo;

typedef struct {
    uint32 openFlags;
    char *mountPath;
} VixDiskSetInfo;

#pragma pack(pop)

#pragma pack(push, 8)
typedef struct {
    VixDiskLibDiskType diskType;
    VixDiskLibAdapterType adapterType;
    uint16 hwVersion;
    VixDiskLibSectorType capacity;
    uint32 logicalSectorSize;
    uint32 physicalSectorSize;
} VixDiskLibCreateParams;
#pragma pack(pop)

typedef void(VixDiskLibGenericLogFunc)(const char *fmt, va_list args);
typedef Bool (*VixDiskLibProgressFunc)(void *progressData, int percentCompleted);

#ifdef __cplusplus
}  // extern "C"
#endif

#ifdef __cplusplus
static_assert(sizeof(VixDiskLibGeometry) == 12, "VixDiskLibGeometry layout");
static_assert(offsetof(VixDiskLibConnectParams, privateUse) == 24, "ConnectParams layout");
static_assert(offsetof(VixDiskLibConnectParams, credType) == 28, "ConnectParams layout");
static_assert(offsetof(VixDiskLibConnectParams, creds) == 32, "ConnectParams layout");
static_assert(offsetof(VixDiskLibConnectParams, port) == 56, "ConnectParams layout");
static_assert(offsetof(VixDiskLibConnectParams, nfcHostPort) == 60, "ConnectParams layout");
static_assert(offsetof(VixDiskLibConnectParams, vimApiVer) == 64, "ConnectParams layout");
static_assert(offsetof(VixDiskLibConnectParams, state) == 80, "ConnectParams layout");
static_assert(offsetof(VixDiskLibConnectParams, spec) == 88, "ConnectParams layout");
static_assert(offsetof(VixDiskLibConnectParams, specType) == 112, "ConnectParams layout");
static_assert(sizeof(VixDiskLibConnectParams) == 116, "ConnectParams layout");
static_assert(offsetof(VixDiskLibInfo, capacity) == 24, "VixDiskLibInfo layout");
static_assert(offsetof(VixDiskLibInfo, numLinks) == 36, "VixDiskLibInfo layout");
static_assert(offsetof(VixDiskLibInfo, parentFileNameHint) == 40, "VixDiskLibInfo layout");
static_assert(offsetof(VixDiskLibInfo, uuid) == 48, "VixDiskLibInfo layout");
static_assert(sizeof(VixDiskLibInfo) == 64, "VixDiskLibInfo layout");
static_assert(offsetof(VixDiskLibCreateParams, hwVersion) == 8, "CreateParams layout");
static_assert(offsetof(VixDiskLibCreateParams, capacity) == 16, "CreateParams layout");
static_assert(sizeof(VixDiskLibCreateParams) == 32, "CreateParams layout");
static_assert(offsetof(VixOsInfo, osIs64Bit) == 12, "VixOsInfo layout");
static_assert(offsetof(VixOsInfo, vendor) == 16, "VixOsInfo layout");
static_assert(sizeof(VixOsInfo) == 40, "VixOsInfo layout");
static_assert(offsetof(VixVolumeInfo, symbolicLink) == 8, "VixVolumeInfo layout");
static_assert(offsetof(VixVolumeInfo, numGuestMountPoints) == 16, "VixVolumeInfo layout");
static_assert(offsetof(VixVolumeInfo, inGuestMountPoints) == 24, "VixVolumeInfo layout");
static_assert(offsetof(VixDiskSetInfo, mountPath) == 4, "VixDiskSetInfo layout");
static_assert(sizeof(VixDiskSetInfo) == 12, "VixDiskSetInfo layout");
#endif

// X(name, returnType, (parameters), (arguments)) — one row per disk-library entry
// point, in the order the binding's function table keeps them.
#define VDDK_DISKLIB_ENTRY_POINTS(X)                                                                    \
    X(VixDiskLib_InitEx, VixError,                                                                      \
      (uint32 majorVersion, uint32 minorVersion, VixDiskLibGenericLogFunc *log,                         \
       VixDiskLibGenericLogFunc *warn, VixDiskLibGenericLogFunc *panic, const char *libDir,             \
       const char *configFile),                                                                         \
      (majorVersion, minorVersion, log, warn, panic, libDir, configFile))                               \
    X(VixDiskLib_Init, VixError,                                                                        \
      (uint32 majorVersion, uint32 minorVersion, VixDiskLibGenericLogFunc *log,                         \
       VixDiskLibGenericLogFunc *warn, VixDiskLibGenericLogFunc *panic, const char *libDir),            \
      (majorVersion, minorVersion, log, warn, panic, libDir))                                           \
    X(VixDiskLib_Exit, void, (void), ())                                                                \
    X(VixDiskLib_ListTransportModes, const char *, (void), ())                                          \
    X(VixDiskLib_Cleanup, VixError,                                                                     \
      (const VixDiskLibConnectParams *connectParams, uint32 *numCleanedUp, uint32 *numRemaining),       \
      (connectParams, numCleanedUp, numRemaining))                                                      \
    X(VixDiskLib_Connect, VixError,                                                                     \
      (const VixDiskLibConnectParams *connectParams, VixDiskLibConnection *connection),                 \
      (connectParams, connection))                                                                      \
    X(VixDiskLib_ConnectEx, VixError,                                                                   \
      (const VixDiskLibConnectParams *connectParams, Bool readOnly, const char *snapshotRef,            \
       const char *transportModes, VixDiskLibConnection *connection),                                   \
      (connectParams, readOnly, snapshotRef, transportModes, connection))                               \
    X(VixDiskLib_Disconnect, VixError, (VixDiskLibConnection connection), (connection))                 \
    X(VixDiskLib_Create, VixError,                                                                      \
      (const VixDiskLibConnection connection, const char *path,                                         \
       const VixDiskLibCreateParams *createParams, VixDiskLibProgressFunc progressFunc,                 \
       void *progressCallbackData),                                                                     \
      (connection, path, createParams, progressFunc, progressCallbackData))                             \
    X(VixDiskLib_CreateChild, VixError,                                                                 \
      (VixDiskLibHandle diskHandle, const char *childPath, VixDiskLibDiskType diskType,                 \
       VixDiskLibProgressFunc progressFunc, void *progressCallbackData),                                \
      (diskHandle, childPath, diskType, progressFunc, progressCallbackData))                            \
    X(VixDiskLib_Open, VixError,                                                                        \
      (const VixDiskLibConnection connection, const char *path, uint32 flags,                           \
       VixDiskLibHandle *diskHandle),                                                                   \
      (connection, path, flags, diskHandle))                                                            \
    X(VixDiskLib_GetInfo, VixError, (VixDiskLibHandle diskHandle, VixDiskLibInfo **info),               \
      (diskHandle, info))                                                                               \
    X(VixDiskLib_FreeInfo, void, (VixDiskLibInfo *info), (info))                                        \
    X(VixDiskLib_GetTransportMode, const char *, (VixDiskLibHandle diskHandle), (diskHandle))           \
    X(VixDiskLib_Close, VixError, (VixDiskLibHandle diskHandle), (diskHandle))                          \
    X(VixDiskLib_Read, VixError,                                                                        \
      (VixDiskLibHandle diskHandle, VixDiskLibSectorType startSector,                                   \
       VixDiskLibSectorType numSectors, uint8 *readBuffer),                                             \
      (diskHandle, startSector, numSectors, readBuffer))                                                \
    X(VixDiskLib_Write, VixError,                                                                       \
      (VixDiskLibHandle diskHandle, VixDiskLibSectorType startSector,                                   \
       VixDiskLibSectorType numSectors, const uint8 *writeBuffer),                                      \
      (diskHandle, startSector, numSectors, writeBuffer))                                               \
    X(VixDiskLib_ReadMetadata, VixError,                                                                \
      (VixDiskLibHandle diskHandle, const char *key, char *buf, size_t bufLen, size_t *requiredLen),    \
      (diskHandle, key, buf, bufLen, requiredLen))                                                      \
    X(VixDiskLib_WriteMetadata, VixError,                                                               \
      (VixDiskLibHandle diskHandle, const char *key, const char *val), (diskHandle, key, val))          \
    X(VixDiskLib_GetMetadataKeys, VixError,                                                             \
      (VixDiskLibHandle diskHandle, char *keys, size_t maxLen, size_t *requiredLen),                    \
      (diskHandle, keys, maxLen, requiredLen))                                                          \
    X(VixDiskLib_Unlink, VixError, (VixDiskLibConnection connection, const char *path),                 \
      (connection, path))                                                                               \
    X(VixDiskLib_Grow, VixError,                                                                        \
      (VixDiskLibConnection connection, const char *path, VixDiskLibSectorType capacity,                \
       Bool updateGeometry, VixDiskLibProgressFunc progressFunc, void *progressCallbackData),           \
      (connection, path, capacity, updateGeometry, progressFunc, progressCallbackData))                 \
    X(VixDiskLib_Shrink, VixError,                                                                      \
      (VixDiskLibHandle diskHandle, VixDiskLibProgressFunc progressFunc, void *progressCallbackData),   \
      (diskHandle, progressFunc, progressCallbackData))                                                 \
    X(VixDiskLib_Defragment, VixError,                                                                  \
      (VixDiskLibHandle diskHandle, VixDiskLibProgressFunc progressFunc, void *progressCallbackData),   \
      (diskHandle, progressFunc, progressCallbackData))                                                 \
    X(VixDiskLib_Rename, VixError, (const char *srcFileName, const char *dstFileName),                  \
      (srcFileName, dstFileName))                                                                       \
    X(VixDiskLib_Clone, VixError,                                                                       \
      (const VixDiskLibConnection dstConnection, const char *dstPath,                                   \
       const VixDiskLibConnection srcConnection, const char *srcPath,                                   \
       const VixDiskLibCreateParams *vixCreateParams, VixDiskLibProgressFunc progressFunc,              \
       void *progressCallbackData, Bool overWrite),                                                     \
      (dstConnection, dstPath, srcConnection, srcPath, vixCreateParams, progressFunc,                   \
       progressCallbackData, overWrite))                                                                \
    X(VixDiskLib_GetErrorText, char *, (VixError err, const char *locale), (err, locale))               \
    X(VixDiskLib_FreeErrorText, void, (char *errMsg), (errMsg))                                         \
    X(VixDiskLib_Attach, VixError, (VixDiskLibHandle parent, VixDiskLibHandle child), (parent, child))  \
    X(VixDiskLib_SpaceNeededForClone, VixError,                                                         \
      (VixDiskLibHandle diskHandle, VixDiskLibDiskType cloneDiskType, uint64 *spaceNeeded),             \
      (diskHandle, cloneDiskType, spaceNeeded))                                                         \
    X(VixDiskLib_CheckRepair, VixError,                                                                 \
      (const VixDiskLibConnection connection, const char *filename, Bool repair),                       \
      (connection, filename, repair))                                                                   \
    X(VixDiskLib_PrepareForAccess, VixError,                                                            \
      (const VixDiskLibConnectParams *connectParams, const char *identity), (connectParams, identity))  \
    X(VixDiskLib_EndAccess, VixError,                                                                   \
      (const VixDiskLibConnectParams *connectParams, const char *identity), (connectParams, identity))

// The mount library, in the order of the binding's table.
#define VDDK_MNTAPI_ENTRY_POINTS(X)                                                                     \
    X(VixMntapi_Init, VixError,                                                                         \
      (uint32 majorVersion, uint32 minorVersion, VixDiskLibGenericLogFunc *log,                         \
       VixDiskLibGenericLogFunc *warn, VixDiskLibGenericLogFunc *panic, const char *libDir,             \
       const char *configFile),                                                                         \
      (majorVersion, minorVersion, log, warn, panic, libDir, configFile))                               \
    X(VixMntapi_Exit, void, (void), ())                                                                 \
    X(VixMntapi_OpenDiskSet, VixError,                                                                  \
      (VixDiskLibHandle * diskHandles, size_t numberOfDisks, uint32 openMode,                           \
       VixDiskSetHandle *handle),                                                                       \
      (diskHandles, numberOfDisks, openMode, handle))                                                   \
    X(VixMntapi_OpenDisks, VixError,                                                                    \
      (VixDiskLibConnection connection, const char **diskNames, size_t numberOfDisks,                   \
       uint32 openFlags, VixDiskSetHandle *handle),                                                     \
      (connection, diskNames, numberOfDisks, openFlags, handle))                                        \
    X(VixMntapi_GetDiskSetInfo, VixError, (VixDiskSetHandle handle, VixDiskSetInfo **diskSetInfo),      \
      (handle, diskSetInfo))                                                                            \
    X(VixMntapi_FreeDiskSetInfo, void, (VixDiskSetInfo *diskSetInfo), (diskSetInfo))                    \
    X(VixMntapi_CloseDiskSet, VixError, (VixDiskSetHandle diskSet), (diskSet))                          \
    X(VixMntapi_GetVolumeHandles, VixError,                                                             \
      (VixDiskSetHandle diskSet, size_t *numberOfVolumes, VixVolumeHandle **volumeHandles),             \
      (diskSet, numberOfVolumes, volumeHandles))                                                        \
    X(VixMntapi_FreeVolumeHandles, void, (VixVolumeHandle *volumeHandles), (volumeHandles))             \
    X(VixMntapi_GetOsInfo, VixError, (VixDiskSetHandle diskSet, VixOsInfo **info), (diskSet, info))     \
    X(VixMntapi_FreeOsInfo, void, (VixOsInfo *info), (info))                                            \
    X(VixMntapi_MountVolume, VixError, (VixVolumeHandle volumeHandle, Bool readOnly),                   \
      (volumeHandle, readOnly))                                                                         \
    X(VixMntapi_DismountVolume, VixError, (VixVolumeHandle volumeHandle, Bool force),                   \
      (volumeHandle, force))                                                                            \
    X(VixMntapi_GetVolumeInfo, VixError, (VixVolumeHandle volumeHandle, VixVolumeInfo **info),          \
      (volumeHandle, info))                                                                             \
    X(VixMntapi_FreeVolumeInfo, void, (VixVolumeInfo *info), (info))

// Function-pointer types, one per entry point: <name>_fn.
#define VDDK_DECLARE_FN_TYPE(name, ret, params, args) typedef ret(*name##_fn) params;
VDDK_DISKLIB_ENTRY_POINTS(VDDK_DECLARE_FN_TYPE)
VDDK_MNTAPI_ENTRY_POINTS(VDDK_DECLARE_FN_TYPE)
#undef VDDK_DECLARE_FN_TYPE

#ifdef __cplusplus
namespace vddk {
#define VDDK_COUNT_ONE(name, ret, params, args) +1
constexpr int kDiskLibEntryPointCount = 0 VDDK_DISKLIB_ENTRY_POINTS(VDDK_COUNT_ONE);
constexpr int kMntapiEntryPointCount = 0 VDDK_MNTAPI_ENTRY_POINTS(VDDK_COUNT_ONE);
#undef VDDK_COUNT_ONE
static_assert(kDiskLibEntryPointCount == 33, "vixDiskLib has 33 entry points in scope");
static_assert(kMntapiEntryPointCount == 15, "vixMntapi has 15 entry points in scope");

// Export names in table order, for binding by name and for tests that iterate.
#define VDDK_NAME_ONE(name, ret, params, args) #name,
inline constexpr const char *kDiskLibEntryPointNames[] = {VDDK_DISKLIB_ENTRY_POINTS(VDDK_NAME_ONE)};
inline constexpr const char *kMntapiEntryPointNames[] = {VDDK_MNTAPI_ENTRY_POINTS(VDDK_NAME_ONE)};
#undef VDDK_NAME_ONE
}  // namespace vddk
#endif
