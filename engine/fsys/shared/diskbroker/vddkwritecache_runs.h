// The write cache's run placement: what of a run goes into a buffer, merged
// into its last run or as a new one. Plain data only, so it also builds
// natively for fuzzing.
#pragma once
#include <stdint.h>
#include <string.h>

#include <vddkcache_buffer.h>

namespace writecache_detail {

constexpr uint64_t kRunSectorBytes = 512;

struct RunPlacement {
    uint64_t remainder;  // sectors still to place (in the next buffer)
    bool handOn;         // the buffer is full, or its table refused the run
};

// Copies what fits of the run into buffer: merged into the last run when
// adjacent, else as a new run while the table has room (runsUsed <=
// runCapacity: the table holds runCapacity + 1). When the run is placed,
// data, startSector and sectorCount move on to what is left.
inline RunPlacement PlaceRunInBuffer(diskCacheBuffer &buffer, const unsigned char *&data, uint64_t &startSector,
                                     uint64_t &sectorCount) {
    const uint64_t freeSectors = (buffer.capacity - buffer.filled) / kRunSectorBytes;
    const uint64_t taken = freeSectors <= sectorCount ? freeSectors : sectorCount;
    const uint64_t remainder = sectorCount - taken;
    diskCacheRunTable &table = *buffer.runTable;
    diskCacheRun *last = table.runsUsed > 0 ? &table.runs[table.runsUsed - 1] : nullptr;
    const bool continues = last && last->startSector + last->sectorCount == startSector;
    if (!continues && table.runsUsed > table.runCapacity) {
        // Kept on purpose: a refused run that would have fitted is not queued
        // and the put still returns 0 (agents size minRunSizeKB so a table
        // never fills first); one that would not have fitted goes whole into
        // the next buffer.
        return RunPlacement{remainder, true};
    }
    if (taken) memcpy(buffer.data + buffer.filled, data, static_cast<size_t>(taken * kRunSectorBytes));
    buffer.filled += taken * kRunSectorBytes;
    if (continues)
        last->sectorCount += taken;
    else
        table.runs[table.runsUsed++] = diskCacheRun{startSector, taken};
    data += taken * kRunSectorBytes;
    startSector += taken;
    sectorCount = remainder;
    return RunPlacement{remainder, buffer.filled == buffer.capacity};
}

}  // namespace writecache_detail
