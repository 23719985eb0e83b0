// DiskChangeInfo extent lists (the read cache's format) read as sector runs,
// and answers written back in that format.
#pragma once
#include <stdint.h>

#include <string>

#include "sector_runs.h"

namespace sectormgr {

// Adds the sectors of every extent of the list at path to asked, each extent
// cut to whole sectors as the read cache cuts it (offset / 512, length / 512);
// extents counts the extents read. False (logged) when the file cannot be
// read or parsed, has no DiskChangeInfo element, or has an extent without a
// decimal offset and length or one that ends past 2^64 bytes.
[[nodiscard]] bool ReadChangeList(const std::wstring &path, SectorRunSet &asked, uint64_t &extents);

// Writes runs (merged, sorted) as a DiskChangeInfo file of one area over
// them, each run an extent in bytes. No area when runs is empty, so the read
// cache reads nothing. Logged on failure.
[[nodiscard]] bool WriteChangeList(const std::wstring &path, const SectorRuns &runs);

}  // namespace sectormgr
