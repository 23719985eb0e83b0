// The manifest and the change lists: what restore trusts and what the read
// cache is given must survive a round trip, and damage must be refused.
#include <string>

#include <gtest/gtest.h>

#include <dbtest/temp_dir.h>

#include "errors.h"
#include "extents.h"
#include "files.h"
#include "manifest.h"
#include "tool_checks.h"

namespace {

using namespace dbtool;
using tooltest::ErrorOf;
using tooltest::Holds;

const std::string kDigestA(64, 'a');
const std::string kDigestB(64, 'b');

std::string GoodText() {
    return "diskbroker-manifest 1\nsource C:\\disks\\child.vmdk\ncapacity 1048576\nmetadata x.img.meta\n"
           "extent 0 4096 " + kDigestA + "\nextent 65536 512 " + kDigestB + "\nstream " + kDigestA + "\n";
}

// The message of the Failure that parsing text throws ("" when it parses).
std::wstring ParseError(const std::string &text) {
    try {
        Manifest::Parse(text, L"m");
    } catch (const ToolError &e) {
        EXPECT_EQ(e.Code(), kExitFailed);
        return e.Message();
    }
    return L"";
}

std::string Replace(std::string text, const std::string &from, const std::string &to) {
    return text.replace(text.find(from), from.size(), to);
}

TEST(Manifest, SerializeAndParseRoundTrip) {
    const Manifest m = Manifest::Parse(GoodText(), L"m");
    EXPECT_EQ(m.capacity, 1048576u);
    EXPECT_EQ(m.source, L"C:\\disks\\child.vmdk");
    ASSERT_EQ(m.extents.size(), 2u);
    EXPECT_EQ(m.extents[1].range, (Extent{65536, 512}));
    EXPECT_EQ(m.StreamBytes(), 4608u);
    EXPECT_EQ(m.Serialize(), GoodText());
}

TEST(Manifest, RefusesDamage) {
    EXPECT_NE(ParseError("").find(L"empty file"), std::wstring::npos);
    const struct {
        std::string from, to;  // an edit of the good text
        const wchar_t *error;
    } edits[] = {
        {"manifest 1", "manifest 2", L"unsupported version"},
        {"capacity 1048576", "capacity 1O48576", L"line 3: bad capacity"},
        {"stream " + kDigestA, "stream " + kDigestA.substr(1), L"bad SHA-256"},
        {"stream " + kDigestA + "\n", "", L"no stream line"},
        {"extent 65536 512", "extent 4096 512", L"overlap"},
        {"extent 65536 512", "extent 1048064 1024", L"past the capacity"},
        {"extent 65536 512", "extent 65536 500", L"whole sectors"},
        {"extent 0 4096", "extent 99999999999999999999 4096", L"bad offset"},
        {"metadata", "metadate", L"unknown key"},
        {"metadata x.img.meta", "metadata ..\\..\\secret.txt", L"must be a file name beside the image"},
        {"metadata x.img.meta", "metadata C:x.meta", L"must be a file name beside the image"},
    };
    for (const auto &edit : edits)
        EXPECT_NE(ParseError(Replace(GoodText(), edit.from, edit.to)).find(edit.error), std::wstring::npos) << edit.to;
}

TEST(Extents, NormalizedIntersectionCoverageAndTheDiskEnd) {
    const ExtentList n = Normalized({{8192, 512}, {0, 1024}, {512, 1024}, {4096, 0}, {1536, 512}});
    EXPECT_EQ(n, (ExtentList{{0, 2048}, {8192, 512}})) << "sorted, merged, empty ones dropped";
    const ExtentList selection = {{1024, 1024}, {4096, 4096}};
    EXPECT_EQ(Intersection({0, 6144}, selection), (ExtentList{{1024, 1024}, {4096, 2048}}));
    EXPECT_TRUE(Intersection({2048, 2048}, selection).empty());
    Extent gap;
    EXPECT_FALSE(FirstUncovered({{0, 8192}}, selection, &gap));
    EXPECT_TRUE(FirstUncovered({{0, 1536}, {4096, 8192}}, selection, &gap));
    EXPECT_EQ(gap, (Extent{1536, 512}));
    EXPECT_NO_THROW(CheckWithinDisk({{0, 4096}}, 4096, L"x"));
    EXPECT_THROW(CheckWithinDisk({{512, 4096}}, 4096, L"x"), Failure);
    EXPECT_THROW(CheckWithinDisk({{~0ull - 511, 1024}}, 4096, L"x"), Failure);
}

class ChangeListTest : public ::testing::Test {
protected:
    std::wstring Write(const std::string &xml) {
        const std::wstring path = dir.File(L"list.xml");
        WriteWholeFile(path, xml);
        return path;
    }
    dbtest::TempDir dir;
};

// Extents that are not whole sectors are widened to the sectors holding them,
// never dropped; empty ones vanish.
TEST_F(ChangeListTest, ReadsEveryAreaInDocumentOrderWidenedToWholeSectors) {
    const std::wstring path = Write(
        "<?xml version=\"1.0\"?>\n<DiskChangeInfo>\n <area startoffset=\"0\" startlength=\"10\">\n"
        "  <extent offset=\"1536\" length=\"1000\"/>\n  <extent offset=\"0\" length=\"0\"/>\n </area>\n"
        " <area startoffset=\"0\" startlength=\"10\"/>\n <area startoffset=\"0\" startlength=\"10\">\n"
        "  <extent offset=\"1000\" length=\"1024\"/>\n  <extent offset=\"0\" length=\"100\"/>\n"
        "  <extent offset=\"4095\" length=\"2\"/>\n </area>\n</DiskChangeInfo>\n");
    EXPECT_EQ(LoadChangeList(path), (ExtentList{{1536, 1024}, {512, 1536}, {0, 512}, {3584, 1024}}));
}

TEST_F(ChangeListTest, SavedListReadsBack) {
    const ExtentList extents = {{0, 512}, {1 << 20, 65536}, {5ull << 32, 4096}};
    SaveChangeList(dir.File(L"saved.xml"), extents, 6ull << 32);
    EXPECT_EQ(LoadChangeList(dir.File(L"saved.xml")), extents);
}

TEST_F(ChangeListTest, RefusesWhatTheCacheCouldNotRead) {
    const struct {
        const char *xml;
        const wchar_t *error;
    } cases[] = {
        {"<DiskChangeInfo><area><extent offset=\"x\" length=\"512\"/></area></DiskChangeInfo>",
         L"extent 1 has no decimal \"offset\""},
        {"<DiskChangeInfo><area><extent offset=\"18446744073709551000\" length=\"1000\"/></area></DiskChangeInfo>",
         L"ends past 2^64"},
        {"<Other/>", L"no DiskChangeInfo"},
        {"<DiskChangeInfo><area>", L"not readable XML"},
    };
    for (const auto &c : cases) EXPECT_TRUE(Holds(ErrorOf([&] { LoadChangeList(Write(c.xml)); }), c.error)) << c.xml;
}

}  // namespace
