// The registry keys (under HKEY_LOCAL_MACHINE) that the products' settings and
// the VDDK install location live under, as tests write them into a sandbox.
#pragma once

namespace dbtest {

// DWORD "Product" selects the host product (0 main, others the sibling).
inline constexpr wchar_t kProductKey[] = L"SOFTWARE\\Halvorn\\Common";
inline constexpr wchar_t kMainAgentKey[] = L"Software\\Halvorn\\Stowline For Windows\\Stowline\\Engine\\VMware Agent";
inline constexpr wchar_t kSiblingAgentKey[] = L"Software\\Tarrow\\Vaultry\\ORMZ\\Engine\\VMware Agent";
inline constexpr wchar_t kMainMiscKey[] = L"Software\\Halvorn\\Stowline For Windows\\Stowline\\Engine\\Misc";
inline constexpr wchar_t kSiblingMiscKey[] = L"Software\\Tarrow\\Vaultry\\ORMZ\\Engine\\Misc";
// Where VDDK is installed: "Path" for product 0, "InstallDir64" for the others.
inline constexpr wchar_t kMainInstallKey[] = L"Software\\Halvorn\\Stowline For Windows\\Stowline\\14.1\\Install";
inline constexpr wchar_t kSiblingInstallKey[] = L"SOFTWARE\\Tarrow\\Mappix";

}  // namespace dbtest
