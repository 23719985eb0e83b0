// Control interface of the VDDK stand-in (exported by the stand-in's vixDiskLib.dll
// under the VddkSim_ prefix). Tests reach it with GetProcAddress on the module the
// library under test loaded; dbtest/vddk_install.h has a typed loader.
//
// Function names are the exported VDDK names ("VixDiskLib_Read", "VixMntapi_OpenDisks").
// Strings are UTF-8. Every call is thread-safe.
//
// Memory disks: a path "memdisk://<name>?size=<bytes>[&seed=<n>][&verify=1]" opens a disk
// of <bytes> (rounded down to whole sectors) that reads the pattern below, with no file I/O.
// Writes go to a sink; with verify=1 each written sector is compared with the pattern and
// mismatching sectors are counted per <name> (VddkSim_MemDiskMismatches).
//   pattern: the 64-bit little-endian word at byte offset 8*i is (i * 0x9E3779B97F4A7C15) ^ seed
//
// Remote connections (non-null vmxSpec and serverName): a datastore path
// "[ds] folder/file.vmdk" maps to <remote root>\ds\folder\file.vmdk (VddkSim_SetRemoteRoot,
// else the environment variable VDDKSIM_REMOTE_ROOT).
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// A pattern word of a memory disk; shared by the stand-in and tests.
static inline uint64_t VddkSimPatternWord(uint64_t seed, uint64_t wordIndex) {
    return (wordIndex * 0x9E3779B97F4A7C15ull) ^ seed;
}

#define VDDKSIM_ANY_SECTOR UINT64_MAX

enum VddkSimLogKind { VDDKSIM_LOG = 0, VDDKSIM_WARNING = 1, VDDKSIM_PANIC = 2 };

// X(name, returnType, (parameters)) — the control entry points.
//
// ScriptResult: the next `count` calls of `function` return `result` without doing their work,
//   then real behaviour resumes. `pathFilter` (nullable) limits it to calls naming that path
//   (Open/Create/Unlink/...: the path argument; Read/Write: the path the handle was opened with);
//   [firstSector, lastSector] limits Read/Write to requests overlapping that range
//   (VDDKSIM_ANY_SECTOR for both: any). Scripts for one function queue in order of addition.
//   A scripted VixDiskLib_GetErrorText returns no text (null), whatever `result` says.
// SetLatency: every call of `function` spends `microseconds` before doing its work (0 removes).
// BlockNextCall: the next call of `function` stops at entry until VddkSim_Release(function).
// WaitBlocked: waits up to timeoutMs for a call of `function` to be held; 1 if it is.
// CallCount: calls of `function` since the last reset (scripted and blocked calls included).
// LastArg: copies the last value of `key` (with NUL) into buf if it fits; returns the length
//   needed including the NUL, 0 if the key was never recorded. Keys: "libDir", "configFile",
//   "configContent" (the config file's text as read at InitEx), "identity", "serverName",
//   "vmxSpec", "transportModes", "snapshotRef", "openFlags" (decimal), "openPath",
//   "user.<function>" for VixDiskLib_Open/Create/Read/Write: "DOMAIN\user" (or, where no name is
//   mapped, the SID as text) of the calling
//   thread's impersonation token, empty when the thread was not impersonating.
// OverlapCount: Open/Close calls that started while another Open/Close was running.
// TriggerLog: writes `text` as one line through the log, warning or panic callback of InitEx.
// BackgroundThreadId: the stand-in's own thread started by InitEx; 0 when not running.
// SetRemoteRoot: the folder (Windows path) under which datastores are folders; while none
//   is set, the environment variable VDDKSIM_REMOTE_ROOT gives it.
// AccessState: PrepareForAccess/EndAccess record per vmxSpec; returns 1 if prepared now.
// SetCleanupResult: what VixDiskLib_Cleanup reports next (default 0 and 0).
// OpenHandleCount: disk handles currently open.
// RecordCallers: with 0, Read and Write stop recording "user.<function>": asking Windows for
//   the thread's token is a wineserver round trip under Wine, dearer than a memory-disk read,
//   so benches that time reads switch it off. 1 (the default, also after Reset) records again.
// Reset: forgets scripts, latencies, blocks (releasing held calls), counts, arguments,
//   overlaps, memory-disk counters, access states and the remote root.
#define VDDKSIM_CONTROL_ENTRY_POINTS(X)                                                         \
    X(VddkSim_ScriptResult, int,                                                                \
      (const char *function, uint32_t count, uint64_t result, const char *pathFilter,           \
       uint64_t firstSector, uint64_t lastSector))                                              \
    X(VddkSim_SetLatency, int, (const char *function, uint32_t microseconds))                   \
    X(VddkSim_BlockNextCall, int, (const char *function))                                       \
    X(VddkSim_WaitBlocked, int, (const char *function, uint32_t timeoutMs))                    \
    X(VddkSim_Release, int, (const char *function))                                             \
    X(VddkSim_CallCount, uint64_t, (const char *function))                                      \
    X(VddkSim_LastArg, size_t, (const char *key, char *buf, size_t bufLen))                     \
    X(VddkSim_OverlapCount, uint64_t, (void))                                                   \
    X(VddkSim_TriggerLog, int, (int kind, const char *text))                                    \
    X(VddkSim_BackgroundThreadId, uint32_t, (void))                                             \
    X(VddkSim_MemDiskMismatches, uint64_t, (const char *name))                                  \
    X(VddkSim_MemDiskWrittenSectors, uint64_t, (const char *name))                              \
    X(VddkSim_SetRemoteRoot, int, (const char *folder))                                         \
    X(VddkSim_AccessState, int,                                                                 \
      (const char *vmxSpec, uint32_t *prepareCount, uint32_t *endCount))                        \
    X(VddkSim_SetCleanupResult, int, (uint32_t numCleanedUp, uint32_t numRemaining))            \
    X(VddkSim_OpenHandleCount, uint32_t, (void))                                                \
    X(VddkSim_RecordCallers, void, (int on))                                                    \
    X(VddkSim_Reset, void, (void))

#define VDDKSIM_DECLARE_FN_TYPE(name, ret, params) typedef ret(*name##_fn) params;
VDDKSIM_CONTROL_ENTRY_POINTS(VDDKSIM_DECLARE_FN_TYPE)
#undef VDDKSIM_DECLARE_FN_TYPE

#ifdef __cplusplus
}  // extern "C"
#endif
