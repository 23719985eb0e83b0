// The statistics rules of the disk library binding (see _vixReadWriteStats).
#pragma once
#include <stdint.h>
#include <vixreadwritestats.h>

namespace vixstats {

// Counts one read or write request of sectorCount sectors at startSector;
// logs the finished extent's line when the request is not contiguous.
void RecordRequest(_vixReadWriteStats &stats, uint64_t startSector, uint64_t sectorCount);
// Closes the current run, logs the extent's line and empties the record.
void FinishAtClose(_vixReadWriteStats &stats);

}  // namespace vixstats
