// vixDiskLibGlue: the run-time binding to VMware's vixDiskLib.dll. Finds the
// VDDK install folder in the registry, puts it on PATH, loads the library,
// binds every entry point by name and forwards calls with trace lines and
// per-handle read/write statistics.
//
// No lock: in the worker model every call arrives on the worker thread, except
// per-handle reads and writes, whose statistics only that handle's thread touches.
#pragma once
#include <stdint.h>

#include <diskbroker_export.h>
#include <skclass_mini/handles.h>
#include <skclass_mini/singleton.h>
#include <skclass_mini/strings.h>
#include <vixapi.h>
#include <vixreadwritestats.h>

class DISKBROKER_API vixDiskLibGlue {
public:
    // Results of Initialize besides 0.
    static constexpr uint32_t kInstallPathNotFound = 0xE0009573;
    static constexpr uint32_t kLibraryNotLoaded = 0xE0009584;

    // Binds at once (Initialize); a failed binding shows through OK() and the
    // unresolved-entry-point result of every forwarding method.
    vixDiskLibGlue();
    // VixDiskLib_Exit when the table is complete, then frees the library.
    // Not under the loader lock.
    ~vixDiskLibGlue();
    vixDiskLibGlue(const vixDiskLibGlue &) = delete;
    vixDiskLibGlue &operator=(const vixDiskLibGlue &) = delete;

    // The process-wide instance (base library singleton storage); null when
    // its creation is re-entered on the creating thread.
    static skclass::shared_ptr<vixDiskLibGlue> GetInstance();

    // Finds, prepares and loads the library afresh: 0, kInstallPathNotFound
    // or kLibraryNotLoaded. A missing export leaves only its pointer null.
    uint32_t Initialize();
    // True only when the library and all 33 entry points are bound.
    bool OK() const;
    // Puts directory in front of the process PATH unless PATH already begins
    // with it (a case-sensitive match at position 0; one further in does not count).
    void AddPathToEnv(const wcstring &directory);

    // Bit 0x20 of "VMware Agent debug log level": the masked trace lines.
    bool TraceEnabled() const { return (debugLogLevel & kTraceBit) != 0; }
    // Reads the log mask from the registry again (Connect, ConnectEx).
    void ReloadDebugLogLevel();

    // One forwarding method per entry point, named and typed like it: the
    // arguments go to the library unchanged and its result comes back; an
    // unresolved entry point logs and gives kVixUnresolvedEntryPoint (null
    // for texts, nothing for void).
#define VIXDISKLIBGLUE_DECLARE(name, ret, params, args) ret name params;
    VDDK_DISKLIB_ENTRY_POINTS(VIXDISKLIBGLUE_DECLARE)
#undef VIXDISKLIBGLUE_DECLARE

    // Read, Write and Close that also keep the handle's statistics (stats
    // may be null: then exactly the forms above). Read/Write record the
    // request before the call; Close logs the final line and empties stats.
    VixError VixDiskLib_Read(VixDiskLibHandle diskHandle, VixDiskLibSectorType startSector,
                             VixDiskLibSectorType numSectors, uint8 *readBuffer, _vixReadWriteStats *stats);
    VixError VixDiskLib_Write(VixDiskLibHandle diskHandle, VixDiskLibSectorType startSector,
                              VixDiskLibSectorType numSectors, const uint8 *writeBuffer, _vixReadWriteStats *stats);
    VixError VixDiskLib_Close(VixDiskLibHandle diskHandle, _vixReadWriteStats *stats);

    // The function table, one pointer per entry point in the library's order.
    struct FunctionTable {
#define VIXDISKLIBGLUE_POINTER(name, ret, params, args) name##_fn name = nullptr;
        VDDK_DISKLIB_ENTRY_POINTS(VIXDISKLIBGLUE_POINTER)
#undef VIXDISKLIBGLUE_POINTER
    };

    uint32_t debugLogLevel = 0;
    // The VDDK folder, with a trailing backslash: InitEx's libDir.
    wcstring installDir;
    skclass::UniqueModule moduleHandle;
    // False for a binding that shares VDDK with another owner (a disk handle's
    // own worker): its destruction then only unloads, it does not exit VDDK.
    bool exitLibraryOnDestroy = true;
    FunctionTable functions;

private:
    static constexpr uint32_t kTraceBit = 0x20;
    // Empties installDir and the table, rereads the log mask. Does not free.
    void Reset();
};
