// Commit-list files as a crash, a disk error or a careless hand may leave
// them: each loads to its valid part, says what it skipped, and a later
// commit never joins a torn line.
#include <random>

#include <skclass_mini/dawdle.h>
#include <skclass_mini/handles.h>

#include "sector_fixture.h"

namespace sectortest {
namespace {

using Runs = std::vector<std::pair<uint64_t, uint64_t>>;

class SectorFileTest : public SectorTest {
protected:
    void SetUp() override {
        SectorTest::SetUp();
        ASSERT_EQ(Commit(L"vm", L"s", {{0, 1}}), 0);  // makes the folders
        path = ObjectFolder(L"vm") + L"\\s.dat";
    }
    std::wstring SkippedLine(uint64_t line) const {
        return L"DataSetSectorManager: '" + path + L"' line " + std::to_wstring(line) +
               L" is not a run \"start count\" in decimal sectors; skipped";
    }
    std::wstring TornLine() const {
        return L"DataSetSectorManager: '" + path + L"' ends in a torn line (no line end); ignored";
    }
    // What a start holds: the sectors of [0, 64) a query finds committed.
    ByteExtents LeftOfFirst64() {
        EXPECT_EQ(DataSetSectorManager(L"vm", L"s", SECTOR_MANAGER_START_QUERY), 0);
        ByteExtents answer;
        std::wstring summary;
        EXPECT_EQ(Query(L"vm", {{0, 64 * 512}}, answer, summary), 0);
        EXPECT_EQ(DataSetSectorManager(L"vm", L"s", SECTOR_MANAGER_END_QUERY), 0);
        return answer;
    }
    std::wstring path;
};

TEST_F(SectorFileTest, AnEmptyFileHoldsNothing) {
    EXPECT_TRUE(dbtest::WriteWholeFile(path, ""));
    log.Clear();
    EXPECT_EQ(LeftOfFirst64(), (ByteExtents{{0, 64 * 512}}));
    EXPECT_TRUE(log.Contains(L"DataSetSectorManager: started 'vm' set 's': 0 runs, 0 sectors committed"));
}

TEST_F(SectorFileTest, NegativeOverflowingAndMalformedLinesAreSkippedOneByOne) {
    EXPECT_TRUE(dbtest::WriteWholeFile(path,
                                       "-5 3\n18446744073709551616 1\n18446744073709551615 2\n4 0\n1 2 3\n\n 2  3 \r\n"
                                       "99999999999999999999999 1\n10 1\n"));
    log.Clear();
    EXPECT_EQ(DumpedRuns(L"vm", L"s"), (Runs{{2, 3}, {10, 1}}));
    for (uint64_t line : {1, 2, 3, 4, 5, 6, 8}) EXPECT_TRUE(log.Contains(SkippedLine(line)));
    EXPECT_FALSE(log.Contains(SkippedLine(7)));
    EXPECT_FALSE(log.Contains(SkippedLine(9)));
}

// Lines in order are merged while they are read; any other order is merged
// after. Both must give the same runs, up to the top sector and for numbers
// written with more digits than the quick path reads.
TEST_F(SectorFileTest, LinesInAnyOrderLoadToTheSameRuns) {
    const Runs merged = {{0, 17}, {20, 1}, {18446744073709551612ull, 4}};
    EXPECT_TRUE(dbtest::WriteWholeFile(path, "0 4\n4 4\n6 10\n00000000000000000016 1\n20 1\n18446744073709551612 2\n"
                                             "18446744073709551614 2\n18446744073709551615 1\n"));
    EXPECT_EQ(DumpedRuns(L"vm", L"s"), merged);
    EXPECT_TRUE(dbtest::WriteWholeFile(path, "20 1\n0 4\n18446744073709551614 2\n6 10\n 4 4\r\n18446744073709551612 2\n"
                                             "00000000000000000016 1\n18446744073709551615 1\n"));
    EXPECT_EQ(DumpedRuns(L"vm", L"s"), merged);
    EXPECT_TRUE(
        dbtest::WriteWholeFile(path, "0 4\n4 4\n2 1\n6 10\n00000000000000000016 1\n20 1\n18446744073709551612 4\n"));
    EXPECT_EQ(DumpedRuns(L"vm", L"s"), merged) << "in order, then one inside what was merged before";
}

TEST_F(SectorFileTest, BinaryGarbageLoadsToTheLinesThatAreRuns) {
    std::mt19937 random(7);
    std::string bytes;
    for (int i = 0; i < 200000; ++i) bytes += static_cast<char>(random() & 0xFF);
    bytes += "\n12 4\r\n";
    for (int i = 0; i < 100; ++i) bytes += static_cast<char>(random() & 0xFF);
    bytes += "\n40 2\n";
    bytes += std::string(3, '\0');
    EXPECT_TRUE(dbtest::WriteWholeFile(path, bytes));
    log.Clear();
    EXPECT_EQ(LeftOfFirst64(), (ByteExtents{{0, 12 * 512}, {16 * 512, 24 * 512}, {42 * 512, 22 * 512}}));
    EXPECT_TRUE(log.Contains(TornLine()));
    EXPECT_TRUE(log.Contains(SkippedLine(1)));
    size_t totals = 0;
    for (const std::wstring &line : log.Lines())
        totals += line.find(L"lines skipped in all") != std::wstring::npos;
    EXPECT_EQ(totals, 1u) << "beyond ten, only the total is logged";
}

TEST_F(SectorFileTest, TenMegabytesOfOneLineCostNothingToSkip) {
    std::string huge = "3 1\n";
    huge += std::string(10 << 20, '7');
    huge += "\n5 1\n";
    huge += std::string(10 << 20, ' ');  // and a torn last line as long
    EXPECT_TRUE(dbtest::WriteWholeFile(path, huge));
    log.Clear();
    EXPECT_EQ(DumpedRuns(L"vm", L"s"), (Runs{{3, 1}, {5, 1}}));
    EXPECT_TRUE(log.Contains(SkippedLine(2)));
    EXPECT_TRUE(log.Contains(TornLine()));
}

TEST_F(SectorFileTest, ATornLastLineIsIgnoredAndCutBeforeTheNextCommit) {
    EXPECT_TRUE(dbtest::WriteWholeFile(path, "1 1\n2 30"));  // "2 3" was being written when the process died
    log.Clear();
    EXPECT_EQ(DumpedRuns(L"vm", L"s"), (Runs{{1, 1}}));
    EXPECT_TRUE(log.Contains(TornLine()));
    ASSERT_EQ(Commit(L"vm", L"s", {{9, 1}}), 0);
    EXPECT_TRUE(log.Contains(L"DataSetSectorManager: '" + path + L"': cut a torn last line of 4 bytes before appending"));
    EXPECT_EQ(dbtest::ReadWholeFile(path), "1 1\n9 1\r\n");
    EXPECT_TRUE(dbtest::WriteWholeFile(path, "12345"));  // nothing whole at all
    ASSERT_EQ(Commit(L"vm", L"s", {{8, 1}}), 0);
    EXPECT_EQ(dbtest::ReadWholeFile(path), "8 1\r\n");
}

TEST_F(SectorFileTest, AFileThatCannotBeReadFailsTheStart) {
    ASSERT_TRUE(DeleteFileW(path.c_str()));
    ASSERT_TRUE(CreateDirectoryW(path.c_str(), nullptr));  // a folder where the file should be
    log.Clear();
    skclass::ResetDawdleRequested();
    EXPECT_EQ(DataSetSectorManager(L"vm", L"s", SECTOR_MANAGER_START_QUERY), 1);
    EXPECT_EQ(skclass::DawdleRequestedMilliseconds(), 9u * 50) << "asked again nine times, 50 ms apart";
    ASSERT_EQ(log.Lines().size(), 1u);
    const std::wstring prefix = L"DataSetSectorManager: cannot open '" + path + L"', error ";
    EXPECT_EQ(log.Lines()[0].compare(0, prefix.size(), prefix), 0)
        << testing::PrintToString(log.Lines()[0]);
    log.Clear();
    EXPECT_EQ(Commit(L"vm", L"s", {{1, 1}}), 1);
    EXPECT_EQ(log.Lines().size(), 1u);
    RemoveDirectoryW(path.c_str());
}

TEST_F(SectorFileTest, AFileHeldByAnotherProgramFailsTheCallAndIsLeftAlone) {
    skclass::UniqueFile holder(CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(holder);
    log.Clear();
    EXPECT_EQ(Commit(L"vm", L"s", {{5, 1}}), 1);
    EXPECT_EQ(log.Lines().size(), 1u);
    EXPECT_EQ(DataSetSectorManager(L"vm", L"s", SECTOR_MANAGER_END_QUERY), 1);
    holder.reset();
    EXPECT_EQ(dbtest::ReadWholeFile(path), "0 1\r\n");
    ASSERT_EQ(Commit(L"vm", L"s", {{5, 1}}), 0);
    EXPECT_EQ(dbtest::ReadWholeFile(path), "0 1\r\n5 1\r\n");
}

}  // namespace
}  // namespace sectortest
