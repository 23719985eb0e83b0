// Test support for the web-services library stand-in: install it where the
// product's registry says the library lives, and reach its RavelSim_ control
// interface. The built stand-ins are found beside the running program:
// <exe folder>\ravelkit-standin\ and ...\ravelkit-standin-no-hosts\.
#pragma once

#include <string>

#include <skclass_mini/win.h>

#include "ravelsim.h"

namespace dbtest {

enum class RavelkitVariant {
    Normal,
    NoGetAllHosts,  // lacks vmcGetAllHosts
};

// The install key the library is found through, for products other than 0.
inline constexpr wchar_t kRavelkitSiblingInstallKey[] = L"Software\\Tarrow\\Vaultry\\CurrentVersion";

// Where the library file goes for `product`:
//   0: <root>\ravelkit.dll ("Path"=<root> under the main product's 14.1\Install key)
//   1: <root>\vaultry\bin\vyravelkit.dll ("INSTALLDIR"=<root> under kRavelkitSiblingInstallKey)
//   other: <root>\ravelkit.dll ("INSTALLDIR"=<root> under kRavelkitSiblingInstallKey)
std::wstring RavelkitInstallPath(const std::wstring &root, int product);

// Copies the variant's DLL there and writes the install value into HKLM
// (sandbox it first), with `installValue` in place of root when given (e.g.
// with trailing backslashes). False with *error set on failure.
bool InstallRavelkitStandin(const std::wstring &root, int product, RavelkitVariant variant,
                            std::string *error = nullptr, const std::wstring *installValue = nullptr);

// The control interface of a loaded stand-in ravelkit.dll.
struct RavelSimControl {
#define DBTEST_RAVELSIM_MEMBER(name, ret, params) name##_fn name = nullptr;
    RAVELSIM_CONTROL_ENTRY_POINTS(DBTEST_RAVELSIM_MEMBER)
#undef DBTEST_RAVELSIM_MEMBER
    // True when every control entry point was found.
    bool Load(HMODULE standin);
    // RavelSim_Query as a string (empty for an unknown key).
    std::string Query(const std::string &key) const;
    // Scripts `results` for the next calls of entry.
    void Script(const char *entry, std::initializer_list<int> results) const;
};

}  // namespace dbtest
