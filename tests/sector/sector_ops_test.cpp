// The operations one by one: what each writes and answers, the shorter forms,
// names and their files, and the failures each must report.
#include "sector_fixture.h"

namespace sectortest {
namespace {

using Runs = std::vector<std::pair<uint64_t, uint64_t>>;

TEST_F(SectorTest, UnknownOperationsAreRefused) {
    wcstring out1, out2;
    for (int op : {0, 8, -1})
        EXPECT_EQ(DataSetSectorManager(L"vm", L"set", out1, out2, {}, static_cast<SECTOR_MANAGER_OP_TYPE>(op)), 1);
    EXPECT_TRUE(log.Contains(L"DataSetSectorManager: Unknown operation type provided"));
}

TEST_F(SectorTest, CommitsAreLinesInTheSetsFileAndQueriesSubtractThem) {
    ASSERT_EQ(Commit(L"vm-1", L"disk0", {{8, 8}, {0, 4}}), 0);
    ASSERT_EQ(Commit(L"vm-1", L"disk0", {{4, 2}}), 0);
    EXPECT_EQ(dbtest::ReadWholeFile(ObjectFolder(L"vm-1") + L"\\disk0.dat"), "8 8\r\n0 4\r\n4 2\r\n");

    ASSERT_EQ(DataSetSectorManager(L"vm-1", L"disk0", SECTOR_MANAGER_START_QUERY), 0);
    ByteExtents answer;
    std::wstring summary;
    // Sectors 0..31 asked in two extents (the second one's stray bytes cut).
    ASSERT_EQ(Query(L"vm-1", {{0, 8192}, {8192, 8192 + 100}}, answer, summary), 0);
    EXPECT_EQ(answer, (ByteExtents{{6 * 512, 2 * 512}, {16 * 512, 16 * 512}}));
    EXPECT_EQ(summary, L"extents 2, sectors asked 32, already committed 14, left 18");

    ASSERT_EQ(DataSetSectorManager(L"vm-1", L"disk0", SECTOR_MANAGER_END_QUERY), 0);
    EXPECT_EQ(dbtest::ReadWholeFile(ObjectFolder(L"vm-1") + L"\\disk0.dat"), "0 6\r\n8 8\r\n");
    EXPECT_EQ(Query(L"vm-1", {{0, 512}}, answer, summary), 1) << "nothing held after the end";
}

TEST_F(SectorTest, TheShorterFormsReachTheSameOperations) {
    const std::vector<wcstring> runs = RunTexts({{0, 10}});
    ASSERT_EQ(DataSetSectorManager(L"obj", L"a", runs, SECTOR_MANAGER_COMMIT_SECTORS), 0);
    ASSERT_EQ(DataSetSectorManager(L"obj", L"a", SECTOR_MANAGER_START_QUERY), 0);
    const std::wstring list = scratch.File(L"list.xml");
    WriteChangeList(list, {{0, 20 * 512}});
    wcstring answer, summary;  // empty: the answer goes to a new file of the object's folder
    ASSERT_EQ(DataSetSectorManager(L"obj", list, answer, summary, SECTOR_MANAGER_QUERY_SECTORS), 0);
    EXPECT_EQ(answer, ObjectFolder(L"obj") + L"\\query-0.xml");
    wcstring second;
    ASSERT_EQ(DataSetSectorManager(L"obj", list, second, summary, SECTOR_MANAGER_QUERY_SECTORS), 0);
    EXPECT_EQ(second, ObjectFolder(L"obj") + L"\\query-1.xml");
    ASSERT_EQ(DataSetSectorManager(L"obj", L"a", SECTOR_MANAGER_END_QUERY), 0);
    ASSERT_EQ(DataSetSectorManager(L"obj", SECTOR_MANAGER_DESTROY_ALL), 0);
    EXPECT_EQ(GetFileAttributesW(ObjectFolder(L"obj").c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST_F(SectorTest, TheMasterListCountsForEverySetOfTheObject) {
    ASSERT_EQ(Commit(L"vm", L"full", {{0, 100}}), 0);
    ASSERT_EQ(Commit(L"vm", L"other", {{200, 10}}), 0);
    ASSERT_EQ(DataSetSectorManager(L"vm", std::vector<wcstring>{L"full", L"other"}, SECTOR_MANAGER_LOAD_MASTER), 0);
    EXPECT_EQ(dbtest::ReadWholeFile(ObjectFolder(L"vm") + L"\\master.dat"), "0 100\r\n200 10\r\n");
    ASSERT_EQ(DataSetSectorManager(L"vm", L"incremental", SECTOR_MANAGER_START_QUERY), 0);
    ByteExtents answer;
    std::wstring summary;
    ASSERT_EQ(Query(L"vm", {{0, 300 * 512}}, answer, summary), 0);
    EXPECT_EQ(answer, (ByteExtents{{100 * 512, 100 * 512}, {210 * 512, 90 * 512}}));
    EXPECT_EQ(DataSetSectorManager(L"vm", std::vector<wcstring>{L"missing"}, SECTOR_MANAGER_LOAD_MASTER), 1);
    EXPECT_EQ(DataSetSectorManager(L"vm", std::vector<wcstring>{}, SECTOR_MANAGER_LOAD_MASTER), 1);
}

TEST_F(SectorTest, NamesBecomeDistinctSafeFileNames) {
    const std::vector<std::pair<std::wstring, std::wstring>> names = {
        {L"Disk", L"^disk"},       {L"disk", L"disk"},           {L"con", L"%0063on"},
        {L"..\\x:*?", L"%002e%002e%005cx%003a%002a%003f"},    {L"%0064", L"%00250064"},
        {L"\u00e9\u4e2d", L"%00e9%4e2d"}, {L"master", L"%006daster"}, {L"^a", L"%005ea"}};
    for (size_t i = 0; i < names.size(); ++i) {
        SCOPED_TRACE(testing::Message() << "name " << i);
        ASSERT_EQ(Commit(L"objects", names[i].first, {{i, 1}}), 0);
        EXPECT_EQ(dbtest::ReadWholeFile(ObjectFolder(L"objects") + L"\\" + names[i].second + L".dat"),
                  std::to_string(i) + " 1\r\n");
        EXPECT_EQ(DumpedRuns(L"objects", names[i].first), (Runs{{i, 1}})) << "the dump names the set again";
    }
    ASSERT_EQ(Commit(L"Vm/1", L"s", {{0, 1}}), 0);
    EXPECT_NE(GetFileAttributesW(ObjectFolder(L"^vm%002f1").c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST_F(SectorTest, NamesThatCannotBeFilesAreRefused) {
    EXPECT_EQ(Commit(L"", L"s", {{0, 1}}), 1);
    EXPECT_EQ(Commit(std::wstring(121, L'x'), L"s", {{0, 1}}), 1);
    EXPECT_EQ(Commit(L"vm", std::wstring(40, L'#'), {{0, 1}}), 1) << "40 escapes make 200 characters";
    EXPECT_EQ(DataSetSectorManager(L"vm", L"", SECTOR_MANAGER_START_QUERY), 1);
}

TEST_F(SectorTest, BadRunTextsCommitNothing) {
    ASSERT_EQ(Commit(L"vm", L"s", {{1, 1}}), 0);
    // The parse itself is fuzzed against a reference; here a bad item keeps the good one before it out.
    for (const std::wstring &text : {std::wstring(L"5 0"), std::wstring(L"18446744073709551615 2"),
                                     std::wstring(100000, L'7')}) {
        SCOPED_TRACE(testing::Message() << "text of " << text.size() << " characters");
        EXPECT_EQ(DataSetSectorManager(L"vm", L"s", std::vector<wcstring>{L"2 2", text}, SECTOR_MANAGER_COMMIT_SECTORS),
                  1);
    }
    EXPECT_EQ(dbtest::ReadWholeFile(ObjectFolder(L"vm") + L"\\s.dat"), "1 1\r\n");
    // Blanks and a CR are tolerated; a run up to the last sector is valid.
    ASSERT_EQ(DataSetSectorManager(L"vm", L"s", std::vector<wcstring>{L" 3\t 4 \r", L"1 18446744073709551615"},
                                   SECTOR_MANAGER_COMMIT_SECTORS),
              0);
    EXPECT_EQ(dbtest::ReadWholeFile(ObjectFolder(L"vm") + L"\\s.dat"), "1 1\r\n3 4\r\n1 18446744073709551615\r\n");
}

TEST_F(SectorTest, QueriesWithoutAHeldSetOrAUsableListFail) {
    ByteExtents answer;
    std::wstring summary;
    EXPECT_EQ(Query(L"vm", {{0, 512}}, answer, summary), 1);
    ASSERT_EQ(DataSetSectorManager(L"vm", L"a", SECTOR_MANAGER_START_QUERY), 0);
    ASSERT_EQ(DataSetSectorManager(L"vm", L"b", SECTOR_MANAGER_START_QUERY), 0);
    EXPECT_EQ(Query(L"vm", {{0, 512}}, answer, summary), 1) << "two held: which one?";
    EXPECT_EQ(Query(L"vm", {{0, 512}}, answer, summary, {L"a", L"c"}), 1) << "'c' is not started";
    ASSERT_EQ(Commit(L"vm", L"a", {{0, 1}}), 0);
    ASSERT_EQ(Commit(L"vm", L"b", {{1, 1}}), 0);
    ASSERT_EQ(Query(L"vm", {{0, 3 * 512}}, answer, summary, {L"a", L"b"}), 0);
    EXPECT_EQ(answer, (ByteExtents{{1024, 512}}));

    const wcstring list = scratch.File(L"bad.xml");
    for (const char *bad :
         {"not xml at all", "<Other/>", "<DiskChangeInfo><area><extent offset=\"1\"/></area></DiskChangeInfo>",
          "<DiskChangeInfo><area><extent offset=\"18446744073709551104\" length=\"1024\"/></area></DiskChangeInfo>"}) {
        SCOPED_TRACE(bad);
        EXPECT_TRUE(dbtest::WriteWholeFile(list, bad));
        wcstring out1 = L"canary", out2 = L"canary";
        log.Clear();
        EXPECT_EQ(DataSetSectorManager(L"vm", list, out1, out2, {L"a"}, SECTOR_MANAGER_QUERY_SECTORS), 1);
        EXPECT_EQ(log.Lines().size(), 1u);
        EXPECT_EQ(out1, L"canary");
        EXPECT_EQ(out2, L"canary");
    }
    wcstring out1, out2;
    EXPECT_EQ(DataSetSectorManager(L"vm", scratch.File(L"none.xml"), out1, out2, {L"a"},
                                   SECTOR_MANAGER_QUERY_SECTORS),
              1);
    // A list the plain scan gives up is read by XmlLite from the same open file, every area of it.
    EXPECT_TRUE(dbtest::WriteWholeFile(list, "<DiskChangeInfo><!-- c --><area><extent offset=' 0' length='&#49;536'/>"
                                             "</area><area><extent offset='4096' length='512'/></area></DiskChangeInfo>"));
    ASSERT_EQ(DataSetSectorManager(L"vm", list, out1, out2, {L"a"}, SECTOR_MANAGER_QUERY_SECTORS), 0);
    EXPECT_TRUE(ReadChangeList(out1, answer));
    EXPECT_EQ(answer, (ByteExtents{{512, 1024}, {4096, 512}}));
    // An answer written over a commit list would lose what it records.
    const std::string committed = dbtest::ReadWholeFile(ObjectFolder(L"vm") + L"\\a.dat");
    WriteChangeList(list, {{0, 512}});
    wcstring own = ObjectFolder(L"vm") + L"\\..\\vm\\A.DAT";
    EXPECT_EQ(DataSetSectorManager(L"vm", list, own, out2, {L"a"}, SECTOR_MANAGER_QUERY_SECTORS), 1);
    EXPECT_EQ(dbtest::ReadWholeFile(ObjectFolder(L"vm") + L"\\a.dat"), committed);
}

TEST_F(SectorTest, ADataPathSpeltInOtherCaseIsTheSameObject) {
    ASSERT_EQ(DataSetSectorManager(L"vm", L"s", SECTOR_MANAGER_START_QUERY), 0);
    std::wstring upper = data.Path();
    CharUpperBuffW(&upper[0], DWORD(upper.size()));
    DataSetSectorManagerSetDataPath(upper.c_str());
    ASSERT_EQ(Commit(L"vm", L"s", {{0, 4}}), 0);  // the held set must see it
    DataSetSectorManagerSetDataPath(nullptr);
    ByteExtents answer;
    std::wstring summary;
    ASSERT_EQ(Query(L"vm", {{0, 8 * 512}}, answer, summary), 0);
    EXPECT_EQ(answer, (ByteExtents{{4 * 512, 4 * 512}}));
}

}  // namespace
}  // namespace sectortest
