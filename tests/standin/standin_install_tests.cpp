// dbtest::InstallVddkStandin: the product layouts and install values, in a sandboxed HKLM.
#include <dbtest/registry_sandbox.h>

#include "standin_test_util.h"

namespace standin_test {
namespace {

std::wstring ReadInstallValue(const wchar_t *key, const wchar_t *value) {
    wchar_t buf[MAX_PATH];
    DWORD bytes = sizeof buf;
    if (RegGetValueW(HKEY_LOCAL_MACHINE, key, value, RRF_RT_REG_SZ, nullptr, buf, &bytes) != ERROR_SUCCESS) return L"";
    return buf;
}

TEST(StandinInstall, WritesEachProductLayoutAndItsInstallValue) {
    dbtest::RegistrySandbox sandbox;
    ASSERT_TRUE(sandbox.Ok()) << sandbox.Error();
    wchar_t temp[MAX_PATH];
    GetTempPathW(MAX_PATH, temp);
    const std::wstring root = std::wstring(temp) + L"standin-install-" + std::to_wstring(GetCurrentProcessId());
    std::string error;
    ASSERT_TRUE(dbtest::InstallVddkStandin(root, 0, dbtest::VddkVariant::MissingExport, &error)) << error;
    EXPECT_EQ(ReadInstallValue(L"Software\\Halvorn\\Stowline For Windows\\Stowline\\14.1\\Install", L"Path"), root);
    const std::wstring folder = dbtest::VddkStandinInstallFolder(root, 0);
    EXPECT_EQ(folder, root + L"\\VMware\\VixDiskLib\\bin\\");
    HMODULE disk = LoadLibraryW((folder + L"vixDiskLib.dll").c_str());
    ASSERT_NE(disk, nullptr);
    EXPECT_EQ(GetProcAddress(disk, dbtest::kVddkMissingExport), nullptr);
    FreeLibrary(disk);

    ASSERT_TRUE(dbtest::InstallVddkStandin(root, 1, dbtest::VddkVariant::Normal, &error)) << error;
    EXPECT_EQ(ReadInstallValue(L"SOFTWARE\\Tarrow\\Mappix", L"InstallDir64"), root);
    EXPECT_NE(GetFileAttributesW((root + L"\\Shared\\VDDK\\vixMntapi.dll").c_str()), INVALID_FILE_ATTRIBUTES);

    for (const wchar_t *f : {L"\\VMware\\VixDiskLib\\bin\\vixDiskLib.dll", L"\\VMware\\VixDiskLib\\bin\\vixMntapi.dll",
                             L"\\Shared\\VDDK\\vixDiskLib.dll", L"\\Shared\\VDDK\\vixMntapi.dll"})
        DeleteFileW((root + f).c_str());
    for (const wchar_t *d : {L"\\VMware\\VixDiskLib\\bin", L"\\VMware\\VixDiskLib", L"\\VMware", L"\\Shared\\VDDK", L"\\Shared", L""})
        RemoveDirectoryW((root + d).c_str());
}

}  // namespace
}  // namespace standin_test
