// Sector run sets: gathered additions, merged by one sort and one pass.
#include "sector_runs.h"

#include <stdint.h>

#include <algorithm>
#include <utility>

namespace sectormgr {

namespace {

// Past this many unmerged additions a merge runs anyway, so a long job that
// commits without querying keeps memory near the merged size.
constexpr size_t kPendingFloor = 4096;

// Below this many runs a comparison sort is as quick as the radix sort.
constexpr size_t kRadixFloor = 2048;

bool ByFirst(const SectorRun &a, const SectorRun &b) { return a.first < b.first; }

// Least-significant-byte radix sort by first sector: a million runs loaded
// from a file sort in a few linear passes. All eight byte counts come from one
// pass, and a byte that every run shares (the high bytes of any real disk's
// sectors) costs nothing more.
void SortByFirst(SectorRuns &runs) {
    // A compacted file, and commits of a pass that streams in order, come sorted.
    if (std::is_sorted(runs.begin(), runs.end(), ByFirst)) return;
    if (runs.size() < kRadixFloor) {
        std::sort(runs.begin(), runs.end(), ByFirst);
        return;
    }
    std::vector<size_t> counts(8 * 256);
    for (const SectorRun &run : runs)
        for (unsigned byte = 0; byte < 8; ++byte) ++counts[byte * 256 + ((run.first >> (8 * byte)) & 0xFF)];
    SectorRuns scratch(runs.size());
    for (unsigned byte = 0; byte < 8; ++byte) {
        size_t *start = &counts[byte * 256];
        const unsigned shift = 8 * byte;
        if (start[(runs.front().first >> shift) & 0xFF] == runs.size()) continue;
        size_t total = 0;
        for (unsigned b = 0; b < 256; ++b) total += std::exchange(start[b], total);
        for (const SectorRun &run : runs) scratch[start[(run.first >> shift) & 0xFF]++] = run;
        runs.swap(scratch);
    }
}

// Merges a sorted sequence in place; every overlap or touch joins two runs.
void Coalesce(SectorRuns &runs) {
    size_t kept = 0;
    for (const SectorRun &run : runs) {
        if (kept > 0) {
            SectorRun &previous = runs[kept - 1];
            // previous.last + 1 would wrap at the top sector; test it first.
            if (previous.last == UINT64_MAX || run.first <= previous.last + 1) {
                previous.last = std::max(previous.last, run.last);
                continue;
            }
        }
        runs[kept++] = run;
    }
    runs.resize(kept);
}

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

bool MakeRun(uint64_t start, uint64_t count, SectorRun &run) {
    if (count == 0 || count - 1 > UINT64_MAX - start) return false;
    run.first = start;
    run.last = start + (count - 1);
    return true;
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
    SortByFirst(pending_);
    if (runs_.empty()) {
        runs_.swap(pending_);
    } else {
        SectorRuns all;
        all.reserve(runs_.size() + pending_.size());
        std::merge(runs_.begin(), runs_.end(), pending_.begin(), pending_.end(), std::back_inserter(all), ByFirst);
        runs_.swap(all);
    }
    pending_.clear();
    Coalesce(runs_);
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
