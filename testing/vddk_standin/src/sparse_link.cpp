// Hosted sparse extents (KDMV): read, grain allocation at end of file, create.
#include <string.h>

#include <algorithm>

#include "file_io.h"
#include "link.h"
#include "sparse_format.h"

namespace vddksim {
namespace {

class FileBytes : public ByteSource {
public:
    explicit FileBytes(const File &file) : file_(file) {}
    bool ReadAt(uint64_t offset, void *buf, size_t len) const override { return file_.ReadAt(offset, buf, len); }
    uint64_t Size() const override { return file_.Size(); }

private:
    const File &file_;
};

VixError ToVixError(SparseFault fault) {
    switch (fault) {
    case SparseFault::None: return VIX_OK;
    case SparseFault::NotSparse: return VIX_E_DISK_INVALIDDISK;
    case SparseFault::NotSupported: return VIX_E_DISK_NOTSUPPORTED;
    case SparseFault::OutOfRange: return VIX_E_DISK_OUTOFRANGE;
    case SparseFault::BadDescriptor: return VIX_E_DISK_INVALIDDISK;
    case SparseFault::Damaged: break;
    }
    return VIX_E_DISK_NEEDSREPAIR;
}

class SparseLink : public Link {
public:
    SparseLink(File file, const SparseHeader &h, std::string descriptorFile)
        : file_(std::move(file)), h_(h), descriptorFile_(std::move(descriptorFile)) {}

    VixError Load() {
        VixError err = ToVixError(map_.Load(h_, bytes_));
        nextFree_ = CeilDiv(map_.FileSectors(), h_.grainSize) * h_.grainSize;
        return err;
    }

    uint64_t Capacity() const override { return h_.capacity; }
    uint64_t GrainSectors() const override { return h_.grainSize; }

    VixError Read(uint64_t sector, uint64_t count, uint8_t *buf, bool *allocated) override {
        GrainPlace place;
        VixError err = ToVixError(map_.Locate(bytes_, sector, count, &place));
        if (err != VIX_OK) return err;
        *allocated = place.kind != GrainPlace::Unallocated;
        if (place.kind == GrainPlace::Zeroed) memset(buf, 0, size_t(count * 512));
        if (place.kind != GrainPlace::Data) return VIX_OK;
        return file_.ReadAt(place.byteOffset, buf, size_t(count * 512)) ? VIX_OK : VIX_E_DISK_NEEDSREPAIR;
    }

    VixError Write(uint64_t sector, uint64_t count, const uint8_t *buf, const ReadBelow &below) override {
        uint32_t gte = 0;
        VixError err = ToVixError(map_.Entry(bytes_, sector, &gte));
        if (err != VIX_OK) return err;
        const uint64_t inGrain = sector % h_.grainSize;
        const bool zeroed = gte == 1 && (h_.flags & kSparseZeroedGrains);
        if (gte != 0 && !zeroed)
            return file_.WriteAt((uint64_t(gte) + inGrain) * 512, buf, size_t(count * 512)) ? VIX_OK : VIX_E_FILE_ERROR;
        return Allocate(sector - inGrain, inGrain, count, buf, gte == 0 ? &below : nullptr);
    }

    VixError SaveDescriptor() override {
        const std::string text = SerializeDescriptor(desc);
        if (!descriptorFile_.empty()) {
            File f;
            std::string padded = text;
            padded.resize(size_t(CeilDiv(text.size(), 512) * 512), '\0');
            if (!f.Create(descriptorFile_, true) || !f.WriteAt(0, padded.data(), padded.size())) return VIX_E_FILE_ERROR;
            return VIX_OK;
        }
        if (text.size() >= kEmbeddedDescriptorBytes) return VIX_E_FILE_TOO_BIG;
        std::string area = text;
        area.resize(kEmbeddedDescriptorBytes, '\0');
        return file_.WriteAt(kEmbeddedDescriptorOffset, area.data(), area.size()) ? VIX_OK : VIX_E_FILE_ERROR;
    }

    uint64_t AllocatedBytes() const override {
        return (std::max(nextFree_, h_.overHead) - h_.overHead) * 512 + h_.overHead * 512;
    }

    std::vector<std::string> Files() const override {
        std::vector<std::string> files;
        if (!descriptorFile_.empty()) files.push_back(descriptorFile_);
        files.push_back(extentPath_.empty() ? path : extentPath_);
        return files;
    }

    std::string extentPath_;

private:
    VixError Allocate(uint64_t grainStart, uint64_t inGrain, uint64_t count, const uint8_t *buf,
                      const ReadBelow *below) {
        const uint64_t gtEntry = map_.GtEntryByte(grainStart), rgtEntry = map_.RedundantGtEntryByte(grainStart);
        // Writing into a region without a GT would corrupt the file (qemu does); refuse.
        if (gtEntry == 0) return VIX_E_DISK_NEEDSREPAIR;
        if (nextFree_ > 0xFFFFFFFFull - h_.grainSize) return VIX_E_FILE_TOO_BIG;
        std::vector<uint8_t> data(size_t(h_.grainSize * 512), 0);
        if (below) {
            VixError err = (*below)(grainStart, h_.grainSize, data.data());
            if (err != VIX_OK) return err;
        }
        memcpy(data.data() + inGrain * 512, buf, size_t(count * 512));
        const uint32_t newGte = uint32_t(nextFree_);
        if (!file_.WriteAt(nextFree_ * 512, data.data(), data.size())) return VIX_E_FILE_ERROR;
        if (!file_.WriteAt(gtEntry, &newGte, 4)) return VIX_E_FILE_ERROR;
        if (rgtEntry != 0 && !file_.WriteAt(rgtEntry, &newGte, 4)) return VIX_E_FILE_ERROR;
        map_.SetEntry(grainStart, newGte);
        nextFree_ += h_.grainSize;
        map_.FileGrew(nextFree_);
        return VIX_OK;
    }

    File file_;
    FileBytes bytes_{file_};
    SparseHeader h_;
    std::string descriptorFile_;  // empty: embedded descriptor
    SparseMap map_;
    uint64_t nextFree_ = 0;
};

}  // namespace

VixError OpenSparseExtent(const std::string &path, const std::string &descriptorFile, bool writable,
                          std::unique_ptr<Link> *out) {
    File f;
    if (!f.Open(path, writable)) return FileExists(path) ? VIX_E_FILE_ACCESS_ERROR : VIX_E_FILE_NOT_FOUND;
    uint8_t raw[kSparseHeaderBytes];
    SparseHeader h;
    if (!f.ReadAt(0, raw, sizeof raw)) return VIX_E_DISK_INVALIDDISK;
    VixError err = ToVixError(DecodeSparseHeader(raw, &h));
    if (err != VIX_OK) return err;
    Descriptor desc;
    if (descriptorFile.empty()) {
        err = ToVixError(ReadEmbeddedDescriptor(FileBytes(f), &desc));
        if (err != VIX_OK) return err;
    }
    auto link = std::make_unique<SparseLink>(std::move(f), h, descriptorFile);
    err = link->Load();
    if (err != VIX_OK) return err;
    link->desc = desc;
    link->path = descriptorFile.empty() ? path : descriptorFile;
    link->extentPath_ = path;
    *out = std::move(link);
    return VIX_OK;
}

VixError CreateSparseFile(const std::string &path, uint64_t capacity, const Descriptor &desc) {
    if (capacity > kMaxDiskSectors) return VIX_E_FILE_TOO_BIG;
    SparseHeader h;
    h.capacity = capacity;
    const uint64_t grains = CeilDiv(capacity, h.grainSize);
    const uint64_t gtCount = std::max<uint64_t>(1, CeilDiv(grains, 512));
    const uint64_t gdSectors = CeilDiv(gtCount * 4, 512);
    if (gtCount * 4 + gdSectors > 0x7FFFFFFF) return VIX_E_FILE_TOO_BIG;
    h.rgdOffset = 21;
    h.gdOffset = h.rgdOffset + gdSectors + gtCount * 4;
    h.overHead = CeilDiv(h.gdOffset + gdSectors + gtCount * 4, h.grainSize) * h.grainSize;
    std::string text = SerializeDescriptor(desc);
    if (text.size() >= kEmbeddedDescriptorBytes) return VIX_E_FILE_TOO_BIG;
    File f;
    if (!f.Create(path, false)) return CreateRefused(path);
    std::vector<uint8_t> meta(size_t(h.overHead * 512), 0);
    uint8_t header[kSparseHeaderBytes];
    EncodeSparseHeader(h, header);
    memcpy(meta.data(), header, sizeof header);
    memcpy(meta.data() + kEmbeddedDescriptorOffset, text.data(), text.size());
    for (uint64_t i = 0; i < gtCount; ++i) {
        const uint32_t rgt = uint32_t(h.rgdOffset + gdSectors + 4 * i), gt = uint32_t(h.gdOffset + gdSectors + 4 * i);
        memcpy(meta.data() + h.rgdOffset * 512 + i * 4, &rgt, 4);
        memcpy(meta.data() + h.gdOffset * 512 + i * 4, &gt, 4);
    }
    return f.WriteAt(0, meta.data(), meta.size()) ? VIX_OK : VIX_E_FILE_ERROR;
}

}  // namespace vddksim
