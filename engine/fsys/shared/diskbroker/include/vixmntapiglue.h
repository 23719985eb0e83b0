// vixMntapiGlue: the run-time binding to VMware's vixMntapi.dll, found and
// loaded as the disk library binding does (same registry value, same PATH
// rule). No log mask and no statistics; only CloseDiskSet is traced.
#pragma once
#include <stdint.h>

#include <diskbroker_export.h>
#include <skclass_mini/handles.h>
#include <skclass_mini/singleton.h>
#include <skclass_mini/strings.h>
#include <vixapi.h>

class DISKBROKER_API vixMntapiGlue {
public:
    static constexpr int32_t kInstallPathNotFound = static_cast<int32_t>(0xE0009589);
    static constexpr int32_t kLibraryNotLoaded = static_cast<int32_t>(0xE000958A);

    // Binds at once; the outcome stays in initializeResult.
    vixMntapiGlue();
    // VixMntapi_Exit when the table is complete, then frees the library.
    // Not under the loader lock.
    ~vixMntapiGlue();
    vixMntapiGlue(const vixMntapiGlue &) = delete;
    vixMntapiGlue &operator=(const vixMntapiGlue &) = delete;

    static skclass::shared_ptr<vixMntapiGlue> GetInstance();

    // 0, kInstallPathNotFound or kLibraryNotLoaded (also kept in initializeResult).
    int32_t Initialize();
    // True only when the library and all 15 entry points are bound.
    bool OK() const;
    void AddPathToEnv(const wcstring &directory);

#define VIXMNTAPIGLUE_DECLARE(name, ret, params, args) ret name params;
    VDDK_MNTAPI_ENTRY_POINTS(VIXMNTAPIGLUE_DECLARE)
#undef VIXMNTAPIGLUE_DECLARE

    struct FunctionTable {
#define VIXMNTAPIGLUE_POINTER(name, ret, params, args) name##_fn name = nullptr;
        VDDK_MNTAPI_ENTRY_POINTS(VIXMNTAPIGLUE_POINTER)
#undef VIXMNTAPIGLUE_POINTER
    };

    wcstring installDir;
    skclass::UniqueModule moduleHandle;
    // False for a binding that shares VDDK with another owner (a disk handle's
    // own worker): its destruction then only unloads, it does not exit VDDK.
    bool exitLibraryOnDestroy = true;
    int32_t initializeResult = 0;
    FunctionTable functions;
};
