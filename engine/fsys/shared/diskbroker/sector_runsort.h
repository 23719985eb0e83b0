// Sorting gathered runs by first sector, and merging the sorted sequence.
// No Windows here, so the native fuzzing build takes it as it is.
#pragma once
#include <stdint.h>

#include "sector_runs.h"

namespace sectormgr {

// What runs tell about their order and spread, noted one run at a time: a
// loader notes them as it reads them, and the sort needs no read of its own.
class RunSpread {
public:
    void Note(const SectorRun &run) {
        sorted_ &= previous_ <= run.first;
        previous_ = run.first;
        lowest_ = run.first < lowest_ ? run.first : lowest_;
        highest_ = run.first > highest_ ? run.first : highest_;
        anyBits_ |= run.first;
        allBits_ &= run.first;
        spans_ |= run.last - run.first;
    }
    bool Sorted() const { return sorted_; }
    // First sectors: the least, the greatest, and the bits in which they differ.
    uint64_t Lowest() const { return lowest_; }
    uint64_t Highest() const { return highest_; }
    uint64_t Differ() const { return anyBits_ ^ allBits_; }
    // Every run's last - first, or-ed.
    uint64_t Spans() const { return spans_; }

private:
    bool sorted_ = true;
    uint64_t previous_ = 0;
    uint64_t lowest_ = UINT64_MAX;
    uint64_t highest_ = 0;
    uint64_t anyBits_ = 0;
    uint64_t allBits_ = UINT64_MAX;
    uint64_t spans_ = 0;
};

RunSpread SpreadOf(const SectorRuns &runs);

// The order runs are sorted in.
inline bool ByFirst(const SectorRun &a, const SectorRun &b) { return a.first < b.first; }

// Sorts runs by first sector and merges every overlap or touch: afterwards
// runs is as SectorRunSet::Runs gives runs. spread: SpreadOf(runs), known
// already.
void SortAndCoalesce(SectorRuns &runs);
void SortAndCoalesce(SectorRuns &runs, const RunSpread &spread);

// Merges a sequence already sorted by first sector, in place.
void Coalesce(SectorRuns &runs);

}  // namespace sectormgr
