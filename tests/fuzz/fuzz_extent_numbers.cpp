// libFuzzer target: the number parser of the extent-list walk (offsets and
// lengths). Each input byte becomes one character; the parser must agree with
// a plain reference: optional XML blanks, decimal digits only, at most 2^64 - 1.
#include <string>

#include "fuzz_target.h"
#include "number_text.h"

namespace {

bool Reference(const std::wstring &text, uint64_t &value) {
    size_t begin = 0, end = text.size();
    while (begin < end && skxml::IsXmlSpace(text[begin])) ++begin;
    while (end > begin && skxml::IsXmlSpace(text[end - 1])) --end;
    size_t i = begin;
    return fuzzref::Decimal(text, i, value) && i == end;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::wstring text(data, data + size);
    uint64_t parsed = 0, expected = 0;
    const bool ok = skxml::ParseUInt64(text.data(), text.size(), parsed);
    if (ok != Reference(text, expected) || (ok && parsed != expected)) abort();
    return 0;
}
