// CXmlReader: attributes, UTF-8, malformed and truncated input. Cursor moves
// are checked by the walks over extent lists of several areas (the read
// cache's streams, the sector manager's XmlLite path).
#include <memory>
#include <string>
#include <vector>
#include <gtest/gtest.h>
#include <dbtest/files.h>
#include <dbtest/temp_dir.h>
#include <dbtest/wait.h>
#include <skxml/xmlreader.h>
#include <windows.h>

namespace {

TEST(XmlReader, AttributesAsUInt64) {
    CXmlReader reader;
    // The number rules are fuzzed against a reference; here the attribute calls around them.
    ASSERT_TRUE(reader.LoadXML(L"<a max=\"18446744073709551615\" over=\"18446744073709551616\"/>"));
    ASSERT_TRUE(reader.SelectFirstChild());
    uint64_t value = 7;
    EXPECT_TRUE(reader.GetAttributeUInt64(L"max", value));
    EXPECT_EQ(value, UINT64_MAX);
    value = 7;
    for (const wchar_t *bad : {L"over", L"missing"}) {
        EXPECT_FALSE(reader.GetAttributeUInt64(bad, value)) << bad;
        EXPECT_EQ(value, 7u) << bad << ": value untouched on failure";
    }
}

TEST(XmlReader, MalformedTextReportsWhereAndLeavesTheReaderEmpty) {
    CXmlReader reader;
    ASSERT_TRUE(reader.LoadXML(L"<DiskChangeInfo><area/></DiskChangeInfo>"));
    EXPECT_FALSE(reader.LoadXML(L"<DiskChangeInfo>\n  <area offset=\"1\">\n</DiskChangeInfo>"));
    const std::wstring &error = reader.ErrorText();
    EXPECT_EQ(error.compare(0, 8, L"line 3, "), 0) << error.c_str();
    EXPECT_NE(error.find(L"column"), std::wstring::npos) << error.c_str();
    EXPECT_FALSE(reader.SelectSingleNode(L"DiskChangeInfo"));
    EXPECT_FALSE(reader.SelectFirstChild());
    // The last: no entity expansion from an untrusted file.
    for (const wchar_t *bad : {L"", L"<a></b>", L"<a/><b/>", L"<!DOCTYPE a [<!ENTITY x \"y\">]><a v=\"&x;\"/>"}) {
        EXPECT_FALSE(reader.LoadXML(bad)) << bad;
        EXPECT_FALSE(reader.ErrorText().empty()) << bad;
    }
}

// A load that does not end within the bound is a hang: reported, not waited out.
::testing::AssertionResult LoadFailsWithin(const std::wstring &text, DWORD milliseconds) {
    struct Load {
        std::wstring text, error;
        bool loaded = true;
    };
    auto load = std::make_shared<Load>();  // the thread may outlive this call if it hangs
    load->text = text;
    if (!dbtest::RunsWithin(
            [load] {
                CXmlReader reader;
                load->loaded = reader.LoadXML(load->text);
                load->error = reader.ErrorText();
            },
            milliseconds))
        return ::testing::AssertionFailure() << "the load did not return (hang)";
    if (load->loaded) return ::testing::AssertionFailure() << "accepted as a complete document";
    if (load->error.empty()) return ::testing::AssertionFailure() << "refused without an error text";
    return ::testing::AssertionSuccess();
}

// A document that ends with an element still open is truncated, whatever
// came before the end.
TEST(XmlReader, AnyEndBeforeTheRootClosesIsAFailure) {
    for (const wchar_t *truncated :
         {L"<DiskChangeInfo><area startoffset=\"0\">", L"<DiskChangeInfo><!-- no end",
          L"<DiskChangeInfo><area><extent offset=\"0\" length=\"512\"/></area>"})
        EXPECT_TRUE(LoadFailsWithin(truncated, 10000)) << ::testing::PrintToString(std::wstring(truncated));
}

class XmlReaderFile : public ::testing::Test {
protected:
    void Write(const std::string &bytes) { ASSERT_TRUE(dbtest::WriteWholeFile(path_, bytes)) << GetLastError(); }
    dbtest::TempDir folder_;
    const std::wstring path_ = folder_.File(L"skxml_test.xml");
};

const char kUtf8Doc[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?><r name=\"gr\xc3\xbc\xc3\x9f \xf0\x9f\x98\x80\"/>";

// As SOAP answers arrive; a file the builder saved is read back in its own test.
TEST(XmlReader, Utf8FromMemory) {
    CXmlReader reader;
    ASSERT_TRUE(reader.LoadUtf8(kUtf8Doc, sizeof kUtf8Doc - 1)) << reader.ErrorText().c_str();
    ASSERT_TRUE(reader.SelectSingleNode(L"r"));
    std::wstring name;
    EXPECT_TRUE(reader.GetAttribute(L"name", name));
    EXPECT_EQ(name, L"gr\x00fc\x00df \xD83D\xDE00");
}

TEST_F(XmlReaderFile, MissingFileAndTruncatedFile) {
    CXmlReader reader;
    EXPECT_FALSE(reader.LoadFile(path_.c_str()));
    Write("<DiskChangeInfo><area><extent offset=\"1\"");
    EXPECT_FALSE(reader.LoadFile(path_.c_str()));
}

}  // namespace
