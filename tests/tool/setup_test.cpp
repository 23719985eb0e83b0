// Which VDDK the program makes the library load, in a private HKLM, and the
// file helpers the images rely on.
#include <string>

#include <gtest/gtest.h>

#include <dbtest/product_keys.h>
#include <dbtest/registry_sandbox.h>
#include <dbtest/temp_dir.h>

#include "errors.h"
#include "files.h"
#include "vddk_setup.h"

namespace {

using namespace dbtool;

using dbtest::kMainInstallKey;
using dbtest::kProductKey;
using dbtest::kSiblingInstallKey;

class VddkSetupTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(registry.Ok()) << registry.Error(); }

    std::wstring Registered(const wchar_t *key = kMainInstallKey, const wchar_t *value = L"Path") {
        wchar_t text[1024] = L"";
        DWORD bytes = sizeof text;
        if (RegGetValueW(HKEY_LOCAL_MACHINE, key, value, RRF_RT_REG_SZ, nullptr, text, &bytes) != ERROR_SUCCESS)
            return L"<none>";
        return text;
    }
    // A folder laid out like a real install (the DLL need not load here).
    std::wstring FakeInstall() {
        CreateFolders(install.Path() + L"\\VMware\\VixDiskLib\\bin");
        WriteWholeFile(install.Path() + L"\\VMware\\VixDiskLib\\bin\\vixDiskLib.dll", "MZ");
        return install.Path();
    }
    std::wstring StandinRoot() { return ExeFolder() + L"vddk-standin-install"; }

    dbtest::RegistrySandbox registry;
    dbtest::TempDir install;
};

TEST_F(VddkSetupTest, AutoWithNothingRegisteredInstallsTheStandinAndKeepsTheValue) {
    {
        VddkSetup setup(VddkChoice::Auto);
        EXPECT_TRUE(setup.UsesStandin());
        EXPECT_EQ(Registered(), StandinRoot());
        EXPECT_TRUE(PathExists(StandinRoot() + L"\\VMware\\VixDiskLib\\bin\\vixDiskLib.dll"));
        EXPECT_TRUE(PathExists(StandinRoot() + L"\\VMware\\VixDiskLib\\bin\\vixMntapi.dll"));
    }
    EXPECT_EQ(Registered(), StandinRoot());
}

TEST_F(VddkSetupTest, AutoUsesARegisteredInstallAsItIs) {
    ASSERT_EQ(registry.SetString(kMainInstallKey, L"Path", FakeInstall() + L"\\"), ERROR_SUCCESS);
    VddkSetup setup(VddkChoice::Auto);
    EXPECT_FALSE(setup.UsesStandin());
    EXPECT_EQ(setup.Description(), L"VDDK at " + install.Path());
    EXPECT_EQ(Registered(), install.Path() + L"\\");
}

TEST_F(VddkSetupTest, AutoReplacesAValuePointingAtNothing) {
    ASSERT_EQ(registry.SetString(kMainInstallKey, L"Path", install.Path() + L"\\gone"), ERROR_SUCCESS);
    VddkSetup setup(VddkChoice::Auto);
    EXPECT_TRUE(setup.UsesStandin());
    EXPECT_EQ(Registered(), StandinRoot());
}

TEST_F(VddkSetupTest, StandinOverARealInstallPutsTheOldValueBack) {
    ASSERT_EQ(registry.SetString(kMainInstallKey, L"Path", FakeInstall()), ERROR_SUCCESS);
    {
        VddkSetup setup(VddkChoice::Standin);
        EXPECT_TRUE(setup.UsesStandin());
        EXPECT_EQ(Registered(), StandinRoot());
    }
    EXPECT_EQ(Registered(), install.Path());
}

TEST_F(VddkSetupTest, InstalledWithoutAnInstallIsAnError) {
    try {
        VddkSetup setup(VddkChoice::Installed);
        FAIL() << "no error";
    } catch (const Failure &e) {
        EXPECT_NE(e.Message().find(L"is not set"), std::wstring::npos) << e.Message().c_str();
    }
    ASSERT_EQ(registry.SetString(kMainInstallKey, L"Path", install.Path()), ERROR_SUCCESS);
    try {
        VddkSetup setup(VddkChoice::Installed);
        FAIL() << "no error";
    } catch (const Failure &e) {
        EXPECT_NE(e.Message().find(L"holds no vixDiskLib.dll"), std::wstring::npos);
    }
    EXPECT_EQ(Registered(), install.Path());
}

TEST_F(VddkSetupTest, SiblingProductUsesItsOwnKeyAndLayout) {
    ASSERT_EQ(registry.SetDword(kProductKey, L"Product", 1), ERROR_SUCCESS);
    VddkSetup setup(VddkChoice::Auto);
    EXPECT_EQ(Registered(kSiblingInstallKey, L"InstallDir64"), StandinRoot());
    EXPECT_EQ(Registered(), L"<none>");
    EXPECT_TRUE(PathExists(StandinRoot() + L"\\Shared\\VDDK\\vixDiskLib.dll"));
}

TEST(Files, PositionedWritesAndAShortImage) {
    dbtest::TempDir dir;
    File file = File::Create(dir.File(L"image"), false);
    file.SetSize(1 << 20);
    file.WriteAt(4096, "abc", 3);
    char back[3] = {};
    file.ReadAt(4096, back, 3);
    EXPECT_EQ(std::string(back, 3), "abc");
    EXPECT_EQ(file.Size(), 1u << 20);
    char zero[2] = {1, 1};
    file.ReadAt(0, zero, 2);
    EXPECT_EQ(zero[0] | zero[1], 0);
    EXPECT_THROW(file.ReadAt((1 << 20) - 1, back, 2), Failure);
    file.Close();
    EXPECT_THROW(File::Create(dir.File(L"image"), false), Failure);
    EXPECT_THROW(File::OpenRead(dir.File(L"missing")), Failure);
}

TEST(Files, TreesAndTemporaryPaths) {
    dbtest::TempDir dir;
    CreateFolders(dir.File(L"a\\b\\c"));
    WriteWholeFile(dir.File(L"a\\b\\c\\f"), "x");
    DeleteTree(dir.File(L"a"));
    EXPECT_FALSE(PathExists(dir.File(L"a")));
    std::wstring kept;
    {
        TempPath temp(L".xml");
        kept = temp.Path();
        WriteWholeFile(kept, "y");
        EXPECT_TRUE(PathExists(kept));
    }
    EXPECT_FALSE(PathExists(kept));
    EXPECT_TRUE(IsUrlPath(L"memdisk://x?size=512"));
    EXPECT_EQ(FullPath(L"memdisk://x?size=512"), L"memdisk://x?size=512");
}

}  // namespace
