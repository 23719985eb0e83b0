#include <gtest/gtest.h>

#include <string>
#include <vector>
#include <dbtest/registry_sandbox.h>
#include <skclass_mini/handles.h>

namespace {

constexpr DWORD kTimeoutMs = 60000;

std::wstring HelperPath() {
    wchar_t self[MAX_PATH];
    const DWORD length = GetModuleFileNameW(nullptr, self, MAX_PATH);
    std::wstring path(self, length);
    return path.substr(0, path.find_last_of(L'\\') + 1) + L"sandbox_churn_helper.exe";
}

bool KeyExists(HKEY root, const wchar_t *path) {
    HKEY key = nullptr;
    if (RegOpenKeyExW(root, path, 0, KEY_READ, &key) != ERROR_SUCCESS) return false;
    RegCloseKey(key);
    return true;
}

// Two test programs under ctest -j2 each build a sandbox at the same moment: one
// tearing its sandbox down must never make the other's creation fail.
TEST(RegistrySandbox, ProcessesBuildingSandboxesTogetherNeverCollide) {
    std::vector<skclass::UniqueHandle> processes;
    for (int i = 0; i < 4; ++i) {
        std::wstring command = L"\"" + HelperPath() + L"\" 2000";
        STARTUPINFOW startup{};
        startup.cb = sizeof(startup);
        PROCESS_INFORMATION info{};
        ASSERT_TRUE(CreateProcessW(nullptr, &command[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                                   &info))
            << "CreateProcessW failed: " << GetLastError();
        CloseHandle(info.hThread);
        processes.emplace_back(info.hProcess);
    }
    for (auto &process : processes) {
        ASSERT_EQ(WaitForSingleObject(process.get(), kTimeoutMs), WAIT_OBJECT_0) << "a churn helper hung";
        DWORD failures = 0;
        GetExitCodeProcess(process.get(), &failures);
        EXPECT_EQ(failures, 0u) << "sandboxes that failed in one helper";
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
