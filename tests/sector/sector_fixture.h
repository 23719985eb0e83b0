// The sector bookkeeping under test: a private HKLM whose "Data Path" is a
// temporary folder, every log line captured, and helpers that write change
// lists and read the files and answers back.
#pragma once
#include <stdint.h>

#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <data_object_sector_mgr.h>
#include <dbtest/files.h>
#include <dbtest/log_capture.h>
#include <dbtest/registry_sandbox.h>
#include <dbtest/temp_dir.h>

namespace sectortest {

// A byte extent of a DiskChangeInfo list.
struct ByteExtent {
    uint64_t offset;
    uint64_t length;
    bool operator==(const ByteExtent &o) const { return offset == o.offset && length == o.length; }
};
using ByteExtents = std::vector<ByteExtent>;

// Runs as the list texts a commit takes.
std::vector<wcstring> RunTexts(const std::vector<std::pair<uint64_t, uint64_t>> &runs);

// Writes a DiskChangeInfo file with the extents spread over areas of at most
// perArea extents.
void WriteChangeList(const std::wstring &path, const ByteExtents &extents, size_t perArea = 3);
// The extents of a DiskChangeInfo file in document order; a failure when the
// file cannot be read.
::testing::AssertionResult ReadChangeList(const std::wstring &path, ByteExtents &extents);


class SectorTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    std::wstring ObjectFolder(const std::wstring &escapedObject) const {
        return data.Path() + L"\\SectorManager\\" + escapedObject;
    }
    // Commit of runs (start, count) to object/set; the operation's result.
    int Commit(const wcstring &object, const wcstring &set, const std::vector<std::pair<uint64_t, uint64_t>> &runs);
    // Writes extents as a change list and queries object's held set(s) with
    // it; the answer's extents and the summary line.
    int Query(const wcstring &object, const ByteExtents &extents, ByteExtents &answer, std::wstring &summary,
              const std::vector<wcstring> &sets = {});
    // The "run S C" dump lines of object/set, as (start, count).
    std::vector<std::pair<uint64_t, uint64_t>> DumpedRuns(const wcstring &object, const std::wstring &set);

    dbtest::RegistrySandbox registry;
    dbtest::TempDir data;
    dbtest::TempDir scratch;  // change lists and answers
    dbtest::LogCapture log;
    int lists = 0;
};

}  // namespace sectortest
