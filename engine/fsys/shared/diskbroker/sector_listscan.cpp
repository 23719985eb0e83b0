// The plain DiskChangeInfo scan: a recursive descent over the few shapes the
// list's writers produce, each step either matching or giving the list up.
#include "sector_listscan.h"

#include <string.h>

#include <charconv>

namespace sectormgr {

namespace {

constexpr uint64_t kSectorBytes = 512;

class PlainScan {
public:
    PlainScan(const char *begin, const char *end) : p_(begin), end_(end) {}

    bool Document(SectorRuns &asked, uint64_t &extents) {
        Take("\xEF\xBB\xBF");
        // Blanks before the root without a declaration: Wine's XmlLite finds no root.
        if (Take("<?xml")) {
            if (!Declaration()) return false;
            Spaces();
        }
        if (!Take("<DiskChangeInfo")) return false;
        Spaces();
        if (!Take("/>")) {
            if (!Take(">")) return false;
            for (;;) {
                Spaces();
                if (Take("</DiskChangeInfo")) break;
                if (!Take("<area") || !Area(asked, extents)) return false;
            }
            Spaces();
            if (!Take(">")) return false;
        }
        Spaces();
        return p_ == end_;
    }

private:
    // After "<?xml", which XmlLite takes as a declaration only at the very start.
    bool Declaration() {
        const char *value = nullptr, *valueEnd = nullptr;
        if (!Pseudo("version") || !Eq() || !Quoted(value, valueEnd) || !Is(value, valueEnd, "1.0", false))
            return false;
        // Any other encoding would change how XmlLite reads the bytes.
        if (Pseudo("encoding") && (!Eq() || !Quoted(value, valueEnd) || !Is(value, valueEnd, "utf-8", true)))
            return false;
        if (Pseudo("standalone") && (!Eq() || !Quoted(value, valueEnd) ||
                                     !(Is(value, valueEnd, "yes", false) || Is(value, valueEnd, "no", false))))
            return false;
        Spaces();
        return Take("?>");
    }

    // After "<area": its attributes, then its extents up to "</area>".
    bool Area(SectorRuns &asked, uint64_t &extents) {
        bool startOffset = false, startLength = false;
        for (;;) {
            const size_t blanks = Spaces();
            if (Take("/>")) return true;
            if (Take(">")) break;
            bool *seen = blanks == 0 ? nullptr : Take("startoffset") ? &startOffset
                                                 : Take("startlength") ? &startLength : nullptr;
            uint64_t ignored = 0;
            if (seen == nullptr || *seen || !Eq() || !Number(ignored)) return false;
            *seen = true;
        }
        for (;;) {
            Spaces();
            if (Take("</area")) {
                Spaces();
                return Take(">");
            }
            if (!Take("<extent") || !Extent(asked, extents)) return false;
        }
    }

    // After "<extent": both attributes in either order, then "/>".
    bool Extent(SectorRuns &asked, uint64_t &extents) {
        uint64_t offset = 0, length = 0;
        bool hasOffset = false, hasLength = false;
        for (;;) {
            const size_t blanks = Spaces();
            if (Take("/>")) break;
            if (blanks == 0) return false;
            bool *seen = Take("offset") ? &hasOffset : Take("length") ? &hasLength : nullptr;
            if (seen == nullptr || *seen || !Eq() || !Number(seen == &hasOffset ? offset : length)) return false;
            *seen = true;
        }
        if (!hasOffset || !hasLength) return false;
        ++extents;
        // Cut as the read cache cuts it; the XmlLite path logs what ends past 2^64.
        const uint64_t first = offset / kSectorBytes, count = length / kSectorBytes;
        if (count == 0) return true;
        if (count * kSectorBytes > UINT64_MAX - first * kSectorBytes) return false;
        asked.push_back(SectorRun{first, first + count - 1});
        return true;
    }

    size_t Spaces() {
        const char *start = p_;
        while (p_ != end_ && (*p_ == ' ' || *p_ == '\n' || *p_ == '\r' || *p_ == '\t')) ++p_;
        return static_cast<size_t>(p_ - start);
    }

    template <size_t N>
    bool Take(const char (&text)[N]) {
        if (static_cast<size_t>(end_ - p_) < N - 1 || memcmp(p_, text, N - 1) != 0) return false;
        p_ += N - 1;
        return true;
    }

    // A declaration's pseudo-attribute: blanks, then its name.
    template <size_t N>
    bool Pseudo(const char (&name)[N]) {
        const char *start = p_;
        if (Spaces() > 0 && Take(name)) return true;
        p_ = start;
        return false;
    }

    bool Eq() {
        Spaces();
        if (!Take("=")) return false;
        Spaces();
        return true;
    }

    bool Quoted(const char *&value, const char *&valueEnd) {
        if (p_ == end_ || (*p_ != '"' && *p_ != '\'')) return false;
        const char *close = static_cast<const char *>(memchr(p_ + 1, *p_, static_cast<size_t>(end_ - p_ - 1)));
        if (close == nullptr) return false;
        value = p_ + 1;
        valueEnd = close;
        p_ = close + 1;
        return true;
    }

    // A quoted value of decimal digits only: no blanks, signs or references,
    // and none past 2^64 - 1 (from_chars refuses those).
    bool Number(uint64_t &value) {
        if (p_ == end_ || (*p_ != '"' && *p_ != '\'')) return false;
        const char quote = *p_;
        const std::from_chars_result read = std::from_chars(p_ + 1, end_, value);
        if (read.ec != std::errc() || read.ptr == end_ || *read.ptr != quote) return false;
        p_ = read.ptr + 1;
        return true;
    }

    static bool Is(const char *value, const char *valueEnd, const char *text, bool anyCase) {
        const size_t length = strlen(text);
        if (static_cast<size_t>(valueEnd - value) != length) return false;
        for (size_t i = 0; i < length; ++i) {
            const char c = anyCase && value[i] >= 'A' && value[i] <= 'Z' ? char(value[i] - 'A' + 'a') : value[i];
            if (c != text[i]) return false;
        }
        return true;
    }

    const char *p_;
    const char *end_;
};

}  // namespace

bool ScanPlainChangeList(const char *begin, const char *end, SectorRuns &asked, uint64_t &extents) {
    const size_t had = asked.size();
    // Room for as many extents as the bytes can hold (each takes 31 or more),
    // so a million of them are not copied over and over while the vector
    // grows; the pages of room left unused are never touched.
    asked.reserve(had + static_cast<size_t>(end - begin) / 31);
    uint64_t count = 0;
    if (!PlainScan(begin, end).Document(asked, count)) {
        asked.resize(had);
        return false;
    }
    extents = count;
    return true;
}

}  // namespace sectormgr
