// Random commits and queries against a bitmap oracle, through the real files.
//
// The oracle's cells are the sectors of a low window [0, kLow), one cell for
// the whole gap between the windows, and the sectors of a high window ending
// at sector 2^64 - 1. No generated run starts or ends inside the gap, so each
// run covers all of it or none, and the merged runs the oracle expects are
// exact over the whole 64-bit range: huge counts near 2^64 included.
#include <algorithm>
#include <random>

#include "sector_fixture.h"

namespace sectortest {
namespace {

constexpr uint64_t kLow = 192;
constexpr uint64_t kHigh = 64;
constexpr uint64_t kHighStart = 0 - kHigh;  // 2^64 - kHigh
constexpr size_t kGapCell = kLow;
constexpr size_t kCells = kLow + 1 + kHigh;

uint64_t CellFirst(size_t cell) { return cell < kLow ? cell : cell == kGapCell ? kLow : kHighStart + (cell - kLow - 1); }
uint64_t CellLast(size_t cell) { return cell < kLow ? cell : cell == kGapCell ? kHighStart - 1 : CellFirst(cell); }
size_t CellOf(uint64_t sector) { return sector < kLow ? size_t(sector) : size_t(kLow + 1 + (sector - kHighStart)); }

class Oracle {
public:
    void Commit(uint64_t start, uint64_t count) {
        const uint64_t last = start + (count - 1);
        for (size_t cell = CellOf(start); cell <= CellOf(last); ++cell) committed_[cell] = true;
    }
    // The asked sectors of the low window not committed, as merged byte extents.
    ByteExtents Left(const std::vector<bool> &asked) const {
        ByteExtents left;
        for (uint64_t s = 0; s < kLow; ++s) {
            if (!asked[s] || committed_[s]) continue;
            if (!left.empty() && left.back().offset + left.back().length == s * 512) left.back().length += 512;
            else left.push_back({s * 512, 512});
        }
        return left;
    }
    // The merged runs as the compacted file holds them.
    std::string FileText() const {
        std::vector<std::pair<uint64_t, uint64_t>> runs;  // first, last
        for (size_t cell = 0; cell < kCells; ++cell) {
            if (!committed_[cell]) continue;
            if (cell > 0 && committed_[cell - 1]) runs.back().second = CellLast(cell);
            else runs.push_back({CellFirst(cell), CellLast(cell)});
        }
        std::string text;
        for (const auto &run : runs) {
            if (run.second - run.first == UINT64_MAX) {
                text += "0 9223372036854775808\r\n9223372036854775808 9223372036854775808\r\n";
                continue;
            }
            text += std::to_string(run.first) + " " + std::to_string(run.second - run.first + 1) + "\r\n";
        }
        return text;
    }

private:
    std::vector<bool> committed_ = std::vector<bool>(kCells, false);
};

class Generator {
public:
    explicit Generator(uint32_t seed) : random_(seed) {}
    uint64_t Below(uint64_t n) { return std::uniform_int_distribution<uint64_t>(0, n - 1)(random_); }

    std::pair<uint64_t, uint64_t> Run() {
        const uint64_t kind = Below(100);
        if (kind < 70) {  // small, in the low window
            const uint64_t start = Below(kLow);
            return {start, 1 + Below(std::min<uint64_t>(24, kLow - start))};
        }
        if (kind < 85) {  // in the high window, up to the last sector
            const uint64_t start = kHighStart + Below(kHigh);
            return {start, 1 + Below(0 - start)};
        }
        // From the low window over the gap into the high one: a count near
        // 2^64, up to the very last sector (rarely from sector 0: everything).
        const uint64_t start = kind < 98 ? 1 + Below(kLow - 1) : 0;
        const uint64_t last = kHighStart + Below(kHigh);
        return {start, last - start + 1};
    }

    ByteExtents Extents(std::vector<bool> &asked) {
        ByteExtents extents;
        asked.assign(kLow, false);
        for (uint64_t n = 1 + Below(4); n > 0; --n) {
            const uint64_t offset = Below(kLow * 512);
            const uint64_t length = Below(kLow * 512 - offset + 1);
            extents.push_back({offset, length});
            for (uint64_t s = offset / 512; s < offset / 512 + length / 512; ++s) asked[s] = true;
        }
        return extents;
    }

private:
    std::mt19937 random_;
};

class SectorPropertyTest : public SectorTest {
protected:
    void RunRound(uint32_t seed);
};

void SectorPropertyTest::RunRound(uint32_t seed) {
    const wcstring set = L"set" + std::to_wstring(seed);
    const std::wstring file = ObjectFolder(L"vm") + L"\\" + set + L".dat";
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    Generator generate(seed);
    Oracle oracle;
    ASSERT_EQ(DataSetSectorManager(L"vm", set, SECTOR_MANAGER_START_QUERY), 0);
    for (int step = 0; step < 60; ++step) {
        SCOPED_TRACE(testing::Message() << "step " << step);
        const uint64_t action = generate.Below(10);
        if (action < 5) {
            std::vector<std::pair<uint64_t, uint64_t>> runs;
            for (uint64_t n = 1 + generate.Below(3); n > 0; --n) runs.push_back(generate.Run());
            ASSERT_EQ(Commit(L"vm", set, runs), 0);
            for (const auto &run : runs) oracle.Commit(run.first, run.second);
        } else if (action < 9) {
            std::vector<bool> asked;
            const ByteExtents extents = generate.Extents(asked);
            ByteExtents answer;
            std::wstring summary;
            ASSERT_EQ(Query(L"vm", extents, answer, summary, {set}), 0);
            ASSERT_EQ(answer, oracle.Left(asked));
        } else {  // compact, compare the file, hold it again from the file
            ASSERT_EQ(DataSetSectorManager(L"vm", set, SECTOR_MANAGER_END_QUERY), 0);
            ASSERT_EQ(dbtest::ReadWholeFile(file), oracle.FileText());
            ASSERT_EQ(DataSetSectorManager(L"vm", set, SECTOR_MANAGER_START_QUERY), 0);
        }
    }
    ASSERT_EQ(DataSetSectorManager(L"vm", set, SECTOR_MANAGER_END_QUERY), 0);
    ASSERT_EQ(dbtest::ReadWholeFile(file), oracle.FileText());
}

TEST_F(SectorPropertyTest, RandomCommitsAndQueriesMatchABitmapOracle) {
    for (uint32_t seed = 1; seed <= 12; ++seed) {
        RunRound(seed);
        if (HasFatalFailure()) return;
    }
}

}  // namespace
}  // namespace sectortest
