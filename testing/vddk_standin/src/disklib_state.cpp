#include "disklib_state.h"

#include <string.h>

#include <map>

#include <skclass_mini/handles.h>

#include "file_io.h"
#include "link.h"
#include "sim_control.h"

namespace vddksim {
namespace {

struct Registry {
    skclass::CriticalSection lock;
    std::map<const void *, ObjectKind> live;  // guarded by lock
    bool initialised = false;                 // guarded by lock
};

Registry &R() {
    static Registry *registry = new Registry;  // never destroyed: no teardown at exit
    return *registry;
}

}  // namespace

void RegisterObject(const void *object, ObjectKind kind) {
    skclass::CsLock guard(R().lock);
    R().live[object] = kind;
}

bool UnregisterObject(const void *object, ObjectKind kind) {
    skclass::CsLock guard(R().lock);
    auto it = R().live.find(object);
    if (it == R().live.end() || it->second != kind) return false;
    R().live.erase(it);
    return true;
}

bool IsLive(const void *object, ObjectKind kind) {
    if (!object) return false;
    skclass::CsLock guard(R().lock);
    auto it = R().live.find(object);
    return it != R().live.end() && it->second == kind;
}

bool IsInitialised() {
    skclass::CsLock guard(R().lock);
    return R().initialised;
}

void SetInitialised(bool on) {
    skclass::CsLock guard(R().lock);
    R().initialised = on;
}

VixError ResolveDiskPath(VixDiskLibConnection connection, const char *path, std::string *out) {
    if (!path || !*path) return VIX_E_INVALID_ARG;
    if (IsMemDiskPath(path) || !connection->remote) {
        *out = path;
        return VIX_OK;
    }
    const std::string p = path;
    const size_t close = p.find(']');
    if (p[0] != '[' || close == std::string::npos) return VIX_E_FILE_NAME_INVALID;
    const std::string root = RemoteRoot();
    if (root.empty()) return VIX_E_FILE_NOT_FOUND;
    std::string rel = p.substr(close + 1);
    rel.erase(0, rel.find_first_not_of(' '));
    for (char &c : rel)
        if (c == '/') c = '\\';
    *out = root + "\\" + p.substr(1, close - 1) + "\\" + rel;
    return VIX_OK;
}

char *DupString(const std::string &s) {
    char *copy = new char[s.size() + 1];
    memcpy(copy, s.c_str(), s.size() + 1);
    return copy;
}

}  // namespace vddksim
