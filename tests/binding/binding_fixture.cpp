#include "binding_fixture.h"

#include <skclass_mini/strings.h>
#include <skstdutl/sklog.h>

namespace bindingtest {

std::string Utf8(const std::wstring &wide) { return cstring::ToUtf8(wide); }

std::wstring Padded(uint64_t value) {
    std::wstring digits = std::to_wstring(value);
    if (digits.size() < 8) digits.insert(0, 8 - digits.size(), L'0');
    return digits;
}

std::wstring Padded(const void *pointer) { return Padded(static_cast<uint64_t>(reinterpret_cast<uintptr_t>(pointer))); }

std::wstring Api(const std::wstring &rest) { return L"Calling the vixdiskLib api: " + rest; }

std::wstring CurrentPath() {
    const DWORD needed = GetEnvironmentVariableW(L"PATH", nullptr, 0);
    std::wstring path(needed, L'\0');
    const DWORD written = GetEnvironmentVariableW(L"PATH", &path[0], needed);
    path.resize(written);
    return path;
}

void BindingTest::SetUp() {
    SK_SetLogFilePath(L"");  // no log file: it would stay open inside our folders
    ASSERT_TRUE(registry.Ok()) << registry.Error();
    ASSERT_FALSE(install.Path().empty());
    savedPath_ = CurrentPath();
}

void BindingTest::TearDown() {
    // Every binding adds its folders to PATH; the next test starts from the same PATH.
    SetEnvironmentVariableW(L"PATH", savedPath_.c_str());
}

void BindingTest::Install(int product, dbtest::VddkVariant variant) {
    if (product != 0) {
        ASSERT_EQ(registry.SetDword(kProductKey, L"Product", DWORD(product)), ERROR_SUCCESS);
    }
    std::string error;
    ASSERT_TRUE(dbtest::InstallVddkStandin(install.Path(), product, variant, &error)) << error;
}

std::wstring BindingTest::InstallDir(int product) const {
    return Root() + (product == 0 ? L"\\VMware\\VixDiskLib\\" : L"\\Shared\\VDDK\\");
}

std::wstring BindingTest::BinDir(int product) const { return InstallDir(product) + (product == 0 ? L"bin\\" : L""); }

::testing::AssertionResult BindingTest::Attach(HMODULE loadedDiskLib) {
    if (!loadedDiskLib) return ::testing::AssertionFailure() << "the binding loaded no library";
    if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, reinterpret_cast<LPCWSTR>(loadedDiskLib),
                            pinned.put()))
        return ::testing::AssertionFailure() << "GetModuleHandleExW failed: " << GetLastError();
    if (!sim.Load(pinned.get())) return ::testing::AssertionFailure() << "no control interface in the loaded library";
    return ::testing::AssertionSuccess();
}

}  // namespace bindingtest
