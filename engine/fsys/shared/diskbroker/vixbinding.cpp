// Finding and loading the VDDK libraries, shared by both bindings.
#include "vixbinding.h"

#include <new>
#include <vector>

#include <skclass_mini/configuration.h>
#include <skclass_mini/product.h>

namespace vixbinding {
namespace {

const wchar_t kProductName[] = L"VMware Virtual Disk Development Kit";

// The install value of the product (main product: the product's own install
// key; every other value, the sibling included: the mapping services key).
bool ReadInstallValue(int product, wcstring &value) {
    const bool mainProduct = product == 0;
    Configuration config;
    if (!config.Open(Configuration::OpenExisting,
                     mainProduct ? L"Software\\Halvorn\\Stowline For Windows\\Stowline\\14.1\\Install"
                                 : L"SOFTWARE\\Tarrow\\Mappix",
                     wcstring(), Configuration::ReadWrite))
        return false;
    return config.Load(mainProduct ? L"Path" : L"InstallDir64", value);
}

wcstring WithoutTrailingBackslashes(wcstring value) {
    while (!value.empty() && value.back() == L'\\') value.pop_back();
    return value;
}

}  // namespace

uint32_t LocateAndLoad(const LibraryDescription &description, wcstring &installDir, skclass::UniqueModule &module) {
    const wcstring prefix = wcstring(description.className) + L"::Initialize() ";
    const int product = CMS_GetProd();
    wcstring value;
    if (!ReadInstallValue(product, value)) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"%s %s install path not found.", prefix.c_str(), kProductName);
        return description.installPathNotFound;
    }
    const wcstring root = WithoutTrailingBackslashes(value);
    wcstring binDir;
    if (product == 0) {
        installDir = root + L"\\VMware\\VixDiskLib\\";
        binDir = installDir + L"bin\\";
    } else {
        installDir = root + L"\\Shared\\VDDK\\";
        binDir = installDir;
    }
    // Each call puts its folder in front: bin ends up first, where VDDK's own
    // dependent DLLs are found.
    AddPathToEnv(description.className, installDir);
    AddPathToEnv(description.className, binDir);

    const wcstring libraryPath = binDir + description.dllName;
    module.reset(LoadLibraryW(libraryPath.c_str()));
    if (!module) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"%s Coud not load the library '%s' Error code: %d.", prefix.c_str(),
                     libraryPath.c_str(), static_cast<int>(GetLastError()));
        return description.libraryNotLoaded;
    }
    return 0;
}

void AddPathToEnv(const wchar_t *className, const wcstring &directory) {
    wchar_t probe[1] = {0};
    const DWORD needed = GetEnvironmentVariableW(L"PATH", probe, 1);
    std::vector<wchar_t> path;
    try {
        path.assign(static_cast<size_t>(needed) + directory.size() + 1, L'\0');
    } catch (const std::bad_alloc &) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"%s::AddPathToEnv() Unable to add the path <%s> to the env ", className,
                     directory.c_str());
        return;
    }
    GetEnvironmentVariableW(L"PATH", path.data(), static_cast<DWORD>(path.size()));
    const std::wstring current(path.data());
    // Only a match at the very start counts: a folder further down PATH is put
    // in front again so that ours wins the search.
    if (current.compare(0, directory.size(), directory) == 0) return;
    const std::wstring extended = directory + L";" + current;
    SetEnvironmentVariableW(L"PATH", extended.c_str());
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"%s::AddPathToEnv() Added the path <%s> to the env ", className,
                 directory.c_str());
}

}  // namespace vixbinding
