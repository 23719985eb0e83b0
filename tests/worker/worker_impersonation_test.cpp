// Impersonation: the first Create or Open that asks for it hands the job
// thread's token to the worker, which makes that and every later library call
// under the job's identity; a job thread without a token is served under the
// worker's own identity.
#include <dbtest/token_user.h>

#include "worker_fixture.h"

namespace workertest {
namespace {

#define SKIP_UNLESS_IMPERSONATED(impersonated) \
    if (!(impersonated)) GTEST_SKIP() << "ImpersonateSelf(SecurityImpersonation) failed on this system"

// 1. A job thread that does not impersonate opens without asking: no user reaches VDDK.
// 2. An impersonating job thread opens asking for it: VDDK sees the job's user.
// 3. A later read from a thread without a token still runs as that user.
TEST_F(WorkerTest, ImpersonatingOpenHandsTheJobsIdentityToEveryLaterCall) {
    Install();
    ASSERT_NO_FATAL_FAILURE(StartWorker());
    const std::string user = dbtest::ProcessUserText();
    ASSERT_FALSE(user.empty());
    VixDiskLibHandle plain = OpenMemDisk("plain");
    EXPECT_EQ(sim.LastArg("user.VixDiskLib_Open"), "");

    bool impersonated = false;
    VixDiskLibHandle asJob = nullptr;
    ASSERT_TRUE(RunImpersonating([&] { asJob = OpenMemDisk("job", true); }, &impersonated));
    SKIP_UNLESS_IMPERSONATED(impersonated);
    EXPECT_EQ(sim.LastArg("user.VixDiskLib_Open"), user);

    uint8 sector[512];
    EXPECT_EQ(worker->VixDiskLib_Read(plain, 0, 1, sector, nullptr), VIX_OK);
    EXPECT_EQ(sim.LastArg("user.VixDiskLib_Read"), user) << "the worker stays impersonating";

    for (VixDiskLibHandle handle : {plain, asJob}) EXPECT_EQ(worker->VixDiskLib_Close(handle, nullptr), VIX_OK);
}

// Both Create and Open, when the job thread has no token to lend, make the
// call anyway.
TEST_F(WorkerTest, JobThreadWithoutTokenIsServedAnyway) {
    Install();
    ASSERT_NO_FATAL_FAILURE(StartWorker());
    VixDiskLibHandle handle = OpenMemDisk("tokenless", true);
    EXPECT_NE(handle, nullptr);
    EXPECT_EQ(sim.LastArg("user.VixDiskLib_Open"), "");

    const std::wstring file = install.File(L"created.vmdk");
    VixDiskLibCreateParams params = {VIXDISKLIB_DISK_MONOLITHIC_SPARSE, VIXDISKLIB_ADAPTER_SCSI_LSILOGIC,
                                     VIXDISKLIB_HWVERSION_WORKSTATION_5, 2048, 0, 0};
    EXPECT_EQ(worker->VixDiskLib_Create(connection, Utf8(file).c_str(), &params, nullptr, nullptr, true), VIX_OK);
    EXPECT_NE(GetFileAttributesW(file.c_str()), INVALID_FILE_ATTRIBUTES);

    EXPECT_EQ(worker->VixDiskLib_Close(handle, nullptr), VIX_OK);
}

}  // namespace
}  // namespace workertest
