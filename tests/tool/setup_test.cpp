// Which VDDK the program makes the library load, in the stand-in machine's
// registry, and the file helpers the images rely on.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <dbtest/product_keys.h>
#include <dbtest/registry_sandbox.h>
#include <dbtest/temp_dir.h>
#include <skclass_mini/handles.h>

#include "errors.h"
#include "files.h"
#include "standin_machine.h"
#include "tool_checks.h"
#include "vddk_setup.h"

namespace {

using namespace dbtool;
using tooltest::ErrorOf;
using tooltest::Holds;

using dbtest::kMainInstallKey;

class VddkSetupTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(registry.Ok()) << registry.Error();
        ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, registry.RootPath().c_str(), 0, KEY_READ, machine.put()), ERROR_SUCCESS);
    }
    std::wstring Registered(const wchar_t *key = kMainInstallKey, const wchar_t *value = L"Path") {
        return dbtest::ReadRegistryString(HKEY_LOCAL_MACHINE, key, value);
    }
    // A folder laid out like a real install (the DLL need not load here).
    std::wstring FakeInstall() {
        CreateFolders(install.Path() + L"\\VMware\\VixDiskLib\\bin");
        WriteWholeFile(install.Path() + L"\\VMware\\VixDiskLib\\bin\\vixDiskLib.dll", "MZ");
        return install.Path();
    }
    std::wstring StandinRoot() { return ExeFolder() + L"vddk-standin-install"; }
    // The install value as stored in the registry, below any redirection of HKLM.
    std::wstring InSandbox(const std::wstring &key = kMainInstallKey, const wchar_t *value = L"Path") {
        return dbtest::ReadRegistryString(HKEY_CURRENT_USER, registry.RootPath() + L"\\" + key, value);
    }
    // The same in the stand-in machine, which the sandbox keeps inside itself.
    std::wstring InStandinMachine(const std::wstring &key = kMainInstallKey, const wchar_t *value = L"Path") {
        return InSandbox(std::wstring(StandinMachine::kKeyPath) + L"\\" + key, value);
    }

    dbtest::RegistrySandbox registry;
    skclass::UniqueHkey machine;  // the sandbox, this test's HKLM: the stand-in machine must lead back to it
    dbtest::TempDir install;
};

TEST_F(VddkSetupTest, TheStandinMachineIsACopyOfTheProductSettingsMadeOnceAndWhole) {
    ASSERT_EQ(registry.SetString(dbtest::kMainMiscKey, L"Data Path", L"C:\\elsewhere"), ERROR_SUCCESS);
    // A copy cut short by a killed run (the install value alone) is made again.
    ASSERT_EQ(registry.SetString(std::wstring(StandinMachine::kKeyPath) + L"\\" + kMainInstallKey, L"Path", L"C:\\x"),
              ERROR_SUCCESS);
    {
        VddkSetup setup(VddkChoice::Standin, machine.get());
        EXPECT_EQ(Registered(dbtest::kMainMiscKey, L"Data Path"), L"C:\\elsewhere");
    }
    ASSERT_EQ(registry.SetString(dbtest::kMainMiscKey, L"Data Path", L"C:\\later"), ERROR_SUCCESS);
    VddkSetup setup(VddkChoice::Standin, machine.get());
    EXPECT_EQ(Registered(dbtest::kMainMiscKey, L"Data Path"), L"C:\\elsewhere");
}

TEST_F(VddkSetupTest, TheStandinMachineKeepsWhatTheLibraryWroteAndRefreshesTheInstallValue) {
    const std::wstring list = std::wstring(dbtest::kMainAgentKey) + L"\\VmSnapshots\\vcenter.example\\web01";
    {
        VddkSetup setup(VddkChoice::Standin, machine.get());
        skclass::UniqueHkey key;  // written as the library writes: through HKLM
        ASSERT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, list.c_str(), 0, nullptr, 0, KEY_SET_VALUE, nullptr, key.put(),
                                  nullptr),
                  ERROR_SUCCESS);
        ASSERT_EQ(RegSetValueExW(key.get(), L"x", 0, REG_SZ, reinterpret_cast<const BYTE *>(L"y"), 4), ERROR_SUCCESS);
    }
    EXPECT_EQ(Registered(list.c_str(), L"x"), L"<none>");  // HKLM is the sandbox again
    EXPECT_EQ(InStandinMachine(list, L"x"), L"y");
    const std::wstring kept = std::wstring(StandinMachine::kKeyPath) + L"\\" + kMainInstallKey;
    ASSERT_EQ(registry.SetString(kept, L"Path", L"C:\\moved"), ERROR_SUCCESS);
    VddkSetup setup(VddkChoice::Standin, machine.get());
    EXPECT_EQ(Registered(list.c_str(), L"x"), L"y");
    EXPECT_EQ(Registered(), StandinRoot());
}

// What is registered before a set-up and which VDDK is asked for: the stand-in
// is seen only by this process while the set-up lives and is kept in the
// stand-in machine; the machine's own value is left as it was.
struct Registration {
    const char *what;
    const wchar_t *value;  // appended to the install folder; nullptr: nothing registered
    bool install;          // the folder is laid out like a real install
    VddkChoice choice;
    bool standin;
};
const Registration kRegistrations[] = {
    {"nothing registered, auto: the stand-in", nullptr, false, VddkChoice::Auto, true},
    {"a real install, auto: used as it is", L"\\", true, VddkChoice::Auto, false},
    {"a real install, the stand-in asked for", L"", true, VddkChoice::Standin, true},
};
void PrintTo(const Registration &r, std::ostream *out) { *out << r.what; }

class VddkRegistrationTest : public VddkSetupTest, public ::testing::WithParamInterface<Registration> {};

TEST_P(VddkRegistrationTest, TheStandinIsSeenOnlyByThisProcessAndTheValueLeftAlone) {
    const Registration &r = GetParam();
    SCOPED_TRACE(r.what);
    if (r.install) FakeInstall();
    const std::wstring value = r.value ? install.Path() + r.value : L"<none>";
    if (r.value) {
        ASSERT_EQ(registry.SetString(kMainInstallKey, L"Path", value), ERROR_SUCCESS);
    }
    {
        VddkSetup setup(r.choice, machine.get());
        EXPECT_EQ(setup.UsesStandin(), r.standin);
        EXPECT_EQ(Registered(), r.standin ? StandinRoot() : value);  // as this process sees HKLM
        EXPECT_EQ(InSandbox(), value);                                 // the registry itself
        if (!r.standin) {
            EXPECT_EQ(setup.Description(), L"VDDK at " + install.Path());
        }
    }
    EXPECT_EQ(Registered(), value);
    if (!r.standin) return;
    EXPECT_EQ(InStandinMachine(), StandinRoot());  // kept for the next run
    EXPECT_TRUE(PathExists(StandinRoot() + L"\\VMware\\VixDiskLib\\bin\\vixDiskLib.dll"));
    EXPECT_TRUE(PathExists(StandinRoot() + L"\\VMware\\VixDiskLib\\bin\\vixMntapi.dll"));
}

INSTANTIATE_TEST_SUITE_P(Registrations, VddkRegistrationTest, ::testing::ValuesIn(kRegistrations));

TEST_F(VddkSetupTest, InstalledRefusesWhatIsNoInstall) {
    { VddkSetup standin(VddkChoice::Standin, machine.get()); }  // lays the stand-in out
    const struct {
        std::wstring value;  // empty: nothing registered
        const wchar_t *error;
    } cases[] = {{L"", L"is not set"},
                 {install.Path(), L"holds no vixDiskLib.dll"},
                 {StandinRoot(), L"is this program's stand-in"}};
    for (const auto &c : cases) {
        if (!c.value.empty()) {
            ASSERT_EQ(registry.SetString(kMainInstallKey, L"Path", c.value), ERROR_SUCCESS);
        }
        EXPECT_TRUE(Holds(ErrorOf<Failure>([&] { VddkSetup setup(VddkChoice::Installed, machine.get()); }), c.error));
        EXPECT_EQ(Registered(), c.value.empty() ? L"<none>" : c.value);
    }
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

TEST(Files, AllZeroSeesEveryByte) {
    std::vector<uint8_t> bytes(4097, 0);
    EXPECT_TRUE(AllZero(bytes.data(), bytes.size()));
    EXPECT_TRUE(AllZero(bytes.data(), 0));
    for (size_t at : {size_t(0), size_t(1), size_t(2048), size_t(4096)}) {
        bytes[at] = 1;
        EXPECT_FALSE(AllZero(bytes.data(), bytes.size())) << "non-zero byte at " << at;
        bytes[at] = 0;
    }
}

// The stand-in and the live web-services client are copied to one place: a
// run of the other kind holding its copy loaded there must stop this run, not
// have it load the wrong library.
TEST(Files, ALibraryLoadedFromTheCopysPlaceIsNeverTakenForTheCopy) {
    dbtest::TempDir dir;
    const std::wstring standin = ExeFolder() + L"ravelkit-standin\\ravelkit.dll";
    const std::wstring live = ExeFolder() + L"ravelkit-live\\ravelkit.dll";
    const std::wstring target = dir.File(L"ravelkit.dll");
    CopyLibraryIfChanged(standin, target);
    const std::string standinBytes = ReadWholeFile(standin);
    ASSERT_EQ(ReadWholeFile(target), standinBytes);
    {
        skclass::UniqueModule loaded(LoadLibraryW(target.c_str()));
        ASSERT_TRUE(loaded);
        CopyLibraryIfChanged(standin, target);  // the same library: left as it is, loaded or not
        // Not replaced while loaded, nor the live client taken for copied.
        EXPECT_TRUE(Holds(ErrorOf<Failure>([&] { CopyLibraryIfChanged(live, target); }), L"cannot replace '" + target + L"'"));
        EXPECT_EQ(ReadWholeFile(target), standinBytes);
    }
    CopyLibraryIfChanged(live, target);  // nothing holds it now
    EXPECT_EQ(ReadWholeFile(target), ReadWholeFile(live));
}

}  // namespace
