// What the fuzz targets here share: the libFuzzer entry point, and plain
// references they judge the product's parsers by.
#pragma once
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace fuzzref {

// The decimal digits from text[i] on; false when there are none or they pass
// 2^64 - 1. i ends at the first character that is no digit.
template <typename Text>
bool Decimal(const Text &text, size_t &i, uint64_t &value) {
    const size_t start = i;
    unsigned __int128 v = 0;
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
        v = v * 10 + unsigned(text[i] - '0');
        if (v > UINT64_MAX) return false;
    }
    value = static_cast<uint64_t>(v);
    return i != start;
}

// Two lists of sector runs ({first, last}) alike, run by run.
template <typename Runs>
bool SameRuns(const Runs &a, const Runs &b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (a[i].first != b[i].first || a[i].last != b[i].last) return false;
    return true;
}

}  // namespace fuzzref
