// VixDiskLib_OpenLocal and its descriptor work on real files against the VDDK
// stand-in: what is relinked and what is left alone, the failures that end in
// 16030, and hostile disk files that must end in a log line, never a write.
// (Whole chains read back and checked by qemu-img: qemu_relink.sh.)
#include <dbtest/files.h>

#include "../service/service_fixture.h"

namespace servicetest {
namespace {

constexpr VixError kChainNotRelinked = 16030;

void PutLe64(std::string &bytes, size_t at, uint64_t value) {
    for (int i = 0; i < 8; ++i) bytes[at + i] = char(value >> (8 * i));
}

// A sparse extent header naming a descriptor at offsetSectors, sizeSectors
// long, then the descriptor text NUL padded (what the relinking code reads;
// no grains behind it).
std::string SparseFile(const std::string &descriptor, uint64_t sizeSectors = 2, uint64_t offsetSectors = 1) {
    std::string bytes(512, '\0');
    bytes.replace(0, 4, "KDMV");
    PutLe64(bytes, 28, offsetSectors);
    PutLe64(bytes, 36, sizeSectors);
    std::string area(size_t(sizeSectors * 512), '\0');
    area.replace(0, std::min(descriptor.size(), area.size()), descriptor.substr(0, area.size()));
    return offsetSectors == 0 ? bytes : bytes + area;
}

std::string Descriptor(const std::string &cid, const std::string &parentCid, const std::string &hint) {
    std::string text = "# Disk DescriptorFile\nversion=1\nCID=" + cid + "\nparentCID=" + parentCid +
                       "\ncreateType=\"monolithicSparse\"\n";
    if (!hint.empty()) text += "parentFileNameHint=\"" + hint + "\"\n";
    return text + "\nRW 2048 SPARSE \"x.vmdk\"\n";
}

class LocalChainTest : public ConnectedServiceTest {
protected:
    void SetUp() override {
        ServiceTest::SetUp();
        StartService(AllModels().front());
        ASSERT_TRUE(CreateDirectoryW(parentDir().c_str(), nullptr));
        ASSERT_TRUE(CreateDirectoryW(childDir().c_str(), nullptr));
        EXPECT_TRUE(dbtest::WriteWholeFile(parent(), SparseFile(Descriptor("a1b2c3d4", "ffffffff", ""))));
        EXPECT_TRUE(
            dbtest::WriteWholeFile(child(), SparseFile(Descriptor("11112222", "a1b2c3d4", "..\\old\\disk.vmdk"))));
        log.Clear();
    }
    std::wstring parentDir() const { return disks.File(L"parent"); }
    std::wstring childDir() const { return disks.File(L"child"); }
    std::wstring parent() const { return parentDir() + L"\\disk.vmdk"; }
    std::wstring child() const { return childDir() + L"\\disk-000001.vmdk"; }

    VixError OpenLocal(const std::wstring &disk, const wchar_t *tag, std::vector<wcstring> ancestors) {
        _vixReadWriteHandle *handle = reinterpret_cast<_vixReadWriteHandle *>(uintptr_t(0xBAD));
        wcstring mode;
        const VixError result =
            service->VixDiskLib_OpenLocal(connection, cstring::ToAnsi(disk).c_str(), 0, tag, &handle, mode, ancestors);
        if (result == kChainNotRelinked) {
            EXPECT_EQ(handle, nullptr);
        }
        if (result == VIX_OK) service->VixDiskLib_Close(handle);
        return result;
    }

    dbtest::TempDir disks;
};

TEST_F(LocalChainTest, RelinksTheChildToItsAncestorAndSkipsItsOwnFolder) {
    // The own folder, differently cased, stands last and must not be searched
    // (it would find the child itself).
    std::wstring ownFolder = childDir();
    for (wchar_t &c : ownFolder) c = wchar_t(towupper(c));
    OpenLocal(child(), L"READ", {parentDir(), ownFolder});
    EXPECT_EQ(service->GetParentDiskPath(child()), parent());
    const std::string bytes = dbtest::ReadWholeFile(child());
    EXPECT_NE(bytes.find("CID=11112222\nparentCID=a1b2c3d4\nparentFileNameHint=\"" + Utf8(parent()) + "\"\n"),
              std::string::npos);
    EXPECT_EQ(Calls("VixDiskLib_Open"), 1u);
}

TEST_F(LocalChainTest, LeavesDisksAloneWhenWritingOrAlreadyLinked) {
    const std::string before = dbtest::ReadWholeFile(child());
    OpenLocal(child(), L"Write", {parentDir()});
    EXPECT_EQ(dbtest::ReadWholeFile(child()), before) << "a disk opened for writing is not relinked";
    EXPECT_EQ(Calls("VixDiskLib_Open"), 1u);

    std::wstring sameParent = parent();
    for (wchar_t &c : sameParent) c = wchar_t(towlower(c));
    EXPECT_TRUE(dbtest::WriteWholeFile(child(), SparseFile(Descriptor("11112222", "a1b2c3d4", Utf8(sameParent)))));
    const std::string linked = dbtest::ReadWholeFile(child());
    OpenLocal(child(), L"Read", {parentDir()});
    EXPECT_EQ(dbtest::ReadWholeFile(child()), linked) << "a hint naming the found parent in another case is kept";
}

TEST_F(LocalChainTest, ParentWithoutValidCidFailsTheOpenWithTheChildUntouched) {
    const std::string before = dbtest::ReadWholeFile(child());
    const std::string parents[] = {
        SparseFile("# Disk DescriptorFile\nversion=1\ncreateType=\"monolithicSparse\"\n"),
        SparseFile("", 0, 0),  // no embedded descriptor
    };
    for (const std::string &bytes : parents) {
        EXPECT_TRUE(dbtest::WriteWholeFile(parent(), bytes));
        EXPECT_EQ(OpenLocal(child(), L"Read", {parentDir()}), kChainNotRelinked);
        EXPECT_EQ(dbtest::ReadWholeFile(child()), before);
    }
    EXPECT_EQ(Calls("VixDiskLib_Open"), 0u) << "nothing is opened after a failed relink";
}

// Hostile children, and one whose rewrite would not fit: each ends in false,
// file unchanged. (Every reason the rewrite refuses takes the last row's way
// out.)
TEST_F(LocalChainTest, HostileChildFilesAreNeverWritten) {
    std::string hugeSize = SparseFile(Descriptor("1", "a1b2c3d4", "x"));
    PutLe64(hugeSize, 36, ~0ull / 512);
    // One sector of descriptor, 511 bytes and its NUL, without a hint: no room to add one.
    std::string noRoom = Descriptor("11112222", "a1b2c3d4", "");
    noRoom += "#" + std::string(509 - noRoom.size(), 'c') + "\n";
    const struct {
        const char *what;
        std::string bytes;
    } cases[] = {
        {"short file", std::string(100, 'K')},
        {"huge size", hugeSize},
        {"no descriptor", SparseFile("", 0, 0)},
        {"no room for the parent's path", SparseFile(noRoom, 1)},
    };
    for (const auto &hostile : cases) {
        SCOPED_TRACE(hostile.what);
        EXPECT_TRUE(dbtest::WriteWholeFile(child(), hostile.bytes));
        EXPECT_FALSE(service->UpdateParentDiskLink(child(), parent()));
        EXPECT_EQ(dbtest::ReadWholeFile(child()), hostile.bytes);
        EXPECT_EQ(service->GetParentDiskPath(child()), L"");
    }
    EXPECT_FALSE(service->UpdateParentDiskLink(child(), disks.File(L"missing.vmdk")));
}

}  // namespace
}  // namespace servicetest
