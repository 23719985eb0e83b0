// Argument parsing and the VDDK log lines the program keeps.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "cli.h"
#include "errors.h"
#include "observe.h"

namespace {

using namespace dbtool;

const std::vector<OptionSpec> kOptions = {{L"changes", true}, {L"force", false}, {L"buffers", true}};

TEST(Args, PositionalAndOptionsInAnyOrder) {
    const Args args({L"--changes", L"l.xml", L"disk", L"--force", L"--buffers=4", L"img"}, kOptions, 1, 2);
    EXPECT_FALSE(args.HelpRequested());
    EXPECT_EQ(args.Positional(), (std::vector<std::wstring>{L"disk", L"img"}));
    EXPECT_EQ(args.Value(L"changes"), L"l.xml");
    EXPECT_TRUE(args.Has(L"force"));
    EXPECT_EQ(args.Number(L"buffers", 8, 1, 16), 4u);
    EXPECT_EQ(args.Number(L"missing", 8, 1, 16), 8u);
}

TEST(Args, NumbersAndChoicesAreChecked) {
    const Args args({L"d", L"--buffers", L"17"}, kOptions, 1, 2);
    EXPECT_THROW(args.Number(L"buffers", 8, 1, 16), UsageError);
    EXPECT_THROW(Args({L"d", L"--buffers", L"99999999999999999999"}, kOptions, 1, 2).Number(L"buffers", 8, 0, ~0ull),
                 UsageError);
    EXPECT_EQ(Args({L"d", L"--changes", L"b"}, kOptions, 1, 2).Choice(L"changes", L"a", {L"a", L"b"}), L"b");
    EXPECT_THROW(Args({L"d", L"--changes", L"c"}, kOptions, 1, 2).Choice(L"changes", L"a", {L"a", L"b"}), UsageError);
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
