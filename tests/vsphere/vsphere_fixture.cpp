#include "vsphere_fixture.h"

#include <stdint.h>

#include <fstream>

#include <diskbroker.h>
#include <skclass_mini/configuration.h>
#include <skclass_mini/dawdle.h>
#include <skclass_mini/singleton.h>
#include <skstdutl/sklog.h>

namespace vspheretest {

const std::wstring kOrphanListPath = std::wstring(dbtest::kMainAgentKey) + L"\\VmSnapshots\\vcenter.example\\web01";

std::vector<wcstring> OrphanList() {
    Configuration list;
    std::vector<wcstring> entries;
    if (list.Open(Configuration::OpenExisting, kOrphanListPath, wcstring(), Configuration::Read))
        list.LoadMultiString(kOrphanListPath, entries);
    return entries;
}

void VsphereTest::SetUp() {
    SK_SetLogFilePath(L"");  // no log file: it would stay open inside our folders
    ASSERT_TRUE(registry.Ok());
    ASSERT_FALSE(install.Path().empty());
    std::string error;
    ASSERT_TRUE(dbtest::InstallVddkStandin(install.Path(), 0, dbtest::VddkVariant::Normal, &error)) << error;
    ASSERT_EQ(registry.SetString(dbtest::kMainMiscKey, L"Data Path", data.Path()), ERROR_SUCCESS);
    const std::wstring disklib = dbtest::VddkStandinInstallFolder(install.Path(), 0) + L"vixDiskLib.dll";
    vddkModule.reset(LoadLibraryW(disklib.c_str()));
    ASSERT_TRUE(vddkModule) << "LoadLibraryW failed: " << GetLastError();
    ASSERT_TRUE(vddk.Load(vddkModule.get()));
    vddk.VddkSim_Reset();
    InstallRavelkit(0, dbtest::RavelkitVariant::Normal);
    skclass::SetTimeScale(0);
    skclass::ResetDawdleRequested();
}

void VsphereTest::TearDown() {
    if (wrapper) {
        EXPECT_EQ(vddkDisconnectFromVCServer(wrapper, session), dbresult::kOk);
    }
    wrapper = nullptr;
    diskBroker::ReleaseInstance();
    skclass::ReleaseSingleton("vmToolsLoader");  // the library is freed with the last wrapper
    skclass::SetTimeScale(1.0);
    if (sim.RavelSim_Reset) sim.RavelSim_Reset();
    UnloadRavelkit();
    if (vddk.VddkSim_Reset) vddk.VddkSim_Reset();
}

void VsphereTest::UnloadRavelkit() {
    sim = dbtest::RavelSimControl();
    ravelModule.reset();
}

void VsphereTest::InstallRavelkit(int product, dbtest::RavelkitVariant variant, const std::wstring *installValue) {
    UnloadRavelkit();
    std::string error;
    ASSERT_TRUE(dbtest::InstallRavelkitStandin(install.Path(), product, variant, &error, installValue)) << error;
    ravelModule.reset(LoadLibraryW(dbtest::RavelkitInstallPath(install.Path(), product).c_str()));
    ASSERT_TRUE(ravelModule) << "LoadLibraryW failed: " << GetLastError();
    ASSERT_TRUE(sim.Load(ravelModule.get()));
    sim.RavelSim_Reset();
}

void VsphereTest::SetAgentDword(const wchar_t *name, DWORD value) {
    ASSERT_EQ(registry.SetDword(dbtest::kMainAgentKey, name, value), ERROR_SUCCESS);
}

void VsphereTest::Connect() {
    ASSERT_EQ(vddkConnectToVMWareServer(kServer, kUser, kPassword, &wrapper, &session), dbresult::kOk);
    ASSERT_NE(session, nullptr);
    log.Clear();
}

void VsphereTest::LoadInventory(const std::string &xml) {
    const std::wstring path = data.File(L"inventory.xml");
    {
        std::ofstream file(path.c_str(), std::ios::binary);
        file << xml;
    }
    ASSERT_EQ(sim.RavelSim_LoadInventory(path.c_str()), 0);
}

std::pair<uint32_t, uint32_t> VsphereTest::AccessCalls() const {
    uint32_t prepared = 0, ended = 0;
    vddk.VddkSim_AccessState(kVmSpec, &prepared, &ended);
    return {prepared, ended};
}

::testing::AssertionResult VsphereTest::JournalHas(const std::string &text) {
    const std::string journal = sim.Query("journal");
    if (journal.find(text) != std::string::npos) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "no '" << text << "' in the journal:\n" << journal;
}

}  // namespace vspheretest
