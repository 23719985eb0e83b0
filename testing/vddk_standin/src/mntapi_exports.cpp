// The stand-in's vixMntapi: disk sets over the stand-in's disks, volumes from MBR or
// GPT partition tables, mount paths in VMware's symbolic-link form. It reaches the disk
// library through its exports, like the real mount library.
#include <stdio.h>
#include <string.h>

#include <memory>
#include <string>
#include <vector>

#include <skclass_mini/win.h>

#include "exports.h"

struct VixVolumeHandleStruct {
    VixVolumeType type = VIXMNTAPI_BASIC_PARTITION;
    uint64_t firstSector = 0;
    uint64_t sectors = 0;
    bool mounted = false;
    std::string link;
};

struct VixDiskSetHandleStruct {
    std::vector<VixDiskLibHandle> disks;
    bool ownsDisks = false;
    uint32 openFlags = 0;
    std::vector<std::unique_ptr<VixVolumeHandleStruct>> volumes;
};

namespace {

typedef int (*EnterCallFn)(const char *, const char *, uint64_t *);

HMODULE DiskLib() { return GetModuleHandleW(L"vixDiskLib.dll"); }

template <typename Fn>
Fn DiskLibFn(const char *name) {
    HMODULE lib = DiskLib();
    return lib ? reinterpret_cast<Fn>(reinterpret_cast<void (*)()>(GetProcAddress(lib, name))) : nullptr;
}

bool Gate(const char *function, VixError *scripted) {
    auto enter = DiskLibFn<EnterCallFn>("VddkSimInternal_EnterCall");
    uint64_t result = 0;
    if (enter && enter(function, nullptr, &result)) {
        *scripted = result;
        return true;
    }
    return false;
}

#define MNT_GATE()                                              \
    do {                                                        \
        VixError scripted_ = VIX_OK;                            \
        if (Gate(__func__, &scripted_)) return scripted_;       \
    } while (0)

char *Dup(const std::string &s) {
    char *p = new char[s.size() + 1];
    memcpy(p, s.c_str(), s.size() + 1);
    return p;
}

template <typename T>
T Field(const uint8_t *p, size_t off) {
    T v;
    memcpy(&v, p + off, sizeof v);
    return v;
}

void AddVolume(VixDiskSetHandleStruct *set, VixVolumeType type, uint64_t first, uint64_t count) {
    auto v = std::make_unique<VixVolumeHandleStruct>();
    v->type = type;
    v->firstSector = first;
    v->sectors = count;
    set->volumes.push_back(std::move(v));
}

void ReadGpt(VixDiskLibHandle disk, VixDiskLib_Read_fn read, VixDiskSetHandleStruct *set) {
    uint8_t header[512];
    if (read(disk, 1, 1, header) != VIX_OK || memcmp(header, "EFI PART", 8) != 0) return;
    const uint64_t entriesLba = Field<uint64_t>(header, 72);
    const uint32_t count = std::min<uint32_t>(Field<uint32_t>(header, 80), 128);
    const uint32_t size = Field<uint32_t>(header, 84);
    if (size < 128 || size > 512) return;
    std::vector<uint8_t> entries((size_t(count) * size + 511) / 512 * 512);
    if (entries.empty() || read(disk, entriesLba, entries.size() / 512, entries.data()) != VIX_OK) return;
    static const uint8_t zeroGuid[16] = {};
    for (uint32_t i = 0; i < count; ++i) {
        const uint8_t *e = entries.data() + size_t(i) * size;
        if (memcmp(e, zeroGuid, 16) == 0) continue;
        const uint64_t first = Field<uint64_t>(e, 32), last = Field<uint64_t>(e, 40);
        if (last >= first) AddVolume(set, VIXMNTAPI_GPT_PARTITION, first, last - first + 1);
    }
}

void ReadPartitions(VixDiskLibHandle disk, VixDiskSetHandleStruct *set) {
    auto read = DiskLibFn<VixDiskLib_Read_fn>("VixDiskLib_Read");
    uint8_t mbr[512];
    if (!read || read(disk, 0, 1, mbr) != VIX_OK || mbr[510] != 0x55 || mbr[511] != 0xAA) return;
    for (int i = 0; i < 4; ++i) {
        const uint8_t *e = mbr + 446 + 16 * i;
        const uint8_t type = e[4];
        if (type == 0xEE) return ReadGpt(disk, read, set);
        if (type == 0 || type == 0x05 || type == 0x0F) continue;  // empty or extended
        AddVolume(set, VIXMNTAPI_BASIC_PARTITION, Field<uint32_t>(e, 8), Field<uint32_t>(e, 12));
    }
}

VixError MakeSet(std::vector<VixDiskLibHandle> disks, bool owns, uint32 flags, VixDiskSetHandle *handle) {
    auto set = std::make_unique<VixDiskSetHandleStruct>();
    set->disks = std::move(disks);
    set->ownsDisks = owns;
    set->openFlags = flags;
    for (VixDiskLibHandle d : set->disks) ReadPartitions(d, set.get());
    *handle = set.release();
    return VIX_OK;
}

}  // namespace

VixError VixMntapi_Init(uint32 majorVersion, uint32 minorVersion, VixDiskLibGenericLogFunc *log,
                        VixDiskLibGenericLogFunc *warn, VixDiskLibGenericLogFunc *panic, const char *libDir,
                        const char *configFile) {
    MNT_GATE();
    (void)log, (void)warn, (void)panic, (void)libDir, (void)configFile;
    return majorVersion == VIXMNTAPI_MAJOR_VERSION || minorVersion ? VIX_OK : VIX_E_MNTAPI_INCOMPATIBLE_VERSION;
}

void VixMntapi_Exit(void) {
    VixError ignored;
    Gate(__func__, &ignored);
}

VixError VixMntapi_OpenDiskSet(VixDiskLibHandle *diskHandles, size_t numberOfDisks, uint32 openMode,
                               VixDiskSetHandle *handle) {
    MNT_GATE();
    if (!diskHandles || numberOfDisks == 0 || !handle) return VIX_E_INVALID_ARG;
    try {
        return MakeSet(std::vector<VixDiskLibHandle>(diskHandles, diskHandles + numberOfDisks), false, openMode, handle);
    } catch (...) {
        return VIX_E_OUT_OF_MEMORY;
    }
}

VixError VixMntapi_OpenDisks(VixDiskLibConnection connection, const char **diskNames, size_t numberOfDisks,
                             uint32 openFlags, VixDiskSetHandle *handle) {
    MNT_GATE();
    auto open = DiskLibFn<VixDiskLib_Open_fn>("VixDiskLib_Open");
    auto close = DiskLibFn<VixDiskLib_Close_fn>("VixDiskLib_Close");
    if (!diskNames || numberOfDisks == 0 || !handle || !open || !close) return VIX_E_INVALID_ARG;
    try {
        std::vector<VixDiskLibHandle> disks;
        for (size_t i = 0; i < numberOfDisks; ++i) {
            VixDiskLibHandle disk = nullptr;
            VixError err = open(connection, diskNames[i], openFlags, &disk);
            if (err != VIX_OK) {
                for (VixDiskLibHandle d : disks) close(d);
                return err;
            }
            disks.push_back(disk);
        }
        return MakeSet(std::move(disks), true, openFlags, handle);
    } catch (...) {
        return VIX_E_OUT_OF_MEMORY;
    }
}

VixError VixMntapi_GetDiskSetInfo(VixDiskSetHandle handle, VixDiskSetInfo **diskSetInfo) {
    MNT_GATE();
    if (!handle || !diskSetInfo) return VIX_E_INVALID_ARG;
    auto *info = new VixDiskSetInfo();
    info->openFlags = handle->openFlags;
    info->mountPath = Dup("");
    *diskSetInfo = info;
    return VIX_OK;
}

void VixMntapi_FreeDiskSetInfo(VixDiskSetInfo *diskSetInfo) {
    if (!diskSetInfo) return;
    delete[] diskSetInfo->mountPath;
    delete diskSetInfo;
}

VixError VixMntapi_CloseDiskSet(VixDiskSetHandle diskSet) {
    MNT_GATE();
    if (!diskSet) return VIX_E_INVALID_ARG;
    auto close = DiskLibFn<VixDiskLib_Close_fn>("VixDiskLib_Close");
    if (diskSet->ownsDisks && close)
        for (VixDiskLibHandle d : diskSet->disks) close(d);
    delete diskSet;
    return VIX_OK;
}

VixError VixMntapi_GetVolumeHandles(VixDiskSetHandle diskSet, size_t *numberOfVolumes, VixVolumeHandle **volumeHandles) {
    MNT_GATE();
    if (!diskSet || !numberOfVolumes || !volumeHandles) return VIX_E_INVALID_ARG;
    *numberOfVolumes = diskSet->volumes.size();
    *volumeHandles = new VixVolumeHandle[diskSet->volumes.size() + 1];
    for (size_t i = 0; i < diskSet->volumes.size(); ++i) (*volumeHandles)[i] = diskSet->volumes[i].get();
    return VIX_OK;
}

void VixMntapi_FreeVolumeHandles(VixVolumeHandle *volumeHandles) { delete[] volumeHandles; }

#ifndef VDDKSIM_OMIT_GETOSINFO
// The stand-in's disks hold no guest OS it could recognise.
VixError VixMntapi_GetOsInfo(VixDiskSetHandle diskSet, VixOsInfo **info) {
    MNT_GATE();
    if (!diskSet || !info) return VIX_E_INVALID_ARG;
    auto *os = new VixOsInfo();
    os->family = VIXMNTAPI_OTHER;
    os->vendor = Dup("unknown");
    os->edition = Dup("");
    os->osFolder = Dup("");
    *info = os;
    return VIX_OK;
}
#endif

void VixMntapi_FreeOsInfo(VixOsInfo *info) {
    if (!info) return;
    delete[] info->vendor;
    delete[] info->edition;
    delete[] info->osFolder;
    delete info;
}

VixError VixMntapi_MountVolume(VixVolumeHandle volumeHandle, Bool readOnly) {
    MNT_GATE();
    (void)readOnly;
    if (!volumeHandle) return VIX_E_INVALID_ARG;
    if (volumeHandle->mounted) return VIX_E_MNTAPI_VOLUME_ALREADY_MOUNTED;
    char link[96];
    snprintf(link, sizeof link, "\\\\.\\vstor2-mntapi10-shared-%016llX%08llX\\",
             static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(volumeHandle)),
             static_cast<unsigned long long>(volumeHandle->firstSector));
    volumeHandle->link = link;
    volumeHandle->mounted = true;
    return VIX_OK;
}

VixError VixMntapi_DismountVolume(VixVolumeHandle volumeHandle, Bool force) {
    MNT_GATE();
    (void)force;
    if (!volumeHandle) return VIX_E_INVALID_ARG;
    if (!volumeHandle->mounted) return VIX_E_MNTAPI_VOLUME_NOT_MOUNTED;
    volumeHandle->mounted = false;
    volumeHandle->link.clear();
    return VIX_OK;
}

VixError VixMntapi_GetVolumeInfo(VixVolumeHandle volumeHandle, VixVolumeInfo **info) {
    MNT_GATE();
    if (!volumeHandle || !info) return VIX_E_INVALID_ARG;
    auto *v = new VixVolumeInfo();
    v->type = volumeHandle->type;
    v->isMounted = volumeHandle->mounted ? 1 : 0;
    v->symbolicLink = volumeHandle->mounted ? Dup(volumeHandle->link) : nullptr;
    v->numGuestMountPoints = 0;
    v->inGuestMountPoints[0] = nullptr;
    *info = v;
    return VIX_OK;
}

void VixMntapi_FreeVolumeInfo(VixVolumeInfo *info) {
    if (!info) return;
    delete[] info->symbolicLink;
    delete info;
}
