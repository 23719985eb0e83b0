// Sorting runs by first sector: a comparison sort for a few, radix sorts for
// many. A million runs loaded from a file of shuffled commits are sorted and
// merged in three passes over their own memory.
#include "sector_runsort.h"

#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <memory>
#include <new>
#include <utility>
#include <vector>

namespace sectormgr {

namespace {

// Below this many runs a comparison sort is as quick as the radix sort.
constexpr size_t kRadixFloor = 2048;

unsigned BitWidth(uint64_t value) {
    unsigned width = 0;
    for (; value != 0; value >>= 1) ++width;
    return width;
}

unsigned LowestSetBit(uint64_t value) {  // value != 0
    unsigned bit = 0;
    while (!((value >> bit) & 1)) ++bit;
    return bit;
}

// A radix pass sorts by at most this many bits: the buckets' staging lines
// (64 bytes each) then stay in the second-level cache.
constexpr unsigned kMostDigitBits = 12;
// Within a bucket that fits the first-level cache, digits of a byte.
constexpr unsigned kBucketDigitBits = 8;
// A bucket this small is sorted by insertion.
constexpr size_t kInsertionMost = 32;
// Keys staged per bucket: one cache line's worth.
constexpr unsigned kStagedKeys = 8;

// ---- Runs packed in 64-bit keys: the common case, half the memory moved ----

// A run as one 64-bit key: its first sector's distance from the lowest,
// without the low bits every first sector shares, above its length - 1.
// Keys sort as their runs do, and give their runs back whole.
struct KeyPacking {
    uint64_t lowest = 0;
    unsigned shift = 0;     // low bits shared by every first sector
    unsigned spanBits = 0;  // below 64: at least one bit holds the first sector
    uint64_t Key(const SectorRun &run) const {
        return (((run.first - lowest) >> shift) << spanBits) | (run.last - run.first);
    }
    SectorRun Run(uint64_t key) const {
        SectorRun run;
        run.first = lowest + ((key >> spanBits) << shift);
        run.last = run.first + (key & ((uint64_t(1) << spanBits) - 1));
        return run;
    }
};

// The keys are kept in the runs' own memory, 8 bytes where a run takes 16,
// each written over runs already read: fresh memory costs its first touch,
// which is more than a pass of the sort.
class KeySlots {
public:
    explicit KeySlots(SectorRuns &runs) : bytes_(reinterpret_cast<unsigned char *>(runs.data())) {}
    uint64_t Get(size_t slot) const {
        uint64_t key;
        memcpy(&key, bytes_ + slot * 8, 8);
        return key;
    }
    void Set(size_t slot, uint64_t key) { memcpy(bytes_ + slot * 8, &key, 8); }
    void Put(size_t slot, const uint64_t *keys, size_t count) { memcpy(bytes_ + slot * 8, keys, count * 8); }
    void Take(size_t slot, uint64_t *keys, size_t count) const { memcpy(keys, bytes_ + slot * 8, count * 8); }

private:
    unsigned char *bytes_;
};

// A bucket's keys, taken from their slots, sorted by their bits from fromBit
// up in the cache: by insertion when few, else least significant byte first
// over the bits in which they differ. Returns where the sorted keys are (in
// keys or scratch: no copy back).
const uint64_t *SortBucket(const KeySlots &slots, size_t slot, size_t count, std::vector<uint64_t> &keys,
                           std::vector<uint64_t> &scratch, unsigned fromBit) {
    if (keys.size() < count) keys.resize(count);
    slots.Take(slot, keys.data(), count);
    if (count <= kInsertionMost) {
        for (size_t i = 1; i < count; ++i) {
            const uint64_t key = keys[i];
            size_t j = i;
            for (; j > 0 && keys[j - 1] > key; --j) keys[j] = keys[j - 1];
            keys[j] = key;
        }
        return keys.data();
    }
    uint64_t differ = 0;
    for (size_t i = 0; i < count; ++i) differ |= keys[i] ^ keys[0];
    differ >>= fromBit;
    if (differ == 0) return keys.data();  // one first sector; the lengths' order does not matter
    const unsigned low = fromBit + LowestSetBit(differ);
    const unsigned bits = fromBit + BitWidth(differ) - low;
    const unsigned passes = (bits + kBucketDigitBits - 1) / kBucketDigitBits;
    const unsigned digitBits = (bits + passes - 1) / passes;
    const uint64_t mask = (uint64_t(1) << digitBits) - 1;
    if (scratch.size() < count) scratch.resize(count);
    uint64_t *from = keys.data(), *to = scratch.data();
    size_t next[size_t(1) << kBucketDigitBits];
    for (unsigned p = 0; p < passes; ++p) {
        const unsigned shift = low + p * digitBits;
        std::fill(next, next + mask + 1, size_t(0));
        for (size_t i = 0; i < count; ++i) ++next[(from[i] >> shift) & mask];
        size_t total = 0;
        for (size_t digit = 0; digit <= mask; ++digit) total += std::exchange(next[digit], total);
        for (size_t i = 0; i < count; ++i) to[next[(from[i] >> shift) & mask]++] = from[i];
        std::swap(from, to);
    }
    return from;
}

// Sorts and merges runs through keys, when a key holds a run: one pass makes
// the keys and counts their top digit, one scatters them by it into buckets
// that fit the cache, and one sorts each bucket and writes its runs back,
// merged, in order. False when some run needs more than 64 bits.
bool SortPacked(SectorRuns &runs, const RunSpread &spread) {
    KeyPacking packing;
    packing.lowest = spread.Lowest();
    packing.shift = LowestSetBit(spread.Differ());
    packing.spanBits = BitWidth(spread.Spans());
    const unsigned keyBits = BitWidth((spread.Highest() - spread.Lowest()) >> packing.shift) + packing.spanBits;
    if (keyBits > 64) return false;
    const unsigned topShift = keyBits - std::min(keyBits - packing.spanBits, kMostDigitBits);
    const size_t buckets = size_t(1) << (keyBits - topShift);
    const size_t count = runs.size();
    KeySlots slots(runs);
    // Slots [0, count): the keys in the runs' order. Key i goes over run i/2,
    // read already.
    std::vector<size_t> starts(buckets + 1);
    for (size_t i = 0; i < count; ++i) {
        const uint64_t key = packing.Key(runs[i]);
        slots.Set(i, key);
        ++starts[key >> topShift];
    }
    size_t total = 0;
    for (size_t bucket = 0; bucket < buckets; ++bucket) total += std::exchange(starts[bucket], total);
    starts[buckets] = count;
    // Slots [count, 2 count): the keys by bucket. Each bucket's keys gather
    // in a staging line and reach memory a whole line at a time: scattered
    // single stores would miss the translation cache at almost every step.
    struct alignas(64) StagedLine {
        uint64_t keys[kStagedKeys];
    };
    std::vector<StagedLine> staged(buckets);
    std::vector<unsigned> fill(buckets);
    std::vector<size_t> next(starts.begin(), starts.end() - 1);
    for (size_t i = 0; i < count; ++i) {
        const uint64_t key = slots.Get(i);
        const size_t bucket = static_cast<size_t>(key >> topShift);
        unsigned &filled = fill[bucket];
        staged[bucket].keys[filled] = key;
        if (++filled == kStagedKeys) {
            slots.Put(count + next[bucket], staged[bucket].keys, kStagedKeys);
            next[bucket] += kStagedKeys;
            filled = 0;
        }
    }
    for (size_t bucket = 0; bucket < buckets; ++bucket)
        slots.Put(count + next[bucket], staged[bucket].keys, fill[bucket]);
    // Each bucket is copied out before runs are written back: run k takes
    // slots 2k and 2k + 1, and k stays below the next bucket's start, whose
    // keys sit at count + start and beyond. The run being merged is stored
    // once the next does not join it.
    std::vector<uint64_t> bucketKeys, scratch;
    size_t kept = 0;
    SectorRun merging;
    bool started = false;  // there are runs, so merging is set before it is stored
    for (size_t bucket = 0; bucket < buckets; ++bucket) {
        const size_t size = starts[bucket + 1] - starts[bucket];
        if (size == 0) continue;
        const uint64_t *sorted =
            SortBucket(slots, count + starts[bucket], size, bucketKeys, scratch, packing.spanBits);
        for (size_t i = 0; i < size; ++i) {
            const SectorRun run = packing.Run(sorted[i]);
            if (started && (merging.last == UINT64_MAX || run.first <= merging.last + 1)) {
                merging.last = std::max(merging.last, run.last);
                continue;
            }
            if (started) runs[kept++] = merging;
            merging = run;
            started = true;
        }
    }
    runs[kept++] = merging;
    runs.resize(kept);
    return true;
}

// ---- Whole runs: when lengths and sectors together pass 64 bits ----------

constexpr unsigned kStagedRuns = 4;  // one cache line's worth

struct alignas(64) StagedRunLine {
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
// way (when nextCounts is set), staged a line at a time as above.
struct DigitPass {
    unsigned shift = 0;
    uint64_t mask = 0;
    size_t *next = nullptr;        // per bucket: where its next run goes
    size_t *nextCounts = nullptr;  // per bucket of the following pass, or null
    unsigned nextShift = 0;
};

void ScatterByDigit(const SectorRun *from, size_t count, SectorRun *to, const DigitPass &pass,
                    std::vector<StagedRunLine> &staged, std::vector<unsigned> &fill) {
    std::fill(fill.begin(), fill.end(), 0u);
    for (const SectorRun *run = from; run != from + count; ++run) {
        if (pass.nextCounts) ++pass.nextCounts[(run->first >> pass.nextShift) & pass.mask];
        const size_t bucket = static_cast<size_t>((run->first >> pass.shift) & pass.mask);
        unsigned &filled = fill[bucket];
        staged[bucket].runs[filled] = *run;
        if (++filled == kStagedRuns) {
            memcpy(to + pass.next[bucket], staged[bucket].runs, sizeof(StagedRunLine));
            pass.next[bucket] += kStagedRuns;
            filled = 0;
        }
    }
    for (size_t bucket = 0; bucket < fill.size(); ++bucket)
        memcpy(to + pass.next[bucket], staged[bucket].runs, fill[bucket] * sizeof(SectorRun));
}

// Least-significant-digit radix sort by first sector, over only the bits in
// which the runs differ.
void SortWide(SectorRuns &runs, const RunSpread &spread) {
    const unsigned low = LowestSetBit(spread.Differ()), high = BitWidth(spread.Differ());
    const unsigned passes = (high - low + kMostDigitBits - 1) / kMostDigitBits;
    const unsigned digitBits = (high - low + passes - 1) / passes;
    const size_t buckets = size_t(1) << digitBits;
    const uint64_t mask = buckets - 1;
    std::vector<size_t> counts(passes * buckets);
    for (const SectorRun &run : runs) ++counts[(run.first >> low) & mask];
    RunRoom room = NewRunRoom(runs.size());
    std::vector<StagedRunLine> staged(buckets);
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

}  // namespace

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

RunSpread SpreadOf(const SectorRuns &runs) {
    RunSpread spread;
    for (const SectorRun &run : runs) spread.Note(run);
    return spread;
}

void SortAndCoalesce(SectorRuns &runs) { SortAndCoalesce(runs, SpreadOf(runs)); }

void SortAndCoalesce(SectorRuns &runs, const RunSpread &spread) {
    if (runs.size() < kRadixFloor) {
        if (!spread.Sorted()) std::sort(runs.begin(), runs.end(), ByFirst);
    } else if (!spread.Sorted()) {
        if (SortPacked(runs, spread)) return;
        SortWide(runs, spread);
    }
    Coalesce(runs);
}

}  // namespace sectormgr
