// A process that leaves a started worker-thread singleton alive must end
// promptly and cleanly; one that shuts it down and frees the DLL must return.
#include <gtest/gtest.h>

#include <dbtest/child_process.h>
#include <dbtest/wait.h>

namespace {

using namespace dbtest;

// Runs the helper with scenario; the exit code, or a failure if it does not
// end within the timeout (then it is killed).
testing::AssertionResult RunsToExitCode(const wchar_t *scenario, DWORD expectedCode) {
    dbtest::ChildProcess helper(L"skclass_exit_helper.exe", scenario);
    if (!helper.Started()) return testing::AssertionFailure() << "CreateProcessW failed: " << helper.StartError();
    const int64_t code = helper.Finish(kTimeoutMs);
    if (code < 0) return testing::AssertionFailure() << "the helper did not end within " << kTimeoutMs << " ms";
    if (code != expectedCode) return testing::AssertionFailure() << "exit code " << code;
    return testing::AssertionSuccess();
}

TEST(ProcessExit, EndsPromptlyWithAnIdleWorkerSingletonAlive) {
    EXPECT_TRUE(RunsToExitCode(L"leave-alive", 0));
}

TEST(ProcessExit, EndsPromptlyWithTheWorkerInsideACall) {
    EXPECT_TRUE(RunsToExitCode(L"busy-at-exit", 0));
}

TEST(ProcessExit, ReleaseStopThenFreeLibraryReturns) {
    EXPECT_TRUE(RunsToExitCode(L"release-and-free", 0));
}

}  // namespace
