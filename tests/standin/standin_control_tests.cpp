// The stand-in's control interface: blocking, overlaps, recorded arguments,
// log lines and the InitEx thread. Scripted results (path, sector range, count)
// are checked by the product tests that script them: the fault matrix, the
// read cache's failure tests and the VM backup job's mid-stream failure.
#include <thread>

#include "standin_test_util.h"

namespace standin_test {
namespace {

const char kMem[] = "memdisk://ctl?size=1048576&seed=7";

// Steps: 1 block Open; 2 a thread calls Open and is held; 3 this thread closes another
// handle while it is held (an overlap); 4 release; 5 the Open completes.
TEST_F(StandinTest, BlockedOpenHoldsTheCallerAndOverlapsAreCounted) {
    VixDiskLibHandle other = nullptr;
    ASSERT_EQ(vddk_.VixDiskLib_Open(conn_, kMem, 0, &other), VIX_OK);
    ASSERT_TRUE(sim_.VddkSim_BlockNextCall("VixDiskLib_Open"));
    VixDiskLibHandle h = nullptr;
    VixError openResult = VIX_E_FAIL;
    std::thread opener([&] { openResult = vddk_.VixDiskLib_Open(conn_, kMem, 0, &h); });
    ASSERT_TRUE(sim_.VddkSim_WaitBlocked("VixDiskLib_Open", kWaitTimeoutMs));
    EXPECT_EQ(sim_.VddkSim_OverlapCount(), 0u);
    EXPECT_EQ(vddk_.VixDiskLib_Close(other), VIX_OK);
    EXPECT_EQ(sim_.VddkSim_OverlapCount(), 1u);
    sim_.VddkSim_Release("VixDiskLib_Open");
    opener.join();
    EXPECT_EQ(openResult, VIX_OK);
    EXPECT_EQ(vddk_.VixDiskLib_Close(h), VIX_OK);
}

TEST_F(StandinTest, RecordsInitArgumentsConfigContentOpenFlagsAndImpersonation) {
    char buf[256];
    ASSERT_EQ(sim_.VddkSim_LastArg("libDir", buf, sizeof buf), 8u);
    EXPECT_STREQ(buf, "C:\\vddk");
    VixDiskLibHandle h = nullptr;
    ASSERT_EQ(vddk_.VixDiskLib_Open(conn_, kMem, VIXDISKLIB_FLAG_OPEN_READ_ONLY, &h), VIX_OK);
    ASSERT_GT(sim_.VddkSim_LastArg("openFlags", buf, sizeof buf), 0u);
    EXPECT_STREQ(buf, "4");
    ASSERT_EQ(sim_.VddkSim_LastArg("user.VixDiskLib_Open", buf, sizeof buf), 1u) << "not impersonating: empty";
    EXPECT_EQ(sim_.VddkSim_LastArg("never.recorded", buf, sizeof buf), 0u);
    vddk_.VixDiskLib_Close(h);

    // The configuration file is read at InitEx.
    const std::string config = TempFolder() + "\\vddk.cfg";
    ASSERT_TRUE(WriteText(config, "tmpDirectory = \"C:\\\\tmp\"\n"));
    vddk_.VixDiskLib_Exit();
    ASSERT_EQ(vddk_.VixDiskLib_InitEx(8, 0, nullptr, nullptr, nullptr, nullptr, config.c_str()), VIX_OK);
    ASSERT_GT(sim_.VddkSim_LastArg("configContent", buf, sizeof buf), 0u);
    EXPECT_STREQ(buf, "tmpDirectory = \"C:\\\\tmp\"\n");
}

TEST_F(StandinTest, LogLinesReachTheCallbacksAndTheBackgroundThreadStopsAtExit) {
    EXPECT_NE(sim_.VddkSim_BackgroundThreadId(), 0u);
    ASSERT_TRUE(sim_.VddkSim_TriggerLog(VDDKSIM_PANIC, "disk on fire"));
    ASSERT_TRUE(sim_.VddkSim_TriggerLog(VDDKSIM_WARNING, "smoke"));
    const auto lines = LogLines();
    EXPECT_NE(std::find(lines.begin(), lines.end(), "P:disk on fire\n"), lines.end());
    EXPECT_NE(std::find(lines.begin(), lines.end(), "W:smoke\n"), lines.end());
    vddk_.VixDiskLib_Exit();
    EXPECT_EQ(sim_.VddkSim_BackgroundThreadId(), 0u);
}

}  // namespace
}  // namespace standin_test
