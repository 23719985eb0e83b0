// One link of a disk chain: a hosted sparse extent, flat extents behind a descriptor
// file, or a memory disk. Reads report unallocated grains so the chain falls through.
#pragma once

#include <stdint.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <vmware/vddk_api.h>

#include "descriptor.h"
#include "sparse_format.h"

namespace vddksim {

// Supplies the content below a link for [sector, sector + count): parent data or zeros.
using ReadBelow = std::function<VixError(uint64_t sector, uint64_t count, uint8_t *out)>;

class Link {
public:
    virtual ~Link() = default;
    virtual uint64_t Capacity() const = 0;
    // Allocation unit: a request to Read/Write never crosses one.
    virtual uint64_t GrainSectors() const = 0;
    // *allocated false: the range is not in this link (buf untouched).
    virtual VixError Read(uint64_t sector, uint64_t count, uint8_t *buf, bool *allocated) = 0;
    // A grain the write does not cover entirely is completed from `below` first.
    virtual VixError Write(uint64_t sector, uint64_t count, const uint8_t *buf, const ReadBelow &below) = 0;
    // Rewrites the descriptor text (CID change, metadata).
    virtual VixError SaveDescriptor() = 0;
    virtual bool IsMemory() const { return false; }
    virtual uint64_t AllocatedBytes() const = 0;
    // Every file of the link, descriptor first.
    virtual std::vector<std::string> Files() const = 0;

    Descriptor desc;
    std::string path;  // as opened
};

// Opens a link file: KDMV sparse (embedded descriptor), or a descriptor file over
// FLAT extents or one SPARSE extent. VDDK error codes on refusal.
VixError OpenLinkFile(const std::string &path, bool writable, std::unique_ptr<Link> *out);
VixError OpenSparseExtent(const std::string &path, const std::string &descriptorFile, bool writable,
                          std::unique_ptr<Link> *out);

bool IsMemDiskPath(const char *path);
VixError OpenMemDisk(const std::string &path, std::unique_ptr<Link> *out);

// Why a new file could not be created: it exists, its folder does not
// (logged as a warning), or access was refused.
VixError CreateRefused(const std::string &path);

// New monolithicSparse file laid out as qemu-img does (all GTs preallocated).
VixError CreateSparseFile(const std::string &path, uint64_t capacity, const Descriptor &desc);
// New monolithicFlat pair: descriptor `path` and "<stem>-flat<ext>".
VixError CreateFlatFiles(const std::string &path, uint64_t capacity, Descriptor desc);

}  // namespace vddksim
