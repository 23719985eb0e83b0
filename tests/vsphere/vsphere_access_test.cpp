// Access control (the VM lock through VDDK's access preparation), tasks and
// the event extension, with their warning-severity codes.
#include "vsphere_fixture.h"

namespace vspheretest {
namespace {

class AccessTest : public ConnectedTest {
protected:
    uint32_t Lock(bool prepare, const wcstring &vm = kVm) {
        return vddkSetupVMAccessControl(prepare, L"backup job 7", vm, kServer, kUser, kPassword, kPort, wrapper,
                                        session, vddkLog);
    }
    wcstring vddkLog;
};

TEST_F(AccessTest, VcenterLocksAndReleasesTheVmByItsMoRefAStandaloneHostNeedsNoLock) {
    EXPECT_EQ(Lock(true), dbresult::kOk);
    EXPECT_EQ(Prepared(), 1u);
    EXPECT_EQ(Ended(), 0u);
    EXPECT_EQ(vddk.LastArg("identity"), "backup job 7");
    EXPECT_EQ(Lock(false), dbresult::kOk);
    EXPECT_EQ(Ended(), 1u);

    // A standalone host needs no lock.
    LoadInventory("<inventory server='vcenter.example' type='HostAgent'>"
                  "<account user='backup@vsphere.local' password='Standin-Pass1'/>"
                  "<vm name='web01' moRef='vm-42'/></inventory>");
    EXPECT_EQ(Lock(true), dbresult::kOk);
    EXPECT_EQ(vddk.VddkSim_CallCount("VixDiskLib_PrepareForAccess"), 1u) << "only the vCenter lock's";
    EXPECT_EQ(sim.RavelSim_CallCount("vmcGetObjDetails"), 2u) << "only the vCenter lock's and release's";
}

TEST_F(AccessTest, FailuresToReadDetailsAndToLock) {
    sim.Script("vmcGetServerDetails", {8});
    EXPECT_EQ(Lock(true), dbresult::kObjectDetailsUnreadable);
    EXPECT_EQ(Lock(true, L"no-such-vm"), dbresult::kObjectDetailsUnreadable);

    // Preparation fails ten times and so does each EndAccess in between: not masked.
    vddk.ScriptResult("VixDiskLib_PrepareForAccess", 10, VIX_E_HOST_NETWORK_CONN_REFUSED);
    vddk.ScriptResult("VixDiskLib_EndAccess", 10, VIX_E_FAIL);
    EXPECT_EQ(Lock(true), dbresult::kAccessPrepareFailed);
    EXPECT_EQ(Lock(true, kOffVm), dbresult::kOk) << "another VM is not held up by it";

    vddk.ScriptResult("VixDiskLib_EndAccess", 10, VIX_E_FAIL);
    EXPECT_EQ(Lock(false), dbresult::kOk) << "EndAccess masks every failure, so a release never fails here";
}

TEST_F(AccessTest, TaskOnTheVmsHostAndFailuresThatAreWarnings) {
    wcstring task;
    EXPECT_EQ(vddkCreateVMwareTask(task, kVm, L"Backup of web01", L"job 7", true, wrapper, session), dbresult::kOk);
    EXPECT_EQ(task, L"task-1");
    EXPECT_EQ(sim.Query("task:task-1"), "queued|0|Backup of web01|host-12|HostSystem");
    EXPECT_EQ(vddkSetVMwareTaskState(task, L"running", wrapper, session), dbresult::kOk);
    EXPECT_EQ(vddkUpdateVMwareTaskProgress(task, 40, wrapper, session), dbresult::kOk);
    const wcstring message = L"Copying disks", extra = L"x";
    EXPECT_EQ(vddkSetVMwareTaskDescription(task, message, nullptr, &extra, wrapper, session), dbresult::kOk);
    EXPECT_EQ(sim.Query("task:task-1"), "running|40|Copying disks|host-12|HostSystem");
    EXPECT_TRUE(JournalHas("(task-1, Copying disks, (null), x)"));
    EXPECT_EQ(vddkCancelVMwareTask(task, wrapper, session), dbresult::kOk);
    EXPECT_EQ(sim.Query("task:task-1").substr(0, 10), "cancelled|");

    // Failures are warnings.
    EXPECT_EQ(vddkCreateVMwareTask(task, L"no-such-vm", L"", L"", false, wrapper, session),
              dbresult::kObjectDetailsUnreadable);
    EXPECT_EQ(vddkCancelVMwareTask(L"task-77", wrapper, session), dbresult::kTaskCancelFailed);
    EXPECT_EQ(vddkSetVMwareTaskState(L"task-77", L"error", wrapper, session), dbresult::kTaskStateFailed);
    EXPECT_EQ(vddkSetVMwareTaskDescription(L"task-77", L"m", nullptr, nullptr, wrapper, session),
              dbresult::kTaskDescriptionFailed);
    EXPECT_EQ(vddkUpdateVMwareTaskProgress(L"task-77", 5, wrapper, session), dbresult::kTaskProgressFailed);
}

TEST_F(AccessTest, EventExtensionRegisteredOnceRemovedOnce) {
    auto registerIt = [&] {
        return vddkRegisterVSphereEventExtension(L"com.example.backup", L"2", L"3", L"4", L"5", L"6", L"7", L"8", L"9",
                                                 L"10", L"11", L"12", L"13", 4711, wrapper, session);
    };
    EXPECT_EQ(registerIt(), dbresult::kOk);
    EXPECT_EQ(sim.Query("extensions"), "com.example.backup");
    EXPECT_TRUE(JournalHas("(com.example.backup, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 4711)"));
    EXPECT_EQ(registerIt(), dbresult::kOk);
    EXPECT_EQ(sim.RavelSim_CallCount("vmcRegisterEventExtension"), 1u) << "already registered: no second call";
    EXPECT_EQ(vddkUnregisterVSphereEventExtension(L"com.example.backup", wrapper, session), dbresult::kOk);
    EXPECT_EQ(vddkUnregisterVSphereEventExtension(L"com.example.backup", wrapper, session), dbresult::kOk);
    EXPECT_EQ(sim.RavelSim_CallCount("vmcUnregisterEventExtension"), 1u);

    sim.Script("vmcIsEventExtensionRegistered", {12});
    EXPECT_EQ(registerIt(), dbresult::kExtensionRegisterFailed);
    sim.Script("vmcRegisterEventExtension", {14});
    EXPECT_EQ(registerIt(), dbresult::kExtensionRegisterFailed);
    EXPECT_EQ(registerIt(), dbresult::kOk);
    sim.Script("vmcUnregisterEventExtension", {15});
    EXPECT_EQ(vddkUnregisterVSphereEventExtension(L"com.example.backup", wrapper, session),
              dbresult::kExtensionUnregisterFailed);
}

// Every flat function with half of the session pair missing: 0xE000FE49, except
// where only the wrapper is checked and the library judges the session.
TEST_F(AccessTest, NullPairs) {
    const wcstring s = L"x";
    wcstring out;
    int code = 0;
    std::vector<vddkHostInfo> hosts;
    for (int half = 0; half < 2; ++half) {
        soapVmToolsWrapper *w = half == 0 ? nullptr : wrapper;
        void *h = half == 0 ? session : nullptr;
        SCOPED_TRACE(half == 0 ? "null wrapper" : "null session");
        EXPECT_EQ(vddkSetManagedTimeouts(w, h), dbresult::kNullArgument);
        EXPECT_EQ(vddkGetLastVIErr(out, &code, w, h), dbresult::kNullArgument);
        EXPECT_EQ(vddkRemoveSnapshot(s, s, s, s, s, 1, false, w, h, s), dbresult::kNullArgument);
        EXPECT_EQ(vddkCreateSnapshot(s, s, s, s, s, s, 1, false, false, w, h, s, out), dbresult::kNullArgument);
        EXPECT_EQ(vddkEnableChangeTracking(s, w, h), dbresult::kNullArgument);
        EXPECT_EQ(vddkGetVmFQDN(s, out, w, h), dbresult::kNullArgument);
        EXPECT_EQ(vddkGetVmBackupInfo(s, s, w, h), dbresult::kNullArgument);
        EXPECT_EQ(vddkGetManagedObjInfo(s, s, s, s, w, h), dbresult::kNullArgument);
        EXPECT_EQ(vddkCreateVMwareTask(out, s, s, s, false, w, h), dbresult::kNullArgument);
        EXPECT_EQ(vddkCancelVMwareTask(s, w, h), dbresult::kNullArgument);
        EXPECT_EQ(vddkSetVMwareTaskState(s, s, w, h), dbresult::kNullArgument);
        EXPECT_EQ(vddkUpdateVMwareTaskProgress(s, 1, w, h), dbresult::kNullArgument);
        EXPECT_EQ(vddkSetVMwareTaskDescription(s, s, nullptr, nullptr, w, h), dbresult::kNullArgument);
        EXPECT_EQ(vddkRegisterVSphereEventExtension(s, s, s, s, s, s, s, s, s, s, s, s, s, 1, w, h),
                  dbresult::kNullArgument);
        EXPECT_EQ(vddkUnregisterVSphereEventExtension(s, w, h), dbresult::kNullArgument);
    }
    EXPECT_EQ(vddkSetupVMAccessControl(true, s, kVm, kServer, kUser, kPassword, kPort, nullptr, session, out),
              dbresult::kNullArgument);
    EXPECT_EQ(vddkGetAllHosts(&hosts, nullptr, session), dbresult::kNullArgument);
    // Only the wrapper is checked: a null session goes to the library, which refuses it.
    EXPECT_EQ(vddkSetupVMAccessControl(true, s, kVm, kServer, kUser, kPassword, kPort, wrapper, nullptr, out),
              dbresult::kObjectDetailsUnreadable);
    EXPECT_EQ(sim.RavelSim_CallCount("vmcGetServerDetails"), 1u);
    EXPECT_EQ(vddkGetAllHosts(&hosts, wrapper, nullptr), dbresult::kHostListFailed);
    EXPECT_EQ(vddkDisconnectFromVCServer(nullptr, session), dbresult::kNullArgument);
    EXPECT_EQ(sim.RavelSim_CallCount("vmcRemoveSnapshot") + sim.RavelSim_CallCount("vmcCreateSnapshot") +
                  sim.RavelSim_CallCount("vmcCreateTask") + sim.RavelSim_CallCount("vmcIsChangeTrackingEnabled"),
              0u);
}

}  // namespace
}  // namespace vspheretest
