// Commit-list lines: parsing one run, and scanning a whole file's bytes with a
// fast path for the lines the library writes itself.
#include "sector_text.h"

#include <string.h>

#include <charconv>

namespace sectormgr {

namespace {

template <typename Char>
bool IsBlank(Char c) {
    return c == ' ' || c == '\t';
}

template <typename Char>
bool ParseNumber(const Char *&p, const Char *end, uint64_t &value) {
    const Char *start = p;
    value = 0;
    for (; p < end && *p >= '0' && *p <= '9'; ++p) {
        const uint64_t digit = static_cast<uint64_t>(*p - '0');
        if (value >= UINT64_MAX / 10 && (value > UINT64_MAX / 10 || digit > UINT64_MAX % 10)) return false;
        value = value * 10 + digit;
    }
    return p != start;
}

template <typename Char>
bool ParseRun(const Char *p, const Char *end, SectorRun &run) {
    while (end > p && (IsBlank(end[-1]) || end[-1] == '\r')) --end;
    while (p < end && IsBlank(*p)) ++p;
    uint64_t start = 0, count = 0;
    if (!ParseNumber(p, end, start) || p == end || !IsBlank(*p)) return false;
    while (p < end && IsBlank(*p)) ++p;
    if (!ParseNumber(p, end, count) || p != end) return false;
    return MakeRun(start, count, run);
}

// At most this many digits can never overflow 64 bits, so the fast path
// needs no check per digit.
constexpr int kSafeDigits = 19;

// Digits at p, at most kSafeDigits of them; false when there are none or
// more (a longer number takes the careful path). A longer one wraps while it
// is read, harmlessly: unsigned, and thrown away.
bool ShortNumber(const char *&p, const char *end, uint64_t &value) {
    const char *start = p;
    uint64_t result = 0;
    for (unsigned digit; p < end && (digit = static_cast<unsigned char>(*p - '0')) < 10; ++p)
        result = result * 10 + digit;
    value = result;
    return p != start && p - start <= kSafeDigits;
}

}  // namespace

bool ParseRunText(const char *begin, const char *end, SectorRun &run) { return ParseRun(begin, end, run); }
bool ParseRunText(const wchar_t *begin, const wchar_t *end, SectorRun &run) { return ParseRun(begin, end, run); }

// The lines from p on exactly as the library writes them, "start count"
// with one blank, a CR or not, and their line ends inside the chunk: taken;
// returns where the first other line starts. Anything else (blanks, long
// numbers, the chunk's end) is left to the careful path, which decides the
// same way for every line this one takes.
const char *RunLineScanner::TakeCanonicalLines(const char *p, const char *end) {
    uint64_t taken = 0;
    for (;;) {
        const char *q = p;
        uint64_t start = 0, count = 0;
        if (!ShortNumber(q, end, start) || q == end || *q++ != ' ' || !ShortNumber(q, end, count)) break;
        if (q < end && *q == '\r') ++q;
        SectorRun run;
        if (q == end || *q != '\n' || !MakeRun(start, count, run)) break;
        Append(run);
        ++taken;
        p = q + 1;
    }
    line_ += taken;
    return p;
}

void RunLineScanner::Feed(const char *p, const char *end) {
    while (p < end) {
        if (partial_.empty() && !overlong_) {
            p = TakeCanonicalLines(p, end);
            if (p == end) return;
        }
        const char *lineEnd = static_cast<const char *>(memchr(p, '\n', static_cast<size_t>(end - p)));
        if (!lineEnd) {
            Carry(p, end);
            return;
        }
        if (partial_.empty() && !overlong_) {
            TakeLine(p, lineEnd);
        } else {
            Carry(p, lineEnd);
            TakeLine(partial_.data(), partial_.data() + partial_.size());
        }
        partial_.clear();
        overlong_ = false;
        p = lineEnd + 1;
    }
}

void RunLineScanner::Carry(const char *p, const char *end) {
    const size_t length = static_cast<size_t>(end - p);
    if (overlong_ || partial_.size() + length > kMaxLineBytes) {
        overlong_ = true;
        partial_.clear();
        return;
    }
    partial_.append(p, length);
}

void RunLineScanner::TakeLine(const char *p, const char *end) {
    ++line_;
    SectorRun run;
    if (!overlong_ && static_cast<size_t>(end - p) <= kMaxLineBytes && ParseRun(p, end, run)) {
        Append(run);
        return;
    }
    if (++skipped_ <= kSkippedNoted) firstSkipped_.push_back(line_);
}

void RunLineScanner::Append(const SectorRun &run) {
    if (merged_ && !runs_.empty()) {
        SectorRun &previous = runs_.back();
        if (run.first < previous.first) {
            // From here on runs are only appended: the ones so far are noted
            // once, as they stand after their merges.
            merged_ = false;
            spread_ = SpreadOf(runs_);
        } else if (previous.last == UINT64_MAX || run.first <= previous.last + 1) {  // no wrap past the top
            if (run.last > previous.last) previous.last = run.last;
            return;
        }
    }
    if (!merged_) spread_.Note(run);
    runs_.push_back(run);
}

void AppendRunLine(std::string &text, const SectorRun &run) {
    ForEachCountedRun(run, [&text](uint64_t start, uint64_t count) {
        char buffer[48];
        char *p = std::to_chars(buffer, buffer + 20, start).ptr;
        *p++ = ' ';
        p = std::to_chars(p, p + 20, count).ptr;
        *p++ = '\r';
        *p++ = '\n';
        text.append(buffer, static_cast<size_t>(p - buffer));
    });
}

}  // namespace sectormgr
