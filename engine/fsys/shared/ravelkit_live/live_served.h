// The entry points this client serves, as static members with the interface's
// signatures. The exports are generated from the interface's X-macro list: an
// entry with a member here calls it, every other one answers "not supported".
#pragma once
#include <ravelkit/ravelkit_api.h>

namespace ravelkit_live {

struct Served {
    // Session (live_connect.cpp).
    static int vmcConnect(const char *url, const char *proxy, const char *thumbprint, bool acceptAnyCertificate,
                          vmcConnectCallback callback, void **session, int timeoutMs, const char *options);
    static void vmcDisconnect(void *session);
    static int vmcLogin(void *session, const char *user, const char *password, const char *locale);
    static int vmcLogout(void *session);
    static void vmcSetVmView(void *session, const char *view);
    static int vmcSetTimeouts(void *session, int powerOnMs, int powerOffMs, int powerLongMs, int snapshotMs,
                              int reconfigMs, int browseMs, int connectMs, int refreshMs);
    static int vmcSetPreferences(void *session, const char *text1, const char *text2, int p1, int p2, int p3,
                                 int p4, int p5, int p6, int p7, int p8, int p9, int p10);
    static void vmcSetLogger(void *session, vmcLoggerCallback logger);
    static void vmcSetLogLevel(void *session, int level);
    static void vmcGetLastVIError(void *session, std::string &text, int *code);
    static int vmcGetServerDetails(void *session, _vmc::_ObjDetails *details);

    // Virtual machines and hosts (live_vm.cpp).
    static int vmcGetObjDetails(void *session, const char *name, const char *type, const char *moRef,
                                const char *dataSet, _vmc::_ObjDetails *details);
    static int vmcGetAllHosts(void *session, std::vector<_vmc::_HostSummary> *hosts);
    static int vmcGetAllVmDiskDetails(void *session, const char *vm, std::vector<_vmc::_VmDiskDetails> &disks);
    static int vmcIsChangeTrackingEnabled(void *session, const std::string &vm, bool &enabled, bool &supported);
    static int vmcSetVmPowerOrConfigState(void *session, const char *vm, const char *state);

    // Snapshots (live_snapshots.cpp).
    static int vmcCreateSnapshot(void *session, const char *name, const char *description, const char *vm,
                                 bool memory, bool quiesce);
    static int vmcRemoveSnapshot(void *session, const char *name, const char *vm, bool removeChildren,
                                 bool consolidate);
    static int vmcGetVmSnapshotTree(void *session, const char *vm, _vmc::VmSnapshotInfo &tree);

    // Event extensions (live_extensions.cpp).
    static int vmcIsEventExtensionRegistered(void *session, const char *key, bool *registered);
    static int vmcRegisterEventExtension(void *session, const char *key, const char *label, const char *summary,
                                         const char *company, const char *version, const char *t6, const char *t7,
                                         const char *t8, const char *t9, const char *t10, const char *t11,
                                         const char *t12, const char *t13, int64_t number);
    static int vmcUnregisterEventExtension(void *session, const char *key);

    // Tasks (live_tasks.cpp).
    static int vmcCreateTask(void *session, std::string &task, const char *objectRef, const char *objectType,
                             const char *t3, const char *t4, const char *t5, bool cancelable);
    static int vmcCancelTask(void *session, const char *task);
    static int vmcSetTaskState(void *session, const char *task, const char *state);
    static int vmcUpdateTaskProgress(void *session, const char *task, int percent);
    static int vmcSetTaskDescription(void *session, const char *task, const char *message, const char *t3,
                                     const char *t4);

    // Changed disk areas (live_changes.cpp).
    static int vmcGetChangedDiskAreas(void *session, int diskKey, int64_t startOffset, const char *vm,
                                      const char *snapshot, const char *changeId, _vmc::_DiskChangeInfo *changes);

    // Information documents (live_documents.cpp).
    static int vmcGetVmBackupInfo(void *session, const char *vm, const char *outputFile);
    static int vmcGetObjectInfo(void *session, const char *root, const char *type, const char *name,
                                const char *outputFile);
};

// The session of an entry point, or null with the last error set.
struct Session;
Session *SessionOf(void *session, const char *entry);

}  // namespace ravelkit_live
