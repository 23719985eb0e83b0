#include <dbtest/vddk_install.h>

#include <dbtest/install_files.h>
#include <dbtest/product_keys.h>

#include <skclass_mini/handles.h>

namespace dbtest {
namespace {

template <typename Fn>
Fn Lookup(HMODULE module, const char *name) {
    return reinterpret_cast<Fn>(reinterpret_cast<void (*)()>(GetProcAddress(module, name)));
}

}  // namespace

std::wstring VddkStandinBuildFolder(VddkVariant variant, const wchar_t *dllName) {
    const bool disk = _wcsicmp(dllName, L"vixDiskLib.dll") == 0;
    if (variant == VddkVariant::NoGetOsInfo && !disk) return ExeFolder() + L"vddk-standin-no-getosinfo\\";
    if (variant == VddkVariant::MissingExport && disk) return ExeFolder() + L"vddk-standin-missing-export\\";
    return ExeFolder() + L"vddk-standin\\";
}

std::wstring VddkStandinInstallFolder(const std::wstring &root, int product) {
    return root + (product == 0 ? L"\\VMware\\VixDiskLib\\bin\\" : L"\\Shared\\VDDK\\");
}

bool InstallVddkStandin(const std::wstring &root, int product, VddkVariant variant, std::string *error) {
    const std::wstring folder = VddkStandinInstallFolder(root, product);
    if (!CreateFolders(folder.substr(0, folder.size() - 1))) return Fail(error, "cannot create the install folder");
    for (const wchar_t *dll : {L"vixDiskLib.dll", L"vixMntapi.dll"}) {
        const std::wstring from = VddkStandinBuildFolder(variant, dll) + dll;
        if (!CopyFileW(from.c_str(), (folder + dll).c_str(), FALSE)) return Fail(error, "cannot copy the stand-in DLL");
    }
    const wchar_t *key = product == 0 ? kMainInstallKey : kSiblingInstallKey;
    const wchar_t *value = product == 0 ? L"Path" : L"InstallDir64";
    skclass::UniqueHkey hkey;
    LONG rc = RegCreateKeyExW(HKEY_LOCAL_MACHINE, key, 0, nullptr, 0, KEY_SET_VALUE, nullptr, hkey.put(), nullptr);
    if (rc != ERROR_SUCCESS) return SetLastError(DWORD(rc)), Fail(error, "cannot create the install key");
    rc = RegSetValueExW(hkey.get(), value, 0, REG_SZ, reinterpret_cast<const BYTE *>(root.c_str()),
                        DWORD((root.size() + 1) * sizeof(wchar_t)));
    if (rc != ERROR_SUCCESS) return SetLastError(DWORD(rc)), Fail(error, "cannot write the install value");
    return true;
}

bool VddkSimControl::Load(HMODULE standinDiskLib) {
    if (!standinDiskLib) return false;
    bool all = true;
#define DBTEST_VDDKSIM_LOAD(name, ret, params) \
    name = Lookup<name##_fn>(standinDiskLib, #name); \
    all = all && name != nullptr;
    VDDKSIM_CONTROL_ENTRY_POINTS(DBTEST_VDDKSIM_LOAD)
#undef DBTEST_VDDKSIM_LOAD
    return all;
}

std::string VddkSimControl::LastArg(const char *key) const {
    const size_t needed = VddkSim_LastArg(key, nullptr, 0);
    if (needed == 0) return std::string();
    std::string value(needed, '\0');
    VddkSim_LastArg(key, &value[0], needed);
    value.resize(needed - 1);
    return value;
}

int VddkDiskLibExports::Load(HMODULE diskLib) {
    if (!diskLib) return 0;
    int found = 0;
#define DBTEST_VDDK_LOAD(name, ret, params, args) \
    name = Lookup<name##_fn>(diskLib, #name);     \
    found += name != nullptr;
    VDDK_DISKLIB_ENTRY_POINTS(DBTEST_VDDK_LOAD)
#undef DBTEST_VDDK_LOAD
    return found;
}

}  // namespace dbtest
