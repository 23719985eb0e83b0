// A stand-in copy loaded from a folder of its own and freed again must give
// back what it took from the process: each test installs fresh copies, and a
// TLS index lost per load ended a --gtest_repeat run after about 1088 loads.
#include <windows.h>

#include <string>
#include <thread>

#include <gtest/gtest.h>

#include <dbtest/temp_dir.h>
#include <dbtest/vddk_install.h>

namespace {

// The lowest free TLS index; it only rises while indexes stay taken.
DWORD LowestFreeTlsIndex() {
    const DWORD index = TlsAlloc();
    if (index != TLS_OUT_OF_INDEXES) TlsFree(index);
    return index;
}

::testing::AssertionResult LoadAndFreeCopy(const dbtest::TempDir &dir, int copy, const wchar_t *dll) {
    const std::wstring folder = dir.File(L"copy" + std::to_wstring(copy));
    const std::wstring target = folder + L"\\" + dll;
    const std::wstring from = dbtest::VddkStandinBuildFolder(dbtest::VddkVariant::Normal, dll) + dll;
    if (!CreateDirectoryW(folder.c_str(), nullptr) || !CopyFileW(from.c_str(), target.c_str(), FALSE))
        return ::testing::AssertionFailure() << "cannot copy the stand-in, error " << GetLastError();
    HMODULE module = LoadLibraryW(target.c_str());
    if (!module) return ::testing::AssertionFailure() << "cannot load copy " << copy << ", error " << GetLastError();
    // Used as the product uses it, from a thread of its own: the C++ runtime
    // inside takes its per-thread state only once it runs.
    dbtest::VddkDiskLibExports exports;
    if (exports.Load(module) != vddk::kDiskLibEntryPointCount)
        return FreeLibrary(module), ::testing::AssertionFailure() << "copy " << copy << " lacks exports";
    std::thread user([&] {
        exports.VixDiskLib_InitEx(8, 0, nullptr, nullptr, nullptr, nullptr, nullptr);
        exports.VixDiskLib_Exit();
    });
    user.join();
    FreeLibrary(module);
    return ::testing::AssertionSuccess();
}

TEST(StandinReload, CopiesLoadedFromNewFoldersLeaveNoTlsIndexTaken) {
    dbtest::TempDir dir;
    ASSERT_FALSE(dir.Path().empty());
    // The first load may keep what is shared by every later copy.
    ASSERT_TRUE(LoadAndFreeCopy(dir, 0, L"vixDiskLib.dll"));
    const DWORD before = LowestFreeTlsIndex();
    ASSERT_NE(before, TLS_OUT_OF_INDEXES);
    for (int copy = 1; copy <= 3; ++copy) ASSERT_TRUE(LoadAndFreeCopy(dir, copy, L"vixDiskLib.dll"));
    EXPECT_EQ(LowestFreeTlsIndex(), before) << "each copy loaded and freed keeps a TLS index";
}

}  // namespace
