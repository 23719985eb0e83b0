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

bool ByFirst(const SectorRun &a, const SectorRun &b) { return a.first < b.first; }

// The radix sort by first sector. A range larger than the cache is split in
// place into buckets by its top differing bits: each run is read and written
// once, and no second copy of a large set is allocated (fresh memory costs a
// page fault per 4 KiB, more than the pass itself). A range that fits the
// cache sorts by its low digits first through a small scratch. Only the bits
// in which a range's starts differ are looked at: the high bits of a disk's
// sectors, and the low bits of aligned writes, are the same in every run.
constexpr size_t kCachedRuns = 4096;      // 64 KiB
constexpr size_t kComparedRuns = 64;      // fewer are sorted by comparison
constexpr unsigned kSplitDigitBits = 10;  // more buckets per split miss the translation cache
constexpr unsigned kCachedDigitBits = 11;

struct SortSpace {
    SectorRuns scratch;
    std::vector<size_t> counts;
};

// The bits [low, high) in which the starts of the runs differ; false when
// they are all the same.
bool DifferingBits(const SectorRun *runs, size_t count, unsigned &low, unsigned &high) {
    const uint64_t base = runs[0].first;
    uint64_t differ = 0;
    for (size_t i = 0; i < count; ++i) differ |= runs[i].first ^ base;
    if (differ == 0) return false;
    for (low = 0; !((differ >> low) & 1); ++low) {}
    for (high = 64; !((differ >> (high - 1)) & 1); --high) {}
    return true;
}

// Least-significant digit first over bits [low, high), each pass a counting
// sort between the range and the scratch.
void SortCached(SectorRun *runs, size_t count, unsigned low, unsigned high, SortSpace &space) {
    const unsigned passes = (high - low + kCachedDigitBits - 1) / kCachedDigitBits;
    const unsigned bits = (high - low + passes - 1) / passes;
    const uint64_t mask = (uint64_t(1) << bits) - 1;
    if (space.scratch.size() < count) space.scratch.resize(kCachedRuns);
    space.counts.resize(size_t(1) << bits);
    size_t *next = space.counts.data();
    SectorRun *from = runs, *to = space.scratch.data();
    for (unsigned pass = 0; pass < passes; ++pass) {
        const unsigned shift = low + pass * bits;
        std::fill(space.counts.begin(), space.counts.end(), 0);
        for (size_t i = 0; i < count; ++i) ++next[(from[i].first >> shift) & mask];
        size_t total = 0;
        for (size_t &bucket : space.counts) total += std::exchange(bucket, total);
        for (size_t i = 0; i < count; ++i) to[next[(from[i].first >> shift) & mask]++] = from[i];
        std::swap(from, to);
    }
    if (from != runs) std::copy(from, from + count, runs);
}

// Moves every run of the range into its bucket by the digit at shift, in
// place: each run taken out is swapped into its bucket's next place until
// one belongs where the walk started. counts: one per bucket, zero on entry.
void SplitInPlace(SectorRun *runs, size_t count, unsigned shift, std::vector<size_t> &counts) {
    const uint64_t mask = counts.size() - 1;
    for (size_t i = 0; i < count; ++i) ++counts[(runs[i].first >> shift) & mask];
    std::vector<size_t> next(counts.size()), end(counts.size());
    size_t at = 0;
    for (size_t bucket = 0; bucket < counts.size(); ++bucket) {
        next[bucket] = at;
        at += counts[bucket];
        end[bucket] = at;
    }
    for (size_t bucket = 0; bucket < counts.size(); ++bucket) {
        while (next[bucket] < end[bucket]) {
            SectorRun run = runs[next[bucket]];
            size_t home = static_cast<size_t>((run.first >> shift) & mask);
            while (home != bucket) {
                std::swap(run, runs[next[home]++]);
                home = static_cast<size_t>((run.first >> shift) & mask);
            }
            runs[next[bucket]++] = run;
        }
    }
}

void SortRange(SectorRun *runs, size_t count, SortSpace &space) {
    if (count < kComparedRuns) {
        std::sort(runs, runs + count, ByFirst);
        return;
    }
    unsigned low = 0, high = 0;
    if (!DifferingBits(runs, count, low, high)) return;
    if (count <= kCachedRuns) {
        SortCached(runs, count, low, high, space);
        return;
    }
    // A bucket's runs agree from shift up, so each split leaves fewer bits.
    const unsigned bits = std::min(kSplitDigitBits, high - low);
    const unsigned shift = high - bits;
    std::vector<size_t> counts(size_t(1) << bits);
    SplitInPlace(runs, count, shift, counts);
    for (size_t bucketCount : counts) {
        SortRange(runs, bucketCount, space);
        runs += bucketCount;
    }
}

void SortByFirst(SectorRuns &runs) {
    // A compacted file, and commits of a pass that streams in order, come sorted.
    if (std::is_sorted(runs.begin(), runs.end(), ByFirst)) return;
    SortSpace space;
    SortRange(runs.data(), runs.size(), space);
}

// Merges a sorted sequence in place; every overlap or touch joins two runs.
void Coalesce(SectorRuns &runs) {
    size_t kept = 0;
    for (size_t i = 0; i < runs.size(); ++i) {
        const SectorRun run = runs[i];
        if (kept > 0) {
            SectorRun &previous = runs[kept - 1];
            // previous.last + 1 would wrap at the top sector; test it first.
            if (previous.last == UINT64_MAX || run.first <= previous.last + 1) {
                previous.last = std::max(previous.last, run.last);
                continue;
            }
        }
        // A run still in its place is not stored again: until the first join
        // that is every run, and a store would dirty all of a large set.
        if (kept != i) runs[kept] = run;
        ++kept;
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
