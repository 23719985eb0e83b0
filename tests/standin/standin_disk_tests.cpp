// The stand-in's disk behaviour: memory disks, metadata probing, chains and CIDs,
// bad input and remote paths. qemu interop is qemu_interop.sh.
#include <string.h>

#include <utility>
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

TEST_F(StandinTest, MetadataFollowsVddkProbingRules) {
    const std::string disk = TempFolder() + "\\meta.vmdk";
    ASSERT_EQ(CreateSparse(vddk_, conn_, disk, 2048), VIX_OK);
    VixDiskLibHandle h = nullptr;
    ASSERT_EQ(vddk_.VixDiskLib_Open(conn_, disk.c_str(), 0, &h), VIX_OK);
    size_t required = 0;
    EXPECT_EQ(vddk_.VixDiskLib_ReadMetadata(h, "adapterType", nullptr, 0, &required), VixError(VIX_E_BUFFER_TOOSMALL));
    EXPECT_EQ(required, sizeof "lsilogic");
    char small[4] = {'x', 'x', 'x', 'x'};
    EXPECT_EQ(vddk_.VixDiskLib_ReadMetadata(h, "adapterType", small, sizeof small, &required), VixError(VIX_E_BUFFER_TOOSMALL));
    EXPECT_EQ(memcmp(small, "xxxx", 4), 0) << "buffer untouched";
    EXPECT_EQ(vddk_.VixDiskLib_ReadMetadata(h, "no.such.key", small, sizeof small, &required), VixError(VIX_E_DISK_KEY_NOTFOUND));
    ASSERT_EQ(vddk_.VixDiskLib_WriteMetadata(h, "uuid", "60 00 C2 99"), VIX_OK);
    ASSERT_EQ(vddk_.VixDiskLib_GetMetadataKeys(h, nullptr, 0, &required), VixError(VIX_E_BUFFER_TOOSMALL));
    std::vector<char> keys(required, 'x');
    ASSERT_EQ(vddk_.VixDiskLib_GetMetadataKeys(h, keys.data(), keys.size(), nullptr), VIX_OK);
    EXPECT_EQ(keys[keys.size() - 1], '\0');
    EXPECT_EQ(keys[keys.size() - 2], '\0');
    EXPECT_STREQ(keys.data(), "virtualHWVersion");
    ASSERT_EQ(vddk_.VixDiskLib_Close(h), VIX_OK);
    ASSERT_EQ(vddk_.VixDiskLib_Open(conn_, disk.c_str(), VIXDISKLIB_FLAG_OPEN_READ_ONLY, &h), VIX_OK);
    char uuid[32];
    ASSERT_EQ(vddk_.VixDiskLib_ReadMetadata(h, "uuid", uuid, sizeof uuid, nullptr), VIX_OK) << "persisted";
    EXPECT_STREQ(uuid, "60 00 C2 99");
    EXPECT_EQ(vddk_.VixDiskLib_WriteMetadata(h, "uuid", "x"), VixError(VIX_E_FILE_READ_ONLY));
    vddk_.VixDiskLib_Close(h);
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

    // A sparse file cut short of its metadata.
    const std::string cut = folder + "\\cut.vmdk";
    ASSERT_EQ(CreateSparse(vddk_, conn_, cut, 204800), VIX_OK);
    HANDLE file = CreateFileA(cut.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    LARGE_INTEGER at;
    at.QuadPart = 30 * 512;
    SetFilePointerEx(file, at, nullptr, FILE_BEGIN);
    SetEndOfFile(file);
    CloseHandle(file);
    EXPECT_EQ(vddk_.VixDiskLib_Open(conn_, cut.c_str(), 0, &h), VixError(VIX_E_DISK_NEEDSREPAIR));
    EXPECT_EQ(sim_.VddkSim_OpenHandleCount(), 0u);
}

// Every number a file carries is checked before it is used: sizes and offsets
// that wrap or lie outside the file, directories past its end, a chain that
// leads back to itself. Each is a VDDK error that says what is wrong.
TEST_F(StandinTest, HostileFilesGiveClearErrors) {
    const std::string folder = TempFolder();
    VixDiskLibHandle h = nullptr;
    const std::string flat = folder + "\\a.vmdk";
    ASSERT_EQ(CreateSparse(vddk_, conn_, flat, 64, VIXDISKLIB_DISK_MONOLITHIC_FLAT), VIX_OK);
    const std::string head = "version=1\nCID=1\nparentCID=ffffffff\ncreateType=\"monolithicFlat\"\n";
    const struct {
        const char *extents;
        VixError expected;
    } descriptors[] = {
        {"RW 999999 FLAT \"a-flat.vmdk\" 0\n", VIX_E_DISK_NEEDSREPAIR},  // more sectors than the extent holds
        {"RW -1 FLAT \"a-flat.vmdk\" 0\n", VIX_E_DISK_INVALIDDISK},
        {"RW 64 FLAT \"a-flat.vmdk\" 18446744073709551615\n", VIX_E_DISK_INVALIDDISK},
        {"RW 18446744073709551615 FLAT \"a-flat.vmdk\" 1\n", VIX_E_DISK_INVALIDDISK},
        {"RW 137438953472 FLAT \"a-flat.vmdk\" 0\nRW 137438953472 FLAT \"a-flat.vmdk\" 0\n", VIX_E_DISK_INVALIDDISK},
    };
    for (const auto &d : descriptors) {
        ASSERT_TRUE(WriteText(flat, head + d.extents));
        EXPECT_EQ(vddk_.VixDiskLib_Open(conn_, flat.c_str(), 0, &h), d.expected) << d.extents;
    }

    // Sparse headers whose directory lies past the end, or whose capacity no disk has.
    const std::string sparse = folder + "\\s.vmdk";
    for (const auto &patch : {std::pair<long, uint64_t>{56, 0xFFFFFFFFFFFFull}, {48, 0x7FFFFFFFFFFFFFFFull},
                              {12, 0x8000000000000000ull}}) {
        DeleteFileA(sparse.c_str());
        ASSERT_EQ(CreateSparse(vddk_, conn_, sparse, 4096), VIX_OK);
        FILE *f = fopen(sparse.c_str(), "r+b");
        ASSERT_NE(f, nullptr);
        fseek(f, patch.first, SEEK_SET);
        fwrite(&patch.second, 8, 1, f);
        fclose(f);
        const VixError opened = vddk_.VixDiskLib_Open(conn_, sparse.c_str(), 0, &h);
        EXPECT_TRUE(opened == VIX_E_DISK_NEEDSREPAIR || opened == VIX_E_DISK_NOTSUPPORTED)
            << "header field at " << patch.first << ": " << opened;
    }

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

// The access state PrepareForAccess and EndAccess keep is checked by the
// fault matrix after every prepare and end.
TEST_F(StandinTest, RemoteConnectionMapsDatastorePathsReadOnly) {
    const std::string root = TempFolder();
    CreateDirectoryA((root + "\\ds1").c_str(), nullptr);
    CreateDirectoryA((root + "\\ds1\\vm").c_str(), nullptr);
    ASSERT_EQ(CreateSparse(vddk_, conn_, root + "\\ds1\\vm\\disk.vmdk", 2048), VIX_OK);
    sim_.VddkSim_SetRemoteRoot(root.c_str());
    VixDiskLibConnectParams params = {};
    params.vmxSpec = const_cast<char *>("moref=vm-42");
    params.serverName = const_cast<char *>("vcenter.example");
    VixDiskLibConnection remote = nullptr;
    ASSERT_EQ(vddk_.VixDiskLib_ConnectEx(&params, 1, "snapshot-7", "nbd", &remote), VIX_OK);
    VixDiskLibHandle h = nullptr;
    ASSERT_EQ(vddk_.VixDiskLib_Open(remote, "[ds1] vm/disk.vmdk", 0, &h), VIX_OK);
    EXPECT_STREQ(vddk_.VixDiskLib_GetTransportMode(h), "nbd");
    uint8_t buf[512];
    EXPECT_EQ(vddk_.VixDiskLib_Write(h, 0, 1, buf), VixError(VIX_E_FILE_READ_ONLY)) << "read-only connection";
    vddk_.VixDiskLib_Close(h);
    VixDiskLibCreateParams p = {VIXDISKLIB_DISK_MONOLITHIC_SPARSE, VIXDISKLIB_ADAPTER_IDE, 7, 2048, 512, 512};
    EXPECT_EQ(vddk_.VixDiskLib_Create(remote, "[ds1] vm/new.vmdk", &p, nullptr, nullptr),
              VixError(VIX_E_NOT_SUPPORTED_ON_REMOTE_OBJECT));
    vddk_.VixDiskLib_Disconnect(remote);
}

}  // namespace
}  // namespace standin_test
