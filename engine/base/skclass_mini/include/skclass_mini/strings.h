// The product's wide and narrow strings. Narrow text exchanged with VMware and the
// web-services library is UTF-8 (code page 65001); conversions live here.
#pragma once
#include <string>
#include <skclass_mini/export.h>

// Only the conversion functions are exported, not the classes: exporting a
// class derived from std::basic_string would export (and warn about, C4275)
// the standard library's own members.
class wcstring : public std::wstring {
public:
    using std::wstring::wstring;
    wcstring() = default;
    wcstring(const std::wstring &s) : std::wstring(s) {}
    wcstring(std::wstring &&s) : std::wstring(std::move(s)) {}

    // Decodes UTF-8. Invalid sequences become U+FFFD (one per bad byte), never a
    // truncation; a null pointer gives an empty string.
    SKCLASS_API static wcstring FromUtf8(const char *utf8, size_t length = std::string::npos);
    // Decodes the system ANSI code page (CP_ACP).
    SKCLASS_API static wcstring FromAnsi(const char *text, size_t length = std::string::npos);
};

class cstring : public std::string {
public:
    using std::string::string;
    cstring() = default;
    cstring(const std::string &s) : std::string(s) {}
    cstring(std::string &&s) : std::string(std::move(s)) {}

    // Encodes as UTF-8. Unpaired surrogates become U+FFFD.
    SKCLASS_API static cstring ToUtf8(const wchar_t *wide, size_t length = std::wstring::npos);
    static cstring ToUtf8(const std::wstring &wide) { return ToUtf8(wide.c_str(), wide.size()); }
    // Encodes in the system ANSI code page; unmappable characters become '?'.
    SKCLASS_API static cstring ToAnsi(const wchar_t *wide, size_t length = std::wstring::npos);
    static cstring ToAnsi(const std::wstring &wide) { return ToAnsi(wide.c_str(), wide.size()); }
};

// Case-insensitive comparison of whole strings (lengths included), by the
// system's simple upper-case mapping. 0 when equal, <0 / >0 otherwise.
SKCLASS_API int comparei(const wchar_t *a, size_t aLength, const wchar_t *b, size_t bLength);
inline int comparei(const std::wstring &a, const std::wstring &b) {
    return comparei(a.c_str(), a.size(), b.c_str(), b.size());
}
