// Numbers in attribute text. No Windows and no XmlLite: the native fuzzing
// build takes this header as it is.
#pragma once
#include <stddef.h>
#include <stdint.h>

namespace skxml {

inline bool IsXmlSpace(wchar_t c) { return c == L' ' || c == L'\t' || c == L'\r' || c == L'\n'; }

// Strict unsigned decimal, surrounding XML whitespace allowed. Unlike a bare
// "%I64u" scan, "12abc", "-1", "" and values above 2^64-1 are refused, so a
// damaged extent list cannot turn into plausible offsets.
inline bool ParseUInt64(const wchar_t *text, size_t length, uint64_t &value) {
    size_t i = 0;
    while (i < length && IsXmlSpace(text[i])) ++i;
    size_t end = length;
    while (end > i && IsXmlSpace(text[end - 1])) --end;
    if (i == end) return false;
    uint64_t result = 0;
    for (; i < end; ++i) {
        if (text[i] < L'0' || text[i] > L'9') return false;
        const uint64_t digit = static_cast<uint64_t>(text[i] - L'0');
        if (result > (UINT64_MAX - digit) / 10) return false;
        result = result * 10 + digit;
    }
    value = result;
    return true;
}

}  // namespace skxml
