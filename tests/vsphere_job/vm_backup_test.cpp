// vm-backup on the stand-ins: the VM locked while its disks stream and released
// afterwards, also when a read fails; a snapshot left by a killed run removed
// by the next run under the same owner key; every byte equal to the disk's.
#include <stdlib.h>

#include <diskbroker.h>
#include <skclass_mini/dawdle.h>
#include <skclass_mini/singleton.h>
#include <skstdutl/sklog.h>

#include "../tool/tool_checks.h"
#include "../vsphere/vsphere_fixture.h"
#include "errors.h"
#include "files.h"
#include "vddk_setup.h"
#include "vsphere.h"

namespace {

using namespace dbtool;
using namespace vspheretest;

const wchar_t kOwner[] = L"diskbroker vm-backup";

class VmBackupTest : public ::testing::Test {
protected:
    void SetUp() override {
        SK_SetLogFilePath(L"");
        ASSERT_TRUE(registry.Ok());
        ASSERT_EQ(registry.SetString(dbtest::kMainMiscKey, L"Data Path", data.Path()), ERROR_SUCCESS);
        SetEnvironmentVariableW(L"DISKBROKER_TEST_PASSWORD", L"Standin-Pass1");
        skclass::SetTimeScale(0);
        // The program's own set-up, kept for the test: the stand-ins stay loaded
        // so their control interfaces reach the modules the job uses.
        // The stand-in machine is kept inside the sandbox, fresh for each test.
        ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, registry.RootPath().c_str(), 0, KEY_ALL_ACCESS, machine.put()),
                  ERROR_SUCCESS);
        vddkSetup = std::make_unique<VddkSetup>(VddkChoice::Standin, machine.get());
        const std::wstring root = ExeFolder() + L"vddk-standin-install";
        vddkModule.reset(LoadLibraryW((root + L"\\VMware\\VixDiskLib\\bin\\vixDiskLib.dll").c_str()));
        ASSERT_TRUE(vddkModule);
        ASSERT_TRUE(vddk.Load(vddkModule.get()));
        vddk.VddkSim_Reset();
        request.vsphere.server = L"vcenter.example";
        request.vsphere.passwordVariable = L"DISKBROKER_TEST_PASSWORD";
        request.vsphere.inventory = data.File(L"inventory.xml");
        library = std::make_unique<VsphereLibrary>(request.vsphere);
        ravelModule.reset(LoadLibraryW((root + L"\\ravelkit.dll").c_str()));
        ASSERT_TRUE(sim.Load(ravelModule.get()));
        request.vm = L"web01";
        request.folder = out.Path();
        request.jobWords = {L"--vddk", L"standin", L"--buffer-kb", L"64"};
        request.showProgress = false;
        request.beforeDisk = [this](const std::wstring &) { lockedAtDisk.push_back(Locked()); };
    }
    void TearDown() override {
        diskBroker::ReleaseInstance();
        skclass::ReleaseSingleton("vmToolsLoader");
        library.reset();
        if (sim.RavelSim_Reset) sim.RavelSim_Reset();
        if (vddk.VddkSim_Reset) vddk.VddkSim_Reset();
        skclass::SetTimeScale(1.0);
    }
    bool Locked() const {
        uint32_t prepared = 0, ended = 0;
        return vddk.VddkSim_AccessState(kVmSpec, &prepared, &ended) == 1;
    }
    // The image against the memory disk's own pattern, word by word.
    ::testing::AssertionResult ImageHoldsDisk(const std::wstring &image, uint64_t seed, uint64_t size) {
        const std::string bytes = ReadWholeFile(image);
        if (bytes.size() != size) return ::testing::AssertionFailure() << "size " << bytes.size();
        for (uint64_t i = 0; i < size / 8; ++i) {
            uint64_t word = 0;
            memcpy(&word, bytes.data() + i * 8, 8);
            if (word != VddkSimPatternWord(seed, i))
                return ::testing::AssertionFailure() << "word " << i << " differs";
        }
        return ::testing::AssertionSuccess();
    }

    dbtest::RegistrySandbox registry;
    skclass::UniqueHkey machine;
    dbtest::TempDir data, out;
    std::unique_ptr<VddkSetup> vddkSetup;
    std::unique_ptr<VsphereLibrary> library;
    skclass::UniqueModule vddkModule, ravelModule;
    dbtest::VddkSimControl vddk;
    dbtest::RavelSimControl sim;
    VmBackupRequest request;
    std::vector<bool> lockedAtDisk;
};

TEST_F(VmBackupTest, LocksWhileStreamingAndReleasesAfterwards) {
    const VmBackupResult result = VmBackup(request);
    EXPECT_EQ(lockedAtDisk, std::vector<bool>({true, true}));
    EXPECT_FALSE(Locked());
    ASSERT_EQ(result.images.size(), 2u);
    EXPECT_TRUE(ImageHoldsDisk(result.images[0], 42, 8388608));
    EXPECT_TRUE(ImageHoldsDisk(result.images[1], 43, 4194304));
    EXPECT_EQ(sim.Query("snapshots:web01"), "");
    EXPECT_TRUE(OrphanList().empty());
    EXPECT_EQ(sim.Query("sessions"), "0");
}

TEST_F(VmBackupTest, ReadFailureMidStreamStillReleasesTheVm) {
    vddk.VddkSim_ScriptResult("VixDiskLib_Read", 1, VIX_E_DISK_NOIO, "memdisk://web01-disk1?size=4194304&seed=43",
                              2000, 2000);
    EXPECT_THROW(VmBackup(request), Failure);
    EXPECT_EQ(lockedAtDisk, std::vector<bool>({true, true}));
    EXPECT_FALSE(Locked());
    EXPECT_EQ(sim.Query("snapshots:web01"), "");
    EXPECT_TRUE(OrphanList().empty());
    EXPECT_EQ(sim.Query("sessions"), "0");
}

TEST_F(VmBackupTest, SnapshotOfAKilledRunIsRemovedByTheNext) {
    // The killed run: snapshot taken under the owner key, VM locked, nothing given back.
    soapVmToolsWrapper *wrapper = nullptr;
    void *session = nullptr;
    ASSERT_EQ(vddkConnectToVMWareServer(kServer, kUser, kPassword, &wrapper, &session), dbresult::kOk);
    const DWORD on = 1;  // in the stand-in machine, HKLM for now, as vm-backup sets it
    ASSERT_EQ(RegSetKeyValueW(HKEY_LOCAL_MACHINE, dbtest::kMainAgentKey, L"AutoOrphanSnapshotRemoval", REG_DWORD, &on,
                              sizeof on),
              ERROR_SUCCESS);
    wcstring vddkLog;
    ASSERT_EQ(vddkCreateSnapshot(kVm, L"killed-run", L"", kServer, kUser, kPassword, kPort, false, true, wrapper, session,
                                 kOwner, vddkLog),
              dbresult::kOk);
    ASSERT_EQ(OrphanList(), std::vector<wcstring>({L"killed-run[:]diskbroker vm-backup"}));
    ASSERT_TRUE(Locked());
    delete wrapper;  // the process died: no logout, no removal

    const VmBackupResult result = VmBackup(request);
    EXPECT_EQ(sim.Query("snapshots:web01"), "");
    EXPECT_TRUE(OrphanList().empty());
    EXPECT_FALSE(Locked());
    EXPECT_EQ(result.images.size(), 2u);
}

TEST_F(VmBackupTest, FailedSnapshotLeavesNoLock) {
    sim.Script("vmcCreateSnapshot", {36});
    sim.RavelSim_SetLastError("The operation is not allowed in the current state.", 213);
    const std::wstring message = tooltest::ErrorOf<Failure>([&] { VmBackup(request); });
    EXPECT_TRUE(tooltest::Holds(message, L"(0xE00095A3)")) << "the layer's code reaches the job's error";
    EXPECT_FALSE(Locked());
    EXPECT_EQ(sim.Query("snapshots:web01"), "");
    EXPECT_TRUE(lockedAtDisk.empty());
}

}  // namespace
