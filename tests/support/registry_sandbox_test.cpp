#include <gtest/gtest.h>

#include <string>
#include <vector>
#include <dbtest/child_process.h>
#include <dbtest/registry_sandbox.h>

namespace {

constexpr DWORD kTimeoutMs = 60000;

bool KeyExists(HKEY root, const wchar_t *path) {
    HKEY key = nullptr;
    if (RegOpenKeyExW(root, path, 0, KEY_READ, &key) != ERROR_SUCCESS) return false;
    RegCloseKey(key);
    return true;
}

// Two test programs under ctest -j2 each build a sandbox at the same moment: one
// tearing its sandbox down must never make the other's creation fail.
TEST(RegistrySandbox, ProcessesBuildingSandboxesTogetherNeverCollide) {
    std::vector<dbtest::ChildProcess> processes;
    for (int i = 0; i < 4; ++i) {
        processes.emplace_back(L"sandbox_churn_helper.exe", L"2000");
        ASSERT_TRUE(processes.back().Started()) << "CreateProcessW failed: " << processes.back().StartError();
    }
    for (auto &process : processes) {
        const int64_t failures = process.Finish(kTimeoutMs);
        ASSERT_GE(failures, 0) << "a churn helper hung";
        EXPECT_EQ(failures, 0) << "sandboxes that failed in one helper";
    }
}

TEST(RegistrySandbox, RedirectsHklmAndLeavesNothingBehind) {
    std::wstring rootPath;
    {
        dbtest::RegistrySandbox sandbox;
        ASSERT_TRUE(sandbox.Ok()) << sandbox.Error();
        rootPath = sandbox.RootPath();
        ASSERT_EQ(sandbox.SetString(L"Software\\Probe", L"Name", L"value"), ERROR_SUCCESS);
        EXPECT_TRUE(KeyExists(HKEY_CURRENT_USER, (rootPath + L"\\Software\\Probe").c_str()));
    }
    EXPECT_FALSE(KeyExists(HKEY_CURRENT_USER, rootPath.c_str()));
    EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, L"Software\\Probe"));
}

}  // namespace
