// What SK_Zprintf_2 makes of its format and arguments, as seen by a sink.
#include <string>
#include <vector>
#include <gtest/gtest.h>
#include <dbtest/log_capture.h>
#include <skstdutl/sklog.h>

namespace {

class SklogFormat : public ::testing::Test {
protected:
    void SetUp() override { SK_SetLogFilePath(L""); }  // sinks only
    void TearDown() override { SK_SetLogFilePath(nullptr); }
    dbtest::LogCapture capture;
};

// A null text prints "(null)"; a text too long is cut, not lost.
TEST_F(SklogFormat, NullTextsPrintNullAndLongOnesAreCutWhole) {
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"name '%s'", static_cast<const wchar_t *>(nullptr));
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"%s", std::wstring(SK_LOG_MAX_TEXT + 1000, L'x').c_str());
    EXPECT_EQ(capture.Lines(), (std::vector<std::wstring>{L"name '(null)'", std::wstring(SK_LOG_MAX_TEXT, L'x')}));
}

struct Recorded {
    std::wstring order;
};
void SinkA(void *context, const SK_LogRecord *) { static_cast<Recorded *>(context)->order += L'A'; }
void SinkB(void *context, const SK_LogRecord *) { static_cast<Recorded *>(context)->order += L'B'; }

TEST_F(SklogFormat, SinksRunInRegistrationOrderUntilRemoved) {
    Recorded recorded;
    int a = SK_AddLogSink(&SinkA, &recorded);
    int b = SK_AddLogSink(&SinkB, &recorded);
    ASSERT_NE(a, 0);
    ASSERT_NE(b, 0);
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"one");
    SK_RemoveLogSink(a);
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"two");
    SK_RemoveLogSink(b);
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"three");
    EXPECT_EQ(recorded.order, L"ABB");
    EXPECT_EQ(capture.Count(L"three"), 1u);
}

}  // namespace
