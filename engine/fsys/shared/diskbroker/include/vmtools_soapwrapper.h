// The vSphere management layer: soapVmToolsWrapper, the caller's door to the
// web-services library (ravelkit.dll), and the flat vddk* functions over it.
//
// Session pair. vddkConnectToVMWareServer creates a wrapper (owned by the caller
// until vddkDisconnectFromVCServer deletes it) and a session handle of the
// library; every other vddk* function takes both. Results are the product's
// codes of diskbroker_results.h: 0, 0xE000xxxx failures, 0x2000xxxx warnings a
// backup may go on after. Wide strings are handed to the library as UTF-8.
// No function lets an exception out.
#pragma once

#include <stdint.h>

#include <vector>

#include <diskbroker_export.h>
#include <ravelkit/ravelkit_api.h>
#include <skclass_mini/singleton.h>
#include <skclass_mini/strings.h>

class vmToolsLoader;

// One per session. Every vmc* method takes the entry point's arguments and
// returns its result; the library stays loaded while any wrapper lives. Only
// the layer constructs wrappers (the constructor is not exported): it binds the
// library on first use and throws the result code 0xE000957F (an uint32_t)
// when the library cannot be found or bound; the next construction tries again.
class soapVmToolsWrapper {
public:
    soapVmToolsWrapper();
    DISKBROKER_API virtual ~soapVmToolsWrapper();
    soapVmToolsWrapper(const soapVmToolsWrapper &) = delete;
    soapVmToolsWrapper &operator=(const soapVmToolsWrapper &) = delete;

#define SOAPVMTOOLSWRAPPER_DECLARE(name, ret, params, args) DISKBROKER_API ret name params;
    RAVELKIT_ENTRY_POINTS(SOAPVMTOOLSWRAPPER_DECLARE)
#undef SOAPVMTOOLSWRAPPER_DECLARE

    // vmcGetObjectInfo(session, "root", "vm_3", null, outputFile).
    DISKBROKER_API int vmcGetVmFolderHierarchy(void *session, const char *outputFile);
    // vmcGetObjectInfo(session, "root", "host", null, outputFile).
    DISKBROKER_API int vmcGetHostFolderHierarchy(void *session, const char *outputFile);

private:
    skclass::shared_ptr<vmToolsLoader> loader;
};

// A host of the server as vddkGetAllHosts reports it.
struct vddkHostInfo {
    wcstring name;
    int32_t majorVersion = 0;  // sign-extended from the library's 16-bit numbers
    int32_t minorVersion = 0;
};

extern "C" {

// --- Sessions -----------------------------------------------------------------
// Connects to https://<server>/sdk with the registry's certificate check and
// connect time-out, logs in and sets the time-outs. *wrapperOut receives the
// wrapper even when connect or login fail (then *sessionOut is null); free it
// with vddkDisconnectFromVCServer. Only wrapperOut is checked for null.
// 0xE000FE49, 0xE0008442, 0xE000957F (library not loaded, *wrapperOut null),
// 0xE0009583, 0xE0009541, or vddkSetManagedTimeouts' result.
[[nodiscard]] DISKBROKER_API uint32_t vddkConnectToVMWareServer(const wchar_t *server, const wchar_t *user, const wchar_t *password,
                                                  soapVmToolsWrapper **wrapperOut, void **sessionOut);
// Time-outs, preferences, log callback and log level from the registry.
// 0, 0xE000FE49 or 0xE0009580.
[[nodiscard]] DISKBROKER_API uint32_t vddkSetManagedTimeouts(soapVmToolsWrapper *wrapper, void *session);
// Logs out and disconnects (a null session skips both), then deletes the
// wrapper. 0, 0xE000FE49 (null wrapper) or 0xE0009542 (logout failed; the rest done).
[[nodiscard]] DISKBROKER_API uint32_t vddkDisconnectFromVCServer(soapVmToolsWrapper *wrapper, void *session);
// The library's last vSphere error. 0 or 0xE000FE49.
[[nodiscard]] DISKBROKER_API uint32_t vddkGetLastVIErr(wcstring &textOut, int *codeOut, soapVmToolsWrapper *wrapper, void *session);
// The product code for a vSphere fault number, or defaultResult.
[[nodiscard]] DISKBROKER_API uint32_t vddkConvertVIErrorToEngResult(int viError, uint32_t defaultResult);

// --- Snapshots ----------------------------------------------------------------
// Removes the snapshot after "RemoveSnapshotDelay" seconds with
// "RemoveSnapshotRetryCount" attempts (library result 53 counts as gone), drops
// it from the owner's orphan list, and releases the VM whatever the result.
[[nodiscard]] DISKBROKER_API uint32_t vddkRemoveSnapshot(const wcstring &snapshotName, const wcstring &vmName,
                                           const wcstring &serverName, const wcstring &userName,
                                           const wcstring &password, uint32_t port, bool removeChildren,
                                           soapVmToolsWrapper *wrapper, void *session, const wcstring &ownerKey);
// Removes the owner's orphaned snapshots of the VM, locks the VM, takes the
// snapshot and lists it under the owner key. A failed lock takes no snapshot
// and returns the lock's result; the lock stays until vddkRemoveSnapshot.
[[nodiscard]] DISKBROKER_API uint32_t vddkCreateSnapshot(const wcstring &vmName, const wcstring &snapshotName,
                                           const wcstring &description, const wcstring &serverName,
                                           const wcstring &userName, const wcstring &password, uint32_t port,
                                           bool flag1, bool flag2, soapVmToolsWrapper *wrapper, void *session,
                                           const wcstring &ownerKey, wcstring &vddkLogOut);

// --- VM queries and change tracking ---------------------------------------------
// Turns change tracking on where it is supported and off. 0 or 0xE000FE49 only.
[[nodiscard]] DISKBROKER_API uint32_t vddkEnableChangeTracking(const wcstring &vmName, soapVmToolsWrapper *wrapper, void *session);
// The guest's host name (filled also when the VM is not powered on).
// 0, 0xE000FE49, 0xE0008442, 0xE0009543, 0xE00095A3 (not powered on), 0xE0009599 (physical-mode disk).
[[nodiscard]] DISKBROKER_API uint32_t vddkGetVmFQDN(const wcstring &vmName, wcstring &fqdnOut, soapVmToolsWrapper *wrapper,
                                      void *session);
// Writes the library's backup-information document. 0 or 0xE0009581.
[[nodiscard]] DISKBROKER_API uint32_t vddkGetVmBackupInfo(const wcstring &vmName, const wcstring &outputFile,
                                            soapVmToolsWrapper *wrapper, void *session);
// Writes the library's document on a managed object. 0 or 0xE0009581.
[[nodiscard]] DISKBROKER_API uint32_t vddkGetManagedObjInfo(const wcstring &text1, const wcstring &text2, const wcstring &text3,
                                              const wcstring &outputFile, soapVmToolsWrapper *wrapper, void *session);
// The server's hosts; hostsOut untouched on failure. The session is not
// checked. 0, 0xE000FE49, 0xE0008442 or 0xE00095CE.
[[nodiscard]] DISKBROKER_API uint32_t vddkGetAllHosts(std::vector<vddkHostInfo> *hostsOut, soapVmToolsWrapper *wrapper,
                                        void *session);

// --- Tasks, events and access control ---------------------------------------------
// Locks (prepare) or releases the VM through VDDK's access preparation with
// "moRef=<vm>"; only a vCenter locks. vddkLogOut receives the cached VDDK log
// when preparation fails. Only the wrapper is checked for null.
// 0, 0xE000FE49, 0xE0008442, 0xE0009543, 0xE0009584, 0x200095BF, 0x200095C0.
[[nodiscard]] DISKBROKER_API uint32_t vddkSetupVMAccessControl(bool prepare, const wcstring &identity, const wcstring &vmName,
                                                 const wcstring &serverName, const wcstring &userName,
                                                 const wcstring &password, uint32_t port,
                                                 soapVmToolsWrapper *wrapper, void *session, wcstring &vddkLogOut);
// A task on the VM's host. 0, 0xE000FE49, 0xE0008442, 0xE0009543 or 0x200095C4.
[[nodiscard]] DISKBROKER_API uint32_t vddkCreateVMwareTask(wcstring &taskOut, const wcstring &vmName, const wcstring &text3,
                                             const wcstring &text4, bool flag, soapVmToolsWrapper *wrapper,
                                             void *session);
[[nodiscard]] DISKBROKER_API uint32_t vddkCancelVMwareTask(const wcstring &task, soapVmToolsWrapper *wrapper, void *session);
[[nodiscard]] DISKBROKER_API uint32_t vddkSetVMwareTaskState(const wcstring &task, const wcstring &state,
                                               soapVmToolsWrapper *wrapper, void *session);
// Silent on failure (0x200095C7): progress is reported often.
[[nodiscard]] DISKBROKER_API uint32_t vddkUpdateVMwareTaskProgress(const wcstring &task, int32_t percent,
                                                     soapVmToolsWrapper *wrapper, void *session);
// s3 and s4 may be null and are passed on as null.
[[nodiscard]] DISKBROKER_API uint32_t vddkSetVMwareTaskDescription(const wcstring &s1, const wcstring &s2, const wcstring *s3,
                                                     const wcstring *s4, soapVmToolsWrapper *wrapper,
                                                     void *session);
// Registers the extension s1 unless it already is. 0, 0xE000FE49 or 0x200095C2.
[[nodiscard]] DISKBROKER_API uint32_t vddkRegisterVSphereEventExtension(
    const wcstring &s1, const wcstring &s2, const wcstring &s3, const wcstring &s4, const wcstring &s5,
    const wcstring &s6, const wcstring &s7, const wcstring &s8, const wcstring &s9, const wcstring &s10,
    const wcstring &s11, const wcstring &s12, const wcstring &s13, int64_t number, soapVmToolsWrapper *wrapper,
    void *session);
// Removes the extension if registered. 0, 0xE000FE49 or 0x200095C3.
[[nodiscard]] DISKBROKER_API uint32_t vddkUnregisterVSphereEventExtension(const wcstring &key, soapVmToolsWrapper *wrapper,
                                                            void *session);

}  // extern "C"
