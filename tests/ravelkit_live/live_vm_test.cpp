// Virtual machines against the simulator: details by name, the information
// documents, the snapshot codes, and changed disk areas, which the simulator
// gains in the launcher (change tracking enabled and seen by a later session,
// snapshots made and removed, the host list: vm_backup_live.sh through the
// program; tasks: live_layer_test).
#include <dbtest/temp_dir.h>
#include <skxml/xmlreader.h>
#include "live_fixture.h"

using namespace livetest;

namespace {

const char kVm[] = "DC0_H0_VM0";

TEST_F(LiveTest, VmDetailsByNameAndReload) {
    void *session = OpenSession();
    _vmc::_ObjDetails details;
    ASSERT_EQ(0, vmc->vmcGetObjDetails(session, kVm, nullptr, nullptr, "DataSet1", &details)) << LastErrorText();
    // The power state and the host reference are checked where the layer uses
    // them (live_layer_test's guest name and task), the moRef by vm-info in
    // vm_backup_live.sh. The disk mode decides only for a physical-mode disk,
    // which the stand-in's query tests cover ("raw").
    EXPECT_EQ("persistent", details.diskMode);

    EXPECT_EQ(2, vmc->vmcGetObjDetails(session, "no-such-vm", nullptr, nullptr, "DataSet1", &details));

    EXPECT_EQ(0, vmc->vmcSetVmPowerOrConfigState(session, kVm, "reload")) << LastErrorText();
    EXPECT_EQ(1, vmc->vmcSetVmPowerOrConfigState(session, kVm, "powerOff")) << "not served by this client";
}

std::string Narrow(const std::wstring &text) { return std::string(text.begin(), text.end()); }

TEST_F(LiveTest, BackupAndObjectInformationAreXmlDocumentsAndSnapshotCodes) {
    void *session = OpenSession();
    dbtest::TempDir folder;
    const std::wstring file = folder.File(L"live-backup-info.xml");
    ASSERT_EQ(0, vmc->vmcGetVmBackupInfo(session, kVm, Narrow(file).c_str())) << LastErrorText();
    CXmlReader reader;
    ASSERT_TRUE(reader.LoadFile(file.c_str())) << Narrow(reader.ErrorText());
    std::wstring value;
    ASSERT_TRUE(reader.SelectSingleNode(L"VmBackupInfo"));
    EXPECT_TRUE(reader.GetAttribute(L"name", value));
    EXPECT_EQ(L"DC0_H0_VM0", value);

    EXPECT_EQ(0, vmc->vmcGetObjectInfo(session, "root", "host", nullptr, Narrow(file).c_str())) << LastErrorText();
    EXPECT_EQ(1, vmc->vmcGetObjectInfo(session, "root", "datastore", nullptr, Narrow(file).c_str()));
    EXPECT_EQ(3, vmc->vmcGetVmBackupInfo(session, kVm, "Z:\\no\\such\\folder\\info.xml"));

    // Snapshots made and removed by name: vm_backup_live.sh's killed run;
    // here, the code for one already gone.
    EXPECT_EQ(53, vmc->vmcRemoveSnapshot(session, "no-such-snapshot", kVm, false, false));
}

TEST_F(LiveTest, ChangedDiskAreasOfADiskAtTheVmAndAtASnapshot) {
    void *session = OpenSession();
    std::vector<_vmc::_VmDiskDetails> disks;
    ASSERT_EQ(0, vmc->vmcGetAllVmDiskDetails(session, kVm, disks)) << LastErrorText();
    ASSERT_EQ(1u, disks.size());
    const int key = disks[0].key;
    const int64_t size = disks[0].capacityBytes;
    ASSERT_EQ(0, vmc->vmcSetVmPowerOrConfigState(session, kVm, "enableChangeTracking")) << LastErrorText();

    _vmc::_DiskChangeInfo changes;
    ASSERT_EQ(0, vmc->vmcGetChangedDiskAreas(session, key, 4096, kVm, nullptr, "*", &changes)) << LastErrorText();
    EXPECT_EQ(4096, changes.startOffset);
    EXPECT_EQ(size - 4096, changes.length);
    EXPECT_EQ((std::vector<std::pair<int64_t, int64_t>>{{4096, size - 4096}}), changes.changedAreas);
    ASSERT_EQ(0, vmc->vmcGetChangedDiskAreas(session, key, 0, kVm, nullptr, "52 8c 1e 0f/3", &changes));
    EXPECT_TRUE(changes.changedAreas.empty());
    EXPECT_EQ(size, changes.length);

    EXPECT_EQ(36, vmc->vmcGetChangedDiskAreas(session, key + 1, 0, kVm, nullptr, "*", &changes));
    EXPECT_EQ(53, vmc->vmcGetChangedDiskAreas(session, key, 0, kVm, "no-such-snapshot", "*", &changes));

    ASSERT_EQ(0, vmc->vmcCreateSnapshot(session, "cbt-1", nullptr, kVm, false, false)) << LastErrorText();
    EXPECT_EQ(0, vmc->vmcGetChangedDiskAreas(session, key, 0, kVm, "cbt-1", "*", &changes)) << LastErrorText();
    EXPECT_EQ(1u, changes.changedAreas.size());
    EXPECT_EQ(0, vmc->vmcRemoveSnapshot(session, "cbt-1", kVm, false, false)) << LastErrorText();
}

}  // namespace
