// Mounting disk sets against the stand-in's mount library: the service's own
// configuration file deleted after VixMntapi_Init in both models, a disk set
// opened and closed, and the OpenDisks cases that must not retry. (The share
// retry: chains_share_test.)
#include "../service/service_fixture.h"

namespace servicetest {
namespace {

size_t IniFilesIn(const std::wstring &folder) {
    WIN32_FIND_DATAW entry = {};
    skclass::UniqueFind search(FindFirstFileW((folder + L"\\vddk-*.ini").c_str(), &entry));
    if (!search) return 0;
    size_t count = 0;
    do ++count;
    while (FindNextFileW(search.get(), &entry));
    return count;
}

class MountTest : public InEachModel<ConnectedServiceTest> {
protected:
    dbtest::TempDir disks;
};

TEST_P(MountTest, InitDeletesItsConfigurationFileWhateverTheOutcome) {
    ASSERT_EQ(IniFilesIn(data.Path()), 0u);
    // The caller's arguments are not used: the service's own stand instead.
    EXPECT_EQ(service->VixMntapi_Init(VIXMNTAPI_MAJOR_VERSION, VIXMNTAPI_MINOR_VERSION, nullptr, nullptr, nullptr,
                                      "C:\\nowhere", "C:\\nowhere\\my.ini"),
              VixError(VIX_OK));
    EXPECT_EQ(IniFilesIn(data.Path()), 0u);
    EXPECT_EQ(Calls("VixMntapi_Init"), 1u);

    sim.ScriptResult("VixMntapi_Init", 1, VIX_E_MNTAPI_INCOMPATIBLE_VERSION);
    const VixError failed = service->VixMntapi_Init(VIXMNTAPI_MAJOR_VERSION, 0, nullptr, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(failed, VixError(VIX_E_MNTAPI_INCOMPATIBLE_VERSION));
    EXPECT_EQ(IniFilesIn(data.Path()), 0u) << "deleted after a failed Init too";

    // Kept on request: so the checks above see a file that was written.
    SetAgentDword(L"Preserve vddk ini file", 1);
    service->VixMntapi_Init(VIXMNTAPI_MAJOR_VERSION, 0, nullptr, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(IniFilesIn(data.Path()), 1u);
}

TEST_P(MountTest, ADiskSetOpensAndClosesAndAMissingDiskIsNotRetried) {
    const std::string disk = Utf8(disks.File(L"set.vmdk"));
    VixDiskLibCreateParams params = {VIXDISKLIB_DISK_MONOLITHIC_SPARSE, VIXDISKLIB_ADAPTER_SCSI_LSILOGIC, 7, 16384, 512,
                                     512};
    ASSERT_EQ(service->VixDiskLib_Create(connection, disk.c_str(), &params, nullptr, nullptr), VixError(VIX_OK));
    const char *names[] = {disk.c_str()};
    VixDiskSetHandle set = nullptr;
    ASSERT_EQ(service->VixMntapi_OpenDisks(connection, names, 1, VIXDISKLIB_FLAG_OPEN_READ_ONLY, &set),
              VixError(VIX_OK));
    EXPECT_EQ(sim.VddkSim_OpenHandleCount(), 1u);
    EXPECT_EQ(service->VixMntapi_CloseDiskSet(set), VixError(VIX_OK)) << "a set without a mapping only closes";
    EXPECT_EQ(sim.VddkSim_OpenHandleCount(), 0u);

    // A local name failing with another code than the share's is not retried.
    const std::string missing = Utf8(disks.File(L"missing.vmdk"));
    names[0] = missing.c_str();
    EXPECT_EQ(service->VixMntapi_OpenDisks(connection, names, 1, 0, &set), VixError(VIX_E_FILE_NOT_FOUND));
    EXPECT_EQ(Calls("VixMntapi_OpenDisks"), 2u);
    EXPECT_TRUE(service->DeviceMappings().empty());
}

INSTANTIATE_TEST_SUITE_P(Models, MountTest, ::testing::Values(Model{L"", 0}, Model{L"no threading", 0}), ModelName);

}  // namespace
}  // namespace servicetest
