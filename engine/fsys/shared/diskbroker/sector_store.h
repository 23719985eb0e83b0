// The commit-list files: one run a line, "start count" in decimal sectors.
#pragma once
#include <stdint.h>

#include <string>

#include "sector_runs.h"

namespace sectormgr {

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
