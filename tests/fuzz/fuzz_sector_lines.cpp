// libFuzzer target: the commit lists' texts. The first input byte picks the
// size of the chunks a file's bytes arrive in; the rest is the file.
// - The scanner, fed in those chunks, must find what a plain reference finds
//   splitting the whole text at its line ends: the sectors of the lines that
//   are runs, the numbers of the first skipped lines, the count of skipped
//   lines, and whether a torn last line is left; runs in order come merged,
//   and runs out of order with their spread noted exactly.
// - Each line's run text must agree with a reference parser (blanks, decimal
//   digits, no overflow, count 1 or more, not past sector 2^64 - 1), and the
//   wide form, as commit lists arrive, with the narrow one.
// - Runs written back as the library writes them scan to the same runs.
#include <algorithm>
#include <string>
#include <vector>

#include "fuzz_target.h"
#include "sector_text.h"

namespace {

using fuzzref::SameRuns;
using sectormgr::RunLineScanner;
using sectormgr::SectorRun;
using sectormgr::SectorRuns;

bool Blank(char c) { return c == ' ' || c == '\t'; }

bool ReferenceRun(std::string text, SectorRun &run) {
    while (!text.empty() && (Blank(text.back()) || text.back() == '\r')) text.pop_back();
    size_t i = 0;
    while (i < text.size() && Blank(text[i])) ++i;
    uint64_t start = 0, count = 0;
    if (!fuzzref::Decimal(text, i, start) || i == text.size() || !Blank(text[i])) return false;
    while (i < text.size() && Blank(text[i])) ++i;
    if (!fuzzref::Decimal(text, i, count) || i != text.size()) return false;
    if (count == 0 || static_cast<unsigned __int128>(start) + count - 1 > UINT64_MAX) return false;
    run.first = start;
    run.last = start + count - 1;
    return true;
}

SectorRuns Merged(const SectorRuns &runs) {
    sectormgr::SectorRunSet set;
    set.Add(runs);
    return set.Runs();
}

struct Expected {
    SectorRuns runs;
    std::vector<uint64_t> firstSkipped;
    uint64_t skipped = 0;
    bool torn = false;
};

// The whole text split at its line ends, each line judged on its own.
Expected Reference(const std::string &text) {
    Expected expected;
    size_t begin = 0;
    uint64_t line = 0;
    for (size_t end; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1) {
        const std::string one = text.substr(begin, end - begin);
        const std::wstring wide(one.begin(), one.end());
        SectorRun run, narrow, widened;
        const bool parses = ReferenceRun(one, run);
        if (sectormgr::ParseRunText(one.data(), one.data() + one.size(), narrow) != parses ||
            sectormgr::ParseRunText(wide.data(), wide.data() + wide.size(), widened) != parses)
            abort();
        if (parses && (!SameRuns<SectorRuns>({narrow}, {run}) || !SameRuns<SectorRuns>({widened}, {run}))) abort();
        // A line longer than any run is written is skipped whatever it holds.
        const bool ok = parses && one.size() <= RunLineScanner::kMaxLineBytes;
        ++line;
        if (ok) {
            expected.runs.push_back(run);
        } else if (++expected.skipped <= RunLineScanner::kSkippedNoted) {
            expected.firstSkipped.push_back(line);
        }
    }
    expected.torn = begin < text.size();
    return expected;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    const size_t chunk = data[0] == 0 ? size : data[0];
    const std::string text(reinterpret_cast<const char *>(data) + 1, size - 1);
    const Expected expected = Reference(text);

    SectorRuns runs;
    RunLineScanner scanner(runs);
    for (size_t at = 0; at < text.size(); at += chunk)
        scanner.Feed(text.data() + at, text.data() + std::min(text.size(), at + chunk));
    if (!SameRuns(Merged(runs), Merged(expected.runs)) || scanner.Skipped() != expected.skipped ||
        scanner.FirstSkipped() != expected.firstSkipped || scanner.Torn() != expected.torn)
        abort();
    // Lines in order are merged as they come (and so may be a line that falls
    // inside the runs merged so far); what is called merged is.
    const bool inOrder = std::is_sorted(expected.runs.begin(), expected.runs.end(),
                                        [](const SectorRun &a, const SectorRun &b) { return a.first < b.first; });
    if ((inOrder && !scanner.Merged()) || (scanner.Merged() && !SameRuns(runs, Merged(runs)))) abort();
    // What the loader hands the sort instead of a read of its own.
    if (!scanner.Merged()) {
        const sectormgr::RunSpread &noted = scanner.Spread(), exact = sectormgr::SpreadOf(runs);
        if (noted.Sorted() != exact.Sorted() || noted.Lowest() != exact.Lowest() ||
            noted.Highest() != exact.Highest() || noted.Differ() != exact.Differ() || noted.Spans() != exact.Spans())
            abort();
    }

    std::string written;
    for (const SectorRun &run : runs) sectormgr::AppendRunLine(written, run);
    SectorRuns again;
    RunLineScanner rescan(again);
    rescan.Feed(written.data(), written.data() + written.size());
    if (!SameRuns(again, runs) || rescan.Skipped() != 0 || rescan.Torn()) abort();
    return 0;
}
