// Test support for the VDDK stand-in: install it where the product's registry says
// VDDK lives, and reach its VddkSim_ control interface and its VDDK exports.
//
// The built stand-ins are found relative to the running test program:
// <exe folder>\vddk-standin\, ...\vddk-standin-no-getosinfo\, ...\vddk-standin-missing-export\.
#pragma once

#include <string>

#include <skclass_mini/win.h>
#include <vmware/vddk_api.h>

#include "vddksim.h"

namespace dbtest {

enum class VddkVariant {
    Normal,
    NoGetOsInfo,    // vixMntapi.dll without VixMntapi_GetOsInfo
    MissingExport,  // vixDiskLib.dll without VixDiskLib_Attach
};

// The export the MissingExport variant lacks.
constexpr const char kVddkMissingExport[] = "VixDiskLib_Attach";

// Folder holding the built DLL of `dllName` ("vixDiskLib.dll" / "vixMntapi.dll") for a variant.
std::wstring VddkStandinBuildFolder(VddkVariant variant, const wchar_t *dllName);

// Copies vixDiskLib.dll and vixMntapi.dll of `variant` under `root` and writes the
// install value into HKLM (whatever HKLM is for the calling test: sandbox it first).
//   product 0:     <root>\VMware\VixDiskLib\bin\*.dll, "Path"=<root> under
//                  HKLM\Software\Halvorn\Stowline For Windows\Stowline\14.1\Install
//   product other: <root>\Shared\VDDK\*.dll, "InstallDir64"=<root> under HKLM\SOFTWARE\Tarrow\Mappix
// Returns false with *error set (when given) on failure.
bool InstallVddkStandin(const std::wstring &root, int product, VddkVariant variant, std::string *error = nullptr);

// Where InstallVddkStandin puts the DLLs for `product`.
std::wstring VddkStandinInstallFolder(const std::wstring &root, int product);

// The control interface of a loaded stand-in vixDiskLib.dll (for example
// GetModuleHandleW(L"vixDiskLib.dll") after the library under test loaded it).
struct VddkSimControl {
#define DBTEST_VDDKSIM_MEMBER(name, ret, params) name##_fn name = nullptr;
    VDDKSIM_CONTROL_ENTRY_POINTS(DBTEST_VDDKSIM_MEMBER)
#undef DBTEST_VDDKSIM_MEMBER
    // True when every control entry point was found.
    bool Load(HMODULE standinDiskLib);
    // What the stand-in recorded last for key ("libDir", "configFile",
    // "user.<function>", ...); empty when nothing was.
    std::string LastArg(const char *key) const;
    // The next count calls of function, on any path and at any sector, return
    // result: VddkSim_ScriptResult without its filters. 1 when set.
    int ScriptResult(const char *function, uint32_t count, uint64_t result) const {
        return VddkSim_ScriptResult(function, count, result, nullptr, VDDKSIM_ANY_SECTOR, VDDKSIM_ANY_SECTOR);
    }
};

// Every VDDK disk-library export of a loaded vixDiskLib.dll, by its own name.
struct VddkDiskLibExports {
#define DBTEST_VDDK_MEMBER(name, ret, params, args) name##_fn name = nullptr;
    VDDK_DISKLIB_ENTRY_POINTS(DBTEST_VDDK_MEMBER)
#undef DBTEST_VDDK_MEMBER
    // Number of exports found (33 for a complete library).
    int Load(HMODULE diskLib);
};

}  // namespace dbtest
