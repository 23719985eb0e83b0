// Per-handle read/write statistics. The disk handle owns the record and sets
// name and kind; the disk library binding updates it on every read and write
// and logs one line per contiguous extent (and at close).
#pragma once
#include <stdint.h>
#include <skclass_mini/strings.h>

struct _vixReadWriteStats {
    // Kinds of handle; any other value logs nothing.
    static constexpr uint32_t kNone = 0;
    static constexpr uint32_t kRead = 1;
    static constexpr uint32_t kWrite = 2;

    wcstring name;                 // the disk's name, as printed
    uint32_t kind = kNone;
    uint64_t extentStart = 0;      // first sector of the current contiguous extent
    uint64_t extentSectors = 0;    // its length in sectors
    uint32_t operationCount = 0;   // requests in the current extent
    uint64_t chunkSectors = 0;     // size of the current run of equal-sized requests
    uint32_t chunkCount = 0;       // requests in that run
    wcstring chunkText;            // the finished runs of the current extent
};
