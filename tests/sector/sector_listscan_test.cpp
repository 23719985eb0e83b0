// The plain scan of DiskChangeInfo lists against the XmlLite path it stands in
// for: every list it takes must give what XmlLite's reading gives (runs in
// document order and extent count), and it must take the lists of the plain
// shape in every spelling their writers use. Those lists, then damaged.
#include <stdint.h>

#include <random>
#include <string>

#include <gtest/gtest.h>

#include <dbtest/temp_dir.h>
#include <skclass_mini/handles.h>
#include <skstdutl/sklog.h>
#include <skxml/xmlreader.h>

#include "sector_changelist.h"
#include "sector_fixture.h"
#include "sector_listscan.h"

namespace sectortest {
namespace {

using sectormgr::SectorRuns;

::testing::AssertionResult SameRuns(const SectorRuns &a, const SectorRuns &b) {
    if (a.size() != b.size()) return ::testing::AssertionFailure() << a.size() << " runs against " << b.size();
    for (size_t i = 0; i < a.size(); ++i)
        if (a[i].first != b[i].first || a[i].last != b[i].last) return ::testing::AssertionFailure() << "run " << i;
    return ::testing::AssertionSuccess();
}

class ListScanTest : public ::testing::Test {
protected:
    void SetUp() override { SK_SetLogFilePath(L""); }

    // True when the scan takes text (as a file); then XmlLite must read it
    // the same. What the scan refuses is not given to XmlLite: Wine's
    // asserts on some damage ("<?x").
    bool Compare(const std::string &text) {
        const std::wstring path = dir.File(L"list.xml");
        EXPECT_TRUE(dbtest::WriteWholeFile(path, text));
        SectorRuns fast, slow;
        uint64_t fastExtents = 0, slowExtents = 0;
        skclass::UniqueFile file(
            CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
        if (!sectormgr::ScanChangeListFile(file.get(), fast, fastExtents)) return false;
        file.reset();
        CXmlReader reader;
        EXPECT_TRUE(sectormgr::LoadChangeList(path, reader) &&
                    sectormgr::ChangeListRuns(reader, path, slow, slowExtents))
            << text << "\nXmlLite: " << reader.ErrorText();
        EXPECT_EQ(fastExtents, slowExtents) << text;
        EXPECT_TRUE(SameRuns(fast, slow)) << text;
        return true;
    }

    dbtest::TempDir dir;
    std::mt19937_64 random{20240917};
};

TEST_F(ListScanTest, PlainSpellingsAreTakenAndDamagedOnesLeftToXmlLiteOrReadAsItReadsThem) {
    // Blanks of every kind wherever XML allows them (but before the root only
    // after a declaration: Wine's XmlLite finds no root after others), either
    // quote, attributes in either order, areas and a root with nothing in
    // them, a declaration in its forms, a BOM, the last whole sector.
    const std::string lists[] = {
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<DiskChangeInfo>\n <area startoffset=\"0\" startlength=\"8192\">"
        "<extent offset=\"512\" length=\"1024\"/>\n  <extent length='4096' offset='3072' />"
        "</area>\n <area/>\n</DiskChangeInfo>\n",
        "\xEF\xBB\xBF<?xml version='1.0'\tencoding = 'utf-8'\r\n standalone=\"no\" ?>\r\n<DiskChangeInfo\t>\r\n"
        "<area\tstartlength\t=\r\n'1' startoffset='5'><extent\r\noffset='18446744073709550080' length=\"1024\"\t/>"
        "<extent offset='0' length='511'/></area\r><area startoffset='5'/></DiskChangeInfo\n>\t",
        "<?xml  version = \"1.0\"\tstandalone='yes'?><DiskChangeInfo></DiskChangeInfo>", "<DiskChangeInfo/>"};
    const std::string inserts[] = {
        "<!-- x -->", "&amp;", "&#49;", "<![CDATA[1]]>", "<?pi x?>", "<!DOCTYPE DiskChangeInfo>", "<x/>",
        " extra=\"1\"", "99999999999999999999", " offset=\"1\"", "\"", "'", "=", "/", ">", "<", "\xEF\xBB\xBF",
        "-", "+", " ", "a", std::string(1, '\0'), "\xC3\xA9", "</area>", "<area>",
        "<extent offset=\"0\" length=\"512\"/>"};
    int taken = 0;
    for (const std::string &list : lists) {
        ASSERT_TRUE(Compare(list)) << "not taken: " << list;
        for (size_t at = 0; at <= list.size(); ++at) {
            taken += Compare(list.substr(0, at));
            if (at == list.size()) break;
            taken += Compare(list.substr(0, at) + list.substr(at + 1));
        }
        for (int i = 0; i < 300; ++i) {
            std::string text = list;
            const std::string &insert = inserts[random() % (sizeof inserts / sizeof inserts[0])];
            const size_t at = random() % (text.size() + 1);
            if (i % 2) text.insert(at, insert);
            else if (at < text.size()) text[at] = insert[0];
            taken += Compare(text);
        }
    }
    // Some damage leaves a plain list (a blank gone, a digit changed): those are compared too.
    EXPECT_GT(taken, 0);
    // What XmlLite refuses (Wine's finds no root after a blank) the scan must leave to it.
    for (const char *refused :
         {" <DiskChangeInfo/>", "<DiskChangeInfo><area startlength='1' startlength='1'/></DiskChangeInfo>",
          "<DiskChangeInfo><area><extent offset='1' offset='1' length='512'/></area></DiskChangeInfo>"})
        EXPECT_FALSE(Compare(refused)) << refused;
}

}  // namespace
}  // namespace sectortest
