// libFuzzer target: the sort and merge of many runs, which takes a radix path
// only past a couple of thousand runs, so the input is a pattern repeated:
// - 8 bytes: the stride, added to every first sector at each repeat (wrapping);
// - then runs, each a byte c followed by c & 15 bytes of its first sector and
//   c >> 4 bytes of its length - 1 (little endian, at most 8 each).
// The runs, repeat after repeat until there are enough, must sort and merge
// to what a plain comparison sort and merge give.
#include <string.h>

#include <algorithm>
#include <vector>

#include "fuzz_target.h"
#include "sector_runsort.h"

namespace {

using sectormgr::SectorRun;
using sectormgr::SectorRuns;

constexpr size_t kEnoughRuns = 3000;

uint64_t TakeNumber(const uint8_t *&p, const uint8_t *end, unsigned bytes) {
    uint64_t value = 0;
    for (unsigned i = 0; i < std::min(bytes, 8u) && p < end; ++i) value |= uint64_t(*p++) << (8 * i);
    return value;
}

SectorRuns Reference(SectorRuns runs) {
    std::sort(runs.begin(), runs.end(), [](const SectorRun &a, const SectorRun &b) { return a.first < b.first; });
    SectorRuns merged;
    for (const SectorRun &run : runs) {
        if (!merged.empty() && (merged.back().last == UINT64_MAX || run.first <= merged.back().last + 1)) {
            merged.back().last = std::max(merged.back().last, run.last);
            continue;
        }
        merged.push_back(run);
    }
    return merged;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const uint8_t *p = data, *end = data + size;
    const uint64_t stride = TakeNumber(p, end, 8);
    SectorRuns pattern;
    while (p < end) {
        const uint8_t c = *p++;
        SectorRun run;
        run.first = TakeNumber(p, end, c & 15);
        const uint64_t span = TakeNumber(p, end, c >> 4);
        if (span > UINT64_MAX - run.first) continue;  // past the last sector: no run
        run.last = run.first + span;
        pattern.push_back(run);
    }
    if (pattern.empty()) return 0;
    SectorRuns runs;
    for (uint64_t repeat = 0; runs.size() < kEnoughRuns; ++repeat) {
        for (const SectorRun &run : pattern) {
            const uint64_t first = run.first + repeat * stride, span = run.last - run.first;
            if (span <= UINT64_MAX - first) runs.push_back({first, first + span});
        }
        if (repeat > kEnoughRuns) break;  // every repeat wraps past the last sector
    }
    const SectorRuns expected = Reference(runs);
    sectormgr::SortAndCoalesce(runs);
    if (!fuzzref::SameRuns(runs, expected)) abort();
    return 0;
}
