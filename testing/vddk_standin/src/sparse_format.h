// Hosted sparse extent (KDMV) layout: the header, the embedded descriptor, the
// grain directory and its grain tables, read from any byte source. No Windows:
// the native fuzzing build drives it with whole file images held in memory.
//
// Every number in the file is hostile: offsets and sizes are checked against
// the file before anything is read or allocated for them.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <vector>

#include "descriptor.h"

namespace vddksim {

constexpr uint32_t kSparseMagic = 0x564D444Bu;  // "KDMV"
constexpr size_t kSparseHeaderBytes = 512;
// Embedded descriptor area of a sparse extent (sector 1, 20 sectors).
constexpr uint64_t kEmbeddedDescriptorOffset = 512;
constexpr size_t kEmbeddedDescriptorBytes = 10240;
// Header flag bits.
constexpr uint32_t kSparseRedundantGd = 2;
constexpr uint32_t kSparseZeroedGrains = 4;  // grain entry 1 reads as zeros, hiding the parent
constexpr uint32_t kSparseCompressed = 0x10000;

struct SparseHeader {
    uint32_t version = 1, flags = 3;
    uint64_t capacity = 0, grainSize = 128, descriptorOffset = 1, descriptorSize = 20;
    uint32_t numGTEsPerGT = 512;
    uint64_t rgdOffset = 0, gdOffset = 0, overHead = 0;
};

// Why a sparse file is refused; the link maps each to a VDDK error.
enum class SparseFault { None, NotSparse, NotSupported, Damaged, OutOfRange, BadDescriptor };

// Positioned reads of the extent file. ReadAt is false on a short read.
class ByteSource {
public:
    virtual ~ByteSource() = default;
    virtual bool ReadAt(uint64_t offset, void *buf, size_t len) const = 0;
    virtual uint64_t Size() const = 0;
};

// NotSparse without the magic, NotSupported for versions, grain sizes,
// capacities and compression the stand-in does not serve.
SparseFault DecodeSparseHeader(const uint8_t (&raw)[kSparseHeaderBytes], SparseHeader *h);
void EncodeSparseHeader(const SparseHeader &h, uint8_t (&raw)[kSparseHeaderBytes]);
// The embedded descriptor at its fixed place (a text up to its first NUL).
SparseFault ReadEmbeddedDescriptor(const ByteSource &file, Descriptor *desc);

uint64_t CeilDiv(uint64_t a, uint64_t b);

// Where a sector's data lies, once looked up.
struct GrainPlace {
    enum Kind { Unallocated, Zeroed, Data } kind = Unallocated;
    uint64_t byteOffset = 0;  // Data: the sector's bytes in the file
};

// The grain directory (and its redundant copy) read at load, grain tables on
// first use. Lookups never reach outside the file.
class SparseMap {
public:
    SparseFault Load(const SparseHeader &h, const ByteSource &file);
    // [sector, sector + count) within one grain; Data only when all of it lies in the file.
    SparseFault Locate(const ByteSource &file, uint64_t sector, uint64_t count, GrainPlace *place);
    // The raw grain table entry of a sector (0: unallocated).
    SparseFault Entry(const ByteSource &file, uint64_t sector, uint32_t *gte);

    // Write side: the sectors of a grain's table entry in the primary and the
    // redundant table (0: the table does not exist).
    uint64_t GtEntryByte(uint64_t sector) const;
    uint64_t RedundantGtEntryByte(uint64_t sector) const;
    // Records an entry written to the file (its table was loaded by Entry).
    void SetEntry(uint64_t sector, uint32_t gte);
    void FileGrew(uint64_t sectors);
    uint64_t FileSectors() const { return fileSectors_; }

private:
    bool InFile(uint64_t atSector, uint64_t bytes) const;
    SparseFault LoadGt(const ByteSource &file, size_t gdIndex);
    size_t GdIndex(uint64_t sector) const { return size_t(sector / h_.grainSize / h_.numGTEsPerGT); }
    size_t GtIndex(uint64_t sector) const { return size_t(sector / h_.grainSize % h_.numGTEsPerGT); }

    SparseHeader h_;
    std::vector<uint32_t> gd_, rgd_;
    std::vector<std::vector<uint32_t>> gts_;  // loaded on first use
    uint64_t fileSectors_ = 0;
};

}  // namespace vddksim
