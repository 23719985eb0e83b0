// Commit-list files as a crash, a disk error or a careless hand may leave
// them: each loads to its valid part, and a later commit never joins a torn
// line.
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

TEST_F(SectorFileTest, BinaryGarbageLoadsToTheLinesThatAreRuns) {
    std::mt19937 random(7);
    std::string bytes;
    for (int i = 0; i < 200000; ++i) bytes += static_cast<char>(random() & 0xFF);
    bytes += "\n12 4\r\n";
    for (int i = 0; i < 100; ++i) bytes += static_cast<char>(random() & 0xFF);
    bytes += "\n40 2\n";
    bytes += std::string(3, '\0');
    EXPECT_TRUE(dbtest::WriteWholeFile(path, bytes));
    EXPECT_EQ(LeftOfFirst64(), (ByteExtents{{0, 12 * 512}, {16 * 512, 24 * 512}, {42 * 512, 22 * 512}}));
}

TEST_F(SectorFileTest, ATornLastLineIsIgnoredAndCutBeforeTheNextCommit) {
    EXPECT_TRUE(dbtest::WriteWholeFile(path, "1 1\n2 30"));  // "2 3" was being written when the process died
    EXPECT_EQ(DumpedRuns(L"vm", L"s"), (Runs{{1, 1}}));
    ASSERT_EQ(Commit(L"vm", L"s", {{9, 1}}), 0);
    EXPECT_EQ(dbtest::ReadWholeFile(path), "1 1\n9 1\r\n");
}

TEST_F(SectorFileTest, AFileHeldByAnotherProgramFailsTheCallAndIsLeftAlone) {
    skclass::UniqueFile holder(CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(holder);
    log.Clear();
    skclass::ResetDawdleRequested();
    EXPECT_EQ(DataSetSectorManager(L"vm", L"s", SECTOR_MANAGER_START_QUERY), 1);
    EXPECT_EQ(skclass::DawdleRequestedMilliseconds(), 9u * 50) << "asked again nine times, 50 ms apart";
    EXPECT_EQ(log.Lines().size(), 1u);
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
