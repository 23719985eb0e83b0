// A thousand start/stop cycles of each cache, and a thousand open/close
// cycles of a disk with its own worker thread, leave the process with the
// handles and threads it had: every event, thread, token and histogram a
// cycle makes, it also releases.
#include <functional>

#include "../service/service_fixture.h"

#include <tlhelp32.h>  // after <windows.h>, which it needs

namespace lifecycletest {
namespace {

constexpr int kCycles = 1000;
// Warm-up cycles before the baseline: first-use allocations of Wine and the
// runtime are not leaks.
constexpr int kWarmUp = 20;
// Handles Wine may still be settling (a thread's handle closes a moment after
// it ends): a leak of one per cycle shows as hundreds.
constexpr DWORD kHandleSlack = 16;

// The process's handle count; where Windows does not tell it (Wine answers
// 0), the handle values that name an open handle, counted one by one.
DWORD HandleCount() {
    DWORD count = 0;
    if (GetProcessHandleCount(GetCurrentProcess(), &count) && count != 0) return count;
    for (uintptr_t value = 4; value < 4 * 32768; value += 4) {
        DWORD flags = 0;
        count += GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags) ? 1 : 0;
    }
    return count;
}

DWORD ThreadCount() {
    skclass::UniqueHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
    if (snapshot.get() == INVALID_HANDLE_VALUE) return 0;
    THREADENTRY32 entry{};
    entry.dwSize = sizeof entry;
    DWORD count = 0;
    for (BOOL more = Thread32First(snapshot.get(), &entry); more; more = Thread32Next(snapshot.get(), &entry))
        count += entry.th32OwnerProcessID == GetCurrentProcessId();
    return count;
}

class LifecycleTest : public servicetest::ConnectedServiceTest {
protected:
    // Runs cycle kWarmUp times, takes the counts, runs it kCycles times and
    // compares. The first failing cycle stops the run.
    void ExpectFlat(const std::function<bool()> &cycle) {
        for (int i = 0; i < kWarmUp; ++i) ASSERT_TRUE(cycle()) << "warm-up cycle " << i;
        const DWORD handles = HandleCount(), threads = ThreadCount();
        ASSERT_NE(handles, 0u);
        ASSERT_NE(threads, 0u);
        for (int i = 0; i < kCycles; ++i) ASSERT_TRUE(cycle()) << "cycle " << i;
        EXPECT_LE(HandleCount(), handles + kHandleSlack) << "handles before: " << handles;
        EXPECT_EQ(ThreadCount(), threads);
    }
};

TEST_F(LifecycleTest, CacheRestartsLeakNothing) {
    StartService({L"", 0});
    ExpectFlat([&] {
        diskReadContextStruct read;
        diskWriteContextStruct write;
        const bool started = service->startReadCacheThread(&read, 2, 4, 0) == 0 &&
                             service->startWriteCacheThread(&write, 2, 4, 0, 1) == 0;
        const bool stopped = service->stopReadCacheThread(&read) == 0 && service->stopWriteCacheThread(&write) == 0;
        return started && stopped && read.threadHandle == nullptr && write.threadHandle == nullptr;
    });
}

TEST_F(LifecycleTest, OpenCloseWithHandleWorkersLeaksNothing) {
    StartService({L"", 1});
    ExpectFlat([&] {
        _vixReadWriteHandle *handle = nullptr;
        wcstring mode;
        if (service->VixDiskLib_Open(connection, "memdisk://cycle?size=65536", 0, L"Read", &handle, mode) != VIX_OK)
            return false;
        uint8 sector[512];
        const bool read = service->VixDiskLib_Read(handle, 0, 1, sector) == VIX_OK;
        return service->VixDiskLib_Close(handle) == VIX_OK && read;
    });
    EXPECT_EQ(Calls("VixDiskLib_Exit"), 0u) << "a handle's worker leaves VDDK to the service";
}

}  // namespace
}  // namespace lifecycletest
