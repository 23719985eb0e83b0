// libFuzzer target: the stand-in's VMDK descriptor parser. Whatever the text,
// a parse either fails or gives extents whose sizes and offsets stay within
// the bound.
#include <string>

#include "descriptor.h"
#include "fuzz_target.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    vddksim::Descriptor parsed;
    if (!vddksim::ParseDescriptor(text, &parsed)) return 0;
    uint64_t total = 0;
    for (const vddksim::ExtentLine &extent : parsed.extents) {
        if (extent.sectors > vddksim::kMaxDiskSectors || extent.offset > vddksim::kMaxDiskSectors) abort();
        total += extent.sectors;
    }
    if (total != parsed.ExtentSectors() || total > vddksim::kMaxDiskSectors) abort();
    return 0;
}
