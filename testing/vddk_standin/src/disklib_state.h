// Connections and disk handles of the stand-in's vixDiskLib, and the live-object
// registry that turns unknown or closed handles into VIX_E_INVALID_HANDLE.
#pragma once

#include <memory>
#include <string>

#include <vmware/vddk_api.h>

#include "chain.h"

struct VixDiskLibConnectParam {
    bool remote = false;
    bool readOnly = false;
    std::string serverName;
    std::string vmxSpec;
    std::string transportModes;
};

struct VixDiskLibHandleStruct {
    std::unique_ptr<vddksim::Chain> chain;
    VixDiskLibConnection connection = nullptr;
    uint32 flags = 0;
};

namespace vddksim {

enum class ObjectKind { Connection, Disk };
void RegisterObject(const void *object, ObjectKind kind);
// False when the object was not registered (then nothing changes).
bool UnregisterObject(const void *object, ObjectKind kind);
bool IsLive(const void *object, ObjectKind kind);
// A live disk handle that still has links (a parent consumed by Attach has none).
inline bool IsUsableDisk(VixDiskLibHandle h) { return IsLive(h, ObjectKind::Disk) && !h->chain->links.empty(); }

bool IsInitialised();
void SetInitialised(bool on);

// Maps a caller's path for `connection`: a local file path, a memory disk, or a
// datastore path "[ds] a/b.vmdk" under the remote root. Returns a VDDK error on refusal.
VixError ResolveDiskPath(VixDiskLibConnection connection, const char *path, std::string *out);

// Runs `body` and converts escaping exceptions into a VDDK code.
template <typename F>
VixError Guarded(F body) noexcept {
    try {
        return body();
    } catch (...) {
        return VIX_E_OUT_OF_MEMORY;
    }
}

char *DupString(const std::string &s);  // freed with delete[]

}  // namespace vddksim
