// Control interface of the web-services library stand-in (exported by the
// stand-in's ravelkit.dll under the RavelSim_ prefix). Tests reach it with
// GetProcAddress on the module the library under test loaded;
// dbtest/ravelkit_install.h has a typed loader. Strings are UTF-8; every call is
// thread-safe. Entry names are the library's export names ("vmcRemoveSnapshot").
//
// ScriptResults: the next `count` calls of `entry` return results[0], results[1], ...
//   in turn without doing their work (a void entry only counts them); scripts
//   for one entry queue in order of addition. RAVELSIM_REAL in the sequence lets
//   that call do its real work (to fail a later call of the same entry).
// SetLastError: what vmcGetLastVIError reports next (text and vSphere fault number);
//   failures of the stand-in's own also set it.
// SetLatency: every call of `entry` spends `microseconds` before its work (0 removes).
// CallCount: calls of `entry` since the last reset, scripted ones included.
// Query: copies a text about the stand-in's state into buf if it fits; returns the
//   length needed including the NUL, 0 for an unknown key. Keys:
//     "journal"            every call since the reset, one line each:
//                          "<entry> thread=<id> (<arguments>)"; a password shows as "<hidden>"
//     "timeouts", "preferences"   the last vmcSetTimeouts / vmcSetPreferences numbers, comma separated
//     "connectTimeout", "acceptAnyCertificate", "url", "logLevel", "user"   of the last session
//     "sessions"           sessions open now (connected, not yet disconnected)
//     "snapshots:<vm>"     the VM's snapshot names, comma separated
//     "changeTracking:<vm>"   "1" or "0"
//     "powerState:<vm>"    the VM's power state
//     "disks:<vm>"         the VM's disk paths, '|' separated
//     "extensions"         registered extension keys, comma separated
//     "task:<id>"          "<state>|<progress>|<description>|<object>|<object type>"
//     "server"             the server name the inventory answers to
// EmitLog: calls the logger installed with vmcSetLogger with format "%s" and text.
// LoadInventory: replaces the inventory with an XML file's (0, or -1 with the old one kept).
// SetStateFile: the server's state lives in an inventory file across processes: an
//   existing file is loaded (-1 if it cannot be), a missing one is written from the
//   current inventory; afterwards every change is written back to it. Accounts are
//   never written (no password in a file); a file without accounts has the built-in one.
// Reset: the built-in inventory, no state file; forgets scripts, latencies, counts, the journal,
//   the last error and the logger. Open sessions stay valid.
//
// Inventory file:
//   <inventory server="vcenter.example" type="VirtualCenter|HostAgent">
//     <account user="..." password="..."/>
//     <host name="esx-01.example" moRef="host-12" major="7" minor="0"/>
//     <vm name="web01" moRef="vm-42" host="host-12" powerState="poweredOn"
//         guestHostName="web01.example" diskMode="persistent" hardwareVersion="15"
//         ctSupported="1" ctEnabled="0" hostText="(optional: the details' host text as given)">
//       <disk path="memdisk://web01-0?size=67108864&amp;seed=42"/>
//       <snapshot name="nightly"/>
//     </vm>
//     <extension key="com.example.backup"/>
//     <task id="task-1" state="running" progress="10" description="..."/>
//   </inventory>
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define RAVELSIM_REAL (-2147483647 - 1)

#define RAVELSIM_CONTROL_ENTRY_POINTS(X)                                              \
    X(RavelSim_ScriptResults, int, (const char *entry, const int *results, uint32_t count)) \
    X(RavelSim_SetLastError, void, (const char *text, int code))                      \
    X(RavelSim_SetLatency, int, (const char *entry, uint32_t microseconds))           \
    X(RavelSim_CallCount, uint64_t, (const char *entry))                              \
    X(RavelSim_Query, size_t, (const char *key, char *buf, size_t bufLen))            \
    X(RavelSim_EmitLog, int, (const char *text))                                      \
    X(RavelSim_LoadInventory, int, (const wchar_t *path))                             \
    X(RavelSim_SetStateFile, int, (const wchar_t *path))                              \
    X(RavelSim_Reset, void, (void))

#define RAVELSIM_DECLARE_FN_TYPE(name, ret, params) typedef ret(*name##_fn) params;
RAVELSIM_CONTROL_ENTRY_POINTS(RAVELSIM_DECLARE_FN_TYPE)
#undef RAVELSIM_DECLARE_FN_TYPE

#ifdef __cplusplus
}
#endif
