// Sorting gathered runs by first sector, and merging the sorted sequence.
// No Windows here, so the native fuzzing build takes it as it is.
#pragma once
#include "sector_runs.h"

namespace sectormgr {

// Sorts runs by first sector and merges every overlap or touch: afterwards
// runs is as SectorRunSet::Runs gives runs.
void SortAndCoalesce(SectorRuns &runs);

// Merges a sequence already sorted by first sector, in place.
void Coalesce(SectorRuns &runs);

}  // namespace sectormgr
