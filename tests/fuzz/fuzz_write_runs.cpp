// libFuzzer target: the write cache's run table. The input picks a buffer
// size and a run capacity, then a stream of puts (a jump and a length each);
// after every placement the buffer's bytes must be exactly the sectors its
// runs name, in order, and the table within its room.
#include <string.h>

#include <vector>

#include "fuzz_target.h"
#include "vddkwritecache_runs.h"

namespace {

using writecache_detail::kRunSectorBytes;
using writecache_detail::PlaceRunInBuffer;

// Every byte of a sector carries the sector's number, so misplaced bytes show.
void Stamp(uint64_t first, uint64_t count, std::vector<unsigned char> &bytes) {
    bytes.resize(static_cast<size_t>(count * kRunSectorBytes));
    for (uint64_t s = 0; s < count; ++s) memset(&bytes[s * kRunSectorBytes], int((first + s) & 0xFF), kRunSectorBytes);
}

void Check(const diskCacheBuffer &buffer) {
    const diskCacheRunTable &table = *buffer.runTable;
    if (buffer.filled > buffer.capacity || buffer.filled % kRunSectorBytes) abort();
    if (table.runsUsed > table.runCapacity + 1) abort();
    uint64_t at = 0;
    for (uint32_t r = 0; r < table.runsUsed; ++r) {
        for (uint64_t s = 0; s < table.runs[r].sectorCount; ++s, at += kRunSectorBytes) {
            if (at >= buffer.filled) abort();
            const unsigned char expected = (table.runs[r].startSector + s) & 0xFF;
            if (buffer.data[at] != expected || buffer.data[at + kRunSectorBytes - 1] != expected) abort();
        }
    }
    if (at != buffer.filled) abort();
}

void Recycle(diskCacheBuffer &buffer) {
    buffer.filled = 0;
    buffer.runTable->runsUsed = 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 2) return 0;
    const uint64_t capacity = (1 + data[0] % 16) * kRunSectorBytes * 4;  // 2 KB .. 32 KB
    const uint32_t runCapacity = data[1] % 8;
    std::vector<unsigned char> bytes(static_cast<size_t>(capacity));
    std::vector<diskCacheRun> runs(runCapacity + 1);
    std::vector<unsigned char> tableBlock(sizeof(diskCacheRunTable) + runCapacity * sizeof(diskCacheRun));
    auto *table = reinterpret_cast<diskCacheRunTable *>(tableBlock.data());
    table->runCapacity = runCapacity;
    table->runsUsed = 0;
    diskCacheBuffer buffer;
    buffer.data = bytes.data();
    buffer.capacity = capacity;
    buffer.runTable = table;
    uint64_t next = 0;
    std::vector<unsigned char> put;
    for (size_t i = 2; i + 1 < size; i += 2) {
        next += data[i] % 4 == 0 ? 0 : data[i] % 37;  // often adjacent, sometimes a jump
        uint64_t start = next, count = 1 + data[i + 1] % 80;
        Stamp(start, count, put);
        const unsigned char *from = put.data();
        for (int round = 0; round < 64 && count != 0; ++round) {
            const uint64_t before = count;
            const auto placed = PlaceRunInBuffer(buffer, from, start, count);
            Check(buffer);
            if (placed.handOn) Recycle(buffer);
            if (placed.remainder == 0) break;
            if (placed.remainder > before) abort();
        }
        next += 1 + data[i + 1] % 80;
    }
    return 0;
}
