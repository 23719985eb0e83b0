// A cache buffer and its write-cache run table: plain data, no Windows, so
// the run-table logic also builds natively (fuzzing).
#pragma once
#include <stdint.h>

// Write cache only: the sector runs whose bytes lie, in this order, in a
// buffer's data. Allocated with room for runCapacity + 1 runs, because a table
// accepts a new run while runsUsed <= runCapacity.
struct diskCacheRun {
    uint64_t startSector;
    uint64_t sectorCount;
};
struct diskCacheRunTable {
    uint32_t runCapacity;
    uint32_t runsUsed;
    diskCacheRun runs[1];  // runCapacity + 1 entries
};

struct diskCacheBuffer {
    diskCacheBuffer *next = nullptr;        // in whichever queue holds it
    diskCacheBuffer *nextAllocated = nullptr;  // the context's allBuffers list
    uint32_t index = 0;                     // allocation order, 0-based
    unsigned char *data = nullptr;
    uint64_t capacity = 0;                  // bytes of data
    uint64_t filled = 0;                    // valid bytes from the start of data
    uint64_t consumed = 0;                  // bytes already taken out
    diskCacheRunTable *runTable = nullptr;  // write cache only
    unsigned char isLast = 0;               // write cache only: final buffer of the pass
};
