#include <gtest/gtest.h>

#include <skclass_mini/com.h>
#include <skclass_mini/dawdle.h>
#include <dbtest/wait.h>

namespace {

using namespace dbtest;

class DawdleTest : public testing::Test {
protected:
    void SetUp() override { skclass::ResetDawdleRequested(); }
    void TearDown() override { skclass::SetTimeScale(1.0); }
};

TEST_F(DawdleTest, CountsWhatWasAskedForAtScaleZero) {
    skclass::SetTimeScale(0.0);
    // At full scale these would take 30 s, beyond the test's time limit.
    for (int i = 0; i < 3; ++i) skclass::Dawdle(10000);
    EXPECT_EQ(skclass::DawdleRequestedMilliseconds(), 30000u);
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
}

}  // namespace
