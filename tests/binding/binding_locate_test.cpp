// Finding and loading the VDDK libraries: the install value of each product,
// the folders derived from it, PATH, and what a missing value or library gives.
#include <memory>

#include <vixdisklibglue.h>
#include <vixmntapiglue.h>

#include "binding_fixture.h"

namespace bindingtest {
namespace {

std::wstring Added(const wchar_t *glue, const std::wstring &directory) {
    return std::wstring(glue) + L"::AddPathToEnv() Added the path <" + directory + L"> to the env ";
}

// 1. The install value, with or without trailing backslashes, gives the product's folder.
// 2. PATH gets the folder, then the bin folder in front of it: bin first.
// 3. The mount binding, loaded second, changes nothing: the folder is a plain
//    prefix of bin, which PATH now begins with.
TEST_F(BindingTest, EachProductsInstallValueGivesItsFoldersAndBinFirstOnPath) {
    for (int product : {0, 1}) {
        Install(product);
        const wchar_t *valueKey = product == 0 ? kMainInstallKey : kSiblingInstallKey;
        const wchar_t *valueName = product == 0 ? L"Path" : L"InstallDir64";
        for (const std::wstring &value : {Root(), Root() + L"\\\\"}) {
            SCOPED_TRACE(::testing::Message() << "product " << product << ", value " << Utf8(value));
            ASSERT_EQ(registry.SetString(valueKey, valueName, value), ERROR_SUCCESS);
            const std::wstring before = CurrentPath();
            log.Clear();
            auto disk = std::make_unique<vixDiskLibGlue>();
            EXPECT_TRUE(disk->OK());
            EXPECT_EQ(disk->installDir, InstallDir(product));
            std::vector<std::wstring> expected = {Added(L"vixDiskLibGlue", InstallDir(product))};
            std::wstring path = InstallDir(product) + L";" + before;
            if (product == 0) {
                expected.push_back(Added(L"vixDiskLibGlue", BinDir(product)));
                path = BinDir(product) + L";" + path;
            }
            EXPECT_EQ(CurrentPath(), path);

            auto mount = std::make_unique<vixMntapiGlue>();
            EXPECT_EQ(mount->initializeResult, 0);
            EXPECT_TRUE(mount->OK());
            EXPECT_EQ(mount->installDir, InstallDir(product));
            EXPECT_EQ(CurrentPath(), path);
            EXPECT_EQ(log.Lines(), expected);
            mount.reset();
            disk.reset();
            SetEnvironmentVariableW(L"PATH", before.c_str());
        }
        ASSERT_EQ(registry.DeleteValue(valueKey, valueName), ERROR_SUCCESS);
    }
}

TEST_F(BindingTest, AddPathToEnvPutsTheFolderInFrontUnlessPathBeginsWithIt) {
    vixDiskLibGlue disk;  // nothing installed: only AddPathToEnv is used
    vixMntapiGlue mount;
    const struct {
        const wchar_t *path;
        const wchar_t *after;  // null: unchanged, nothing logged
    } cases[] = {
        {L"C:\\vddk;C:\\windows", nullptr},
        {L"C:\\vddk", nullptr},
        {L"C:\\windows;C:\\vddk", L"C:\\vddk;C:\\windows;C:\\vddk"},  // further in does not count
        {L"c:\\VDDK;C:\\windows", L"C:\\vddk;c:\\VDDK;C:\\windows"},  // case-sensitive
    };
    for (const bool diskGlue : {true, false}) {
        const wchar_t *glue = diskGlue ? L"vixDiskLibGlue" : L"vixMntapiGlue";
        for (const auto &c : cases) {
            SCOPED_TRACE(::testing::Message() << Utf8(glue) << " on " << Utf8(c.path));
            ASSERT_TRUE(SetEnvironmentVariableW(L"PATH", c.path));
            log.Clear();
            if (diskGlue)
                disk.AddPathToEnv(L"C:\\vddk");
            else
                mount.AddPathToEnv(L"C:\\vddk");
            EXPECT_EQ(CurrentPath(), c.after ? c.after : c.path);
            EXPECT_EQ(log.Lines(), c.after ? std::vector<std::wstring>{Added(glue, L"C:\\vddk")}
                                           : std::vector<std::wstring>{});
        }
    }
}

// The key missing, the value missing, or only the other product's value present.
TEST_F(BindingTest, MissingInstallValueIsLoggedAndGivesEachLibrarysResult) {
    const struct {
        const char *what;
        DWORD product;
        const wchar_t *key;
        const wchar_t *value;  // null: create the key only
    } cases[] = {
        {"no key", 0, nullptr, nullptr},
        {"key without value", 0, kMainInstallKey, nullptr},
        {"only the other products' value", 0, kSiblingInstallKey, L"InstallDir64"},
        {"only the main product's value", 1, kMainInstallKey, L"Path"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        ASSERT_EQ(registry.SetDword(kProductKey, L"Product", c.product), ERROR_SUCCESS);
        if (c.key) {
            ASSERT_EQ(c.value ? registry.SetString(c.key, c.value, Root()) : registry.CreateKey(c.key), ERROR_SUCCESS);
        }
        const std::wstring before = CurrentPath();
        log.Clear();
        vixDiskLibGlue disk;
        vixMntapiGlue mount;
        EXPECT_EQ(disk.Initialize(), 0xE0009573u);
        EXPECT_EQ(mount.initializeResult, static_cast<int32_t>(0xE0009589));
        EXPECT_FALSE(disk.OK());
        EXPECT_FALSE(mount.OK());
        EXPECT_TRUE(disk.installDir.empty());
        EXPECT_EQ(CurrentPath(), before);
        const std::wstring diskLine =
            L"vixDiskLibGlue::Initialize()  VMware Virtual Disk Development Kit install path not found.";
        const std::wstring mountLine =
            L"vixMntapiGlue::Initialize()  VMware Virtual Disk Development Kit install path not found.";
        EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{diskLine, mountLine, diskLine}));
        if (c.key) {
            ASSERT_EQ(RegDeleteTreeW(HKEY_LOCAL_MACHINE, c.key), ERROR_SUCCESS);  // inside the sandbox
        }
    }
}

TEST_F(BindingTest, LibraryMissingFromTheFolderIsLoggedWithThePathAndTheLoadError) {
    ASSERT_EQ(registry.SetString(kMainInstallKey, L"Path", Root()), ERROR_SUCCESS);
    vixDiskLibGlue disk;
    vixMntapiGlue mount;
    EXPECT_FALSE(disk.OK());
    EXPECT_FALSE(disk.moduleHandle);
    EXPECT_EQ(disk.installDir, InstallDir(0)) << "found before the load failed";
    EXPECT_EQ(mount.initializeResult, static_cast<int32_t>(0xE000958A));
    log.Clear();
    EXPECT_EQ(disk.Initialize(), 0xE0009584u);
    SetLastError(0xdeadbeef);
    const HMODULE none = LoadLibraryW((BinDir(0) + L"vixDiskLib.dll").c_str());
    ASSERT_EQ(none, nullptr);
    const std::wstring code = std::to_wstring(static_cast<int>(GetLastError()));
    EXPECT_TRUE(log.Contains(L"vixDiskLibGlue::Initialize()  Coud not load the library '" + BinDir(0) +
                             L"vixDiskLib.dll' Error code: " + code + L"."));
}

}  // namespace
}  // namespace bindingtest
