// VMDK descriptor text: parsed model and the text qemu-img writes (LF, no spaces
// around '=' in the header lines, CID before parentCID).
#pragma once

#include <stdint.h>

#include <string>
#include <utility>
#include <vector>

namespace vddksim {

// The largest disk the stand-in opens or makes (64 TiB, above VMware's own
// limit): any size or offset beyond it in a file is damage, and sums of
// numbers below it cannot wrap.
constexpr uint64_t kMaxDiskSectors = uint64_t(1) << 37;

struct ExtentLine {
    std::string access;  // RW, RDONLY, NOACCESS
    uint64_t sectors = 0;
    std::string type;  // SPARSE, FLAT, ZERO, ...
    std::string file;
    uint64_t offset = 0;
};

struct Descriptor {
    uint32_t cid = 0;
    uint32_t parentCid = 0xffffffffu;
    std::string createType;
    std::string parentHint;  // empty: no parent
    std::vector<ExtentLine> extents;
    std::vector<std::pair<std::string, std::string>> ddb;  // keys without "ddb."

    const std::string *Find(const std::string &key) const;
    void Set(const std::string &key, const std::string &value);
    uint64_t ExtentSectors() const;
};

// False on text that is not a VMDK descriptor (no version line, bad numbers,
// extent sizes or offsets beyond kMaxDiskSectors, in sum too).
bool ParseDescriptor(const std::string &text, Descriptor *out);
std::string SerializeDescriptor(const Descriptor &d);
// A fresh content ID (from the clock; defined with the file helpers, so that
// the text handling here stays free of Windows).
uint32_t NewCid();

// The DDB qemu-img writes for a new disk of `capacity` sectors.
void SetDefaultDdb(Descriptor *d, uint64_t capacity, const std::string &adapter, int hwVersion);
std::string AdapterName(int adapterType);
int AdapterFromName(const std::string &name);

}  // namespace vddksim
