// Argument parsing, the progress display and the readings the program prints.
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <vddkcache.h>

#include "cli.h"
#include "errors.h"
#include "observe.h"
#include "progress.h"

namespace {

using namespace dbtool;

const std::vector<OptionSpec> kOptions = {{L"changes", true}, {L"force", false}, {L"buffers", true}};

std::wstring UsageMessage(const std::vector<std::wstring> &words) {
    try {
        Args(words, kOptions, 1, 2);
    } catch (const UsageError &e) {
        EXPECT_EQ(e.Code(), kExitUsage);
        return e.Message();
    }
    return L"";
}

TEST(Args, PositionalAndOptionsInAnyOrder) {
    const Args args({L"--changes", L"l.xml", L"disk", L"--force", L"--buffers=4", L"img"}, kOptions, 1, 2);
    EXPECT_FALSE(args.HelpRequested());
    EXPECT_EQ(args.Positional(), (std::vector<std::wstring>{L"disk", L"img"}));
    EXPECT_EQ(args.Value(L"changes"), L"l.xml");
    EXPECT_TRUE(args.Has(L"force"));
    EXPECT_EQ(args.Number(L"buffers", 8, 1, 16), 4u);
    EXPECT_EQ(args.Number(L"missing", 8, 1, 16), 8u);
}

TEST(Args, DoubleDashEndsOptions) {
    const Args args({L"--", L"--force"}, kOptions, 1, 2);
    EXPECT_EQ(args.Positional(0), L"--force");
    EXPECT_FALSE(args.Has(L"force"));
}

TEST(Args, HelpWinsOverEverythingElse) {
    EXPECT_TRUE(Args({L"--bogus", L"-h"}, kOptions, 1, 2).HelpRequested());
    EXPECT_TRUE(Args({L"--help"}, kOptions, 1, 2).HelpRequested());
}

TEST(Args, MistakesAreUsageErrors) {
    // An unknown long option, a missing value, too few or too many arguments are
    // checked through the program by cli.sh.
    EXPECT_EQ(UsageMessage({L"a", L"-x"}), L"unknown option '-x'");
    EXPECT_EQ(UsageMessage({L"a", L"--force=yes"}), L"option '--force' takes no value");
}

TEST(Args, NumbersAndChoicesAreChecked) {
    const Args args({L"d", L"--buffers", L"17"}, kOptions, 1, 2);
    EXPECT_THROW(args.Number(L"buffers", 8, 1, 16), UsageError);
    EXPECT_THROW(Args({L"d", L"--buffers", L"-1"}, kOptions, 1, 2).Number(L"buffers", 8, 0, 16), UsageError);
    EXPECT_THROW(Args({L"d", L"--buffers", L"99999999999999999999"}, kOptions, 1, 2).Number(L"buffers", 8, 0, ~0ull),
                 UsageError);
    EXPECT_EQ(Args({L"d", L"--changes", L"b"}, kOptions, 1, 2).Choice(L"changes", L"a", {L"a", L"b"}), L"b");
    EXPECT_THROW(Args({L"d", L"--changes", L"c"}, kOptions, 1, 2).Choice(L"changes", L"a", {L"a", L"b"}), UsageError);
}

struct FakeOutput {
    double now = 0;
    std::wstring text;
    Progress Make(bool terminal, uint64_t total) {
        return Progress(L"backup", total, terminal, [this] { return now; }, [this](const std::wstring &t) { text += t; });
    }
};

TEST(Progress, PlainLinesAtEachQuarterThenASummary) {
    FakeOutput out;
    Progress progress = out.Make(false, 4000000);
    for (int i = 0; i < 8; ++i) {
        out.now += 0.5;
        progress.Advance(500000);
    }
    progress.Finish();
    EXPECT_EQ(out.text,
              L"backup: 25% 976.6 KiB of 3.8 MiB, 1.0 MB/s\n"
              L"backup: 50% 1.9 MiB of 3.8 MiB, 1.0 MB/s\n"
              L"backup: 75% 2.9 MiB of 3.8 MiB, 1.0 MB/s\n"
              L"backup: 3.8 MiB in 4.0s (1.0 MB/s)\n");
}

TEST(Progress, TerminalBarShowsRateAndEta) {
    FakeOutput out;
    Progress progress = out.Make(true, 4000000);
    out.now = 1.0;
    progress.Advance(1000000);
    EXPECT_NE(out.text.find(L"\rbackup [#######.....................]  25% "), std::wstring::npos) << out.text;
    EXPECT_NE(out.text.find(L"1.0 MB/s  ETA 3s"), std::wstring::npos) << out.text;
    out.text.clear();
    out.now = 1.05;  // within the redraw interval: nothing drawn
    progress.Advance(1000);
    EXPECT_EQ(out.text, L"");
}

bufferDepthHistogram *Histogram(std::vector<uint8_t> &storage, std::vector<uint32_t> counts) {
    storage.assign(sizeof(bufferDepthHistogram) + counts.size() * sizeof(uint32_t), 0);
    auto *h = reinterpret_cast<bufferDepthHistogram *>(storage.data());
    h->bucketCount = static_cast<uint32_t>(counts.size() - 1);
    for (size_t i = 0; i < counts.size(); ++i) h->counts[i] = counts[i];
    for (uint32_t c : counts) h->totalSamples += c;
    return h;
}

TEST(DepthReading, VerdictFollowsTheEmptyQueueShare) {
    std::vector<uint8_t> storage;
    const DepthReading starved = DepthReading::Of(Histogram(storage, {30, 5, 5, 0, 0}));
    EXPECT_EQ(starved.Describe(L"reader-bound", L"consumer-bound"),
              L"reader-bound: queue empty in 75% of 40 waits, mean depth 0.4 of 4");
    const DepthReading full = DepthReading::Of(Histogram(storage, {1, 0, 0, 0, 9}));
    EXPECT_EQ(full.Describe(L"reader-bound", L"consumer-bound"),
              L"consumer-bound: queue empty in 10% of 10 waits, mean depth 3.6 of 4");
    EXPECT_EQ(DepthReading::Of(nullptr).Describe(L"a", L"b"), L"no waits sampled");
}

TEST(LogWatch, KeepsStatisticsAndLossLinesOnly) {
    LogWatch watch;
    watch.Keep(L"VixDiskLib_Read(C:\\d.vmdk) No of reads: 64 Data chunks: [64 * 2048]");
    watch.Keep(L"VixDiskLib_Write(C:\\d.vmdk) No of writes: 1 Data chunks: [1 * 8]");
    watch.Keep(L"VixDiskLib_Read(): Read thread '4' Start");
    watch.Keep(L"diskBroker::WriteDiskExtents() Could not write to the disk. start Sector: '8'");
    watch.Keep(L"Disk size: '1024' Data Written: '512' ");
    watch.Keep(L"Main Thread: End of Data. ");
    EXPECT_EQ(watch.TakeStatistics().size(), 2u);
    EXPECT_EQ(watch.TakeProblems().size(), 2u);
    EXPECT_TRUE(watch.TakeStatistics().empty());
}

}  // namespace
