// libFuzzer target: the number parser of the extent-list walk (offsets and
// lengths), built natively with AddressSanitizer and UndefinedBehaviorSanitizer.
// Each input byte becomes one character; the parser must agree with a plain
// reference: optional XML blanks, decimal digits only, at most 2^64 - 1.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include <string>

#include "number_text.h"

namespace {

bool Reference(const std::wstring &text, uint64_t &value) {
    size_t begin = 0, end = text.size();
    while (begin < end && skxml::IsXmlSpace(text[begin])) ++begin;
    while (end > begin && skxml::IsXmlSpace(text[end - 1])) --end;
    if (begin == end) return false;
    unsigned __int128 result = 0;
    for (size_t i = begin; i < end; ++i) {
        if (text[i] < L'0' || text[i] > L'9') return false;
        result = result * 10 + unsigned(text[i] - L'0');
        if (result > UINT64_MAX) return false;
    }
    value = static_cast<uint64_t>(result);
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::wstring text(data, data + size);
    uint64_t parsed = 0, expected = 0;
    const bool ok = skxml::ParseUInt64(text.data(), text.size(), parsed);
    if (ok != Reference(text, expected) || (ok && parsed != expected)) abort();
    return 0;
}
