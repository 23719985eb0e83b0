// The descriptor unit on its own: header fields, line ends, the parent link
// read and rewritten, disk base names. (Arbitrary bytes: tests/fuzz's
// local_chain target.)
#include <string.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "vmdk_descriptor.h"

namespace {

using vmdkdesc::LineReader;

// A descriptor area of size bytes holding text, NUL padded.
std::vector<char> AreaWith(const std::string &text, size_t size = 1024) {
    std::vector<char> area(size, '\0');
    memcpy(area.data(), text.data(), std::min(text.size(), size));
    return area;
}

// What ReadParentHint gives for a 1024-byte area holding text.
std::string Hint(const std::string &text) {
    const std::vector<char> area = AreaWith(text);
    std::string value, error;
    return vmdkdesc::ReadParentHint(area.data(), area.size(), value, error) ? value : "<error: " + error + ">";
}

const char kChild[] =
    "# Disk DescriptorFile\n"
    "version=1\n"
    "CID=1a2b3c4d\n"
    "parentCID=0badf00d\n"
    "createType=\"monolithicSparse\"\n"
    "parentFileNameHint=\"../A/disk.vmdk\"\n"
    "\n"
    "RW 65536 SPARSE \"disk-000001.vmdk\"\n"
    "ddb.virtualHWVersion = \"4\"\n";

TEST(DescriptorHeader, FieldsAreLittleEndianSectorsAndMustLieInTheFile) {
    uint8_t header[vmdkdesc::kHeaderSize] = {};
    header[28] = 1;
    header[36] = 20;
    header[37] = 1;  // 276 sectors
    const vmdkdesc::Area area = vmdkdesc::AreaFromHeader(header);
    EXPECT_EQ(area.offsetSectors, 1u);
    EXPECT_EQ(area.sizeSectors, 276u);
    uint64_t offset = 0;
    size_t size = 0;
    std::string error;
    EXPECT_TRUE(vmdkdesc::AreaInFile(area, 277 * 512, offset, size, error));
    EXPECT_EQ(offset, 512u);
    EXPECT_EQ(size, 276u * 512);
    EXPECT_FALSE(vmdkdesc::AreaInFile(area, 277 * 512 - 1, offset, size, error)) << "one byte short";
    EXPECT_FALSE(vmdkdesc::AreaInFile({~0ull, 2}, 1 << 20, offset, size, error));
    EXPECT_FALSE(vmdkdesc::AreaInFile({1, ~0ull}, 1 << 20, offset, size, error)) << "offset + size overflows";
    EXPECT_FALSE(vmdkdesc::AreaInFile({1, (64 << 20) / 512 + 1}, 1ull << 40, offset, size, error))
        << "an area is read whole: past 64 MiB a hostile file could ask for any size";
}

// The text must end inside the area, whether its last line ends or not.
TEST(DescriptorLines, TextMustEndInsideTheArea) {
    std::string line;
    std::string error;
    for (const std::string full : {"a=1\nb=2\n", "a=1\nb=2"}) {
        LineReader noNul(full.data(), full.size());
        EXPECT_EQ(noNul.Next(line, error), LineReader::Step::Line);
        EXPECT_EQ(noNul.Next(line, error), full.back() == '\n' ? LineReader::Step::Line : LineReader::Step::Error);
        EXPECT_EQ(noNul.Next(line, error), LineReader::Step::Error) << ::testing::PrintToString(full);
    }
}

// (A child's plain hint and its parent's CID: the relink tests.)
TEST(DescriptorParentLink, HintIsReadOnlyFromAChild) {
    EXPECT_EQ(Hint("CID=12345678\r\nparentCID=FFFFffff\r\nparentFileNameHint=\"x.vmdk\"\r\n"), "")
        << "a base disk has no parent, whatever its hint says";
    EXPECT_EQ(Hint("parentCID=00000001\r\nparentFileNameHint=\"C:\\d\\x.vmdk\"\r\n"), "C:\\d\\x.vmdk")
        << "quotes and carriage return dropped";
}

TEST(DescriptorParentLink, RewriteReplacesOnlyTheTwoParentLines) {
    const std::vector<char> area = AreaWith(kChild);
    std::vector<char> out;
    std::string error;
    ASSERT_TRUE(vmdkdesc::RewriteParentLink(area.data(), area.size(), "cafe0001", "D:\\p\\disk.vmdk", out, error));
    ASSERT_EQ(out.size(), area.size());
    const std::string expected =
        "# Disk DescriptorFile\n"
        "version=1\n"
        "CID=1a2b3c4d\n"
        "parentCID=cafe0001\n"
        "parentFileNameHint=\"D:\\p\\disk.vmdk\"\n"
        "createType=\"monolithicSparse\"\n"
        "\n"
        "RW 65536 SPARSE \"disk-000001.vmdk\"\n"
        "ddb.virtualHWVersion = \"4\"\n";
    EXPECT_EQ(std::string(out.data()), expected);
    for (size_t i = expected.size(); i < out.size(); ++i) ASSERT_EQ(out[i], '\0') << "padding at " << i;
}

TEST(DescriptorParentLink, ChildWithoutParentCidLosesItsHintAndGainsNothing) {
    const std::vector<char> area = AreaWith("CID=11111111\nparentFileNameHint=\"old.vmdk\"\nRW 8 SPARSE \"c.vmdk\"\n");
    std::vector<char> out;
    std::string error;
    ASSERT_TRUE(vmdkdesc::RewriteParentLink(area.data(), area.size(), "22222222", "new.vmdk", out, error));
    EXPECT_EQ(std::string(out.data()), "CID=11111111\nRW 8 SPARSE \"c.vmdk\"\n");
}

TEST(DescriptorParentLink, TextThatWouldNotFitIsRefusedAndOutputUntouched) {
    const std::string text = "CID=11111111\nparentCID=22222222\n";
    std::vector<char> area = AreaWith(text, 64);
    std::vector<char> out{'k', 'e', 'e', 'p'};
    std::string error;
    EXPECT_FALSE(vmdkdesc::RewriteParentLink(area.data(), area.size(), "33333333", std::string(40, 'p'), out, error));
    EXPECT_EQ(out, (std::vector<char>{'k', 'e', 'e', 'p'}));
    // Exactly one byte short of the area: refused too, the text must keep a NUL.
    const size_t room = 64 - (text.size() + std::string("parentFileNameHint=\"\"\n").size());
    EXPECT_FALSE(vmdkdesc::RewriteParentLink(area.data(), area.size(), "33333333", std::string(room, 'p'), out, error));
    EXPECT_TRUE(vmdkdesc::RewriteParentLink(area.data(), area.size(), "33333333", std::string(room - 1, 'p'), out, error));
    EXPECT_EQ(out.back(), '\0');
}

TEST(DiskBaseName, FolderExtensionAndSevenCharacterTailAreDropped) {
    EXPECT_EQ(vmdkdesc::DiskBaseName(L"C:\\vm\\disk-000002.vmdk"), L"disk");
    EXPECT_EQ(vmdkdesc::DiskBaseName(L"my-disk.vmdk"), L"my-disk");
}

}  // namespace
