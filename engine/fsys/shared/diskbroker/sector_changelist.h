// DiskChangeInfo extent lists (the read cache's format) read as sector runs,
// and answers written back in that format.
#pragma once
#include <stdint.h>

#include <string>

#include "sector_runs.h"

class CXmlReader;

namespace sectormgr {

// Loads the list at path into reader; false (logged) when the file cannot be
// read or parsed.
[[nodiscard]] bool LoadChangeList(const std::wstring &path, CXmlReader &reader);

// Appends the sectors of every extent of the loaded list to asked, in document
// order, each extent cut to whole sectors as the read cache cuts it (offset /
// 512, length / 512; one of less than a sector adds nothing); extents counts
// the extents read. False (logged, naming path) when the list has no
// DiskChangeInfo element, or an extent without a decimal offset and length or
// one that ends past 2^64 bytes.
[[nodiscard]] bool ChangeListRuns(CXmlReader &reader, const std::wstring &path, SectorRuns &asked,
                                  uint64_t &extents);

// The open list (a HANDLE with read access) read as ScanPlainChangeList reads
// bytes, when it is a disk file of that plain shape and small enough to hold
// whole (kPlainListBytes). Otherwise false, nothing logged, asked untouched and
// the file back at its start (a pipe is not read at all), for the XmlLite path
// to read it and say what is wrong.
constexpr uint64_t kPlainListBytes = uint64_t(1) << 30;
[[nodiscard]] bool ScanChangeListFile(void *file, SectorRuns &asked, uint64_t &extents);

// The plain scan, else the XmlLite path, over one open of path (a list on a
// pipe can be opened once only); the runs merged into asked.
[[nodiscard]] bool ReadChangeList(const std::wstring &path, SectorRunSet &asked, uint64_t &extents);

// Writes runs (merged, sorted) as a DiskChangeInfo file of one area over
// them, each run an extent in bytes. No area when runs is empty, so the read
// cache reads nothing. On failure (logged) no file is left at path.
[[nodiscard]] bool WriteChangeList(const std::wstring &path, const SectorRuns &runs);

}  // namespace sectormgr
