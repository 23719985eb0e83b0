// Conversions between the product's wide and narrow strings.
#include <skclass_mini/strings.h>

#include <string.h>
#include <wchar.h>
#include <skclass_mini/win.h>

namespace {

constexpr wchar_t kReplacementCharacter = 0xFFFD;

// MultiByteToWideChar/WideCharToMultiByte take int lengths; longer texts are
// converted in pieces no longer than this (cut only between whole sequences).
constexpr size_t kMaxChunk = 1u << 30;

bool IsContinuation(unsigned char c) { return (c & 0xC0) == 0x80; }

// Length of the well-formed UTF-8 sequence at text[0], or 0 when it is not
// one (stray continuation, overlong form, surrogate, beyond U+10FFFF, cut short).
size_t WellFormedSequenceLength(const unsigned char *text, size_t available) {
    const unsigned char lead = text[0];
    if (lead < 0x80) return 1;
    size_t length;
    unsigned char secondMin = 0x80, secondMax = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        if (lead == 0xE0) secondMin = 0xA0;        // overlong
        if (lead == 0xED) secondMax = 0x9F;        // UTF-16 surrogates
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        if (lead == 0xF0) secondMin = 0x90;        // overlong
        if (lead == 0xF4) secondMax = 0x8F;        // beyond U+10FFFF
    } else {
        return 0;
    }
    if (available < length) return 0;
    if (text[1] < secondMin || text[1] > secondMax) return 0;
    for (size_t i = 2; i < length; ++i) {
        if (!IsContinuation(text[i])) return 0;
    }
    return length;
}

// Appends the conversion of a span that is known to be valid in codePage.
void AppendDecoded(UINT codePage, const char *text, size_t length, std::wstring &out) {
    while (length > 0) {
        size_t piece = length < kMaxChunk ? length : kMaxChunk;
        if (codePage == CP_UTF8) {
            // Never split a sequence: step back over continuation bytes.
            while (piece < length && piece > 0 && IsContinuation(static_cast<unsigned char>(text[piece]))) --piece;
        }
        int need = MultiByteToWideChar(codePage, 0, text, static_cast<int>(piece), nullptr, 0);
        if (need > 0) {
            size_t at = out.size();
            out.resize(at + static_cast<size_t>(need));
            MultiByteToWideChar(codePage, 0, text, static_cast<int>(piece), &out[at], need);
        }
        text += piece;
        length -= piece;
    }
}

// Replaces every unpaired surrogate by U+FFFD so that the encoders never drop
// or mangle one differently on different systems.
std::wstring WithPairedSurrogates(const wchar_t *wide, size_t length) {
    std::wstring out(wide, length);
    for (size_t i = 0; i < length; ++i) {
        const wchar_t c = out[i];
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < length && out[i + 1] >= 0xDC00 && out[i + 1] <= 0xDFFF) {
            ++i;
        } else if (c >= 0xD800 && c <= 0xDFFF) {
            out[i] = kReplacementCharacter;
        }
    }
    return out;
}

void AppendEncoded(UINT codePage, const wchar_t *wide, size_t length, std::string &out) {
    while (length > 0) {
        size_t piece = length < kMaxChunk ? length : kMaxChunk;
        if (piece < length && wide[piece] >= 0xDC00 && wide[piece] <= 0xDFFF) --piece;  // keep pairs whole
        int need = WideCharToMultiByte(codePage, 0, wide, static_cast<int>(piece), nullptr, 0, nullptr, nullptr);
        if (need > 0) {
            size_t at = out.size();
            out.resize(at + static_cast<size_t>(need));
            WideCharToMultiByte(codePage, 0, wide, static_cast<int>(piece), &out[at], need, nullptr, nullptr);
        }
        wide += piece;
        length -= piece;
    }
}

}  // namespace

wcstring wcstring::FromUtf8(const char *utf8, size_t length) {
    wcstring out;
    if (utf8 == nullptr) return out;
    if (length == std::string::npos) length = strlen(utf8);
    const unsigned char *bytes = reinterpret_cast<const unsigned char *>(utf8);
    out.reserve(length);
    size_t spanStart = 0, at = 0;
    while (at < length) {
        size_t sequence = WellFormedSequenceLength(bytes + at, length - at);
        if (sequence > 0) {
            at += sequence;
            continue;
        }
        AppendDecoded(CP_UTF8, utf8 + spanStart, at - spanStart, out);
        out.push_back(kReplacementCharacter);
        spanStart = ++at;
    }
    AppendDecoded(CP_UTF8, utf8 + spanStart, at - spanStart, out);
    return out;
}

wcstring wcstring::FromAnsi(const char *text, size_t length) {
    wcstring out;
    if (text == nullptr) return out;
    if (length == std::string::npos) length = strlen(text);
    AppendDecoded(CP_ACP, text, length, out);
    return out;
}

cstring cstring::ToUtf8(const wchar_t *wide, size_t length) {
    cstring out;
    if (wide == nullptr) return out;
    if (length == std::wstring::npos) length = wcslen(wide);
    const std::wstring clean = WithPairedSurrogates(wide, length);
    AppendEncoded(CP_UTF8, clean.data(), clean.size(), out);
    return out;
}

cstring cstring::ToAnsi(const wchar_t *wide, size_t length) {
    cstring out;
    if (wide == nullptr) return out;
    if (length == std::wstring::npos) length = wcslen(wide);
    AppendEncoded(CP_ACP, wide, length, out);
    return out;
}

int comparei(const wchar_t *a, size_t aLength, const wchar_t *b, size_t bLength) {
    // CompareStringOrdinal takes int lengths; the common prefix is compared in
    // pieces and the lengths decide when it is equal.
    const size_t common = aLength < bLength ? aLength : bLength;
    for (size_t at = 0; at < common;) {
        const size_t piece = (common - at) < kMaxChunk ? (common - at) : kMaxChunk;
        const int result = CompareStringOrdinal(a + at, static_cast<int>(piece), b + at,
                                                static_cast<int>(piece), TRUE);
        if (result == CSTR_LESS_THAN) return -1;
        if (result == CSTR_GREATER_THAN) return 1;
        at += piece;
    }
    if (aLength == bLength) return 0;
    return aLength < bLength ? -1 : 1;
}
