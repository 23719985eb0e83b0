// DiskChangeInfo lists of the plain shape their writers give them, read
// straight from the file's bytes. A million extents cost XmlLite about a
// second; this scan takes a small part of that. It accepts only what it is
// sure XmlLite reads the same way and gives up on anything else, so every
// unusual file still goes through XmlLite and keeps its results and log lines.
// No Windows and no logging here, so the native fuzzing build takes this as it is.
#pragma once
#include <stddef.h>
#include <stdint.h>

#include "sector_runs.h"

namespace sectormgr {

// The runs of the list in bytes, as ChangeListRuns gives them: appended to
// asked in document order, each extent cut to whole sectors, extents counting
// every extent. Accepted: an optional UTF-8 BOM; an optional declaration of
// version 1.0 with, if any, encoding UTF-8 and standalone; a DiskChangeInfo
// root without attributes, whose children are area elements (attributes
// startoffset and startlength, decimal, each at most once) whose children are
// empty extent elements with exactly a decimal offset and length; whitespace
// between elements, after the root and, after a declaration, before it. False, asked and extents as they
// were, for anything else, a number past 2^64 - 1 and an extent ending past
// 2^64 bytes among it: the XmlLite path then reads (or refuses) the list.
[[nodiscard]] bool ScanPlainChangeList(const char *begin, const char *end, SectorRuns &asked, uint64_t &extents);

}  // namespace sectormgr
