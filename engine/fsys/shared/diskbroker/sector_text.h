// Commit-list texts: a run as "start count" in decimal sectors, and the
// splitting of a commit-list file's bytes into such lines. No Windows and no
// logging here, so the native fuzzing build takes this as it is; the loader
// says in the log what the scanner found.
#pragma once
#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "sector_runs.h"
#include "sector_runsort.h"

namespace sectormgr {

// One run text "start count" (blanks around and between allowed, a CR before
// the line end too); false for anything else, a count of 0 or a run past the
// last sector.
[[nodiscard]] bool ParseRunText(const char *begin, const char *end, SectorRun &run);
[[nodiscard]] bool ParseRunText(const wchar_t *begin, const wchar_t *end, SectorRun &run);

// Splits bytes fed in chunks of any size into lines and appends the run of
// every line that is one to runs. Whatever the bytes, memory stays at the
// runs plus one short line: a line too long to be a run is skipped without
// being kept. While the lines come in order (a compacted file, commits of a
// pass in disk order) each run that touches the one before joins it, so such
// a file needs no merge afterwards.
class RunLineScanner {
public:
    // A valid line is at most two 20-digit numbers with a few blanks.
    static constexpr size_t kMaxLineBytes = 128;
    // Skipped lines whose numbers are kept for the log; beyond, only counted.
    static constexpr size_t kSkippedNoted = 10;

    explicit RunLineScanner(SectorRuns &runs) : runs_(runs), merged_(runs.empty()) {
        if (!merged_) spread_ = SpreadOf(runs_);
    }

    void Feed(const char *p, const char *end);

    // After the last Feed: the bytes end in a line without its line end,
    // which is ignored (a commit was being written when the writer died).
    bool Torn() const { return !partial_.empty() || overlong_; }
    uint64_t Skipped() const { return skipped_; }
    // The line numbers (from 1) of the first kSkippedNoted lines skipped.
    const std::vector<uint64_t> &FirstSkipped() const { return firstSkipped_; }
    // runs is sorted and merged, as SectorRunSet::Runs gives runs.
    bool Merged() const { return merged_; }
    // When not Merged(): SpreadOf(runs), noted as the runs came.
    const RunSpread &Spread() const { return spread_; }

private:
    const char *TakeCanonicalLines(const char *p, const char *end);
    void Carry(const char *p, const char *end);
    void TakeLine(const char *p, const char *end);
    void Append(const SectorRun &run);

    SectorRuns &runs_;
    std::string partial_;    // the current line's bytes seen so far, when short
    bool overlong_ = false;  // the current line is already too long to be a run
    bool merged_;            // see Merged()
    RunSpread spread_;       // see Spread()
    uint64_t line_ = 0;      // lines taken so far
    uint64_t skipped_ = 0;
    std::vector<uint64_t> firstSkipped_;
};

// Appends run as the line(s) the commit lists hold: "start count\r\n", or two
// lines for the whole sector range.
void AppendRunLine(std::string &text, const SectorRun &run);

}  // namespace sectormgr
