// Connections and access preparation against the stand-in in both threading
// models and an unknown one: clean-up before connect, retries, masking.
#include <skclass_mini/dawdle.h>

#include "service_fixture.h"

namespace servicetest {
namespace {

const char kPrepare[] = "VixDiskLib_PrepareForAccess";
const char kEnd[] = "VixDiskLib_EndAccess";
const char kIdentity[] = "backup job 7";

// Runs each case once per known threading model.
class AccessTest : public ServiceTest, public ::testing::WithParamInterface<const wchar_t *> {
protected:
    void SetUp() override {
        ServiceTest::SetUp();
        SetThreadingModelText(GetParam());
        service = Start();
        log.Clear();
    }
    void TearDown() override {
        service.reset();
        ServiceTest::TearDown();
    }
    std::unique_ptr<diskBroker> service;
    RemoteMachine machine;
};

// A failed connect, and a clean-up before every connect, are the fault
// matrix's; here what a working one passes on.
TEST_P(AccessTest, ConnectExPassesTheTransportModesAndCleanupCountsPassThrough) {
    VixDiskLibConnectParams local{};
    VixDiskLibConnection connection = nullptr;
    EXPECT_EQ(service->VixDiskLib_ConnectEx(&local, 1, nullptr, "file", &connection), VixError(VIX_OK));
    EXPECT_EQ(Calls("VixDiskLib_ConnectEx"), 1u);
    EXPECT_EQ(sim.LastArg("transportModes"), "file");
    ASSERT_NE(connection, nullptr);
    EXPECT_EQ(service->VixDiskLib_Disconnect(connection, &local), VixError(VIX_OK));
    EXPECT_EQ(Calls("VixDiskLib_Disconnect"), 1u);

    sim.VddkSim_SetCleanupResult(3, 1);
    uint32 cleaned = 0, remaining = 0;
    EXPECT_EQ(service->VixDiskLib_Cleanup(&machine.params, &cleaned, &remaining), VixError(VIX_E_FAIL))
        << "VDDK fails a clean-up that leaves connections behind; passed through as it is";
    EXPECT_EQ(cleaned, 3u);
    EXPECT_EQ(remaining, 1u);
}

TEST_P(AccessTest, ErrorTextsComeFromVddk) {
    char *narrow = service->VixDiskLib_GetErrorText(VIX_E_FILE_NOT_FOUND, nullptr);
    ASSERT_NE(narrow, nullptr);
    EXPECT_EQ(Wide(narrow), VddkErrorText(VIX_E_FILE_NOT_FOUND));
    vddk.VixDiskLib_FreeErrorText(narrow);
}

TEST_P(AccessTest, PrepareGetsTheIdentityAndANullVmxSpecCallsNothing) {
    VixDiskLibConnectParams local{};
    EXPECT_EQ(service->VixDiskLib_PrepareForAccess(&local, kIdentity), VixError(VIX_OK));
    EXPECT_EQ(service->VixDiskLib_EndAccess(&local, kIdentity), VixError(VIX_OK));
    EXPECT_EQ(Calls(kPrepare) + Calls(kEnd), 0u);
    EXPECT_EQ(service->VixDiskLib_PrepareForAccess(&machine.params, kIdentity), VixError(VIX_OK));
    EXPECT_EQ(Calls(kPrepare), 1u);
    EXPECT_EQ(sim.LastArg("identity"), kIdentity);
}

TEST_P(AccessTest, PrepareDoesNotRetryButMasksCodes3014And20) {
    for (VixError failure : {VixError(VIX_E_HOST_USER_PERMISSIONS), (VixError(7) << 32) | 20}) {
        sim.VddkSim_Reset();
        log.Clear();
        sim.ScriptResult(kPrepare, 1, failure);
        EXPECT_EQ(service->VixDiskLib_PrepareForAccess(&machine.params, kIdentity), VixError(VIX_OK));
        EXPECT_EQ(Calls(kPrepare), 1u);
        EXPECT_EQ(Calls(kEnd), 0u);
        EXPECT_EQ(skclass::DawdleRequestedMilliseconds(), 0u);
        EXPECT_EQ(service->LastError(), VixError(VIX_OK));
        EXPECT_EQ(service->LastErrorText(), L"");
    }
}

// Ten failed preparations, each followed by 1000 ms and one EndAccess (counted
// by the fault matrix); the last EndAccess's result is what the caller gets, unmasked.
TEST_P(AccessTest, PrepareRetriesTenTimesAndTheLastEndAccessDecides) {
    sim.ScriptResult(kPrepare, 10, VIX_E_DISK_INVAL);
    sim.ScriptResult(kEnd, 10, VIX_E_FAIL);
    EXPECT_EQ(service->VixDiskLib_PrepareForAccess(&machine.params, kIdentity), VixError(VIX_E_FAIL));
    EXPECT_EQ(service->LastError(), VixError(VIX_E_FAIL)) << "kept, not masked";
    EXPECT_EQ(service->LastErrorText(), VddkErrorText(VIX_E_FAIL));
}

// Ten tries, their waits, the masking and the last error are the fault matrix's.
TEST_P(AccessTest, EndAccessRetriesAndMasksEveryFailure) {
    sim.ScriptResult(kEnd, 10, VIX_E_DISK_INVAL);
    EXPECT_EQ(service->VixDiskLib_EndAccess(&machine.params, kIdentity), VixError(VIX_OK));

    sim.VddkSim_Reset();
    sim.ScriptResult(kEnd, 1, VIX_E_HOST_USER_PERMISSIONS);
    EXPECT_EQ(service->VixDiskLib_EndAccess(&machine.params, kIdentity), VixError(VIX_OK));
    EXPECT_EQ(Calls(kEnd), 1u) << "3014 is not retried";
}

INSTANTIATE_TEST_SUITE_P(Models, AccessTest, ::testing::Values(L"", L"no threading"),
                         [](const ::testing::TestParamInfo<const wchar_t *> &info) {
                             return std::string(*info.param ? "NoThreading" : "WorkerThread");
                         });

}  // namespace
}  // namespace servicetest
