// CXmlBuilder: what it refuses, and escaping round-tripped through the reader.
#include <string>
#include <gtest/gtest.h>
#include <dbtest/temp_dir.h>
#include <skxml/xmlbuilder.h>
#include <skxml/xmlreader.h>
#include <windows.h>

namespace {

// From the text and from the UTF-8 file the builder saves.
TEST(XmlBuilder, EscapedValuesComeBackUnchangedThroughTheReader) {
    const std::wstring tricky = L"a&b<c>d\"e'f ]]> \x00e9 \xD83D\xDE00";
    CXmlBuilder builder;
    ASSERT_TRUE(builder.StartElement(L"DiskChangeInfo"));
    ASSERT_TRUE(builder.AddAttribute(L"label", tricky));
    ASSERT_TRUE(builder.StartElement(L"area"));
    ASSERT_TRUE(builder.AddAttributeUInt64(L"startoffset", 18446744073709551615ull));
    ASSERT_TRUE(builder.AddText(tricky));
    ASSERT_TRUE(builder.EndElement());
    ASSERT_TRUE(builder.EndElement());

    dbtest::TempDir folder;
    const std::wstring path = folder.File(L"skxml_builder.xml");
    ASSERT_TRUE(builder.SaveUtf8(path.c_str()));
    for (const bool fromFile : {false, true}) {
        SCOPED_TRACE(fromFile ? "file" : "text");
        CXmlReader reader;
        ASSERT_TRUE(fromFile ? reader.LoadFile(path.c_str()) : reader.LoadXML(builder.GetXML()))
            << reader.ErrorText().c_str();
        ASSERT_TRUE(reader.SelectSingleNode(L"DiskChangeInfo"));
        std::wstring label;
        ASSERT_TRUE(reader.GetAttribute(L"label", label));
        EXPECT_EQ(label, tricky);
        ASSERT_TRUE(reader.SelectFirstChild());
        uint64_t start = 0;
        EXPECT_TRUE(reader.GetAttributeUInt64(L"startoffset", start));
        EXPECT_EQ(start, 18446744073709551615ull);
    }
}

TEST(XmlBuilder, TabAndLineEndsInAttributesAreWrittenAsReferences) {
    CXmlBuilder builder;
    ASSERT_TRUE(builder.StartElement(L"a"));
    ASSERT_TRUE(builder.AddAttribute(L"v", L"1\t2\n3\r4"));
    ASSERT_TRUE(builder.AddText(L"x\r\ny"));
    EXPECT_EQ(builder.GetXML(), L"<a v=\"1&#9;2&#10;3&#13;4\">x&#13;\ny</a>");
}

TEST(XmlBuilder, RefusesWhatWouldBeIllFormed) {
    CXmlBuilder builder;
    EXPECT_FALSE(builder.StartElement(L"a<"));
    ASSERT_TRUE(builder.StartElement(L"ns:r\x00e9-1.x_"));
    EXPECT_FALSE(builder.AddAttribute(L"ctl", std::wstring(L"a\x0001" L"b")));
    EXPECT_FALSE(builder.AddAttribute(L"half", std::wstring(L"a\xD800")));
    EXPECT_FALSE(builder.AddText(std::wstring(1, L'\0')));
    ASSERT_TRUE(builder.AddAttribute(L"v", L"1"));
    EXPECT_FALSE(builder.AddAttribute(L"v", L"2")) << "duplicate attribute";
    ASSERT_TRUE(builder.AddText(L"t"));
    EXPECT_FALSE(builder.AddAttribute(L"late", L"1")) << "attribute after content";
    ASSERT_TRUE(builder.EndElement());
    EXPECT_FALSE(builder.StartElement(L"second")) << "one root only";
    EXPECT_EQ(builder.GetXML(), L"<ns:r\x00e9-1.x_ v=\"1\">t</ns:r\x00e9-1.x_>");
}

}  // namespace
