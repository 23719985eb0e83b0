// A process that leaves a started worker-thread singleton alive must end
// promptly and cleanly; one that shuts it down and frees the DLL must return.
#include <gtest/gtest.h>

#include <string>
#include <skclass_mini/handles.h>
#include "test_wait.h"

namespace {

using namespace skclass_test;

std::wstring HelperPath() {
    wchar_t self[MAX_PATH];
    const DWORD length = GetModuleFileNameW(nullptr, self, MAX_PATH);
    std::wstring path(self, length);
    return path.substr(0, path.find_last_of(L'\\') + 1) + L"skclass_exit_helper.exe";
}

// Runs the helper with scenario; the exit code, or a failure if it does not
// end within the timeout (then it is killed).
testing::AssertionResult RunsToExitCode(const wchar_t *scenario, DWORD expectedCode) {
    std::wstring command = L"\"" + HelperPath() + L"\" " + scenario;
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION info{};
    if (!CreateProcessW(nullptr, &command[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &info)) {
        return testing::AssertionFailure() << "CreateProcessW failed: " << GetLastError();
    }
    skclass::UniqueHandle process(info.hProcess);
    skclass::UniqueHandle thread(info.hThread);
    if (WaitForSingleObject(process.get(), kTimeoutMs) != WAIT_OBJECT_0) {
        TerminateProcess(process.get(), 99);
        return testing::AssertionFailure() << "the helper did not end within " << kTimeoutMs << " ms";
    }
    DWORD code = 0;
    GetExitCodeProcess(process.get(), &code);
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
