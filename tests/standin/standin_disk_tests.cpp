// The stand-in's disk behaviour: memory disks, chains and CIDs,
// bad input and hostile files.
#include <vector>

#include "standin_test_util.h"

namespace standin_test {
namespace {

// The pattern a memory disk reads is compared word for word by the service's
// handle tests; here a write of anything else is counted.
TEST_F(StandinTest, MemoryDiskVerifiesWrites) {
    VixDiskLibHandle h = nullptr;
    ASSERT_EQ(vddk_.VixDiskLib_Open(conn_, "memdisk://m?size=8388608&seed=99&verify=1", 0, &h), VIX_OK);
    std::vector<uint8_t> buf(512 * 8);
    ASSERT_EQ(vddk_.VixDiskLib_Read(h, 100, 8, buf.data()), VIX_OK);
    ASSERT_EQ(vddk_.VixDiskLib_Write(h, 100, 8, buf.data()), VIX_OK);
    buf[513] ^= 1;
    ASSERT_EQ(vddk_.VixDiskLib_Write(h, 100, 8, buf.data()), VIX_OK);
    EXPECT_EQ(sim_.VddkSim_MemDiskWrittenSectors("m"), 16u);
    EXPECT_EQ(sim_.VddkSim_MemDiskMismatches("m"), 1u);
    EXPECT_EQ(vddk_.VixDiskLib_Read(h, 16384 - 1, 2, buf.data()), VixError(VIX_E_DISK_OUTOFRANGE));
    EXPECT_EQ(vddk_.VixDiskLib_Close(h), VIX_OK);
}

TEST_F(StandinTest, ChildReadsThroughParentAndRefusesAStaleParentCid) {
    const std::string folder = TempFolder(), base = folder + "\\base.vmdk", child = folder + "\\child.vmdk";
    ASSERT_EQ(CreateSparse(vddk_, conn_, base, 4096, VIXDISKLIB_DISK_MONOLITHIC_FLAT), VIX_OK);
    VixDiskLibHandle h = nullptr;
    ASSERT_EQ(vddk_.VixDiskLib_Open(conn_, base.c_str(), 0, &h), VIX_OK);
    std::vector<uint8_t> data(512 * 4, 0xab), back(512 * 4);
    ASSERT_EQ(vddk_.VixDiskLib_Write(h, 10, 4, data.data()), VIX_OK);
    ASSERT_EQ(vddk_.VixDiskLib_CreateChild(h, child.c_str(), VIXDISKLIB_DISK_MONOLITHIC_SPARSE, nullptr, nullptr), VIX_OK);
    vddk_.VixDiskLib_Close(h);

    ASSERT_EQ(vddk_.VixDiskLib_Open(conn_, child.c_str(), 0, &h), VIX_OK);
    VixDiskLibInfo *info = nullptr;
    ASSERT_EQ(vddk_.VixDiskLib_GetInfo(h, &info), VIX_OK);
    EXPECT_EQ(info->numLinks, 2);
    EXPECT_EQ(info->capacity, 4096u);
    EXPECT_STREQ(info->parentFileNameHint, "base.vmdk");
    vddk_.VixDiskLib_FreeInfo(info);
    ASSERT_EQ(vddk_.VixDiskLib_Read(h, 10, 4, back.data()), VIX_OK);
    EXPECT_EQ(back, data);
    EXPECT_STREQ(vddk_.VixDiskLib_GetTransportMode(h), "file");
    vddk_.VixDiskLib_Close(h);

    // Writing the parent after the child exists changes its CID: the child is refused.
    ASSERT_EQ(vddk_.VixDiskLib_Open(conn_, base.c_str(), 0, &h), VIX_OK);
    ASSERT_EQ(vddk_.VixDiskLib_Write(h, 0, 1, data.data()), VIX_OK);
    vddk_.VixDiskLib_Close(h);
    EXPECT_EQ(vddk_.VixDiskLib_Open(conn_, child.c_str(), 0, &h), VixError(VIX_E_DISK_CID_MISMATCH));
    EXPECT_TRUE(Warned("CID"));
    ASSERT_EQ(vddk_.VixDiskLib_Open(conn_, child.c_str(), VIXDISKLIB_FLAG_OPEN_SINGLE_LINK, &h), VIX_OK);
    vddk_.VixDiskLib_Close(h);

    ASSERT_EQ(vddk_.VixDiskLib_Unlink(conn_, base.c_str()), VIX_OK);
    EXPECT_EQ(vddk_.VixDiskLib_Open(conn_, child.c_str(), 0, &h), VixError(VIX_E_DISK_OPENPARENT));
}

TEST_F(StandinTest, BadInputGivesVddkCodes) {
    VixDiskLibHandle h = nullptr;
    auto bogus = reinterpret_cast<VixDiskLibHandle>(&h);
    uint8_t buf[512];
    EXPECT_EQ(vddk_.VixDiskLib_Read(bogus, 0, 1, buf), VixError(VIX_E_INVALID_HANDLE));
    EXPECT_EQ(vddk_.VixDiskLib_Close(nullptr), VixError(VIX_E_INVALID_HANDLE));
    EXPECT_EQ(vddk_.VixDiskLib_Open(conn_, nullptr, 0, &h), VixError(VIX_E_INVALID_ARG));
    EXPECT_EQ(vddk_.VixDiskLib_Open(conn_, "memdisk://x?size=4096", 0, nullptr), VixError(VIX_E_INVALID_ARG));
    EXPECT_EQ(vddk_.VixDiskLib_GetInfo(bogus, nullptr), VixError(VIX_E_INVALID_ARG));

    const std::string folder = TempFolder();
    EXPECT_EQ(vddk_.VixDiskLib_Open(conn_, (folder + "\\absent.vmdk").c_str(), 0, &h), VixError(VIX_E_FILE_NOT_FOUND));
    const std::string junk = folder + "\\junk.vmdk";
    ASSERT_TRUE(WriteText(junk, "not a disk at all"));
    EXPECT_EQ(vddk_.VixDiskLib_Open(conn_, junk.c_str(), 0, &h), VixError(VIX_E_DISK_INVALIDDISK));

    EXPECT_EQ(sim_.VddkSim_OpenHandleCount(), 0u);
}

// A descriptor that claims more than its extent holds, a chain that leads back
// to itself, a target that cannot be made: each a VDDK error that says what is
// wrong. Numbers that wrap or lie outside the file are the fuzz targets'.
TEST_F(StandinTest, HostileFilesGiveClearErrors) {
    const std::string folder = TempFolder();
    VixDiskLibHandle h = nullptr;
    const std::string flat = folder + "\\a.vmdk";
    ASSERT_EQ(CreateSparse(vddk_, conn_, flat, 64, VIXDISKLIB_DISK_MONOLITHIC_FLAT), VIX_OK);
    ASSERT_TRUE(WriteText(flat, "version=1\nCID=1\nparentCID=ffffffff\ncreateType=\"monolithicFlat\"\n"
                                "RW 999999 FLAT \"a-flat.vmdk\" 0\n"));  // more sectors than the extent holds
    EXPECT_EQ(vddk_.VixDiskLib_Open(conn_, flat.c_str(), 0, &h), VixError(VIX_E_DISK_NEEDSREPAIR));

    // A disk that names itself as its parent.
    ASSERT_TRUE(WriteText(flat, "version=1\nCID=1\nparentCID=1\ncreateType=\"monolithicFlat\"\n"
                                "parentFileNameHint=\"a.vmdk\"\nRW 64 FLAT \"a-flat.vmdk\" 0\n"));
    EXPECT_EQ(vddk_.VixDiskLib_Open(conn_, flat.c_str(), 0, &h), VixError(VIX_E_DISK_OPENPARENT));
    EXPECT_TRUE(Warned("loops back"));

    // A target in a folder that does not exist, and a size no disk has.
    const std::string lost = folder + "\\no such folder\\t.vmdk";
    EXPECT_EQ(CreateSparse(vddk_, conn_, lost, 64), VixError(VIX_E_FILE_NOT_FOUND));
    EXPECT_TRUE(Warned("does not exist"));
    EXPECT_EQ(CreateSparse(vddk_, conn_, folder + "\\huge.vmdk", 1ull << 40), VixError(VIX_E_FILE_TOO_BIG));
    EXPECT_EQ(sim_.VddkSim_OpenHandleCount(), 0u);
}

}  // namespace
}  // namespace standin_test
