#include <dbtest/ravelkit_install.h>

#include <vector>

#include <dbtest/install_files.h>
#include <dbtest/product_keys.h>
#include <skclass_mini/handles.h>

namespace dbtest {

std::wstring RavelkitInstallPath(const std::wstring &root, int product) {
    return root + (product == 1 ? L"\\vaultry\\bin\\vyravelkit.dll" : L"\\ravelkit.dll");
}

bool InstallRavelkitStandin(const std::wstring &root, int product, RavelkitVariant variant, std::string *error,
                            const std::wstring *installValue) {
    const std::wstring target = RavelkitInstallPath(root, product);
    if (!CreateFolders(target.substr(0, target.find_last_of(L'\\'))))
        return Fail(error, "cannot create the install folder");
    const std::wstring from = ExeFolder() +
                              (variant == RavelkitVariant::NoGetAllHosts ? L"ravelkit-standin-no-hosts\\"
                                                                         : L"ravelkit-standin\\") +
                              L"ravelkit.dll";
    if (!CopyFileW(from.c_str(), target.c_str(), FALSE)) return Fail(error, "cannot copy the stand-in DLL");
    const wchar_t *key = product == 0 ? kMainInstallKey : kRavelkitSiblingInstallKey;
    const wchar_t *value = product == 0 ? L"Path" : L"INSTALLDIR";
    const std::wstring &text = installValue ? *installValue : root;
    skclass::UniqueHkey hkey;
    LONG rc = RegCreateKeyExW(HKEY_LOCAL_MACHINE, key, 0, nullptr, 0, KEY_SET_VALUE, nullptr, hkey.put(), nullptr);
    if (rc != ERROR_SUCCESS) return SetLastError(DWORD(rc)), Fail(error, "cannot create the install key");
    rc = RegSetValueExW(hkey.get(), value, 0, REG_SZ, reinterpret_cast<const BYTE *>(text.c_str()),
                        DWORD((text.size() + 1) * sizeof(wchar_t)));
    if (rc != ERROR_SUCCESS) return SetLastError(DWORD(rc)), Fail(error, "cannot write the install value");
    return true;
}

bool RavelSimControl::Load(HMODULE standin) {
    if (!standin) return false;
    bool all = true;
#define DBTEST_RAVELSIM_LOAD(name, ret, params)                                                        \
    name = reinterpret_cast<name##_fn>(reinterpret_cast<void (*)()>(GetProcAddress(standin, #name))); \
    all = all && name != nullptr;
    RAVELSIM_CONTROL_ENTRY_POINTS(DBTEST_RAVELSIM_LOAD)
#undef DBTEST_RAVELSIM_LOAD
    return all;
}

std::string RavelSimControl::Query(const std::string &key) const {
    const size_t needed = RavelSim_Query(key.c_str(), nullptr, 0);
    if (needed == 0) return std::string();
    std::vector<char> text(needed);
    RavelSim_Query(key.c_str(), text.data(), text.size());
    return std::string(text.data());
}

void RavelSimControl::Script(const char *entry, std::initializer_list<int> results) const {
    RavelSim_ScriptResults(entry, results.begin(), static_cast<uint32_t>(results.size()));
}

}  // namespace dbtest
