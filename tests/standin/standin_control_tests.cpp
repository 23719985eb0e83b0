// The stand-in's control interface: blocking, overlaps, recorded arguments.
// Scripted results (path, sector range, count) are checked by the product tests
// that script them: the fault matrix, the read cache's failure tests and the VM
// backup job's mid-stream failure.
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

// libDir and the configuration file's content are checked through the service's
// start-up tests, the open's user through the worker's impersonation tests, and
// the log callbacks and the InitEx thread through the service's start-up tests.
TEST_F(StandinTest, RecordsOpenFlagsAndNothingForWhatWasNeverRecorded) {
    VixDiskLibHandle h = nullptr;
    ASSERT_EQ(vddk_.VixDiskLib_Open(conn_, kMem, VIXDISKLIB_FLAG_OPEN_READ_ONLY, &h), VIX_OK);
    char buf[256];
    ASSERT_GT(sim_.VddkSim_LastArg("openFlags", buf, sizeof buf), 0u);
    EXPECT_STREQ(buf, "4");
    EXPECT_EQ(sim_.VddkSim_LastArg("never.recorded", buf, sizeof buf), 0u);
    vddk_.VixDiskLib_Close(h);
}

}  // namespace
}  // namespace standin_test
