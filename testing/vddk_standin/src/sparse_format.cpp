// Pure layout handling of hosted sparse extents, no Windows: it builds natively
// too, for fuzzing.
#include "sparse_format.h"

#include <string.h>

namespace vddksim {
namespace {

constexpr uint64_t kGdAtEnd = ~uint64_t(0);  // stream-optimized layout: not served

template <typename T>
T Get(const uint8_t *p, size_t off) {
    T v;
    memcpy(&v, p + off, sizeof v);
    return v;
}
template <typename T>
void Put(uint8_t *p, size_t off, T v) {
    memcpy(p + off, &v, sizeof v);
}

}  // namespace

uint64_t CeilDiv(uint64_t a, uint64_t b) { return a / b + (a % b != 0); }

SparseFault DecodeSparseHeader(const uint8_t (&raw)[kSparseHeaderBytes], SparseHeader *h) {
    if (Get<uint32_t>(raw, 0) != kSparseMagic) return SparseFault::NotSparse;
    h->version = Get<uint32_t>(raw, 4);
    h->flags = Get<uint32_t>(raw, 8);
    h->capacity = Get<uint64_t>(raw, 12);
    h->grainSize = Get<uint64_t>(raw, 20);
    h->descriptorOffset = Get<uint64_t>(raw, 28);
    h->descriptorSize = Get<uint64_t>(raw, 36);
    h->numGTEsPerGT = Get<uint32_t>(raw, 44);
    h->rgdOffset = Get<uint64_t>(raw, 48);
    h->gdOffset = Get<uint64_t>(raw, 56);
    h->overHead = Get<uint64_t>(raw, 64);
    // Bounding grain size, table size and capacity here keeps every product
    // the map computes from them far below 2^64.
    if (h->version > 3 || h->grainSize == 0 || h->grainSize > 0x200000 || h->numGTEsPerGT == 0 ||
        h->numGTEsPerGT > 512 || h->gdOffset == kGdAtEnd || h->capacity > kMaxDiskSectors ||
        (h->flags & kSparseCompressed))
        return SparseFault::NotSupported;
    return SparseFault::None;
}

void EncodeSparseHeader(const SparseHeader &h, uint8_t (&raw)[kSparseHeaderBytes]) {
    memset(raw, 0, sizeof raw);
    Put<uint32_t>(raw, 0, kSparseMagic);
    Put(raw, 4, h.version);
    Put(raw, 8, h.flags);
    Put(raw, 12, h.capacity);
    Put(raw, 20, h.grainSize);
    Put(raw, 28, h.descriptorOffset);
    Put(raw, 36, h.descriptorSize);
    Put(raw, 44, h.numGTEsPerGT);
    Put(raw, 48, h.rgdOffset);
    Put(raw, 56, h.gdOffset);
    Put(raw, 64, h.overHead);
    // The line-end detection bytes VMware checks for text-mode transfers.
    raw[73] = '\n';
    raw[74] = ' ';
    raw[75] = '\r';
    raw[76] = '\n';
}

SparseFault ReadEmbeddedDescriptor(const ByteSource &file, Descriptor *desc) {
    std::vector<char> area(kEmbeddedDescriptorBytes + 1, '\0');
    if (!file.ReadAt(kEmbeddedDescriptorOffset, area.data(), kEmbeddedDescriptorBytes)) return SparseFault::Damaged;
    return ParseDescriptor(std::string(area.data()), desc) ? SparseFault::None : SparseFault::BadDescriptor;
}

SparseFault SparseMap::Load(const SparseHeader &h, const ByteSource &file) {
    h_ = h;
    const uint64_t gdCount = CeilDiv(h.capacity, uint64_t(h.numGTEsPerGT) * h.grainSize);
    fileSectors_ = file.Size() / 512;
    if (fileSectors_ < h.overHead) return SparseFault::Damaged;  // truncated
    // The directories must lie inside the file: its size then bounds what is
    // allocated for them, whatever the header claims.
    const bool redundant = (h.flags & kSparseRedundantGd) != 0;
    if (!InFile(h.gdOffset, gdCount * 4) || (redundant && !InFile(h.rgdOffset, gdCount * 4)))
        return SparseFault::Damaged;
    gd_.assign(size_t(gdCount), 0);
    rgd_.assign(size_t(gdCount), 0);
    if (gdCount && !file.ReadAt(h.gdOffset * 512, gd_.data(), gd_.size() * 4)) return SparseFault::Damaged;
    if (redundant && gdCount && !file.ReadAt(h.rgdOffset * 512, rgd_.data(), rgd_.size() * 4))
        return SparseFault::Damaged;
    gts_.assign(size_t(gdCount), std::vector<uint32_t>());
    return SparseFault::None;
}

bool SparseMap::InFile(uint64_t atSector, uint64_t bytes) const {
    return atSector <= fileSectors_ && bytes <= (fileSectors_ - atSector) * 512;
}

SparseFault SparseMap::LoadGt(const ByteSource &file, size_t gdIndex) {
    if (!gts_[gdIndex].empty() || gd_[gdIndex] == 0) return SparseFault::None;
    if (!InFile(gd_[gdIndex], uint64_t(h_.numGTEsPerGT) * 4)) return SparseFault::Damaged;
    std::vector<uint32_t> gt(h_.numGTEsPerGT);
    if (!file.ReadAt(uint64_t(gd_[gdIndex]) * 512, gt.data(), gt.size() * 4)) return SparseFault::Damaged;
    gts_[gdIndex] = std::move(gt);
    return SparseFault::None;
}

SparseFault SparseMap::Entry(const ByteSource &file, uint64_t sector, uint32_t *gte) {
    if (sector / h_.grainSize / h_.numGTEsPerGT >= gd_.size()) return SparseFault::OutOfRange;
    const size_t gdIndex = GdIndex(sector);
    const SparseFault fault = LoadGt(file, gdIndex);
    if (fault != SparseFault::None) return fault;
    *gte = gts_[gdIndex].empty() ? 0 : gts_[gdIndex][GtIndex(sector)];
    return SparseFault::None;
}

SparseFault SparseMap::Locate(const ByteSource &file, uint64_t sector, uint64_t count, GrainPlace *place) {
    uint32_t gte = 0;
    const SparseFault fault = Entry(file, sector, &gte);
    if (fault != SparseFault::None) return fault;
    *place = GrainPlace();
    if (gte == 0) return SparseFault::None;
    if (gte == 1 && (h_.flags & kSparseZeroedGrains)) {
        place->kind = GrainPlace::Zeroed;
        return SparseFault::None;
    }
    const uint64_t inGrain = sector % h_.grainSize;
    if (count > h_.grainSize - inGrain) return SparseFault::OutOfRange;
    if (!InFile(uint64_t(gte) + inGrain, count * 512)) return SparseFault::Damaged;
    place->kind = GrainPlace::Data;
    place->byteOffset = (uint64_t(gte) + inGrain) * 512;
    return SparseFault::None;
}

uint64_t SparseMap::GtEntryByte(uint64_t sector) const {
    const size_t gdIndex = GdIndex(sector);
    return gd_[gdIndex] == 0 ? 0 : uint64_t(gd_[gdIndex]) * 512 + GtIndex(sector) * 4;
}

uint64_t SparseMap::RedundantGtEntryByte(uint64_t sector) const {
    const size_t gdIndex = GdIndex(sector);
    if (!(h_.flags & kSparseRedundantGd) || rgd_[gdIndex] == 0) return 0;
    return uint64_t(rgd_[gdIndex]) * 512 + GtIndex(sector) * 4;
}

void SparseMap::SetEntry(uint64_t sector, uint32_t gte) {
    std::vector<uint32_t> &gt = gts_[GdIndex(sector)];
    if (!gt.empty()) gt[GtIndex(sector)] = gte;
}

void SparseMap::FileGrew(uint64_t sectors) {
    if (sectors > fileSectors_) fileSectors_ = sectors;
}

}  // namespace vddksim
