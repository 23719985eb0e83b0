// CXmlReader: cursor moves, attributes, UTF-8, malformed and truncated input.
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

const wchar_t kExtentList[] =
    L"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    L"<Job><!-- prepared by the job -->\n"
    L" <DiskChangeInfo startOffset=\"0\">\n"
    L"  <area startoffset=\"0\" startlength=\"4096\">\n"
    L"   <extent offset=\"0\" length=\"512\"/>\n"
    L"   <extent offset=\"1536\" length=\"1000\">text is ignored</extent>\n"
    L"  </area>\n"
    L"  <area startoffset=\"8192\" startlength=\"512\"><e offset=\"8192\" length=\"512\"/></area>\n"
    L" </DiskChangeInfo>\n"
    L"</Job>\n";

// The extent-list walks (read cache, sector answers) move on with
// SelectNextSibling until it fails, so a failed move must leave the cursor
// where it was; the walks themselves are checked by their own tests.
TEST(XmlReader, FailedMovesLeaveTheCursorInPlace) {
    CXmlReader reader;
    ASSERT_TRUE(reader.LoadXML(kExtentList));
    std::wstring name, value;
    auto at = [&] { return reader.GetNodeName(name) ? name : L"(no element)"; };
    EXPECT_EQ(at(), L"(no element)") << "the cursor starts on the document";
    EXPECT_FALSE(reader.SelectNextSibling());
    EXPECT_FALSE(reader.SelectParent());
    ASSERT_TRUE(reader.SelectSingleNode(L"e"));
    EXPECT_FALSE(reader.SelectFirstChild());
    EXPECT_FALSE(reader.SelectNextSibling());
    EXPECT_EQ(at(), L"e");
    EXPECT_FALSE(reader.SelectSingleNode(L"missing"));
    EXPECT_EQ(at(), L"e");
    ASSERT_TRUE(reader.SelectParent());
    EXPECT_EQ(at(), L"area");
    EXPECT_TRUE(reader.GetAttribute(L"startoffset", value));
    EXPECT_EQ(value, L"8192");
}

TEST(XmlReader, AttributesAsUInt64) {
    CXmlReader reader;
    // The number rules are fuzzed against a reference; here the attribute calls around them.
    ASSERT_TRUE(reader.LoadXML(L"<a max=\"18446744073709551615\" over=\"18446744073709551616\" spaced=\" 42 \"/>"));
    ASSERT_TRUE(reader.SelectFirstChild());
    uint64_t value = 7;
    EXPECT_TRUE(reader.GetAttributeUInt64(L"max", value));
    EXPECT_EQ(value, UINT64_MAX);
    value = 7;
    for (const wchar_t *bad : {L"over", L"missing"}) {
        EXPECT_FALSE(reader.GetAttributeUInt64(bad, value)) << bad;
        EXPECT_EQ(value, 7u) << bad << ": value untouched on failure";
    }
    EXPECT_TRUE(reader.GetAttributeUInt64(L"spaced", value));
    EXPECT_EQ(value, 42u);
}

TEST(XmlReader, MalformedTextReportsWhereAndLeavesTheReaderEmpty) {
    CXmlReader reader;
    ASSERT_TRUE(reader.LoadXML(kExtentList));
    EXPECT_FALSE(reader.LoadXML(L"<DiskChangeInfo>\n  <area offset=\"1\">\n</DiskChangeInfo>"));
    const std::wstring &error = reader.ErrorText();
    EXPECT_EQ(error.compare(0, 8, L"line 3, "), 0) << error.c_str();
    EXPECT_NE(error.find(L"column"), std::wstring::npos) << error.c_str();
    EXPECT_FALSE(reader.SelectSingleNode(L"DiskChangeInfo"));
    EXPECT_FALSE(reader.SelectFirstChild());
    // The last: no entity expansion from an untrusted file.
    for (const wchar_t *bad : {L"", L"<a", L"<a></b>", L"<a x=1/>", L"<a/><b/>", L"text",
                               L"<!DOCTYPE a [<!ENTITY x \"y\">]><a v=\"&x;\"/>"}) {
        EXPECT_FALSE(reader.LoadXML(bad)) << bad;
        EXPECT_FALSE(reader.ErrorText().empty()) << bad;
    }
    ASSERT_TRUE(reader.LoadXML(L"<ok/>"));
    EXPECT_TRUE(reader.ErrorText().empty());
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
         {L"<DiskChangeInfo>", L"<DiskChangeInfo><area startoffset=\"0\">",
          L"<DiskChangeInfo><area><extent offset=\"0\" length=\"512\"/>", L"<DiskChangeInfo><!-- no end",
          L"<DiskChangeInfo><area><extent offset=\"0\" length=\"512\"/></area>", L"<a><b></b><c/>"})
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
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(reader.LoadFile(path_.c_str()));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    EXPECT_NE(reader.ErrorText().find(path_), std::wstring::npos);
    Write("<DiskChangeInfo><area><extent offset=\"1\"");
    EXPECT_FALSE(reader.LoadFile(path_.c_str()));
    EXPECT_EQ(reader.ErrorText().compare(0, 5, L"line "), 0) << reader.ErrorText().c_str();
}

}  // namespace
