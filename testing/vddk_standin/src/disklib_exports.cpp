// vixDiskLib entry points: library set-up, connections, open/close, I/O, info.
#include <string.h>

#include "disklib_state.h"
#include "exports.h"
#include "file_io.h"
#include "sim_control.h"

using namespace vddksim;

namespace {

const char kLocalTransports[] = "file:san:hotadd:nbdssl:nbd";

CallTarget PathTarget(const char *path) {
    CallTarget t;
    t.path = path;
    return t;
}

CallTarget DiskTarget(VixDiskLibHandle disk, uint64_t first, uint64_t count) {
    CallTarget t;
    if (IsUsableDisk(disk)) t.path = disk->chain->openedPath.c_str();
    t.hasSectors = true;
    t.firstSector = first;
    t.lastSector = count ? first + count - 1 : first;
    return t;
}

VixError Initialise(VixDiskLibGenericLogFunc *log, VixDiskLibGenericLogFunc *warn,
                    VixDiskLibGenericLogFunc *panic, const char *libDir, const char *configFile) {
    SetLogCallbacks(log, warn, panic);
    RecordArg("libDir", libDir ? libDir : "");
    RecordArg("configFile", configFile ? configFile : "");
    std::string content;
    if (configFile && !ReadTextFile(configFile, &content))
        LogWarning("VixDiskLib: Could not read config file '%s'.\n", configFile);
    RecordArg("configContent", content);
    StartBackgroundThread();
    SetInitialised(true);
    LogInfo("VixDiskLib: Initialize transport modes %s.\n", kLocalTransports);
    return VIX_OK;
}

VixError MakeConnection(const VixDiskLibConnectParams *params, Bool readOnly, const char *transportModes,
                        VixDiskLibConnection *connection) {
    if (!connection) return VIX_E_INVALID_ARG;
    *connection = nullptr;
    if (!IsInitialised()) return VIX_E_DISK_NOINIT;
    auto conn = std::make_unique<VixDiskLibConnectParam>();
    if (params && params->serverName) {
        if (!*params->serverName || (params->vmxSpec && !*params->vmxSpec)) return VIX_E_INVALID_ARG;
        conn->remote = true;
        conn->serverName = params->serverName;
        conn->vmxSpec = params->vmxSpec ? params->vmxSpec : "";
        RecordArg("serverName", conn->serverName);
        RecordArg("vmxSpec", conn->vmxSpec);
    }
    conn->readOnly = (readOnly & 0xff) != 0;
    conn->transportModes = transportModes ? transportModes : "";
    RecordArg("transportModes", conn->transportModes);
    *connection = conn.release();
    RegisterObject(*connection, ObjectKind::Connection);
    return VIX_OK;
}

VixError OpenDisk(VixDiskLibConnection connection, const char *path, uint32 flags, VixDiskLibHandle *diskHandle) {
    std::string resolved;
    VixError err = ResolveDiskPath(connection, path, &resolved);
    if (err != VIX_OK) return err;
    const bool writable = !(flags & VIXDISKLIB_FLAG_OPEN_READ_ONLY) && !connection->readOnly;
    auto handle = std::make_unique<VixDiskLibHandleStruct>();
    if (IsMemDiskPath(path)) {
        handle->chain = std::make_unique<Chain>();
        std::unique_ptr<Link> mem;
        err = OpenMemDisk(path, &mem);
        handle->chain->links.push_back(std::move(mem));
        handle->chain->writable = writable;
    } else {
        err = OpenChain(resolved, writable, (flags & VIXDISKLIB_FLAG_OPEN_SINGLE_LINK) != 0, &handle->chain);
    }
    if (err != VIX_OK) return err;
    handle->chain->openedPath = path;
    handle->chain->remote = connection->remote;
    handle->connection = connection;
    handle->flags = flags;
    *diskHandle = handle.release();
    RegisterObject(*diskHandle, ObjectKind::Disk);
    AdjustOpenHandles(1);
    LogInfo("VixDiskLib: Open '%s' flags 0x%x: %u link(s).\n", path, flags, unsigned((*diskHandle)->chain->links.size()));
    return VIX_OK;
}

}  // namespace

VixError VixDiskLib_InitEx(uint32 majorVersion, uint32 minorVersion, VixDiskLibGenericLogFunc *log,
                           VixDiskLibGenericLogFunc *warn, VixDiskLibGenericLogFunc *panic, const char *libDir,
                           const char *configFile) {
    VDDKSIM_GATE(CallTarget());
    (void)majorVersion;
    (void)minorVersion;
    return Guarded([&] { return Initialise(log, warn, panic, libDir, configFile); });
}

VixError VixDiskLib_Init(uint32 majorVersion, uint32 minorVersion, VixDiskLibGenericLogFunc *log,
                         VixDiskLibGenericLogFunc *warn, VixDiskLibGenericLogFunc *panic, const char *libDir) {
    VDDKSIM_GATE(CallTarget());
    (void)majorVersion;
    (void)minorVersion;
    return Guarded([&] { return Initialise(log, warn, panic, libDir, nullptr); });
}

void VixDiskLib_Exit(void) {
    VixError ignored;
    EnterCall(__func__, CallTarget(), &ignored);
    StopBackgroundThread();
    SetInitialised(false);
    LogInfo("VixDiskLib: Exit.\n");
}

const char *VixDiskLib_ListTransportModes(void) {
    VixError ignored;
    EnterCall(__func__, CallTarget(), &ignored);
    return kLocalTransports;
}

VixError VixDiskLib_Cleanup(const VixDiskLibConnectParams *connectParams, uint32 *numCleanedUp, uint32 *numRemaining) {
    VDDKSIM_GATE(CallTarget());
    uint32_t cleaned = 0, remaining = 0;
    const bool clean = GetCleanupResult(&cleaned, &remaining);
    const bool remote = connectParams && connectParams->serverName;
    if (numCleanedUp) *numCleanedUp = remote ? cleaned : 0;
    if (numRemaining) *numRemaining = remote ? remaining : 0;
    return (clean || !remote) ? VIX_OK : VIX_E_FAIL;
}

VixError VixDiskLib_Connect(const VixDiskLibConnectParams *connectParams, VixDiskLibConnection *connection) {
    VDDKSIM_GATE(CallTarget());
    return Guarded([&] { return MakeConnection(connectParams, 0, nullptr, connection); });
}

VixError VixDiskLib_ConnectEx(const VixDiskLibConnectParams *connectParams, Bool readOnly, const char *snapshotRef,
                              const char *transportModes, VixDiskLibConnection *connection) {
    VDDKSIM_GATE(CallTarget());
    RecordArg("snapshotRef", snapshotRef ? snapshotRef : "");
    return Guarded([&] { return MakeConnection(connectParams, readOnly, transportModes, connection); });
}

VixError VixDiskLib_Disconnect(VixDiskLibConnection connection) {
    VDDKSIM_GATE(CallTarget());
    if (!UnregisterObject(connection, ObjectKind::Connection)) return VIX_E_INVALID_HANDLE;
    delete connection;
    return VIX_OK;
}

VixError VixDiskLib_Open(const VixDiskLibConnection connection, const char *path, uint32 flags,
                         VixDiskLibHandle *diskHandle) {
    SerialisedSection serialised;
    VDDKSIM_GATE(PathTarget(path));
    RecordImpersonation(__func__);
    RecordArg("openFlags", std::to_string(flags));
    RecordArg("openPath", path ? path : "");
    if (!diskHandle) return VIX_E_INVALID_ARG;
    *diskHandle = nullptr;
    if (!IsLive(connection, ObjectKind::Connection)) return VIX_E_INVALID_HANDLE;
    return Guarded([&] { return OpenDisk(connection, path, flags, diskHandle); });
}

VixError VixDiskLib_Close(VixDiskLibHandle diskHandle) {
    SerialisedSection serialised;
    VDDKSIM_GATE(CallTarget());
    if (!UnregisterObject(diskHandle, ObjectKind::Disk)) return VIX_E_INVALID_HANDLE;
    LogInfo("VixDiskLib: Close '%s'.\n", diskHandle->chain->openedPath.c_str());
    delete diskHandle;
    AdjustOpenHandles(-1);
    return VIX_OK;
}

VixError VixDiskLib_GetInfo(VixDiskLibHandle diskHandle, VixDiskLibInfo **info) {
    VDDKSIM_GATE(CallTarget());
    if (!info) return VIX_E_INVALID_ARG;
    *info = nullptr;
    if (!IsUsableDisk(diskHandle)) return VIX_E_INVALID_HANDLE;
    return Guarded([&] {
        const Descriptor &d = diskHandle->chain->Top().desc;
        auto num = [&](const char *key) {
            const std::string *v = d.Find(key);
            return v ? uint32(strtoul(v->c_str(), nullptr, 10)) : 0u;
        };
        auto *out = new VixDiskLibInfo();
        out->biosGeo = {num("geometry.cylinders"), num("geometry.heads"), num("geometry.sectors")};
        out->physGeo = out->biosGeo;
        out->capacity = diskHandle->chain->Capacity();
        const std::string *adapter = d.Find("adapterType");
        out->adapterType = VixDiskLibAdapterType(adapter ? AdapterFromName(*adapter) : VIXDISKLIB_ADAPTER_IDE);
        out->numLinks = int(diskHandle->chain->links.size());
        out->parentFileNameHint = d.parentHint.empty() ? nullptr : DupString(d.parentHint);
        const std::string *uuid = d.Find("uuid");
        out->uuid = uuid ? DupString(*uuid) : nullptr;
        out->logicalSectorSize = out->physicalSectorSize = 512;
        *info = out;
        return VixError(VIX_OK);
    });
}

void VixDiskLib_FreeInfo(VixDiskLibInfo *info) {
    VixError ignored;
    EnterCall(__func__, CallTarget(), &ignored);
    if (!info) return;
    delete[] info->parentFileNameHint;
    delete[] info->uuid;
    delete info;
}

const char *VixDiskLib_GetTransportMode(VixDiskLibHandle diskHandle) {
    VixError ignored;
    EnterCall(__func__, CallTarget(), &ignored);
    if (!IsUsableDisk(diskHandle)) return nullptr;
    return diskHandle->chain->remote ? "nbd" : "file";
}

VixError VixDiskLib_Read(VixDiskLibHandle diskHandle, VixDiskLibSectorType startSector,
                         VixDiskLibSectorType numSectors, uint8 *readBuffer) {
    VDDKSIM_GATE(DiskTarget(diskHandle, startSector, numSectors));
    RecordDataCaller(__func__);
    if (!IsUsableDisk(diskHandle)) return VIX_E_INVALID_HANDLE;
    if (!readBuffer) return VIX_E_INVALID_ARG;
    Chain &chain = *diskHandle->chain;
    if (startSector > chain.Capacity() || numSectors > chain.Capacity() - startSector) return VIX_E_DISK_OUTOFRANGE;
    return Guarded([&] { return chain.Read(startSector, numSectors, readBuffer); });
}

VixError VixDiskLib_Write(VixDiskLibHandle diskHandle, VixDiskLibSectorType startSector,
                          VixDiskLibSectorType numSectors, const uint8 *writeBuffer) {
    VDDKSIM_GATE(DiskTarget(diskHandle, startSector, numSectors));
    RecordDataCaller(__func__);
    if (!IsUsableDisk(diskHandle)) return VIX_E_INVALID_HANDLE;
    if (!writeBuffer) return VIX_E_INVALID_ARG;
    Chain &chain = *diskHandle->chain;
    if (!chain.writable) return VIX_E_FILE_READ_ONLY;
    if (startSector > chain.Capacity() || numSectors > chain.Capacity() - startSector) return VIX_E_DISK_OUTOFRANGE;
    return Guarded([&] { return chain.Write(startSector, numSectors, writeBuffer); });
}

VixError VixDiskLib_PrepareForAccess(const VixDiskLibConnectParams *connectParams, const char *identity) {
    VDDKSIM_GATE(CallTarget());
    RecordArg("identity", identity ? identity : "");
    if (!connectParams || !connectParams->vmxSpec || !identity) return VIX_E_INVALID_ARG;
    return Guarded([&] {
        MarkAccess(connectParams->vmxSpec, true);
        return VixError(VIX_OK);
    });
}

VixError VixDiskLib_EndAccess(const VixDiskLibConnectParams *connectParams, const char *identity) {
    VDDKSIM_GATE(CallTarget());
    RecordArg("identity", identity ? identity : "");
    if (!connectParams || !connectParams->vmxSpec || !identity) return VIX_E_INVALID_ARG;
    return Guarded([&] {
        MarkAccess(connectParams->vmxSpec, false);
        return VixError(VIX_OK);
    });
}
