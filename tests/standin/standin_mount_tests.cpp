// The stand-in's vixMntapi over its own disks: volumes from an MBR, mount and dismount.
#include <string.h>

#include "standin_test_util.h"

namespace standin_test {
namespace {

template <typename Fn>
Fn Get(HMODULE m, const char *name) {
    return reinterpret_cast<Fn>(reinterpret_cast<void (*)()>(GetProcAddress(m, name)));
}

TEST_F(StandinTest, MountLibraryFindsMbrVolumesAndMountsThem) {
    const std::string disk = TempFolder() + "\\mbr.vmdk";
    ASSERT_EQ(CreateSparse(vddk_, conn_, disk, 8192), VIX_OK);
    VixDiskLibHandle h = nullptr;
    ASSERT_EQ(vddk_.VixDiskLib_Open(conn_, disk.c_str(), 0, &h), VIX_OK);
    uint8_t mbr[512] = {};
    uint8_t *entry = mbr + 446;
    entry[4] = 0x07;  // NTFS
    const uint32_t first = 2048, count = 4096;
    memcpy(entry + 8, &first, 4);
    memcpy(entry + 12, &count, 4);
    mbr[510] = 0x55;
    mbr[511] = 0xAA;
    ASSERT_EQ(vddk_.VixDiskLib_Write(h, 0, 1, mbr), VIX_OK);

    const std::wstring dll = dbtest::VddkStandinBuildFolder(dbtest::VddkVariant::Normal, L"vixMntapi.dll") + L"vixMntapi.dll";
    HMODULE mnt = LoadLibraryW(dll.c_str());
    ASSERT_NE(mnt, nullptr);
    VixDiskSetHandle set = nullptr;
    ASSERT_EQ(Get<VixMntapi_OpenDiskSet_fn>(mnt, "VixMntapi_OpenDiskSet")(&h, 1, 0, &set), VIX_OK);
    size_t n = 0;
    VixVolumeHandle *volumes = nullptr;
    ASSERT_EQ(Get<VixMntapi_GetVolumeHandles_fn>(mnt, "VixMntapi_GetVolumeHandles")(set, &n, &volumes), VIX_OK);
    ASSERT_EQ(n, 1u);
    auto mount = Get<VixMntapi_MountVolume_fn>(mnt, "VixMntapi_MountVolume");
    ASSERT_EQ(mount(volumes[0], 1), VIX_OK);
    EXPECT_EQ(mount(volumes[0], 1), VixError(VIX_E_MNTAPI_VOLUME_ALREADY_MOUNTED));
    VixVolumeInfo *info = nullptr;
    ASSERT_EQ(Get<VixMntapi_GetVolumeInfo_fn>(mnt, "VixMntapi_GetVolumeInfo")(volumes[0], &info), VIX_OK);
    EXPECT_EQ(info->type, VIXMNTAPI_BASIC_PARTITION);
    EXPECT_TRUE(info->isMounted);
    EXPECT_EQ(strncmp(info->symbolicLink, "\\\\.\\vstor2-mntapi10-shared-", 27), 0) << info->symbolicLink;
    Get<VixMntapi_FreeVolumeInfo_fn>(mnt, "VixMntapi_FreeVolumeInfo")(info);
    auto dismount = Get<VixMntapi_DismountVolume_fn>(mnt, "VixMntapi_DismountVolume");
    EXPECT_EQ(dismount(volumes[0], 0), VIX_OK);
    EXPECT_EQ(dismount(volumes[0], 0), VixError(VIX_E_MNTAPI_VOLUME_NOT_MOUNTED));
    VixOsInfo *os = nullptr;
    ASSERT_EQ(Get<VixMntapi_GetOsInfo_fn>(mnt, "VixMntapi_GetOsInfo")(set, &os), VIX_OK);
    EXPECT_STREQ(os->vendor, "unknown");
    Get<VixMntapi_FreeOsInfo_fn>(mnt, "VixMntapi_FreeOsInfo")(os);
    Get<VixMntapi_FreeVolumeHandles_fn>(mnt, "VixMntapi_FreeVolumeHandles")(volumes);
    EXPECT_EQ(Get<VixMntapi_CloseDiskSet_fn>(mnt, "VixMntapi_CloseDiskSet")(set), VIX_OK);
    EXPECT_EQ(sim_.VddkSim_CallCount("VixMntapi_MountVolume"), 2u) << "mount calls share the control state";
    FreeLibrary(mnt);
    EXPECT_EQ(vddk_.VixDiskLib_Close(h), VIX_OK);
}

}  // namespace
}  // namespace standin_test
