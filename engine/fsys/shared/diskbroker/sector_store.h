// The commit-list files: one run a line, "start count" in decimal sectors.
#pragma once
#include <stdint.h>

#include <string>

#include "sector_runs.h"

namespace sectormgr {

// One run text "start count" (blanks around and between allowed, a CR before
// the line end too); false for anything else, a count of 0 or a run past the
// last sector.
[[nodiscard]] bool ParseRunText(const char *begin, const char *end, SectorRun &run);
[[nodiscard]] bool ParseRunText(const wchar_t *begin, const wchar_t *end, SectorRun &run);

// Adds the runs of the file at path to set. A missing file adds nothing. A
// torn last line (no line end) is ignored, lines that do not parse are
// skipped; both are logged. False (logged) only when the file exists but
// cannot be read.
[[nodiscard]] bool LoadRunFile(const std::wstring &path, SectorRunSet &set);

// Appends the runs to the file at path (created if missing) and flushes it
// before returning true. A torn last line left by an earlier crash is cut off
// first, so that the new lines never join it. On failure (logged) the file is
// put back to its old length where possible.
[[nodiscard]] bool AppendRuns(const std::wstring &path, const SectorRuns &runs);

// Replaces the file at path by one holding exactly runs: written to a
// temporary file beside it (the name with ".tmp" for ".dat"), flushed, then
// moved over the old one with write-through. Logged on failure.
[[nodiscard]] bool RewriteRuns(const std::wstring &path, const SectorRuns &runs);

}  // namespace sectormgr
