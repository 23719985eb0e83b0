// Descriptor files over FLAT extents, the link opener, and memory disks.
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "file_io.h"
#include "link.h"
#include "sim_control.h"
#include "sim_control.h"
#include "vddksim.h"

namespace vddksim {
namespace {

struct FlatExtent {
    File file;
    uint64_t start = 0;  // first virtual sector
    uint64_t sectors = 0;
    uint64_t offset = 0;  // in the file, sectors
};

class FlatLink : public Link {
public:
    VixError AddExtent(const std::string &folder, const ExtentLine &line, bool writable) {
        FlatExtent e;
        const std::string file = IsAbsolutePath(line.file) ? line.file : folder + line.file;
        if (!e.file.Open(file, writable)) return FileExists(file) ? VIX_E_FILE_ACCESS_ERROR : VIX_E_FILE_NOT_FOUND;
        // A descriptor claiming more than its extent holds is damage, not a short read later.
        if (e.file.Size() / 512 < line.offset + line.sectors) return VIX_E_DISK_NEEDSREPAIR;
        e.start = capacity_;
        e.sectors = line.sectors;
        e.offset = line.offset;
        capacity_ += line.sectors;
        files_.push_back(file);
        extents_.push_back(std::move(e));
        return VIX_OK;
    }

    uint64_t Capacity() const override { return capacity_; }
    uint64_t GrainSectors() const override { return 2048; }

    VixError Read(uint64_t sector, uint64_t count, uint8_t *buf, bool *allocated) override {
        *allocated = true;
        return Transfer(sector, count, buf, false);
    }

    VixError Write(uint64_t sector, uint64_t count, const uint8_t *buf, const ReadBelow &) override {
        return Transfer(sector, count, const_cast<uint8_t *>(buf), true);
    }

    VixError SaveDescriptor() override {
        std::string text = SerializeDescriptor(desc);
        text.resize((text.size() + 511) / 512 * 512, '\0');  // as qemu pads after a write
        File f;
        if (!f.Create(path, true) || !f.WriteAt(0, text.data(), text.size())) return VIX_E_FILE_ERROR;
        return VIX_OK;
    }

    uint64_t AllocatedBytes() const override { return capacity_ * 512; }

    std::vector<std::string> Files() const override {
        std::vector<std::string> all{path};
        all.insert(all.end(), files_.begin(), files_.end());
        return all;
    }

private:
    VixError Transfer(uint64_t sector, uint64_t count, uint8_t *buf, bool write) {
        while (count > 0) {
            auto it = std::find_if(extents_.begin(), extents_.end(), [&](const FlatExtent &e) {
                return sector >= e.start && sector < e.start + e.sectors;
            });
            if (it == extents_.end()) return VIX_E_DISK_OUTOFRANGE;
            const uint64_t n = std::min(count, it->start + it->sectors - sector);
            const uint64_t at = (it->offset + sector - it->start) * 512;
            const bool ok = write ? it->file.WriteAt(at, buf, size_t(n * 512)) : it->file.ReadAt(at, buf, size_t(n * 512));
            if (!ok) return write ? VIX_E_FILE_ERROR : VIX_E_DISK_NEEDSREPAIR;
            sector += n;
            count -= n;
            buf += n * 512;
        }
        return VIX_OK;
    }

    std::vector<FlatExtent> extents_;
    std::vector<std::string> files_;
    uint64_t capacity_ = 0;
};

VixError OpenDescriptorFile(const std::string &path, bool writable, std::unique_ptr<Link> *out) {
    std::string text;
    Descriptor desc;
    if (!ReadTextFile(path, &text)) return VIX_E_DISK_INVALIDDISK;
    if (!ParseDescriptor(text, &desc) || desc.extents.empty()) return VIX_E_DISK_INVALIDDISK;
    const std::string folder = FolderOf(path);
    if (desc.extents.size() == 1 && desc.extents[0].type == "SPARSE") {
        const std::string &f = desc.extents[0].file;
        VixError err = OpenSparseExtent(IsAbsolutePath(f) ? f : folder + f, path, writable, out);
        if (err == VIX_OK) (*out)->desc = desc;
        return err;
    }
    auto link = std::make_unique<FlatLink>();
    for (const auto &line : desc.extents) {
        if (line.type != "FLAT" && line.type != "VMFS") return VIX_E_DISK_NOTSUPPORTED;
        VixError err = link->AddExtent(folder, line, writable);
        if (err != VIX_OK) return err;
    }
    link->desc = desc;
    link->path = path;
    *out = std::move(link);
    return VIX_OK;
}

// Memory disk: the pattern of vddksim.h, writes counted (and optionally verified).
class MemLink : public Link {
public:
    MemLink(std::string name, uint64_t capacity, uint64_t seed, bool verify)
        : name_(std::move(name)), capacity_(capacity), seed_(seed), verify_(verify) {}

    uint64_t Capacity() const override { return capacity_; }
    uint64_t GrainSectors() const override { return uint64_t(1) << 40; }
    bool IsMemory() const override { return true; }

    VixError Read(uint64_t sector, uint64_t count, uint8_t *buf, bool *allocated) override {
        *allocated = true;
        Fill(sector, count, buf);
        return VIX_OK;
    }

    VixError Write(uint64_t sector, uint64_t count, const uint8_t *buf, const ReadBelow &) override {
        uint64_t mismatched = 0;
        if (verify_) {
            uint8_t expected[512];
            for (uint64_t i = 0; i < count; ++i) {
                Fill(sector + i, 1, expected);
                if (memcmp(expected, buf + i * 512, 512) != 0) ++mismatched;
            }
        }
        AddMemDiskCounts(name_, count, mismatched);
        return VIX_OK;
    }

    VixError SaveDescriptor() override { return VIX_OK; }
    uint64_t AllocatedBytes() const override { return 0; }
    std::vector<std::string> Files() const override { return {}; }

private:
    void Fill(uint64_t sector, uint64_t count, uint8_t *buf) const {
        // Adding the multiplier per word equals multiplying by the index (mod 2^64).
        const uint64_t k = 0x9E3779B97F4A7C15ull;
        uint64_t value = sector * 64 * k;
        const size_t words = size_t(count * 64);
        for (size_t i = 0; i < words; ++i, value += k) {
            const uint64_t w = value ^ seed_;
            memcpy(buf + i * 8, &w, 8);
        }
    }

    std::string name_;
    uint64_t capacity_;
    uint64_t seed_;
    bool verify_;
};

bool QueryValue(const std::string &query, const std::string &key, std::string *value) {
    size_t pos = 0;
    while (pos <= query.size()) {
        size_t end = query.find('&', pos);
        if (end == std::string::npos) end = query.size();
        const std::string item = query.substr(pos, end - pos);
        if (item.compare(0, key.size() + 1, key + "=") == 0) {
            *value = item.substr(key.size() + 1);
            return true;
        }
        pos = end + 1;
    }
    return false;
}

}  // namespace

VixError OpenLinkFile(const std::string &path, bool writable, std::unique_ptr<Link> *out) {
    File probe;
    if (!probe.Open(path, false)) return FileExists(path) ? VIX_E_FILE_ACCESS_ERROR : VIX_E_FILE_NOT_FOUND;
    uint32_t magic = 0;
    const bool sparse = probe.ReadAt(0, &magic, 4) && magic == 0x564D444Bu;
    probe.Close();
    if (sparse) return OpenSparseExtent(path, std::string(), writable, out);
    return OpenDescriptorFile(path, writable, out);
}

bool IsMemDiskPath(const char *path) { return path && strncmp(path, "memdisk://", 10) == 0; }

VixError OpenMemDisk(const std::string &path, std::unique_ptr<Link> *out) {
    const std::string rest = path.substr(10);
    const size_t q = rest.find('?');
    const std::string name = rest.substr(0, q);
    const std::string query = q == std::string::npos ? std::string() : rest.substr(q + 1);
    std::string size, seed = "0", verify = "0";
    if (name.empty() || !QueryValue(query, "size", &size)) return VIX_E_INVALID_ARG;
    QueryValue(query, "seed", &seed);
    QueryValue(query, "verify", &verify);
    const uint64_t bytes = strtoull(size.c_str(), nullptr, 0);
    if (bytes < 512) return VIX_E_INVALID_ARG;
    auto link = std::make_unique<MemLink>(name, bytes / 512, strtoull(seed.c_str(), nullptr, 0), verify == "1");
    link->path = path;
    *out = std::move(link);
    return VIX_OK;
}

VixError CreateRefused(const std::string &path) {
    if (FileExists(path)) return VIX_E_FILE_ALREADY_EXISTS;
    const std::string folder = FolderOf(path);
    const DWORD attributes = folder.empty() ? FILE_ATTRIBUTE_DIRECTORY : GetFileAttributesW(Widen(folder).c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || !(attributes & FILE_ATTRIBUTE_DIRECTORY)) {
        LogWarning("DISKLIB-LIB   : Cannot create '%s': the folder '%s' does not exist.\n", path.c_str(),
                   folder.c_str());
        return VIX_E_FILE_NOT_FOUND;
    }
    return VIX_E_FILE_ACCESS_ERROR;
}

VixError CreateFlatFiles(const std::string &path, uint64_t capacity, Descriptor desc) {
    std::string name = FileNameOf(path);
    const size_t dot = name.find_last_of('.');
    const std::string flatName = dot == std::string::npos ? name + "-flat" : name.substr(0, dot) + "-flat" + name.substr(dot);
    const std::string flatPath = FolderOf(path) + flatName;
    File flat, text;
    if (FileExists(path)) return VIX_E_FILE_ALREADY_EXISTS;
    if (capacity > kMaxDiskSectors) return VIX_E_FILE_TOO_BIG;
    if (!flat.Create(flatPath, false)) return CreateRefused(flatPath);
    if (!flat.SetSize(capacity * 512)) return VIX_E_DISK_FULL;
    desc.extents = {ExtentLine{"RW", capacity, "FLAT", flatName, 0}};
    const std::string body = SerializeDescriptor(desc);
    if (!text.Create(path, false) || !text.WriteAt(0, body.data(), body.size())) return VIX_E_FILE_ERROR;
    return VIX_OK;
}

}  // namespace vddksim
