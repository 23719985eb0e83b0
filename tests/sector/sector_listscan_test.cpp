// The plain scan of DiskChangeInfo lists against the XmlLite path it stands in
// for: every list it takes must give what XmlLite's reading gives (runs in
// document order and extent count), and it must take every list of the plain
// shape XmlLite reads. Lists written in many plain spellings, then damaged.
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

struct Reading {
    bool ok = false;
    SectorRuns runs;
    uint64_t extents = 0;
};

::testing::AssertionResult SameRuns(const SectorRuns &a, const SectorRuns &b) {
    if (a.size() != b.size()) return ::testing::AssertionFailure() << a.size() << " runs against " << b.size();
    for (size_t i = 0; i < a.size(); ++i)
        if (a[i].first != b[i].first || a[i].last != b[i].last) return ::testing::AssertionFailure() << "run " << i;
    return ::testing::AssertionSuccess();
}

class ListScanTest : public ::testing::Test {
protected:
    void SetUp() override { SK_SetLogFilePath(L""); }

    // XmlLite's reading of text as a file.
    Reading Slow(const std::string &text, std::wstring &error) {
        const std::wstring path = dir.File(L"list.xml");
        EXPECT_TRUE(dbtest::WriteWholeFile(path, text));
        Reading slow;
        CXmlReader reader;
        slow.ok = sectormgr::LoadChangeList(path, reader) &&
                  sectormgr::ChangeListRuns(reader, path, slow.runs, slow.extents);
        error = reader.ErrorText();
        return slow;
    }

    // True when the scan takes text (as a file); then XmlLite must read it
    // the same. What the scan refuses is not given to XmlLite: Wine's
    // asserts on some damage ("<?x").
    bool Compare(const std::string &text) {
        const std::wstring path = dir.File(L"list.xml");
        EXPECT_TRUE(dbtest::WriteWholeFile(path, text));
        Reading fast;
        skclass::UniqueFile file(
            CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
        if (!sectormgr::ScanChangeListFile(file.get(), fast.runs, fast.extents)) return false;
        file.reset();
        std::wstring error;
        const Reading slow = Slow(text, error);
        EXPECT_TRUE(slow.ok) << text << "\nXmlLite: " << error;
        EXPECT_EQ(fast.extents, slow.extents) << text;
        EXPECT_TRUE(SameRuns(fast.runs, slow.runs)) << text;
        return true;
    }

    template <typename T>
    const T &Pick(const std::vector<T> &from) {
        return from[random() % from.size()];
    }

    uint64_t Value() {
        switch (random() % 4) {
            case 0: return random() % 4096;
            case 1: return (random() % 100000) * 512;
            case 2: return UINT64_MAX - random() % 2048;
            default: return random();
        }
    }

    std::string Attribute(const char *name, uint64_t value) {
        const std::vector<std::string> eqs = {"=", " = ", "\t=\r\n"};
        const char quote = random() % 2 ? '"' : '\'';
        return std::string(Pick(blanks_)) + name + Pick(eqs) + quote + std::to_string(value) + quote;
    }

    // A list of the plain shape in one of its many spellings.
    std::string PlainList(unsigned areas, unsigned perArea) {
        static const std::vector<std::string> prologs = {
            "", "\xEF\xBB\xBF", "<?xml version=\"1.0\"?>\n", "\xEF\xBB\xBF<?xml version='1.0' encoding='utf-8'?>",
            "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"no\" ?>\r\n",
            "<?xml  version = \"1.0\"\tstandalone='yes'?>"};
        const std::vector<std::string> space = {"", " ", "\r\n", "\n\t ", "\r"};
        const std::string prolog = Pick(prologs);
        // Blanks before the root only after a declaration: Wine's XmlLite finds no root after others.
        std::string text = prolog + (prolog.find('<') == std::string::npos ? "" : Pick(space)) + "<DiskChangeInfo" +
                           Pick(space);
        if (areas == 0 && random() % 2) return text + "/>" + Pick(space);
        text += ">";
        for (unsigned a = 0; a < areas; ++a) {
            text += Pick(space) + "<area";
            if (random() % 2) text += Attribute("startoffset", Value());
            if (random() % 2) text += Attribute("startlength", Value());
            if (perArea == 0 && random() % 2) {
                text += Pick(space) + "/>";
                continue;
            }
            text += Pick(space) + ">";
            for (unsigned e = 0; e < perArea; ++e) {
                const std::string offset = Attribute("offset", Value()), length = Attribute("length", Value());
                text += Pick(space) + "<extent" + (random() % 2 ? offset + length : length + offset) + Pick(space) +
                        "/>";
            }
            text += Pick(space) + "</area" + Pick(space) + ">";
        }
        return text + Pick(space) + "</DiskChangeInfo" + Pick(space) + ">" + Pick(space);
    }

    dbtest::TempDir dir;
    std::mt19937_64 random{20240917};
    const std::vector<const char *> blanks_ = {" ", "  ", "\t", "\r\n "};
};

TEST_F(ListScanTest, TakesEveryPlainSpellingAndReadsItAsXmlLiteDoes) {
    for (int i = 0; i < 300; ++i) {
        const std::string text = PlainList(unsigned(random() % 4), unsigned(random() % 5));
        std::wstring error;
        // The only plain lists XmlLite's path refuses end past 2^64; the scan leaves those to it.
        EXPECT_EQ(Compare(text), Slow(text, error).ok) << text << "\nXmlLite: " << error;
    }
}

TEST_F(ListScanTest, DamagedListsAreLeftToXmlLiteOrReadAsItReadsThem) {
    const std::string list =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<DiskChangeInfo>\n <area startoffset=\"0\" startlength=\"8192\">"
        "<extent offset=\"512\" length=\"1024\"/>\n  <extent length='4096' offset='3072' />"
        "</area>\n <area/>\n</DiskChangeInfo>\n";
    ASSERT_TRUE(Compare(list));
    int taken = 0;
    for (size_t at = 0; at <= list.size(); ++at) {
        taken += Compare(list.substr(0, at));
        if (at == list.size()) break;
        taken += Compare(list.substr(0, at) + list.substr(at + 1));
    }
    const std::vector<std::string> inserts = {
        "<!-- x -->", "&amp;", "&#49;", "<![CDATA[1]]>", "<?pi x?>", "<!DOCTYPE DiskChangeInfo>", "<x/>",
        " extra=\"1\"", "99999999999999999999", " offset=\"1\"", "\"", "'", "=", "/", ">", "<", "\xEF\xBB\xBF",
        "-", "+", " ", "a", std::string(1, '\0'), "\xC3\xA9", "</area>", "<area>",
        "<extent offset=\"0\" length=\"512\"/>"};
    for (int i = 0; i < 600; ++i) {
        std::string text = list;
        const size_t at = random() % (text.size() + 1);
        if (i % 2) text.insert(at, Pick(inserts));
        else if (at < text.size()) text[at] = Pick(inserts)[0];
        taken += Compare(text);
    }
    // Some damage leaves a plain list (a blank gone, a digit changed): those are compared too.
    EXPECT_GT(taken, 0);
}

}  // namespace
}  // namespace sectortest
