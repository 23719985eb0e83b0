#include <gtest/gtest.h>

#include <skclass_mini/com.h>
#include <skclass_mini/dawdle.h>
#include <skclass_mini/impersonator.h>
#include <dbtest/wait.h>

namespace {

using namespace dbtest;

class DawdleTest : public testing::Test {
protected:
    void SetUp() override { skclass::ResetDawdleRequested(); }
    void TearDown() override { skclass::SetTimeScale(1.0); }
};

TEST_F(DawdleTest, CountsWhatWasAskedForWhateverTheScale) {
    skclass::SetTimeScale(0.0);
    // At full scale these would take 30 s, beyond the test's time limit.
    for (int i = 0; i < 3; ++i) skclass::Dawdle(10000);
    EXPECT_EQ(skclass::DawdleRequestedMilliseconds(), 30000u);
    skclass::SetTimeScale(0.0001);
    skclass::Dawdle(20000);  // 2 ms
    EXPECT_EQ(skclass::DawdleRequestedMilliseconds(), 50000u);
}

TEST_F(DawdleTest, ComPauseAndWaitsGoThroughTheSeam) {
    SingleThreadedCom com;
    EXPECT_TRUE(SUCCEEDED(com.InitResult()));
    skclass::SetTimeScale(0.0);
    com.Dawdle(60000);
    EXPECT_EQ(skclass::DawdleRequestedMilliseconds(), 60000u);
    skclass::UniqueHandle event = NewEvent();
    EXPECT_EQ(com.WaitForSingleObject(event.get(), 0), static_cast<DWORD>(WAIT_TIMEOUT));
    SetEvent(event.get());
    EXPECT_EQ(com.WaitForSingleObject(event.get(), kTimeoutMs), static_cast<DWORD>(WAIT_OBJECT_0));
    const HANDLE both[] = {event.get(), event.get()};
    EXPECT_EQ(com.WaitForMultipleObjects(1, both, FALSE, kTimeoutMs), static_cast<DWORD>(WAIT_OBJECT_0));
}

TEST(Impersonator, NamesTheProcessUserWhenNotImpersonating) {
    const wcstring who = Impersonator::WhoAmI();
    ASSERT_FALSE(who.empty());
    const size_t slash = who.find(L'\\');
    ASSERT_NE(slash, std::wstring::npos) << testing::PrintToString(std::wstring(who));
    wchar_t user[256];
    DWORD chars = 256;
    ASSERT_TRUE(GetUserNameW(user, &chars));
    EXPECT_EQ(comparei(who.substr(slash + 1), user), 0) << testing::PrintToString(std::wstring(who));
}

TEST(Impersonator, ReadsTheThreadTokenWhenImpersonating) {
    if (!ImpersonateSelf(SecurityImpersonation)) GTEST_SKIP() << "ImpersonateSelf failed: " << GetLastError();
    HANDLE token = nullptr;
    const bool hasThreadToken = OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &token) != FALSE;
    if (token != nullptr) CloseHandle(token);
    const wcstring who = Impersonator::WhoAmI();
    RevertToSelf();
    EXPECT_TRUE(hasThreadToken);
    EXPECT_EQ(who, Impersonator::WhoAmI());  // the same user, through the thread token
}

}  // namespace
