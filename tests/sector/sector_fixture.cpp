#include "sector_fixture.h"

#include <stdio.h>

#include <skclass_mini/dawdle.h>
#include <skclass_mini/handles.h>
#include <skstdutl/sklog.h>
#include <skxml/xmlreader.h>

#include <dbtest/product_keys.h>

namespace sectortest {

std::vector<wcstring> RunTexts(const std::vector<std::pair<uint64_t, uint64_t>> &runs) {
    std::vector<wcstring> texts;
    for (const auto &run : runs) texts.push_back(std::to_wstring(run.first) + L" " + std::to_wstring(run.second));
    return texts;
}

void WriteChangeList(const std::wstring &path, const ByteExtents &extents, size_t perArea) {
    std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<DiskChangeInfo>";
    for (size_t i = 0; i < extents.size(); ++i) {
        if (i % perArea == 0) xml += "<area startoffset=\"0\" startlength=\"0\">";
        xml += "<extent offset=\"" + std::to_string(extents[i].offset) + "\" length=\"" +
               std::to_string(extents[i].length) + "\"/>";
        if (i % perArea == perArea - 1 || i + 1 == extents.size()) xml += "</area>";
    }
    xml += "</DiskChangeInfo>\n";
    EXPECT_TRUE(dbtest::WriteWholeFile(path, xml));
}

::testing::AssertionResult ReadChangeList(const std::wstring &path, ByteExtents &extents) {
    CXmlReader reader;
    if (!reader.LoadFile(path.c_str())) return ::testing::AssertionFailure() << "not XML";
    if (!reader.SelectSingleNode(L"DiskChangeInfo")) return ::testing::AssertionFailure() << "no DiskChangeInfo";
    extents.clear();
    if (!reader.SelectFirstChild()) return ::testing::AssertionSuccess();
    do {
        if (!reader.SelectFirstChild()) return ::testing::AssertionFailure() << "an area without extents";
        do {
            ByteExtent extent{};
            if (!reader.GetAttributeUInt64(L"offset", extent.offset) ||
                !reader.GetAttributeUInt64(L"length", extent.length))
                return ::testing::AssertionFailure() << "an extent without offset/length";
            extents.push_back(extent);
        } while (reader.SelectNextSibling());
        reader.SelectParent();
    } while (reader.SelectNextSibling());
    return ::testing::AssertionSuccess();
}

void SectorTest::SetUp() {
    SK_SetLogFilePath(L"");  // no log file: it would stay open inside our folders
    ASSERT_TRUE(registry.Ok());
    ASSERT_FALSE(data.Path().empty());
    ASSERT_FALSE(scratch.Path().empty());
    ASSERT_EQ(registry.SetString(dbtest::kMainMiscKey, L"Data Path", data.Path() + L"\\\\"), ERROR_SUCCESS);
    skclass::SetTimeScale(0);  // retries of busy files ask for time, and get none
    skclass::ResetDawdleRequested();
}

void SectorTest::TearDown() {
    DataSetSectorManagerSetDataPath(nullptr);
    skclass::SetTimeScale(1.0);
}

int SectorTest::Commit(const wcstring &object, const wcstring &set,
                       const std::vector<std::pair<uint64_t, uint64_t>> &runs) {
    return DataSetSectorManager(object, set, RunTexts(runs), SECTOR_MANAGER_COMMIT_SECTORS);
}

int SectorTest::Query(const wcstring &object, const ByteExtents &extents, ByteExtents &answer,
                      std::wstring &summary, const std::vector<wcstring> &sets) {
    const std::wstring list = scratch.File(L"list-" + std::to_wstring(++lists) + L".xml");
    WriteChangeList(list, extents);
    wcstring out1 = scratch.File(L"answer-" + std::to_wstring(lists) + L".xml"), out2;
    const int result = DataSetSectorManager(object, list, out1, out2, sets, SECTOR_MANAGER_QUERY_SECTORS);
    if (result == 0) {
        EXPECT_TRUE(ReadChangeList(out1, answer));
        summary = out2;
    }
    return result;
}

std::vector<std::pair<uint64_t, uint64_t>> SectorTest::DumpedRuns(const wcstring &object, const std::wstring &set) {
    log.Clear();
    EXPECT_EQ(DataSetSectorManager(object, SECTOR_MANAGER_DUMP), 0);
    const std::wstring prefix = L"DataSetSectorManager: dump '" + object + L"' set '" + set + L"': run ";
    std::vector<std::pair<uint64_t, uint64_t>> runs;
    for (const std::wstring &line : log.Lines()) {
        if (line.compare(0, prefix.size(), prefix) != 0) continue;
        unsigned long long start = 0, count = 0;
        if (swscanf(line.c_str() + prefix.size(), L"%llu %llu", &start, &count) == 2) runs.push_back({start, count});
    }
    return runs;
}

}  // namespace sectortest
