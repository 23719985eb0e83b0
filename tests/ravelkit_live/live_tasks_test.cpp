// What the simulator gains in the launcher, through the client: tasks driven
// through their states, and changed disk areas. (Reload: live_vm_test.)
#include "live_fixture.h"

using namespace livetest;

namespace {

const char kVm[] = "DC0_H0_VM0";

class TaskTest : public LiveTest {
protected:
    // A task for the VM's host, as the layer creates its tasks: for "host-N".
    std::string Create(void *session, bool cancelable) {
        _vmc::_ObjDetails details;
        EXPECT_EQ(0, vmc->vmcGetObjDetails(session, kVm, nullptr, nullptr, "DataSet2a", &details)) << LastErrorText();
        const size_t open = details.host.find("(<");
        const std::string host =
            open == std::string::npos ? std::string() : details.host.substr(open + 2, details.host.size() - open - 4);
        std::string task;
        EXPECT_EQ(0, vmc->vmcCreateTask(session, task, host.c_str(), "HostSystem", "com.diskbroker.backup", nullptr,
                                        "backup job 7", cancelable))
            << LastErrorText();
        EXPECT_EQ(0u, task.find("task-")) << task;
        return task;
    }
};

TEST_F(TaskTest, StateProgressDescriptionAndCancelAreTheServers) {
    void *session = OpenSession();
    const std::string task = Create(session, false);
    const char *t = task.c_str();
    ASSERT_EQ(0, vmc->vmcSetTaskState(session, t, "running")) << LastErrorText();
    EXPECT_EQ(0, vmc->vmcUpdateTaskProgress(session, t, 40)) << LastErrorText();
    EXPECT_EQ(0, vmc->vmcSetTaskDescription(session, t, "reading disk 1 of 2", nullptr, nullptr)) << LastErrorText();
    EXPECT_EQ(36, vmc->vmcCancelTask(session, t)) << "not cancelable";
    ASSERT_EQ(0, vmc->vmcSetTaskState(session, t, "success")) << LastErrorText();
    // The server keeps the end: the task cannot be started again.
    EXPECT_EQ(36, vmc->vmcSetTaskState(session, t, "running"));

    // Cancel ends a cancelable task; unknown tasks are not found.
    const std::string cancelable = Create(session, true);
    ASSERT_EQ(0, vmc->vmcSetTaskState(session, cancelable.c_str(), "running")) << LastErrorText();
    EXPECT_EQ(0, vmc->vmcCancelTask(session, cancelable.c_str())) << LastErrorText();
    EXPECT_EQ(36, vmc->vmcSetTaskState(session, cancelable.c_str(), "success")) << "a cancelled task has ended";

    int code = 0;
    EXPECT_EQ(2, vmc->vmcSetTaskState(session, "task-999999", "running"));
    LastErrorText(&code);
    EXPECT_EQ(25, code);
    std::string none;
    EXPECT_EQ(3, vmc->vmcCreateTask(session, none, "host-1", "HostSystem", nullptr, nullptr, nullptr, false));
    EXPECT_TRUE(none.empty());
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
    EXPECT_EQ(2, vmc->vmcGetChangedDiskAreas(session, key, 0, "no-such-vm", nullptr, "*", &changes));
    EXPECT_EQ(53, vmc->vmcGetChangedDiskAreas(session, key, 0, kVm, "no-such-snapshot", "*", &changes));

    ASSERT_EQ(0, vmc->vmcCreateSnapshot(session, "cbt-1", nullptr, kVm, false, false)) << LastErrorText();
    EXPECT_EQ(0, vmc->vmcGetChangedDiskAreas(session, key, 0, kVm, "cbt-1", "*", &changes)) << LastErrorText();
    EXPECT_EQ(1u, changes.changedAreas.size());
    EXPECT_EQ(0, vmc->vmcRemoveSnapshot(session, "cbt-1", kVm, false, false)) << LastErrorText();
}

}  // namespace
