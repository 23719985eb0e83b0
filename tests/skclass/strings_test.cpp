#include <gtest/gtest.h>
#include <skclass_mini/strings.h>
#include <skclass_mini/win.h>

namespace {

// BMP and supplementary characters round-trip; embedded NULs are kept when a
// length is given; null is empty; an unpaired surrogate encodes as U+FFFD.
TEST(Utf8, RoundTripsKeepsNulsAndReplacesUnpairedSurrogates) {
    const std::wstring text = L"Gr\u00FC\u00DFe \u20AC \U0001F600 \u4E2D";
    const cstring utf8 = cstring::ToUtf8(text);
    EXPECT_EQ(utf8, "Gr\xC3\xBC\xC3\x9F" "e \xE2\x82\xAC \xF0\x9F\x98\x80 \xE4\xB8\xAD");
    EXPECT_EQ(wcstring::FromUtf8(utf8.c_str()), text);
    EXPECT_EQ(wcstring::FromUtf8("a\0b", 3), std::wstring(L"a\0b", 3));
    EXPECT_TRUE(wcstring::FromUtf8(nullptr).empty());
    EXPECT_TRUE(cstring::ToUtf8(nullptr).empty());
    EXPECT_EQ(cstring::ToUtf8(std::wstring(L"x\xD800y")), "x\xEF\xBF\xBDy");
}

TEST(Utf8, InvalidBytesBecomeOneReplacementEach) {
    struct Case { const char *bytes; size_t length; std::wstring expected; };
    const Case cases[] = {
        {"a\xFF" "b", 3, L"a\uFFFDb"},                  // never valid
        {"\xC0\xAF", 2, L"\uFFFD\uFFFD"},               // overlong '/'
        {"ok\xE2\x82", 4, L"ok\uFFFD\uFFFD"},           // cut short at the end
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(testing::PrintToString(std::string(c.bytes, c.length)));
        EXPECT_EQ(wcstring::FromUtf8(c.bytes, c.length), c.expected);
    }
}

TEST(Ansi, FollowsTheSystemCodePage) {
    EXPECT_EQ(cstring::ToAnsi(std::wstring(L"plain ascii")), "plain ascii");
    EXPECT_EQ(wcstring::FromAnsi("plain ascii"), L"plain ascii");
    if (GetACP() != 1252) GTEST_SKIP() << "code page " << GetACP() << ": the cases below are for 1252";
    EXPECT_EQ(cstring::ToAnsi(std::wstring(L"caf\u00E9 \u20AC")), "caf\xE9 \x80");
    EXPECT_EQ(wcstring::FromAnsi("caf\xE9 \x80"), L"caf\u00E9 \u20AC");
    EXPECT_EQ(cstring::ToAnsi(std::wstring(L"\u4E2D")), "?");
}

TEST(Comparei, IgnoresCaseButNotLength) {
    EXPECT_EQ(comparei(L"No Threading", L"no threading"), 0);
    EXPECT_NE(comparei(L"no threading ", L"no threading"), 0);
    EXPECT_LT(comparei(L"no thread", L"no threading"), 0);
    EXPECT_LT(comparei(L"abc", L"ABD"), 0);
    EXPECT_EQ(comparei(L"", L""), 0);
    EXPECT_EQ(comparei(L"\u00C4\u00D6", L"\u00E4\u00F6"), 0);
}

}  // namespace
