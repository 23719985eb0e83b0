// libFuzzer target: the stand-in's hosted sparse extent layout (header,
// embedded descriptor, grain directory and tables) on a whole file image.
// Whatever the bytes, the image is refused or every lookup through its map
// lands inside the image (reading there is checked by ASan), and never
// allocates beyond it.
#include <string.h>

#include <algorithm>
#include <vector>

#include "fuzz_target.h"
#include "sparse_format.h"

namespace {

using namespace vddksim;

class ImageBytes : public ByteSource {
public:
    ImageBytes(const uint8_t *data, size_t size) : data_(data), size_(size) {}
    bool ReadAt(uint64_t offset, void *buf, size_t len) const override {
        if (offset > size_ || len > size_ - offset) return false;
        if (len) memcpy(buf, data_ + offset, len);
        return true;
    }
    uint64_t Size() const override { return size_; }

private:
    const uint8_t *data_;
    size_t size_;
};

// A lookup of [sector, sector + count) and, where it names data, a read of it.
void Probe(SparseMap &map, const ImageBytes &image, uint64_t sector, uint64_t count, std::vector<uint8_t> &buf) {
    GrainPlace place;
    if (map.Locate(image, sector, count, &place) != SparseFault::None || place.kind != GrainPlace::Data) return;
    if (place.byteOffset > image.Size() || count * 512 > image.Size() - place.byteOffset) abort();
    buf.resize(size_t(count * 512));
    if (!image.ReadAt(place.byteOffset, buf.data(), buf.size())) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < kSparseHeaderBytes) return 0;
    const ImageBytes image(data, size);
    uint8_t raw[kSparseHeaderBytes];
    memcpy(raw, data, sizeof raw);
    SparseHeader h;
    if (DecodeSparseHeader(raw, &h) != SparseFault::None) return 0;
    Descriptor desc;
    // The stand-in refuses an image whose descriptor does not parse; the map
    // is walked anyway, to reach it with more inputs.
    (void)ReadEmbeddedDescriptor(image, &desc);
    SparseMap map;
    if (map.Load(h, image) != SparseFault::None) return 0;
    if (map.FileSectors() != size / 512) abort();
    const uint64_t grains = CeilDiv(h.capacity, h.grainSize);
    const uint64_t step = std::max<uint64_t>(1, grains / 2048);
    std::vector<uint8_t> buf;
    for (uint64_t grain = 0; grain < grains; grain += step) {
        const uint64_t first = grain * h.grainSize;
        Probe(map, image, first, h.grainSize, buf);                 // the whole grain
        Probe(map, image, first + h.grainSize - 1, 1, buf);          // its last sector
        Probe(map, image, first + h.grainSize / 2, h.grainSize, buf);  // crosses into the next: refused
    }
    return 0;
}
