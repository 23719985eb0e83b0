// Sector run sets: gathered additions, merged by one sort and one pass.
#include "sector_runs.h"

#include <stdint.h>

#include <algorithm>
#include <iterator>

#include "sector_runsort.h"

namespace sectormgr {

namespace {

// Past this many unmerged additions a merge runs anyway, so a long job that
// commits without querying keeps memory near the merged size.
constexpr size_t kPendingFloor = 4096;

}  // namespace

uint64_t CountSectors(const SectorRuns &runs) {
    uint64_t total = 0;
    for (const SectorRun &run : runs) {
        const uint64_t span = run.last - run.first;  // sectors - 1, never wraps
        if (span == UINT64_MAX || total > UINT64_MAX - span - 1) return UINT64_MAX;
        total += span + 1;
    }
    return total;
}

void SectorRunSet::Add(const SectorRun &run) {
    pending_.push_back(run);
    if (pending_.size() > std::max(kPendingFloor, runs_.size())) Merge();
}

void SectorRunSet::Add(const SectorRuns &runs) {
    pending_.insert(pending_.end(), runs.begin(), runs.end());
    if (pending_.size() > std::max(kPendingFloor, runs_.size())) Merge();
}

void SectorRunSet::Add(SectorRuns &&runs, bool merged) {
    if (merged && runs_.empty() && pending_.empty()) {
        runs_.swap(runs);
        return;
    }
    if (!pending_.empty()) {
        Add(static_cast<const SectorRuns &>(runs));
        return;
    }
    pending_.swap(runs);
    if (pending_.size() > std::max(kPendingFloor, runs_.size())) Merge();
}

const SectorRuns &SectorRunSet::Runs() {
    if (!pending_.empty()) Merge();
    return runs_;
}

SectorRuns SectorRunSet::Take() {
    Runs();
    SectorRuns taken;
    taken.swap(runs_);
    return taken;
}

void SectorRunSet::Clear() {
    SectorRuns().swap(runs_);
    SectorRuns().swap(pending_);
}

void SectorRunSet::Merge() {
    SortAndCoalesce(pending_);
    if (runs_.empty()) {
        runs_.swap(pending_);
    } else {
        SectorRuns all;
        all.reserve(runs_.size() + pending_.size());
        std::merge(runs_.begin(), runs_.end(), pending_.begin(), pending_.end(), std::back_inserter(all), ByFirst);
        runs_.swap(all);
        Coalesce(runs_);
    }
    pending_.clear();
}

SectorRuns Subtract(const SectorRuns &wanted, const SectorRuns &have) {
    SectorRuns left;
    // A guess that holds when each wanted run is split once; more pieces only
    // grow the vector.
    left.reserve(wanted.size() + std::min(wanted.size(), have.size()));
    size_t next = 0;  // first run of have that may still meet a wanted run
    for (const SectorRun &want : wanted) {
        while (next < have.size() && have[next].last < want.first) ++next;
        uint64_t from = want.first;
        bool covered = false;
        for (size_t h = next; h < have.size() && have[h].first <= want.last; ++h) {
            if (have[h].first > from) left.push_back({from, have[h].first - 1});
            if (have[h].last >= want.last) {
                covered = true;
                break;
            }
            from = have[h].last + 1;  // below want.last, so no wrap
        }
        if (!covered) left.push_back({from, want.last});
    }
    return left;
}

SectorRuns SubtractAll(SectorRuns wanted, const std::vector<const SectorRuns *> &haves) {
    for (const SectorRuns *have : haves)
        if (!have->empty() && !wanted.empty()) wanted = Subtract(wanted, *have);
    return wanted;
}

}  // namespace sectormgr
