// A process that leaves a started worker-thread singleton alive must end
// promptly and cleanly; one that shuts it down and frees the DLL must return;
// one that crashes must say so and never end with exit code 0.
#include <gtest/gtest.h>

#include <dbtest/child_process.h>
#include <dbtest/wait.h>

namespace {

using namespace dbtest;

// Each scenario of the helper must end within the timeout (else it is killed)
// with exit code 0: it ran to its end.
TEST(ProcessExit, EndsPromptlyWithTheWorkerIdleOrInsideACallOrReleasedAndFreed) {
    for (const wchar_t *scenario : {L"leave-alive", L"busy-at-exit", L"release-and-free"}) {
        SCOPED_TRACE(::testing::PrintToString(std::wstring(scenario)));
        dbtest::ChildProcess helper(L"skclass_exit_helper.exe", scenario);
        ASSERT_TRUE(helper.Started()) << "CreateProcessW failed: " << helper.StartError();
        EXPECT_EQ(helper.Finish(kTimeoutMs), 0) << "-1: the helper did not end within " << kTimeoutMs << " ms";
    }
}

// Under Wine a crash in a process with several threads could end it with exit
// code 0; the test programs' exit on crash makes it 70.
TEST(ProcessExit, ACrashEndsWithItsOwnExitCode) {
    dbtest::ChildProcess helper(L"skclass_exit_helper.exe", L"crash", true);
    ASSERT_TRUE(helper.Started()) << "CreateProcessW failed: " << helper.StartError();
    EXPECT_EQ(helper.Finish(kTimeoutMs), 70) << helper.Output();
}

// A child that hangs with its output open fails its wait at the bound (and is
// killed), with what it wrote, instead of holding the test until CTest's end.
TEST(ProcessExit, AHungChildFailsTheBoundedWait) {
    dbtest::ChildProcess helper(L"skclass_exit_helper.exe", L"hang", true);
    ASSERT_TRUE(helper.Started()) << "CreateProcessW failed: " << helper.StartError();
    EXPECT_EQ(helper.Finish(500), -1);
    EXPECT_NE(helper.Output().find("hanging"), std::string::npos) << helper.Output();
}

}  // namespace
