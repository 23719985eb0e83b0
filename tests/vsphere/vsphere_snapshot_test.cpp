// Snapshots: removal with its delay through the time seam, attempts without a
// pause, faults read and translated, 53 as already gone, the VM released;
// creation under the lock with the orphan list of the registry.
#include <skclass_mini/dawdle.h>

#include "vsphere_fixture.h"

namespace vspheretest {
namespace {

const wchar_t kOwner[] = L"job-7";

class SnapshotTest : public ConnectedTest {
protected:
    uint32_t Remove(const wcstring &name, const wcstring &owner = kOwner) {
        return vddkRemoveSnapshot(name, kVm, kServer, kUser, kPassword, kPort, false, wrapper, session, owner);
    }
    uint32_t Create(const wcstring &name, const wcstring &owner = kOwner) {
        return vddkCreateSnapshot(kVm, name, L"backup", kServer, kUser, kPassword, kPort, false, true, wrapper,
                                  session, owner, vddkLog);
    }
    void SetList(const std::vector<std::wstring> &entries) {
        ASSERT_EQ(registry.SetMultiString(kOrphanListPath, kOrphanListPath, entries), ERROR_SUCCESS);
    }
    wcstring vddkLog;
};

TEST_F(SnapshotTest, RemovalWaitsOnceThenTriesWithoutPause) {
    // Defaults: one second, one attempt.
    sim.Script("vmcRemoveSnapshot", {1});
    EXPECT_EQ(Remove(L"nightly"), dbresult::kSnapshotRemoveFailed);
    EXPECT_EQ(skclass::DawdleRequestedMilliseconds(), 1000u);
    EXPECT_EQ(sim.RavelSim_CallCount("vmcRemoveSnapshot"), 1u);

    SetAgentDword(L"RemoveSnapshotDelay", 7);
    SetAgentDword(L"RemoveSnapshotRetryCount", 3);
    sim.Script("vmcRemoveSnapshot", {1, 1, 1});
    skclass::ResetDawdleRequested();
    EXPECT_EQ(Remove(L"nightly"), dbresult::kSnapshotRemoveFailed);
    EXPECT_EQ(skclass::DawdleRequestedMilliseconds(), 7000u) << "one wait before the first attempt, none between";
    EXPECT_EQ(sim.RavelSim_CallCount("vmcRemoveSnapshot"), 1u + 3u);
    EXPECT_EQ(Ended(), 2u) << "released whatever the result";
}

TEST_F(SnapshotTest, FaultsAreReadAndTranslated) {
    SetAgentDword(L"RemoveSnapshotRetryCount", 3);
    sim.RavelSim_SetLastError("The operation is not allowed in the current state.", 213);
    sim.Script("vmcRemoveSnapshot", {36, 6, 36});
    EXPECT_EQ(Remove(L"nightly"), dbresult::kVmNotPoweredOn);
    sim.RavelSim_SetLastError("", 0);
    sim.Script("vmcRemoveSnapshot", {36});
    SetAgentDword(L"RemoveSnapshotRetryCount", 1);
    EXPECT_EQ(Remove(L"nightly"), dbresult::kSnapshotRemoveFailed) << "a fault number 0 keeps the fixed code";
}

TEST_F(SnapshotTest, GoneOnALaterAttemptCountsAsRemovedAndLeavesTheList) {
    SetAgentDword(L"RemoveSnapshotRetryCount", 5);
    SetAgentDword(L"AutoOrphanSnapshotRemoval", 1);
    SetList({L"nightly[:]job-7", L"nightly[:]job-8", L"nightly[:]job-7"});
    sim.Script("vmcRemoveSnapshot", {36, 53});
    EXPECT_EQ(Remove(L"nightly"), dbresult::kOk);
    EXPECT_EQ(sim.RavelSim_CallCount("vmcRemoveSnapshot"), 2u);
    EXPECT_EQ(OrphanList(), std::vector<wcstring>({L"nightly[:]job-8", L"nightly[:]job-7"}))
        << "the first equal entry only";
    EXPECT_EQ(Ended(), 1u);
}

TEST_F(SnapshotTest, AFailedReloadStillRemoves) {
    ASSERT_EQ(Create(L"nightly", L""), dbresult::kOk);
    sim.Script("vmcSetVmPowerOrConfigState", {4});
    EXPECT_EQ(Remove(L"nightly", L""), dbresult::kOk);
    EXPECT_EQ(sim.Query("snapshots:web01"), "");
}

TEST_F(SnapshotTest, TheListIsKeptOnlyWhenOnAndUnderAnOwnerKey) {
    SetAgentDword(L"AutoOrphanSnapshotRemoval", 1);
    EXPECT_EQ(Create(L"backup-1", L""), dbresult::kOk);
    EXPECT_TRUE(OrphanList().empty()) << "no owner key, no entry";
    SetAgentDword(L"AutoOrphanSnapshotRemoval", 0);
    EXPECT_EQ(Create(L"backup-2"), dbresult::kOk);
    EXPECT_TRUE(OrphanList().empty()) << "the list is off";
    SetAgentDword(L"AutoOrphanSnapshotRemoval", 1);
    EXPECT_EQ(Create(L"backup-3"), dbresult::kOk);
    EXPECT_EQ(OrphanList(), std::vector<wcstring>({L"backup-3[:]job-7"})) << "the first entry makes the list";
}

// Creation locks the VM once, removes the owner's orphans first (each removal
// releasing the VM), then takes the snapshot and lists it under the owner.
TEST_F(SnapshotTest, OrphansOfTheOwnerAreRemovedFirst) {
    SetAgentDword(L"AutoOrphanSnapshotRemoval", 1);
    LoadInventory("<inventory server='vcenter.example'><account user='backup@vsphere.local' password='Standin-Pass1'/>"
                  "<vm name='web01' moRef='vm-42'><snapshot name='old-1'/><snapshot name='old-3'/>"
                  "<snapshot name='theirs'/></vm></inventory>");
    SetList({L"old-1[:]job-7", L"abc", L"theirs[:]job-8", L"old-2[:]job-7", L"old-3[:]job-7"});
    sim.Script("vmcRemoveSnapshot", {0, 9});  // old-1 goes, old-2 fails, old-3 then real
    EXPECT_EQ(Create(L"backup-1"), dbresult::kOk);
    EXPECT_TRUE(JournalHas("(backup-1, backup, web01, -, quiesce)"));
    EXPECT_EQ(OrphanList(), std::vector<wcstring>({L"abc", L"theirs[:]job-8", L"old-2[:]job-7", L"backup-1[:]job-7"}));
    EXPECT_EQ(sim.Query("snapshots:web01"), "old-1,theirs,backup-1") << "old-1 was scripted away, old-3 removed";
    EXPECT_EQ(Ended(), 3u) << "each orphan removal releases the VM";
    EXPECT_EQ(Prepared(), 1u);

    // The last orphan failing too: the failed orphans stay listed.
    sim.Script("vmcRemoveSnapshot", {9, 9});
    EXPECT_EQ(Create(L"backup-2"), dbresult::kOk);
    EXPECT_EQ(OrphanList(), std::vector<wcstring>({L"abc", L"theirs[:]job-8", L"old-2[:]job-7", L"backup-1[:]job-7",
                                             L"backup-2[:]job-7"}));
}

TEST_F(SnapshotTest, FailedCreationOrLockIsNotListed) {
    SetAgentDword(L"AutoOrphanSnapshotRemoval", 1);
    sim.RavelSim_SetLastError("Insufficient disk space on datastore", 225);
    sim.Script("vmcCreateSnapshot", {36});
    EXPECT_EQ(Create(L"backup-1"), dbresult::kViFault225);
    sim.Script("vmcCreateSnapshot", {5});
    EXPECT_EQ(Create(L"backup-2"), dbresult::kSnapshotCreateFailed);
    EXPECT_TRUE(OrphanList().empty());
    EXPECT_EQ(Prepared(), 2u) << "the lock stays for vddkRemoveSnapshot to release";

    vddk.ScriptResult("VixDiskLib_PrepareForAccess", 10, VIX_E_FAIL);
    vddk.ScriptResult("VixDiskLib_EndAccess", 10, VIX_E_FAIL);
    EXPECT_EQ(Create(L"backup-3"), dbresult::kAccessPrepareFailed);
    EXPECT_EQ(sim.RavelSim_CallCount("vmcCreateSnapshot"), 2u) << "no snapshot without the lock";
    EXPECT_TRUE(OrphanList().empty());
}

}  // namespace
}  // namespace vspheretest
