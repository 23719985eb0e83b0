// Sets of sector runs, exact over the whole 64-bit sector range: a run is kept
// as its first and last sector (inclusive), so a run that ends at sector
// 2^64 - 1 needs no end past it.
#pragma once
#include <stdint.h>

#include <vector>

namespace sectormgr {

struct SectorRun {
    uint64_t first = 0;
    uint64_t last = 0;  // inclusive; first <= last
};
using SectorRuns = std::vector<SectorRun>;

// The run as "start count" pairs for a text: one, or two halves for the whole
// sector range, whose count (2^64) no 64-bit number holds.
template <typename Emit>
void ForEachCountedRun(const SectorRun &run, Emit emit) {
    if (run.last - run.first == UINT64_MAX) {
        const uint64_t half = uint64_t(1) << 63;
        emit(run.first, half);
        emit(run.first + half, half);
    } else {
        emit(run.first, run.last - run.first + 1);
    }
}

// Sectors in runs, saturated at UINT64_MAX (only the full range has more).
uint64_t CountSectors(const SectorRuns &runs);

// The run "start count" names, or false when count is 0 or the run would
// pass sector 2^64 - 1. Inline: the loader calls it once per line.
[[nodiscard]] inline bool MakeRun(uint64_t start, uint64_t count, SectorRun &run) {
    if (count == 0 || count - 1 > UINT64_MAX - start) return false;
    run.first = start;
    run.last = start + (count - 1);
    return true;
}

// Runs added in any order, overlapping or touching; read back sorted, with
// overlaps and neighbours merged. Additions are gathered and merged in bulk,
// so a million of them cost one sort, not a million insertions.
class SectorRunSet {
public:
    void Add(const SectorRun &run);
    void Add(const SectorRuns &runs);
    // Takes runs over without a copy when nothing is pending. merged: runs
    // are sorted and merged already (as Runs() gives them), so the set, when
    // empty, holds them as they are.
    void Add(SectorRuns &&runs, bool merged = false);
    // Sorted, disjoint, never two touching runs.
    const SectorRuns &Runs();
    // The merged runs, moved out; the set is empty afterwards.
    SectorRuns Take();
    bool Empty() const { return runs_.empty() && pending_.empty(); }
    void Clear();

private:
    void Merge();

    SectorRuns runs_;     // merged
    SectorRuns pending_;  // added since the last merge, any order
};

// The parts of wanted not in have; both merged (as Runs() gives them). One
// sweep over the two lists.
SectorRuns Subtract(const SectorRuns &wanted, const SectorRuns &have);
// wanted minus each of haves in turn; a list with nothing in it costs nothing.
SectorRuns SubtractAll(SectorRuns wanted, const std::vector<const SectorRuns *> &haves);

}  // namespace sectormgr
