// Disk handles against the stand-in: open tags and statistics, per-handle
// workers, share paths and impersonation, failures.
#include <thread>
#include <vector>

#include <vddksim.h>

#include "service_fixture.h"

namespace servicetest {
namespace {

const char kDisk[] = "memdisk://handles?size=1048576&seed=7";
const wchar_t kDiskWide[] = L"memdisk://handles?size=1048576&seed=7";

class HandleTest : public InEachModel<ConnectedServiceTest> {
protected:
    _vixReadWriteHandle *Open(const char *path, const wchar_t *tag, VixError expected = VIX_OK) {
        _vixReadWriteHandle *handle = reinterpret_cast<_vixReadWriteHandle *>(uintptr_t(0xBAD));
        wcstring mode;
        EXPECT_EQ(service->VixDiskLib_Open(connection, path, 0, tag, &handle, mode), expected);
        if (expected == VIX_OK) {
            EXPECT_EQ(mode, L"file");
        } else {
            EXPECT_EQ(handle, nullptr);
        }
        return handle;
    }
};

TEST_P(HandleTest, ReadsThroughTheHandleAndLogsItsStatistics) {
    _vixReadWriteHandle *handle = Open(kDisk, L"read");
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(handle->stats.kind, _vixReadWriteStats::kRead) << "the tag is compared without regard to case";
    EXPECT_EQ(handle->stats.name, kDiskWide);
    EXPECT_EQ(handle->worker != nullptr, service->UsesWorkerForReadWrite());
    EXPECT_EQ(sim.LastArg("user.VixDiskLib_Open"), "") << "a local path is opened without impersonation";
    EXPECT_EQ(log.CountStartingWith(L"vixWorkerThread::::SKWT_VixDiskLib_Open: Failed to duplicate"), 0u);

    std::vector<uint8_t> buffer(16 * 512);
    ASSERT_EQ(service->VixDiskLib_Read(handle, 8, 16, buffer.data()), VixError(VIX_OK));
    EXPECT_EQ(buffer, PatternBytes(7, 8, 16));
    ASSERT_EQ(service->VixDiskLib_Read(handle, 24, 16, buffer.data()), VixError(VIX_OK));
    EXPECT_EQ(buffer, PatternBytes(7, 24, 16));

    EXPECT_EQ(CloseDisk(handle), VixError(VIX_OK));
    EXPECT_TRUE(log.Contains(std::wstring(L"VixDiskLib_Read(") + kDiskWide +
                             L") No of reads: 2 Data chunks: [2 * 16] Data extent: "
                             L"[00000008-00000032(00004096-00016384)] "));
    EXPECT_EQ(sim.VddkSim_OpenHandleCount(), 0u);
}

TEST_P(HandleTest, WritesAndMetadataGoThroughTheHandle) {
    const char path[] = "memdisk://writes?size=65536&seed=3&verify=1";
    _vixReadWriteHandle *handle = Open(path, L"WRITE");
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(handle->stats.kind, _vixReadWriteStats::kWrite);
    const std::vector<uint8_t> sectors = PatternBytes(3, 4, 8);
    EXPECT_EQ(service->VixDiskLib_Write(handle, 4, 8, sectors.data()), VixError(VIX_OK));
    EXPECT_EQ(sim.VddkSim_MemDiskWrittenSectors("writes"), 8u);
    EXPECT_EQ(sim.VddkSim_MemDiskMismatches("writes"), 0u);

    EXPECT_EQ(service->VixDiskLib_WriteMetadata(handle, "owner", "backup"), VixError(VIX_OK));
    size_t required = 0;
    char value[64] = {};
    EXPECT_EQ(service->VixDiskLib_ReadMetadata(handle, "owner", value, sizeof value, &required), VixError(VIX_OK));
    EXPECT_STREQ(value, "backup");
    EXPECT_EQ(CloseDisk(handle), VixError(VIX_OK));
    EXPECT_TRUE(log.Contains(L"VixDiskLib_Write(memdisk://writes?size=65536&seed=3&verify=1) No of writes: 1 "
                             L"Data chunks: [1 * 8] Data extent:[00000004-00000008(00002048-00004096)] "));
}

TEST_P(HandleTest, ErrorTwentyOneAsksTheRemoteParentMappingOnce) {
    sim.ScriptResult("VixDiskLib_Open", 1, VIX_E_FILE_TOO_BIG);
    Open(kDisk, L"Read", VIX_E_FILE_TOO_BIG);
    EXPECT_TRUE(log.Contains(L"Error Text: '" + VddkErrorText(VIX_E_FILE_TOO_BIG) + L"' Error: '21'"));
}

TEST_P(HandleTest, ANullCloseStaysHere) {
    EXPECT_EQ(service->VixDiskLib_Close(nullptr), VixError(VIX_OK));
    EXPECT_EQ(Calls("VixDiskLib_Close"), 0u);
}

INSTANTIATE_TEST_SUITE_P(Models, HandleTest, ::testing::ValuesIn(AllModels()), ModelName);

// Whether another thread that impersonates a duplicate of this thread's token
// shows it as its own thread token (what the stand-in records).
bool ImpersonationIsVisibleAcrossThreads() {
    skclass::UniqueHandle token, duplicate;
    if (!OpenThreadToken(GetCurrentThread(), TOKEN_DUPLICATE, TRUE, token.put())) return false;
    if (!DuplicateTokenEx(token.get(), TOKEN_DUPLICATE | TOKEN_IMPERSONATE | TOKEN_QUERY, nullptr,
                          SecurityImpersonation, TokenImpersonation, duplicate.put()))
        return false;
    bool visible = false;
    std::thread other([&] {
        if (!ImpersonateLoggedOnUser(duplicate.get())) return;
        skclass::UniqueHandle seen;
        visible = OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, seen.put()) != FALSE;
        RevertToSelf();
    });
    other.join();
    return visible;
}

// A share path in the worker model: the open runs under the caller's identity.
TEST_F(ConnectedServiceTest, ASharePathIsOpenedUnderTheCallersToken) {
    StartService(AllModels().front());
    ASSERT_TRUE(ImpersonateSelf(SecurityImpersonation));
    if (!ImpersonationIsVisibleAcrossThreads()) {
        RevertToSelf();
        GTEST_SKIP() << "this Windows (Wine) does not show an impersonated token to OpenThreadToken";
    }
    _vixReadWriteHandle *handle = nullptr;
    wcstring mode;
    const VixError result =
        service->VixDiskLib_Open(connection, "\\\\filer\\backups\\disk.vmdk", 0, L"Read", &handle, mode);
    RevertToSelf();
    EXPECT_NE(result, VixError(VIX_OK)) << "no such share";
    EXPECT_EQ(handle, nullptr);
    EXPECT_FALSE(sim.LastArg("user.VixDiskLib_Open").empty()) << "the worker impersonated the job thread for the open";
    EXPECT_TRUE(log.Contains(L"Error Text: '" + VddkErrorText(result) + L"' Error: '" +
                             std::to_wstring(static_cast<long long>(result)) + L"'"))
        << "a share path always asks the remote-parent mapping";
}

}  // namespace
}  // namespace servicetest
