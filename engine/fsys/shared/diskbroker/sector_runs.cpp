// Sector run sets: gathered additions, merged by one sort and one pass.
#include "sector_runs.h"

#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <memory>
#include <new>
#include <utility>

namespace sectormgr {

namespace {

// Past this many unmerged additions a merge runs anyway, so a long job that
// commits without querying keeps memory near the merged size.
constexpr size_t kPendingFloor = 4096;

// Below this many runs a comparison sort is as quick as the radix sort.
constexpr size_t kRadixFloor = 2048;

bool ByFirst(const SectorRun &a, const SectorRun &b) { return a.first < b.first; }

// A radix pass sorts by at most this many bits: the buckets' staging lines
// (64 bytes each) then stay in the second-level cache, and 24 bits that differ
// (a million runs over a disk) take two passes, not three.
constexpr unsigned kMostDigitBits = 12;
// Runs staged per bucket: one cache line's worth.
constexpr unsigned kStagedRuns = 4;

struct alignas(64) StagedLine {
    SectorRun runs[kStagedRuns];
};

// Room for runs that is written before it is read, so it is not cleared first
// (clearing it would be one more pass over all of it).
struct FreeRoom {
    void operator()(SectorRun *room) const { ::operator delete(room); }
};
using RunRoom = std::unique_ptr<SectorRun, FreeRoom>;

RunRoom NewRunRoom(size_t count) { return RunRoom(static_cast<SectorRun *>(::operator new(count * sizeof(SectorRun)))); }

// One pass of the radix sort: the runs of from, by the digit at shift, into
// to at the buckets' next places, counting the following pass's digit on the
// way (when nextCounts is set). Each bucket's runs gather in a staging line
// and reach memory a whole line at a time, so thousands of buckets cost no
// more than 256: scattered single stores would miss the translation cache at
// almost every step.
struct DigitPass {
    unsigned shift = 0;
    uint64_t mask = 0;
    size_t *next = nullptr;        // per bucket: where its next run goes
    size_t *nextCounts = nullptr;  // per bucket of the following pass, or null
    unsigned nextShift = 0;
};

void ScatterByDigit(const SectorRun *from, size_t count, SectorRun *to, const DigitPass &pass,
                    std::vector<StagedLine> &staged, std::vector<unsigned> &fill) {
    std::fill(fill.begin(), fill.end(), 0u);
    for (const SectorRun *run = from; run != from + count; ++run) {
        if (pass.nextCounts) ++pass.nextCounts[(run->first >> pass.nextShift) & pass.mask];
        const size_t bucket = static_cast<size_t>((run->first >> pass.shift) & pass.mask);
        unsigned &filled = fill[bucket];
        staged[bucket].runs[filled] = *run;
        if (++filled == kStagedRuns) {
            memcpy(to + pass.next[bucket], staged[bucket].runs, sizeof(StagedLine));
            pass.next[bucket] += kStagedRuns;
            filled = 0;
        }
    }
    for (size_t bucket = 0; bucket < fill.size(); ++bucket)
        memcpy(to + pass.next[bucket], staged[bucket].runs, fill[bucket] * sizeof(SectorRun));
}

// Least-significant-digit radix sort by first sector, over only the bits in
// which the runs differ (the high bits of any real disk's sectors, and the low
// ones of aligned writes, are the same in every run): a million runs loaded
// from a file sort in two or three linear passes.
void SortByFirst(SectorRuns &runs) {
    if (runs.size() < kRadixFloor) {
        if (!std::is_sorted(runs.begin(), runs.end(), ByFirst)) std::sort(runs.begin(), runs.end(), ByFirst);
        return;
    }
    // One read tells whether the runs are in order already (a compacted file,
    // commits of a pass that streams in disk order) and which bits differ.
    const uint64_t base = runs.front().first;
    uint64_t previous = base, differ = 0;
    bool sorted = true;
    for (const SectorRun &run : runs) {
        sorted &= previous <= run.first;
        differ |= run.first ^ base;
        previous = run.first;
    }
    if (sorted) return;
    unsigned low = 0, high = 64;  // differ has a bit set, or the runs were sorted
    while (!((differ >> low) & 1)) ++low;
    while (!((differ >> (high - 1)) & 1)) --high;
    const unsigned passes = (high - low + kMostDigitBits - 1) / kMostDigitBits;
    const unsigned digitBits = (high - low + passes - 1) / passes;
    const size_t buckets = size_t(1) << digitBits;
    const uint64_t mask = buckets - 1;
    std::vector<size_t> counts(passes * buckets);
    for (const SectorRun &run : runs) ++counts[(run.first >> low) & mask];
    RunRoom room = NewRunRoom(runs.size());
    std::vector<StagedLine> staged(buckets);
    std::vector<unsigned> fill(buckets);
    SectorRun *from = runs.data(), *to = room.get();
    for (unsigned p = 0; p < passes; ++p) {
        DigitPass pass;
        pass.shift = low + p * digitBits;
        pass.mask = mask;
        pass.next = &counts[p * buckets];
        if (p + 1 < passes) {
            pass.nextCounts = &counts[(p + 1) * buckets];
            pass.nextShift = pass.shift + digitBits;
        }
        size_t total = 0;
        for (size_t bucket = 0; bucket < buckets; ++bucket) total += std::exchange(pass.next[bucket], total);
        ScatterByDigit(from, runs.size(), to, pass, staged, fill);
        std::swap(from, to);
    }
    if (from != runs.data()) memcpy(runs.data(), from, runs.size() * sizeof(SectorRun));
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
