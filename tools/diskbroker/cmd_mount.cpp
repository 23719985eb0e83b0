// mount: the volumes of a disk set through the library's mount calls.
#include <stdint.h>
#include <string.h>

#include <vector>

#include "commands.h"
#include "console.h"
#include "errors.h"
#include "files.h"
#include "job.h"

namespace dbtool {
namespace {

const wchar_t kMountHelp[] =
    L"usage: diskbroker mount <disk>... [--mount <n>|all] [options]\n"
    L"\n"
    L"Opens the disks as one disk set through the mount library and lists its volumes:\n"
    L"number, type, size (from the first disk's partition table) and mounted path.\n"
    L"\n"
    L"  --mount <n>|all         mount volume n (counted from 1), or every volume,\n"
    L"                          read-only; the mounted path is listed, and the volume\n"
    L"                          dismounted again before the set is closed\n";

constexpr size_t kMaxDisks = 16;

// The disk set, closed by its destructor; its volume handles freed with it.
class DiskSet {
public:
    DiskSet(Service &service, Connection &connection, const std::vector<std::string> &names) : service_(service) {
        std::vector<const char *> pointers;
        for (const std::string &name : names) pointers.push_back(name.c_str());
        service.Check(service.Broker().VixMntapi_OpenDisks(connection.Get(), pointers.data(), pointers.size(),
                                                            VIXDISKLIB_FLAG_OPEN_READ_ONLY, &set_),
                      L"cannot open the disk set");
        service.Check(service.Broker().VixMntapi_GetVolumeHandles(set_, &count_, &volumes_),
                      L"cannot list the volumes");
    }
    ~DiskSet() {
        if (volumes_) service_.Broker().VixMntapi_FreeVolumeHandles(volumes_);
        if (set_) service_.Broker().VixMntapi_CloseDiskSet(set_);
    }
    DiskSet(const DiskSet &) = delete;
    DiskSet &operator=(const DiskSet &) = delete;
    size_t Count() const { return volumes_ ? count_ : 0; }
    VixVolumeHandle Volume(size_t index) const { return volumes_[index]; }

private:
    Service &service_;
    VixDiskSetHandle set_ = nullptr;
    size_t count_ = 0;
    VixVolumeHandle *volumes_ = nullptr;
};

uint32_t Le32(const uint8_t *p) { return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24; }
uint64_t Le64(const uint8_t *p) { return uint64_t(Le32(p)) | uint64_t(Le32(p + 4)) << 32; }

// Sizes in bytes of the partitions the mount library lists, in its order:
// MBR primary entries that are not extended, or the GPT's used entries.
std::vector<uint64_t> PartitionSizes(Disk &disk, uint64_t capacitySectors) {
    std::vector<uint64_t> sizes;
    std::vector<uint8_t> sector(512);
    disk.Read(0, 1, sector.data());
    if (sector[510] != 0x55 || sector[511] != 0xAA) return sizes;
    if (sector[446 + 4] != 0xEE) {
        for (int i = 0; i < 4; ++i) {
            const uint8_t *entry = &sector[446 + 16 * i];
            const uint8_t type = entry[4];
            if (type == 0 || type == 0x05 || type == 0x0F || type == 0x85) continue;
            sizes.push_back(uint64_t(Le32(entry + 12)) * 512);
        }
        return sizes;
    }
    disk.Read(1, 1, sector.data());
    if (memcmp(sector.data(), "EFI PART", 8) != 0) return sizes;
    const uint64_t entriesAt = Le64(&sector[72]);
    const uint32_t entryCount = Le32(&sector[80]);
    const uint32_t entrySize = Le32(&sector[84]);
    if (entrySize < 128 || entrySize > 4096 || entryCount > 1024) return sizes;
    const uint64_t tableSectors = (uint64_t(entryCount) * entrySize + 511) / 512;
    if (entriesAt >= capacitySectors || tableSectors > capacitySectors - entriesAt) return sizes;
    std::vector<uint8_t> table(size_t(tableSectors * 512));
    disk.Read(entriesAt, tableSectors, table.data());
    for (uint32_t i = 0; i < entryCount; ++i) {
        const uint8_t *entry = &table[size_t(i) * entrySize];
        bool used = false;
        for (int b = 0; b < 16; ++b) used = used || entry[b] != 0;
        const uint64_t first = Le64(entry + 32), last = Le64(entry + 40);
        if (used && last >= first) sizes.push_back((last - first + 1) * 512);
    }
    return sizes;
}

const wchar_t *TypeName(VixVolumeType type) {
    switch (type) {
    case VIXMNTAPI_BASIC_PARTITION: return L"basic partition";
    case VIXMNTAPI_GPT_PARTITION: return L"GPT partition";
    case VIXMNTAPI_DYNAMIC_VOLUME: return L"dynamic volume";
    case VIXMNTAPI_LVM_VOLUME: return L"LVM volume";
    default: return L"unknown type";
    }
}

struct VolumeLine {
    std::wstring type;
    std::wstring link;
    bool mounted = false;
};

VolumeLine Describe(Service &service, VixVolumeHandle volume) {
    VixVolumeInfo *info = nullptr;
    service.Check(service.Broker().VixMntapi_GetVolumeInfo(volume, &info), L"cannot get a volume's information");
    VolumeLine line;
    line.type = TypeName(info->type);
    line.mounted = info->isMounted != 0;
    if (info->symbolicLink) line.link = Wide(info->symbolicLink);
    service.Broker().VixMntapi_FreeVolumeInfo(info);
    return line;
}

// Which volumes to mount: none, all, or one numbered from 1.
size_t MountChoice(const Args &args, bool &all) {
    all = false;
    if (!args.Has(L"mount")) return 0;
    if (args.Value(L"mount") == L"all") {
        all = true;
        return 0;
    }
    return static_cast<size_t>(args.Number(L"mount", 0, 1, 1024));
}

void ListVolumes(Service &service, const DiskSet &set, const std::vector<uint64_t> &sizes, bool mountAll,
                 size_t mountOne) {
    OutLine(L"volumes: " + std::to_wstring(set.Count()));
    for (size_t i = 0; i < set.Count(); ++i) {
        const std::wstring number = std::to_wstring(i + 1);
        const bool mount = mountAll || mountOne == i + 1;
        if (mount)
            service.Check(service.Broker().VixMntapi_MountVolume(set.Volume(i), 1), L"cannot mount volume " + number);
        const VolumeLine line = Describe(service, set.Volume(i));
        const std::wstring size = sizes.size() == set.Count() ? FormatBytes(sizes[i]) : L"size unknown";
        OutLine(L"  " + number + L": " + line.type + L", " + size + L", " +
                (line.mounted ? L"mounted at " + line.link : std::wstring(L"not mounted")));
        if (!mount) continue;
        service.Check(service.Broker().VixMntapi_DismountVolume(set.Volume(i), 0), L"cannot dismount volume " + number);
        OutLine(L"  " + number + L": dismounted");
    }
}

}  // namespace

int RunMount(const Words &words) {
    const Args args(words, WithCommonOptions({{L"mount", true}}, false), 1, kMaxDisks);
    if (args.HelpRequested()) {
        Out(std::wstring(kMountHelp) + L"\noptions:\n" + kCommonHelp);
        return kExitOk;
    }
    bool mountAll = false;
    const size_t mountOne = MountChoice(args, mountAll);
    std::vector<std::string> names;
    for (const std::wstring &word : args.Positional()) names.push_back(Utf8(DiskPathFrom(args, word)));
    Job job(args, true);
    Service &service = job.Broker();
    service.Check(service.Broker().VixMntapi_Init(VIXMNTAPI_MAJOR_VERSION, VIXMNTAPI_MINOR_VERSION, nullptr, nullptr,
                                                  nullptr, nullptr, nullptr),
                  L"cannot start the mount library");
    std::vector<uint64_t> sizes;
    {
        Disk first(service, job.Link(), DiskPathFrom(args, args.Positional(0)), Disk::Mode::Read);
        sizes = PartitionSizes(first, first.Info().capacityBytes / 512);
        first.Close();
    }
    {
        DiskSet set(service, job.Link(), names);
        if (mountOne > set.Count()) throw UsageError(L"--mount " + std::to_wstring(mountOne) + L": the set has " +
                                                     std::to_wstring(set.Count()) + L" volume(s)");
        ListVolumes(service, set, sizes, mountAll, mountOne);
    }
    service.Broker().VixMntapi_Exit();
    return kExitOk;
}

}  // namespace dbtool
