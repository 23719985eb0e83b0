// Interface of the product's vSphere web-services client library, ravelkit.dll
// (vyravelkit.dll in the Vaultry product). The library is closed: this header is
// its contract, the record types it fills and the 64 entry points, as one X-macro
// list in the order in which a loader binds them.
//
// One C++ runtime. The entry points pass standard-library objects (std::string&,
// std::wstringstream&, std::vector of records) and assign to them, so the library
// and its caller must use one C++ runtime and one heap: with MSVC both /MD of the
// same toolset, with mingw-w64 the same libstdc++ over msvcrt's malloc. A library
// writes into a caller's stream only through its buffer (rdbuf()->sputn), never
// with formatted insertion, which would look up the caller's locale facets.
//
// All narrow strings are UTF-8 and zero-terminated; a null pointer means "none".
// Results are int, 0 meaning success. A session is an opaque void* from vmcConnect.
#pragma once

#include <stdint.h>

#include <sstream>
#include <string>
#include <vector>

namespace _vmc {

// What vmcGetServerDetails and vmcGetObjDetails fill. The data-set name of
// vmcGetObjDetails selects which fields are filled.
struct _ObjDetails {
    std::string type;           // server details: "VirtualCenter" or "HostAgent"; objects: their name
    std::string moRef;          // the managed object reference ("vm-42")
    std::string host;           // the VM's host: "name (<host-N>)"
    std::string powerState;     // "poweredOn", "poweredOff", "suspended"
    std::string guestHostName;  // the guest's fully qualified host name
    std::string diskMode;       // disk modes of the VM's disks, comma separated ("physicalMode", ...)
    std::string hardwareVersion;  // decimal text: the VM's virtual hardware version ("15")
};

struct _VmDiskDetails {
    std::string fileName;  // "[datastore] folder/disk.vmdk" or a path the disk library opens
    std::string diskMode;
    int64_t capacityBytes = 0;
    int key = 0;
};

// A host of the server; ends in two 16-bit numbers (the product version).
struct _HostSummary {
    std::string name;
    std::string moRef;
    int16_t majorVersion = 0;
    int16_t minorVersion = 0;
};

struct _DiskChangeInfo {
    int64_t startOffset = 0;
    int64_t length = 0;
    std::vector<std::pair<int64_t, int64_t>> changedAreas;  // (offset, length) in bytes
};

struct _DatastoreDetails {
    std::string name;
    std::string url;
    int64_t capacityBytes = 0;
    int64_t freeBytes = 0;
};

struct _NetworkDetails {
    std::string name;
    std::string moRef;
};

// One condition of an event alarm.
struct _ExpressionEntry {
    std::string eventType;
    std::string comparison;
    std::string value;
};

struct _VmEvent {
    int key = 0;
    std::string type;
    std::string message;
    int64_t createdTime = 0;  // seconds since 1970
};

struct VmSnapshotInfo {
    std::string name;
    std::string moRef;
    std::string description;
    std::vector<VmSnapshotInfo> children;
};

}  // namespace _vmc

// The library's XML writer (vmcGetXmlWriter): one writer per call, released by Release.
class xmlWriterMethods {
public:
    virtual bool StartElement(const char *name) = 0;
    virtual bool AddAttribute(const char *name, const char *value) = 0;
    virtual bool AddText(const char *text) = 0;
    virtual bool EndElement() = 0;
    virtual bool Save(const char *path) = 0;
    virtual void Release() = 0;

protected:
    ~xmlWriterMethods() = default;
};

// Callback types of the entry points.
typedef int (*vmcConnectCallback)(int event, void *context);
// The library's log: a printf-style format and its argument list (a va_list,
// which on Windows is a char pointer).
typedef void (*vmcLoggerCallback)(const char *format, char *arguments);
typedef int (*vmcEventCallback)(int index, _vmc::_VmEvent event);

// X(name, return type, (parameters), (argument names)) in binding order.
#define RAVELKIT_S const char *
#define RAVELKIT_ENTRY_POINTS(X)                                                                          \
    X(vmcConnect, int,                                                                                    \
      (RAVELKIT_S url, RAVELKIT_S proxy, RAVELKIT_S thumbprint, bool acceptAnyCertificate,               \
       vmcConnectCallback callback, void **session, int timeoutMs, RAVELKIT_S options),                   \
      (url, proxy, thumbprint, acceptAnyCertificate, callback, session, timeoutMs, options))              \
    X(vmcDisconnect, void, (void *session), (session))                                                    \
    X(vmcLogin, int, (void *session, RAVELKIT_S user, RAVELKIT_S password, RAVELKIT_S locale),            \
      (session, user, password, locale))                                                                  \
    X(vmcLogout, int, (void *session), (session))                                                         \
    X(vmcSetVmView, void, (void *session, RAVELKIT_S view), (session, view))                             \
    X(vmcSetTimeouts, int,                                                                                \
      (void *session, int powerOnMs, int powerOffMs, int powerLongMs, int snapshotMs, int reconfigMs,    \
       int browseMs, int connectMs, int refreshMs),                                                       \
      (session, powerOnMs, powerOffMs, powerLongMs, snapshotMs, reconfigMs, browseMs, connectMs,          \
       refreshMs))                                                                                        \
    X(vmcSetPreferences, int,                                                                             \
      (void *session, RAVELKIT_S text1, RAVELKIT_S text2, int p1, int p2, int p3, int p4, int p5, int p6, \
       int p7, int p8, int p9, int p10),                                                                  \
      (session, text1, text2, p1, p2, p3, p4, p5, p6, p7, p8, p9, p10))                                   \
    X(vmcSetLogger, void, (void *session, vmcLoggerCallback logger), (session, logger))                  \
    X(vmcSetLogLevel, void, (void *session, int level), (session, level))                                \
    X(vmcGetLastVIError, void, (void *session, std::string &text, int *code), (session, text, code))     \
    X(vmcGetServerDetails, int, (void *session, _vmc::_ObjDetails *details), (session, details))         \
    X(vmcGetObjectInfo, int, (void *session, RAVELKIT_S root, RAVELKIT_S type, RAVELKIT_S name,          \
                              RAVELKIT_S outputFile),                                                     \
      (session, root, type, name, outputFile))                                                            \
    X(vmcGetObjectInfoStrm, int,                                                                          \
      (void *session, RAVELKIT_S root, RAVELKIT_S type, RAVELKIT_S name, std::wstringstream &out),        \
      (session, root, type, name, out))                                                                   \
    X(vmcGetObjDetails, int,                                                                              \
      (void *session, RAVELKIT_S name, RAVELKIT_S type, RAVELKIT_S moRef, RAVELKIT_S dataSet,            \
       _vmc::_ObjDetails *details),                                                                       \
      (session, name, type, moRef, dataSet, details))                                                     \
    X(vmcSetVmPowerOrConfigState, int, (void *session, RAVELKIT_S vm, RAVELKIT_S state),                 \
      (session, vm, state))                                                                               \
    X(vmcDestroyObject, int, (void *session, RAVELKIT_S name, int type), (session, name, type))          \
    X(vmcCreateSnapshot, int,                                                                             \
      (void *session, RAVELKIT_S name, RAVELKIT_S description, RAVELKIT_S vm, bool memory, bool quiesce), \
      (session, name, description, vm, memory, quiesce))                                                  \
    X(vmcCreateSnapshotEx, int,                                                                           \
      (void *session, RAVELKIT_S name, RAVELKIT_S description, RAVELKIT_S vm, bool memory, bool quiesce,  \
       std::string &snapshotRef),                                                                         \
      (session, name, description, vm, memory, quiesce, snapshotRef))                                     \
    X(vmcRemoveSnapshot, int,                                                                             \
      (void *session, RAVELKIT_S name, RAVELKIT_S vm, bool removeChildren, bool consolidate),             \
      (session, name, vm, removeChildren, consolidate))                                                   \
    X(vmcRemoveAllSnapshots, int, (void *session, RAVELKIT_S vm), (session, vm))                         \
    X(vmcGetVmDiskDetails, int, (void *session, RAVELKIT_S vm, int index, _vmc::_VmDiskDetails &disk),   \
      (session, vm, index, disk))                                                                         \
    X(vmcGetAllVmDiskDetails, int,                                                                        \
      (void *session, RAVELKIT_S vm, std::vector<_vmc::_VmDiskDetails> &disks), (session, vm, disks))    \
    X(vmcGetDiskChangedInfo, int,                                                                         \
      (void *session, int diskKey, long changeFlags, RAVELKIT_S vm, RAVELKIT_S snapshot,                 \
       RAVELKIT_S changeId, RAVELKIT_S diskPath, RAVELKIT_S outputFile, bool fullDisk),                  \
      (session, diskKey, changeFlags, vm, snapshot, changeId, diskPath, outputFile, fullDisk))           \
    X(vmcGetDiskChangedInfoStrm, int,                                                                     \
      (void *session, int diskKey, long changeFlags, RAVELKIT_S vm, RAVELKIT_S snapshot,                 \
       RAVELKIT_S changeId, RAVELKIT_S diskPath, std::wstringstream &out, bool fullDisk),                \
      (session, diskKey, changeFlags, vm, snapshot, changeId, diskPath, out, fullDisk))                  \
    X(vmcGetSnapshotDiskDetails, int,                                                                     \
      (void *session, RAVELKIT_S vm, RAVELKIT_S snapshot, RAVELKIT_S diskPath, int *diskKey,             \
       int64_t *capacity, std::string &fileName, std::string &changeId),                                 \
      (session, vm, snapshot, diskPath, diskKey, capacity, fileName, changeId))                          \
    X(vmcGetAllSnapshotDiskDetails, int,                                                                  \
      (void *session, RAVELKIT_S vm, RAVELKIT_S snapshot, std::vector<_vmc::_VmDiskDetails> &disks,      \
       std::string &snapshotRef, std::string &vmxPath),                                                  \
      (session, vm, snapshot, disks, snapshotRef, vmxPath))                                               \
    X(vmcGetChangedDiskAreas, int,                                                                        \
      (void *session, int diskKey, int64_t startOffset, RAVELKIT_S vm, RAVELKIT_S snapshot,              \
       RAVELKIT_S changeId, _vmc::_DiskChangeInfo *changes),                                              \
      (session, diskKey, startOffset, vm, snapshot, changeId, changes))                                   \
    X(vmcCreateVirtualMachineEx, int,                                                                     \
      (void *session, std::string &vmRef, RAVELKIT_S name, RAVELKIT_S folder, RAVELKIT_S host,           \
       RAVELKIT_S pool, RAVELKIT_S datastore, RAVELKIT_S guestId, RAVELKIT_S configXml,                  \
       const char **disks, int64_t diskCount, const char **networks, int64_t networkCount,               \
       RAVELKIT_S vmxPath, unsigned char hardwareVersion, unsigned char firmware, bool b1, bool b2,      \
       bool b3, bool b4, bool b5, bool b6, bool b7, bool b8, bool b9, bool b10),                          \
      (session, vmRef, name, folder, host, pool, datastore, guestId, configXml, disks, diskCount,         \
       networks, networkCount, vmxPath, hardwareVersion, firmware, b1, b2, b3, b4, b5, b6, b7, b8, b9,   \
       b10))                                                                                              \
    X(vmcCreateVirtualMachineExStrm, int,                                                                 \
      (void *session, std::string &vmRef, std::wstringstream &config, RAVELKIT_S name, RAVELKIT_S folder, \
       RAVELKIT_S host, RAVELKIT_S pool, RAVELKIT_S datastore, RAVELKIT_S guestId, const char **disks,   \
       int64_t diskCount, const char **networks, int64_t networkCount, RAVELKIT_S vmxPath,                \
       unsigned char hardwareVersion, unsigned char firmware, bool b1, bool b2, bool b3, bool b4,        \
       bool b5, bool b6, bool b7, bool b8, bool b9, bool b10),                                            \
      (session, vmRef, config, name, folder, host, pool, datastore, guestId, disks, diskCount, networks, \
       networkCount, vmxPath, hardwareVersion, firmware, b1, b2, b3, b4, b5, b6, b7, b8, b9, b10))        \
    X(vmcCreateVirtualMachineP2V, int,                                                                    \
      (void *session, std::string &vmRef, uint64_t memoryBytes, RAVELKIT_S t1, RAVELKIT_S t2,            \
       RAVELKIT_S t3, RAVELKIT_S t4, RAVELKIT_S t5, RAVELKIT_S t6, RAVELKIT_S t7, RAVELKIT_S t8,         \
       RAVELKIT_S t9, RAVELKIT_S t10, RAVELKIT_S t11, RAVELKIT_S t12, RAVELKIT_S t13, int cpuCount,      \
       long hardwareVersion, RAVELKIT_S t14, RAVELKIT_S t15, bool b1, bool b2, bool b3, bool b4,         \
       bool b5, bool b6, bool b7, bool b8),                                                               \
      (session, vmRef, memoryBytes, t1, t2, t3, t4, t5, t6, t7, t8, t9, t10, t11, t12, t13, cpuCount,    \
       hardwareVersion, t14, t15, b1, b2, b3, b4, b5, b6, b7, b8))                                        \
    X(vmcReconfigVirtualMachineEx, int, (void *session, RAVELKIT_S vm, RAVELKIT_S configXml),            \
      (session, vm, configXml))                                                                           \
    X(vmcReconfigVirtualMachineExStrm, int, (void *session, std::wstringstream &config, RAVELKIT_S vm),  \
      (session, config, vm))                                                                              \
    X(vmcRegisterVirtualMachine, int,                                                                     \
      (void *session, RAVELKIT_S vmxPath, RAVELKIT_S name, RAVELKIT_S folder, RAVELKIT_S pool,           \
       RAVELKIT_S host, bool asTemplate, std::string &vmRef),                                             \
      (session, vmxPath, name, folder, pool, host, asTemplate, vmRef))                                    \
    X(vmcValidateDatastorePath, int, (void *session, RAVELKIT_S datastore, RAVELKIT_S path, bool *exists), \
      (session, datastore, path, exists))                                                                 \
    X(vmcIsChangeTrackingEnabled, int,                                                                    \
      (void *session, const std::string &vm, bool &enabled, bool &supported),                             \
      (session, vm, enabled, supported))                                                                  \
    X(vmcGetConfigTargetInfo, int, (void *session, RAVELKIT_S host, RAVELKIT_S outputFile),              \
      (session, host, outputFile))                                                                        \
    X(vmcGetConfigTargetInfoStrm, int, (void *session, RAVELKIT_S host, std::wstringstream &out),        \
      (session, host, out))                                                                               \
    X(vmcGetConfigTargetDatastoreDetails, int,                                                            \
      (void *session, RAVELKIT_S host, std::vector<_vmc::_DatastoreDetails> &datastores),                \
      (session, host, datastores))                                                                        \
    X(vmcGetConfigTargetNetworkDetails, int,                                                              \
      (void *session, RAVELKIT_S host, std::vector<_vmc::_NetworkDetails> &networks),                    \
      (session, host, networks))                                                                          \
    X(vmcGetVmBackupInfo, int, (void *session, RAVELKIT_S vm, RAVELKIT_S outputFile),                    \
      (session, vm, outputFile))                                                                          \
    X(vmcGetVmBackupInfoStrm, int, (void *session, RAVELKIT_S vm, std::wstringstream &out),              \
      (session, vm, out))                                                                                 \
    X(vmcGetVmSnapshotTree, int, (void *session, RAVELKIT_S vm, _vmc::VmSnapshotInfo &tree),             \
      (session, vm, tree))                                                                                \
    X(vmcRevertToSnapshot, int,                                                                           \
      (void *session, RAVELKIT_S vm, RAVELKIT_S snapshot, RAVELKIT_S host, bool suppressPowerOn),        \
      (session, vm, snapshot, host, suppressPowerOn))                                                     \
    X(vmcRevertToCurrentSnapshot, int, (void *session, RAVELKIT_S vm, RAVELKIT_S host, bool suppressPowerOn), \
      (session, vm, host, suppressPowerOn))                                                               \
    X(vmcVmCustomFieldOp, int,                                                                            \
      (void *session, RAVELKIT_S vm, RAVELKIT_S field, int *fieldKey, RAVELKIT_S value,                  \
       std::string &valueOut, bool set),                                                                  \
      (session, vm, field, fieldKey, value, valueOut, set))                                               \
    X(vmcGetObjPropertyByType, int,                                                                       \
      (void *session, RAVELKIT_S type, RAVELKIT_S name, RAVELKIT_S property, std::string &value,         \
       bool byRef),                                                                                       \
      (session, type, name, property, value, byRef))                                                      \
    X(vmcGetXmlWriter, xmlWriterMethods *, (), ())                                                        \
    X(vmcConfigureVmStorageDrsForPod, int,                                                                \
      (void *session, RAVELKIT_S pod, RAVELKIT_S vm, RAVELKIT_S behavior, RAVELKIT_S rule, bool enabled, \
       bool keepDisksTogether, bool remove),                                                              \
      (session, pod, vm, behavior, rule, enabled, keepDisksTogether, remove))                             \
    X(vmcGetVmStorageDrsConfigDetails, int,                                                               \
      (void *session, RAVELKIT_S vm, std::string &pod, std::string &behavior, std::string &rule,         \
       bool &enabled, bool &keepDisksTogether),                                                           \
      (session, vm, pod, behavior, rule, enabled, keepDisksTogether))                                     \
    X(vmcLogUserEvent, int, (void *session, RAVELKIT_S entity, RAVELKIT_S message, RAVELKIT_S user),     \
      (session, entity, message, user))                                                                   \
    X(vmcPostGeneralEvent, int,                                                                           \
      (void *session, int category, int severity, int64_t eventKey, RAVELKIT_S t1, RAVELKIT_S t2,       \
       RAVELKIT_S t3, RAVELKIT_S t4, RAVELKIT_S t5, RAVELKIT_S t6, RAVELKIT_S t7, RAVELKIT_S t8,         \
       RAVELKIT_S t9, RAVELKIT_S t10, RAVELKIT_S t11),                                                    \
      (session, category, severity, eventKey, t1, t2, t3, t4, t5, t6, t7, t8, t9, t10, t11))             \
    X(vmcRegisterEventExtension, int,                                                                     \
      (void *session, RAVELKIT_S key, RAVELKIT_S t2, RAVELKIT_S t3, RAVELKIT_S t4, RAVELKIT_S t5,        \
       RAVELKIT_S t6, RAVELKIT_S t7, RAVELKIT_S t8, RAVELKIT_S t9, RAVELKIT_S t10, RAVELKIT_S t11,       \
       RAVELKIT_S t12, RAVELKIT_S t13, int64_t number),                                                   \
      (session, key, t2, t3, t4, t5, t6, t7, t8, t9, t10, t11, t12, t13, number))                        \
    X(vmcUnregisterEventExtension, int, (void *session, RAVELKIT_S key), (session, key))                 \
    X(vmcIsEventExtensionRegistered, int, (void *session, RAVELKIT_S key, bool *registered),             \
      (session, key, registered))                                                                         \
    X(vmcCreateTask, int,                                                                                 \
      (void *session, std::string &task, RAVELKIT_S objectRef, RAVELKIT_S objectType, RAVELKIT_S t3,     \
       RAVELKIT_S t4, RAVELKIT_S t5, bool cancelable),                                                    \
      (session, task, objectRef, objectType, t3, t4, t5, cancelable))                                     \
    X(vmcCancelTask, int, (void *session, RAVELKIT_S task), (session, task))                             \
    X(vmcSetTaskState, int, (void *session, RAVELKIT_S task, RAVELKIT_S state), (session, task, state))  \
    X(vmcUpdateTaskProgress, int, (void *session, RAVELKIT_S task, int percent), (session, task, percent)) \
    X(vmcSetTaskDescription, int,                                                                         \
      (void *session, RAVELKIT_S task, RAVELKIT_S message, RAVELKIT_S t3, RAVELKIT_S t4),                \
      (session, task, message, t3, t4))                                                                   \
    X(vmcCreateEventAlarm, int,                                                                           \
      (void *session, RAVELKIT_S entity, RAVELKIT_S name, RAVELKIT_S description, RAVELKIT_S action,     \
       bool enabled, _vmc::_ExpressionEntry *e1, _vmc::_ExpressionEntry *e2, _vmc::_ExpressionEntry *e3, \
       _vmc::_ExpressionEntry *e4, RAVELKIT_S t5, RAVELKIT_S t6, int i1, int i2, int i3,                 \
       std::string &alarmRef),                                                                            \
      (session, entity, name, description, action, enabled, e1, e2, e3, e4, t5, t6, i1, i2, i3, alarmRef)) \
    X(vmcRemoveAlarm, int, (void *session, RAVELKIT_S alarm), (session, alarm))                          \
    X(vmcAcknowledgeAlarm, int, (void *session, RAVELKIT_S alarm, RAVELKIT_S entity, RAVELKIT_S user),   \
      (session, alarm, entity, user))                                                                     \
    X(vmcGetEventHistory, int,                                                                            \
      (void *session, RAVELKIT_S t1, RAVELKIT_S t2, RAVELKIT_S t3, RAVELKIT_S t4, RAVELKIT_S t5,         \
       RAVELKIT_S t6, RAVELKIT_S t7, RAVELKIT_S t8, RAVELKIT_S t9, RAVELKIT_S t10, bool recursive,       \
       int64_t beginTime, int64_t endTime, vmcEventCallback callback),                                    \
      (session, t1, t2, t3, t4, t5, t6, t7, t8, t9, t10, recursive, beginTime, endTime, callback))       \
    X(vmcGetAllHosts, int, (void *session, std::vector<_vmc::_HostSummary> *hosts), (session, hosts))

// Pointer types of the entry points: <name>_fn.
#define RAVELKIT_DECLARE_FN_TYPE(name, ret, params, args) typedef ret(*name##_fn) params;
RAVELKIT_ENTRY_POINTS(RAVELKIT_DECLARE_FN_TYPE)
#undef RAVELKIT_DECLARE_FN_TYPE

// The library's exports, as the library itself (and a stand-in) declares them:
// C names, so a loader binds them by their plain names.
#if defined(RAVELKIT_BUILD)
#define RAVELKIT_DECLARE_EXPORT(name, ret, params, args) extern "C" __declspec(dllexport) ret name params;
RAVELKIT_ENTRY_POINTS(RAVELKIT_DECLARE_EXPORT)
#undef RAVELKIT_DECLARE_EXPORT
#endif

namespace ravelkit {
#define RAVELKIT_COUNT_ONE(name, ret, params, args) +1
constexpr int kEntryPointCount = 0 RAVELKIT_ENTRY_POINTS(RAVELKIT_COUNT_ONE);
#undef RAVELKIT_COUNT_ONE
static_assert(kEntryPointCount == 64, "the library has 64 entry points");

// Export names in binding order, for binding and for tests that iterate.
#define RAVELKIT_NAME_ONE(name, ret, params, args) #name,
inline constexpr const char *kEntryPointNames[] = {RAVELKIT_ENTRY_POINTS(RAVELKIT_NAME_ONE)};
#undef RAVELKIT_NAME_ONE

// One pointer per entry point, in binding order; null until bound.
struct EntryTable {
#define RAVELKIT_POINTER(name, ret, params, args) name##_fn name = nullptr;
    RAVELKIT_ENTRY_POINTS(RAVELKIT_POINTER)
#undef RAVELKIT_POINTER
};
}  // namespace ravelkit
