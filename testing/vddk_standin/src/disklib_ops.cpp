// vixDiskLib entry points that manage disks: create, children, metadata, clone,
// rename, grow, attach and the maintenance calls.
#include <string.h>

#include <vector>

#include "disklib_state.h"
#include "exports.h"
#include "file_io.h"
#include "sim_control.h"

using namespace vddksim;

namespace {

CallTarget PathTarget(const char *path) {
    CallTarget t;
    t.path = path;
    return t;
}

VixError CreateDisk(const std::string &path, const VixDiskLibCreateParams &p, Descriptor desc) {
    if (p.capacity == 0) return VIX_E_INVALID_ARG;
    desc.cid = NewCid();
    if (desc.ddb.empty()) SetDefaultDdb(&desc, p.capacity, AdapterName(p.adapterType), p.hwVersion);
    if (p.diskType == VIXDISKLIB_DISK_MONOLITHIC_FLAT) {
        desc.createType = "monolithicFlat";
        return CreateFlatFiles(path, p.capacity, desc);
    }
    if (p.diskType != VIXDISKLIB_DISK_MONOLITHIC_SPARSE) return VIX_E_DISK_NOTSUPPORTED;
    desc.createType = "monolithicSparse";
    desc.extents = {ExtentLine{"RW", p.capacity, "SPARSE", FileNameOf(path), 0}};
    return CreateSparseFile(path, p.capacity, desc);
}

// VMware writes the hint relative when the parent lies in the child's folder or below.
std::string HintFor(const std::string &childPath, const std::string &parentPath) {
    const std::string childFolder = FolderOf(FullPath(childPath));
    const std::string parentFull = FullPath(parentPath);
    if (!childFolder.empty() && _strnicmp(parentFull.c_str(), childFolder.c_str(), childFolder.size()) == 0)
        return parentFull.substr(childFolder.size());
    return parentFull;
}

VixError CopyChain(Chain &src, const std::string &dstPath, const VixDiskLibCreateParams &params) {
    VixError err = CreateDisk(dstPath, params, Descriptor());
    if (err != VIX_OK) return err;
    std::unique_ptr<Chain> dst;
    err = OpenChain(dstPath, true, true, &dst);
    if (err != VIX_OK) return err;
    const uint64_t chunk = 2048, total = std::min(src.Capacity(), dst->Capacity());
    std::vector<uint8_t> buf(size_t(chunk * 512)), zero(buf.size(), 0);
    for (uint64_t s = 0; s < total; s += chunk) {
        const uint64_t n = std::min(chunk, total - s);
        err = src.Read(s, n, buf.data());
        if (err != VIX_OK) return err;
        if (memcmp(buf.data(), zero.data(), size_t(n * 512)) == 0) continue;  // stays sparse
        err = dst->Write(s, n, buf.data());
        if (err != VIX_OK) return err;
    }
    return VIX_OK;
}

bool DiskOf(VixDiskLibHandle h) { return IsUsableDisk(h); }

VixError SaveMetadata(VixDiskLibHandle h, const char *key, const char *val) {
    Link &top = h->chain->Top();
    const std::string k = strncmp(key, "ddb.", 4) == 0 ? key + 4 : key;
    top.desc.Set(k, val);
    return top.SaveDescriptor();
}

// Copies `text` (terminated by `terminators` NULs) when it fits: VDDK's probing rules.
VixError CopyOut(const std::string &text, size_t terminators, char *buf, size_t bufLen, size_t *requiredLen) {
    const size_t needed = text.size() + terminators;
    if (requiredLen) *requiredLen = needed;
    if (!buf || bufLen < needed) return VIX_E_BUFFER_TOOSMALL;
    memcpy(buf, text.data(), text.size());
    memset(buf + text.size(), 0, terminators);
    return VIX_OK;
}

}  // namespace

VixError VixDiskLib_Create(const VixDiskLibConnection connection, const char *path,
                           const VixDiskLibCreateParams *createParams, VixDiskLibProgressFunc progressFunc,
                           void *progressCallbackData) {
    VDDKSIM_GATE(PathTarget(path));
    RecordImpersonation(__func__);
    if (!IsLive(connection, ObjectKind::Connection)) return VIX_E_INVALID_HANDLE;
    if (!path || !createParams) return VIX_E_INVALID_ARG;
    if (connection->remote) return VIX_E_NOT_SUPPORTED_ON_REMOTE_OBJECT;
    return Guarded([&] {
        VixError err = CreateDisk(path, *createParams, Descriptor());
        if (err == VIX_OK && progressFunc) progressFunc(progressCallbackData, 100);
        return err;
    });
}

VixError VixDiskLib_CreateChild(VixDiskLibHandle diskHandle, const char *childPath, VixDiskLibDiskType diskType,
                                VixDiskLibProgressFunc progressFunc, void *progressCallbackData) {
    VDDKSIM_GATE(PathTarget(childPath));
    if (!DiskOf(diskHandle)) return VIX_E_INVALID_HANDLE;
    if (!childPath) return VIX_E_INVALID_ARG;
    if (diskType != VIXDISKLIB_DISK_MONOLITHIC_SPARSE) return VIX_E_DISK_NOTSUPPORTED;
    if (diskHandle->chain->Top().IsMemory() || diskHandle->chain->remote) return VIX_E_DISK_NOTSUPPORTED;
    return Guarded([&] {
        Link &parent = diskHandle->chain->Top();
        Descriptor desc;
        desc.ddb = parent.desc.ddb;
        desc.parentCid = parent.desc.cid;
        desc.parentHint = HintFor(childPath, parent.path);
        VixDiskLibCreateParams p = {VIXDISKLIB_DISK_MONOLITHIC_SPARSE, VIXDISKLIB_ADAPTER_IDE, 4, parent.Capacity(), 512, 512};
        VixError err = CreateDisk(childPath, p, desc);
        if (err == VIX_OK && progressFunc) progressFunc(progressCallbackData, 100);
        return err;
    });
}

VixError VixDiskLib_ReadMetadata(VixDiskLibHandle diskHandle, const char *key, char *buf, size_t bufLen,
                                 size_t *requiredLen) {
    VDDKSIM_GATE(CallTarget());
    if (!DiskOf(diskHandle)) return VIX_E_INVALID_HANDLE;
    if (!key) return VIX_E_INVALID_ARG;
    return Guarded([&] {
        const std::string *value = diskHandle->chain->Top().desc.Find(key);
        if (!value) return VixError(VIX_E_DISK_KEY_NOTFOUND);
        return CopyOut(*value, 1, buf, bufLen, requiredLen);
    });
}

VixError VixDiskLib_WriteMetadata(VixDiskLibHandle diskHandle, const char *key, const char *val) {
    VDDKSIM_GATE(CallTarget());
    if (!DiskOf(diskHandle)) return VIX_E_INVALID_HANDLE;
    if (!key || !*key || !val) return VIX_E_INVALID_ARG;
    if (!diskHandle->chain->writable) return VIX_E_FILE_READ_ONLY;
    return Guarded([&] { return SaveMetadata(diskHandle, key, val); });
}

VixError VixDiskLib_GetMetadataKeys(VixDiskLibHandle diskHandle, char *keys, size_t maxLen, size_t *requiredLen) {
    VDDKSIM_GATE(CallTarget());
    if (!DiskOf(diskHandle)) return VIX_E_INVALID_HANDLE;
    return Guarded([&] {
        std::string list;
        for (const auto &kv : diskHandle->chain->Top().desc.ddb) list += kv.first + std::string(1, '\0');
        return CopyOut(list, 1, keys, maxLen, requiredLen);
    });
}

VixError VixDiskLib_Unlink(VixDiskLibConnection connection, const char *path) {
    VDDKSIM_GATE(PathTarget(path));
    if (!IsLive(connection, ObjectKind::Connection)) return VIX_E_INVALID_HANDLE;
    return Guarded([&] {
        std::string resolved;
        VixError err = ResolveDiskPath(connection, path, &resolved);
        std::unique_ptr<Link> link;
        if (err == VIX_OK) err = OpenLinkFile(resolved, false, &link);
        if (err != VIX_OK) return err;
        const std::vector<std::string> files = link->Files();
        link.reset();
        for (const auto &f : files)
            if (!DeleteFileW(Widen(f).c_str())) return VixError(VIX_E_FILE_ACCESS_ERROR);
        return VixError(VIX_OK);
    });
}

VixError VixDiskLib_Grow(VixDiskLibConnection connection, const char *path, VixDiskLibSectorType capacity,
                         Bool updateGeometry, VixDiskLibProgressFunc progressFunc, void *progressCallbackData) {
    VDDKSIM_GATE(PathTarget(path));
    (void)updateGeometry;
    (void)progressFunc;
    (void)progressCallbackData;
    if (!IsLive(connection, ObjectKind::Connection)) return VIX_E_INVALID_HANDLE;
    if (connection->remote) return VIX_E_NOT_SUPPORTED_ON_REMOTE_OBJECT;
    return Guarded([&] {
        std::unique_ptr<Link> link;
        VixError err = path ? OpenLinkFile(path, true, &link) : VixError(VIX_E_INVALID_ARG);
        if (err != VIX_OK) return err;
        if (capacity < link->Capacity()) return VixError(VIX_E_INVALID_ARG);
        // Growing moves grain tables in a sparse file; only flat disks grow here.
        if (link->desc.extents.size() != 1 || link->desc.extents[0].type != "FLAT") return VixError(VIX_E_DISK_NOTSUPPORTED);
        File flat;
        const std::string name = link->desc.extents[0].file;
        const std::string flatPath = IsAbsolutePath(name) ? name : FolderOf(path) + name;
        if (!flat.Open(flatPath, true) || !flat.SetSize(capacity * 512)) return VixError(VIX_E_DISK_FULL);
        link->desc.extents[0].sectors = capacity;
        return link->SaveDescriptor();
    });
}

VixError VixDiskLib_Shrink(VixDiskLibHandle diskHandle, VixDiskLibProgressFunc progressFunc, void *progressCallbackData) {
    VDDKSIM_GATE(CallTarget());
    if (!DiskOf(diskHandle)) return VIX_E_INVALID_HANDLE;
    if (diskHandle->chain->remote) return VIX_E_NOT_SUPPORTED_ON_REMOTE_OBJECT;
    if (progressFunc) progressFunc(progressCallbackData, 100);
    return VIX_OK;  // nothing to reclaim in the files we write
}

VixError VixDiskLib_Defragment(VixDiskLibHandle diskHandle, VixDiskLibProgressFunc progressFunc,
                               void *progressCallbackData) {
    VDDKSIM_GATE(CallTarget());
    if (!DiskOf(diskHandle)) return VIX_E_INVALID_HANDLE;
    if (progressFunc) progressFunc(progressCallbackData, 100);
    return VIX_OK;
}

VixError VixDiskLib_Rename(const char *srcFileName, const char *dstFileName) {
    VDDKSIM_GATE(PathTarget(srcFileName));
    if (!srcFileName || !dstFileName) return VIX_E_INVALID_ARG;
    return Guarded([&] {
        std::unique_ptr<Link> link;
        VixError err = OpenLinkFile(srcFileName, true, &link);
        if (err != VIX_OK) return err;
        if (FileExists(dstFileName)) return VixError(VIX_E_FILE_ALREADY_EXISTS);
        const bool embedded = link->Files().size() == 1;
        if (embedded) {
            link->desc.extents[0].file = FileNameOf(dstFileName);
            err = link->SaveDescriptor();
            link.reset();
            if (err == VIX_OK && !MoveFileW(Widen(srcFileName).c_str(), Widen(dstFileName).c_str()))
                err = VIX_E_FILE_ACCESS_ERROR;
            return err;
        }
        // Descriptor files keep their extent names; the descriptor moves.
        link.reset();
        return MoveFileW(Widen(srcFileName).c_str(), Widen(dstFileName).c_str()) ? VixError(VIX_OK)
                                                                               : VixError(VIX_E_FILE_ACCESS_ERROR);
    });
}

VixError VixDiskLib_Clone(const VixDiskLibConnection dstConnection, const char *dstPath,
                          const VixDiskLibConnection srcConnection, const char *srcPath,
                          const VixDiskLibCreateParams *vixCreateParams, VixDiskLibProgressFunc progressFunc,
                          void *progressCallbackData, Bool overWrite) {
    VDDKSIM_GATE(PathTarget(srcPath));
    if (!IsLive(dstConnection, ObjectKind::Connection) || !IsLive(srcConnection, ObjectKind::Connection))
        return VIX_E_INVALID_HANDLE;
    if (!dstPath || !srcPath || !vixCreateParams) return VIX_E_INVALID_ARG;
    if (dstConnection->remote) return VIX_E_NOT_SUPPORTED_ON_REMOTE_OBJECT;
    return Guarded([&] {
        std::string src;
        VixError err = ResolveDiskPath(srcConnection, srcPath, &src);
        std::unique_ptr<Chain> chain;
        if (err == VIX_OK) err = OpenChain(src, false, false, &chain);
        if (err != VIX_OK) return err;
        if (FileExists(dstPath)) {
            if (!(overWrite & 0xff)) return VixError(VIX_E_FILE_ALREADY_EXISTS);
            DeleteFileW(Widen(dstPath).c_str());
        }
        VixDiskLibCreateParams p = *vixCreateParams;
        if (p.capacity == 0) p.capacity = chain->Capacity();
        err = CopyChain(*chain, dstPath, p);
        if (err == VIX_OK && progressFunc) progressFunc(progressCallbackData, 100);
        return err;
    });
}

#ifndef VDDKSIM_OMIT_ATTACH
VixError VixDiskLib_Attach(VixDiskLibHandle parent, VixDiskLibHandle child) {
    VDDKSIM_GATE(CallTarget());
    if (!DiskOf(parent) || !DiskOf(child) || parent == child) return VIX_E_INVALID_HANDLE;
    return Guarded([&] { return LinkParent(child->chain.get(), parent->chain.get()); });
}
#endif

VixError VixDiskLib_SpaceNeededForClone(VixDiskLibHandle diskHandle, VixDiskLibDiskType cloneDiskType,
                                        uint64 *spaceNeeded) {
    VDDKSIM_GATE(CallTarget());
    if (!DiskOf(diskHandle)) return VIX_E_INVALID_HANDLE;
    if (!spaceNeeded) return VIX_E_INVALID_ARG;
    Chain &chain = *diskHandle->chain;
    if (cloneDiskType == VIXDISKLIB_DISK_MONOLITHIC_FLAT) {
        *spaceNeeded = chain.Capacity() * 512 + 512;
        return VIX_OK;
    }
    uint64_t total = 0;
    for (const auto &link : chain.links) total += link->AllocatedBytes();
    *spaceNeeded = std::min(total, chain.Capacity() * 512 + (1u << 20));
    return VIX_OK;
}

VixError VixDiskLib_CheckRepair(const VixDiskLibConnection connection, const char *filename, Bool repair) {
    VDDKSIM_GATE(PathTarget(filename));
    (void)repair;
    if (!IsLive(connection, ObjectKind::Connection)) return VIX_E_INVALID_HANDLE;
    return Guarded([&] {
        std::string resolved;
        VixError err = ResolveDiskPath(connection, filename, &resolved);
        std::unique_ptr<Chain> chain;
        if (err == VIX_OK) err = OpenChain(resolved, false, true, &chain);
        if (err == VIX_E_DISK_NEEDSREPAIR) {
            LogWarning("DISKLIB-SPARSE: '%s' needs repair and cannot be repaired here.\n", filename);
            return VixError(VIX_E_DISK_CANTREPAIR);
        }
        return err;
    });
}
