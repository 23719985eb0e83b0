// Hosted sparse extents (KDMV): read, grain allocation at end of file, create.
#include <string.h>

#include <algorithm>

#include "file_io.h"
#include "link.h"

namespace vddksim {
namespace {

constexpr uint32_t kMagic = 0x564D444Bu;  // "KDMV"
constexpr uint64_t kGdAtEnd = ~uint64_t(0);

struct SparseHeader {
    uint32_t version = 1, flags = 3;
    uint64_t capacity = 0, grainSize = 128, descriptorOffset = 1, descriptorSize = 20;
    uint32_t numGTEsPerGT = 512;
    uint64_t rgdOffset = 0, gdOffset = 0, overHead = 0;
};

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

bool DecodeHeader(const uint8_t *b, SparseHeader *h) {
    if (Get<uint32_t>(b, 0) != kMagic) return false;
    h->version = Get<uint32_t>(b, 4);
    h->flags = Get<uint32_t>(b, 8);
    h->capacity = Get<uint64_t>(b, 12);
    h->grainSize = Get<uint64_t>(b, 20);
    h->descriptorOffset = Get<uint64_t>(b, 28);
    h->descriptorSize = Get<uint64_t>(b, 36);
    h->numGTEsPerGT = Get<uint32_t>(b, 44);
    h->rgdOffset = Get<uint64_t>(b, 48);
    h->gdOffset = Get<uint64_t>(b, 56);
    h->overHead = Get<uint64_t>(b, 64);
    return true;
}

void EncodeHeader(const SparseHeader &h, uint8_t *b) {
    memset(b, 0, 512);
    Put<uint32_t>(b, 0, kMagic);
    Put(b, 4, h.version);
    Put(b, 8, h.flags);
    Put(b, 12, h.capacity);
    Put(b, 20, h.grainSize);
    Put(b, 28, h.descriptorOffset);
    Put(b, 36, h.descriptorSize);
    Put(b, 44, h.numGTEsPerGT);
    Put(b, 48, h.rgdOffset);
    Put(b, 56, h.gdOffset);
    Put(b, 64, h.overHead);
    b[73] = '\n';
    b[74] = ' ';
    b[75] = '\r';
    b[76] = '\n';
}

uint64_t CeilDiv(uint64_t a, uint64_t b) { return (a + b - 1) / b; }

class SparseLink : public Link {
public:
    SparseLink(File file, const SparseHeader &h, std::string descriptorFile)
        : file_(std::move(file)), h_(h), descriptorFile_(std::move(descriptorFile)) {}

    VixError Load() {
        const uint64_t gtCoverage = uint64_t(h_.numGTEsPerGT) * h_.grainSize;
        const uint64_t gdCount = CeilDiv(h_.capacity, gtCoverage);
        fileSectors_ = file_.Size() / 512;
        if (fileSectors_ < h_.overHead) return VIX_E_DISK_NEEDSREPAIR;  // truncated
        // The directories must lie inside the file: their size then bounds
        // what is allocated for them, whatever the header claims.
        if (!InFile(h_.gdOffset, gdCount * 4) || ((h_.flags & 2) && !InFile(h_.rgdOffset, gdCount * 4)))
            return VIX_E_DISK_NEEDSREPAIR;
        gd_.assign(size_t(gdCount), 0);
        rgd_.assign(size_t(gdCount), 0);
        if (gdCount && !file_.ReadAt(h_.gdOffset * 512, gd_.data(), gd_.size() * 4))
            return VIX_E_DISK_NEEDSREPAIR;
        if ((h_.flags & 2) && gdCount && !file_.ReadAt(h_.rgdOffset * 512, rgd_.data(), rgd_.size() * 4))
            return VIX_E_DISK_NEEDSREPAIR;
        gts_.resize(size_t(gdCount));
        nextFree_ = CeilDiv(fileSectors_, h_.grainSize) * h_.grainSize;
        return VIX_OK;
    }

    uint64_t Capacity() const override { return h_.capacity; }
    uint64_t GrainSectors() const override { return h_.grainSize; }

    VixError Read(uint64_t sector, uint64_t count, uint8_t *buf, bool *allocated) override {
        uint32_t gte = 0;
        VixError err = LookUp(sector, &gte);
        if (err != VIX_OK) return err;
        *allocated = gte != 0;
        if (gte == 0) return VIX_OK;
        if (gte == 1 && (h_.flags & 4)) {  // zeroed grain hides the parent
            memset(buf, 0, size_t(count * 512));
            return VIX_OK;
        }
        const uint64_t at = (uint64_t(gte) + sector % h_.grainSize) * 512;
        if (uint64_t(gte) + h_.grainSize > fileSectors_ + h_.grainSize) return VIX_E_DISK_NEEDSREPAIR;
        return file_.ReadAt(at, buf, size_t(count * 512)) ? VIX_OK : VIX_E_DISK_NEEDSREPAIR;
    }

    VixError Write(uint64_t sector, uint64_t count, const uint8_t *buf, const ReadBelow &below) override {
        uint32_t gte = 0;
        VixError err = LookUp(sector, &gte);
        if (err != VIX_OK) return err;
        const uint64_t inGrain = sector % h_.grainSize;
        if (gte >= 2 || (gte == 1 && !(h_.flags & 4)))
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
    // Whether bytes at sector `at` lie inside the file (no wrap: both bounded first).
    bool InFile(uint64_t at, uint64_t bytes) const {
        return at <= fileSectors_ && bytes <= (fileSectors_ - at) * 512;
    }

    VixError LoadGt(size_t gdIndex) {
        if (!gts_[gdIndex].empty() || gd_[gdIndex] == 0) return VIX_OK;
        if (uint64_t(gd_[gdIndex]) + CeilDiv(h_.numGTEsPerGT * 4ull, 512) > fileSectors_) return VIX_E_DISK_NEEDSREPAIR;
        std::vector<uint32_t> gt(h_.numGTEsPerGT);
        if (!file_.ReadAt(uint64_t(gd_[gdIndex]) * 512, gt.data(), gt.size() * 4)) return VIX_E_DISK_NEEDSREPAIR;
        gts_[gdIndex] = std::move(gt);
        return VIX_OK;
    }

    VixError LookUp(uint64_t sector, uint32_t *gte) {
        const uint64_t grain = sector / h_.grainSize;
        const size_t gdIndex = size_t(grain / h_.numGTEsPerGT);
        if (gdIndex >= gd_.size()) return VIX_E_DISK_OUTOFRANGE;
        VixError err = LoadGt(gdIndex);
        if (err != VIX_OK) return err;
        *gte = gts_[gdIndex].empty() ? 0 : gts_[gdIndex][size_t(grain % h_.numGTEsPerGT)];
        return VIX_OK;
    }

    VixError Allocate(uint64_t grainStart, uint64_t inGrain, uint64_t count, const uint8_t *buf,
                      const ReadBelow *below) {
        const uint64_t grain = grainStart / h_.grainSize;
        const size_t gdIndex = size_t(grain / h_.numGTEsPerGT), gtIndex = size_t(grain % h_.numGTEsPerGT);
        // Writing into a region without a GT would corrupt the file (qemu does); refuse.
        if (gd_[gdIndex] == 0) return VIX_E_DISK_NEEDSREPAIR;
        if (nextFree_ > 0xFFFFFFFFull - h_.grainSize) return VIX_E_FILE_TOO_BIG;
        std::vector<uint8_t> data(size_t(h_.grainSize * 512), 0);
        if (below) {
            VixError err = (*below)(grainStart, h_.grainSize, data.data());
            if (err != VIX_OK) return err;
        }
        memcpy(data.data() + inGrain * 512, buf, size_t(count * 512));
        const uint32_t newGte = uint32_t(nextFree_);
        if (!file_.WriteAt(nextFree_ * 512, data.data(), data.size())) return VIX_E_FILE_ERROR;
        if (!file_.WriteAt(uint64_t(gd_[gdIndex]) * 512 + gtIndex * 4, &newGte, 4)) return VIX_E_FILE_ERROR;
        if ((h_.flags & 2) && rgd_[gdIndex] != 0 &&
            !file_.WriteAt(uint64_t(rgd_[gdIndex]) * 512 + gtIndex * 4, &newGte, 4))
            return VIX_E_FILE_ERROR;
        gts_[gdIndex][gtIndex] = newGte;
        nextFree_ += h_.grainSize;
        fileSectors_ = std::max(fileSectors_, nextFree_);
        return VIX_OK;
    }

    File file_;
    SparseHeader h_;
    std::string descriptorFile_;  // empty: embedded descriptor
    std::vector<uint32_t> gd_, rgd_;
    std::vector<std::vector<uint32_t>> gts_;  // loaded on first use
    uint64_t fileSectors_ = 0;
    uint64_t nextFree_ = 0;
};

VixError ReadEmbeddedDescriptor(const File &f, Descriptor *desc) {
    std::vector<char> area(kEmbeddedDescriptorBytes + 1, '\0');
    if (!f.ReadAt(kEmbeddedDescriptorOffset, area.data(), kEmbeddedDescriptorBytes)) return VIX_E_DISK_NEEDSREPAIR;
    return ParseDescriptor(std::string(area.data()), desc) ? VIX_OK : VIX_E_DISK_INVALIDDISK;
}

}  // namespace

VixError OpenSparseExtent(const std::string &path, const std::string &descriptorFile, bool writable,
                          std::unique_ptr<Link> *out) {
    File f;
    if (!f.Open(path, writable)) return FileExists(path) ? VIX_E_FILE_ACCESS_ERROR : VIX_E_FILE_NOT_FOUND;
    uint8_t raw[512];
    SparseHeader h;
    if (!f.ReadAt(0, raw, sizeof raw) || !DecodeHeader(raw, &h)) return VIX_E_DISK_INVALIDDISK;
    if (h.version > 3 || h.grainSize == 0 || h.grainSize > 0x200000 || h.numGTEsPerGT == 0 ||
        h.numGTEsPerGT > 512 || h.gdOffset == kGdAtEnd || h.capacity > kMaxDiskSectors)
        return VIX_E_DISK_NOTSUPPORTED;
    if (h.flags & 0x10000) return VIX_E_DISK_NOTSUPPORTED;  // compressed grains
    Descriptor desc;
    if (descriptorFile.empty()) {
        VixError err = ReadEmbeddedDescriptor(f, &desc);
        if (err != VIX_OK) return err;
    }
    auto link = std::make_unique<SparseLink>(std::move(f), h, descriptorFile);
    VixError err = link->Load();
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
    EncodeHeader(h, meta.data());
    memcpy(meta.data() + kEmbeddedDescriptorOffset, text.data(), text.size());
    for (uint64_t i = 0; i < gtCount; ++i) {
        Put<uint32_t>(meta.data(), size_t(h.rgdOffset * 512 + i * 4), uint32_t(h.rgdOffset + gdSectors + 4 * i));
        Put<uint32_t>(meta.data(), size_t(h.gdOffset * 512 + i * 4), uint32_t(h.gdOffset + gdSectors + 4 * i));
    }
    return f.WriteAt(0, meta.data(), meta.size()) ? VIX_OK : VIX_E_FILE_ERROR;
}

}  // namespace vddksim
