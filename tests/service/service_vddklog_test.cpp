// VDDK's own messages through the InitEx callbacks: prefixes, length limit,
// and the process-wide cache of warnings and panics.
#include <algorithm>
#include <cstdio>

#include "service_fixture.h"

namespace servicetest {
namespace {

constexpr DWORD kThreadTimeoutMs = 30000;  // a thread that must finish

class VddkLogTest : public ServiceTest {
protected:
    void SetUp() override {
        ServiceTest::SetUp();
        service = Start();
        DrainCachedLog(*service);
    }
    void TearDown() override {
        service.reset();
        ServiceTest::TearDown();
    }
    std::unique_ptr<diskBroker> service;
};

std::wstring Numbered(int i) {
    char text[32];
    std::snprintf(text, sizeof text, "warning %03d", i);
    return Wide(text);
}

// Appended to what the caller has; a line it already holds, or one repeated, is
// taken once; the plain log line is not cached, though every report is logged.
TEST_F(VddkLogTest, OnlyWarningsAndPanicsAreCachedOncePerCollectionAndTakingEmptiesTheCache) {
    sim.VddkSim_TriggerLog(VDDKSIM_LOG, "just saying");
    for (int i = 0; i < 3; ++i) sim.VddkSim_TriggerLog(VDDKSIM_WARNING, "disk slow");
    sim.VddkSim_TriggerLog(VDDKSIM_PANIC, "seen before");
    wcstring out = L"earlier\nVDDK-Panic: seen before\n";
    service->GetCachedVDDKlog(&out);
    EXPECT_EQ(out, L"earlier\nVDDK-Panic: seen before\nVDDK-Warn: disk slow\n\n");
    EXPECT_EQ(log.Count(L"VDDK-Warn: disk slow\n"), 3u);
    EXPECT_EQ(DrainCachedLog(*service), L"");
}

TEST_F(VddkLogTest, AHundredAndFirstWarningEvictsTheOldest) {
    for (int i = 0; i <= 100; ++i) sim.VddkSim_TriggerLog(VDDKSIM_WARNING, Utf8(Numbered(i)).c_str());
    const std::wstring taken = DrainCachedLog(*service);
    EXPECT_EQ(taken.find(Numbered(0)), std::wstring::npos);
    EXPECT_NE(taken.find(L"VDDK-Warn: " + Numbered(1) + L"\n\n"), std::wstring::npos);
    EXPECT_NE(taken.find(L"VDDK-Warn: " + Numbered(100) + L"\n\n"), std::wstring::npos);
    EXPECT_EQ(std::count(taken.begin(), taken.end(), L'\n'), 200);
}

TEST_F(VddkLogTest, TextsOfMoreThan2047CharactersAreDroppedSilently) {
    const std::string fits(2046, 'a');  // the stand-in adds a line feed: 2047
    const std::string tooLong(2047, 'b');
    sim.VddkSim_TriggerLog(VDDKSIM_WARNING, fits.c_str());
    sim.VddkSim_TriggerLog(VDDKSIM_WARNING, tooLong.c_str());
    EXPECT_TRUE(log.Contains(L"VDDK-Warn: " + Wide(fits) + L"\n"));
    for (const std::wstring &line : log.Lines()) EXPECT_EQ(line.find(L"bbbb"), std::wstring::npos);
    EXPECT_EQ(DrainCachedLog(*service), L"VDDK-Warn: " + Wide(fits) + L"\n\n");
}

TEST_F(VddkLogTest, WarningsFromOtherThreadsAreCachedToo) {
    skclass::UniqueHandle thread(CreateThread(
        nullptr, 0,
        [](void *sim) -> DWORD {
            static_cast<dbtest::VddkSimControl *>(sim)->VddkSim_TriggerLog(VDDKSIM_WARNING, "from elsewhere");
            return 0;
        },
        &sim, 0, nullptr));
    ASSERT_TRUE(thread);
    ASSERT_EQ(WaitForSingleObject(thread.get(), kThreadTimeoutMs), WAIT_OBJECT_0);
    EXPECT_EQ(DrainCachedLog(*service), L"VDDK-Warn: from elsewhere\n\n");
}

}  // namespace
}  // namespace servicetest
