// Finding and loading the VDDK libraries: the install value of each product,
// the folders derived from it, PATH, and what a missing value or library gives.
#include <memory>

#include <vixdisklibglue.h>
#include <vixmntapiglue.h>

#include "binding_fixture.h"

namespace bindingtest {
namespace {

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
            auto disk = std::make_unique<vixDiskLibGlue>();
            EXPECT_TRUE(disk->OK());
            EXPECT_EQ(disk->installDir, InstallDir(product));
            std::wstring path = InstallDir(product) + L";" + before;
            if (product == 0) path = BinDir(product) + L";" + path;
            EXPECT_EQ(CurrentPath(), path);

            auto mount = std::make_unique<vixMntapiGlue>();
            EXPECT_EQ(mount->initializeResult, 0);
            EXPECT_TRUE(mount->OK());
            EXPECT_EQ(mount->installDir, InstallDir(product));
            EXPECT_EQ(CurrentPath(), path);
            mount.reset();
            disk.reset();
            SetEnvironmentVariableW(L"PATH", before.c_str());
        }
        ASSERT_EQ(registry.DeleteValue(valueKey, valueName), ERROR_SUCCESS);
    }
}

// No install key, or (for the main product) only the other product's value.
TEST_F(BindingTest, MissingInstallValueGivesEachLibrarysResult) {
    for (const bool siblingValue : {false, true}) {
        SCOPED_TRACE(siblingValue ? "only the other product's value" : "no key");
        if (siblingValue) {
            ASSERT_EQ(registry.SetString(kSiblingInstallKey, L"InstallDir64", Root()), ERROR_SUCCESS);
        }
        const std::wstring before = CurrentPath();
        vixDiskLibGlue disk;
        vixMntapiGlue mount;
        EXPECT_EQ(disk.Initialize(), 0xE0009573u);
        EXPECT_EQ(mount.initializeResult, static_cast<int32_t>(0xE0009589));
        EXPECT_FALSE(disk.OK());
        EXPECT_FALSE(mount.OK());
        EXPECT_TRUE(disk.installDir.empty());
        EXPECT_EQ(CurrentPath(), before);
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
