// The stand-in's RavelSim_ control interface (see ravelsim.h).
#include <string.h>

#include "ravelsim.h"
#include "state.h"

namespace ravelsim {
bool SettingsText(const std::string &key, std::string &out);
bool TaskText(const std::string &id, std::string &out);

namespace {

std::string Joined(const std::vector<std::string> &items, const char *separator) {
    std::string out;
    for (const std::string &item : items) out += (out.empty() ? "" : separator) + item;
    return out;
}

// Caller holds the lock.
bool VmText(const std::string &key, std::string &out) {
    const size_t colon = key.find(':');
    if (colon == std::string::npos) return false;
    const std::string what = key.substr(0, colon), name = key.substr(colon + 1);
    if (what == "task") return TaskText(name, out);
    const Vm *vm = FindVm(name);
    if (!vm) return false;
    if (what == "snapshots") out = Joined(vm->snapshots, ",");
    else if (what == "changeTracking") out = vm->ctEnabled ? "1" : "0";
    else if (what == "powerState") out = vm->powerState;
    else if (what == "disks") out = Joined(vm->disks, "|");
    else return false;
    return true;
}

bool QueryText(const std::string &key, std::string &out) {
    State &s = Get();
    if (key == "journal") {
        out = Joined(s.journal, "\n");
        return true;
    }
    if (key == "extensions") {
        out = Joined(std::vector<std::string>(s.inventory.extensions.begin(), s.inventory.extensions.end()), ",");
        return true;
    }
    if (key == "server") {
        out = s.inventory.server;
        return true;
    }
    return SettingsText(key, out) || VmText(key, out);
}

}  // namespace
}  // namespace ravelsim

using namespace ravelsim;

extern "C" {

__declspec(dllexport) int RavelSim_ScriptResults(const char *entry, const int *results, uint32_t count) {
    if (!entry || (!results && count)) return 0;
    skclass::CsLock hold(Get().lock);
    auto &script = Get().scripts[entry];
    script.insert(script.end(), results, results + count);
    return 1;
}

__declspec(dllexport) void RavelSim_SetLastError(const char *text, int code) { Fail(0, Text(text), code); }

__declspec(dllexport) int RavelSim_SetLatency(const char *entry, uint32_t microseconds) {
    if (!entry) return 0;
    skclass::CsLock hold(Get().lock);
    if (microseconds) Get().latencyUs[entry] = microseconds;
    else Get().latencyUs.erase(entry);
    return 1;
}

__declspec(dllexport) uint64_t RavelSim_CallCount(const char *entry) {
    if (!entry) return 0;
    skclass::CsLock hold(Get().lock);
    auto it = Get().counts.find(entry);
    return it == Get().counts.end() ? 0 : it->second;
}

__declspec(dllexport) size_t RavelSim_Query(const char *key, char *buf, size_t bufLen) {
    if (!key) return 0;
    std::string text;
    {
        skclass::CsLock hold(Get().lock);
        if (!QueryText(key, text)) return 0;
    }
    if (buf && bufLen > text.size()) memcpy(buf, text.c_str(), text.size() + 1);
    return text.size() + 1;
}

__declspec(dllexport) int RavelSim_EmitLog(const char *text) {
    Log(Text(text));
    return 1;
}

__declspec(dllexport) int RavelSim_LoadInventory(const wchar_t *path) {
    Inventory loaded;
    if (!LoadInventoryFile(path, loaded)) return -1;
    skclass::CsLock hold(Get().lock);
    Get().inventory = std::move(loaded);
    return 0;
}

__declspec(dllexport) int RavelSim_SetStateFile(const wchar_t *path) {
    if (!path || !*path) return -1;
    Inventory loaded;
    const bool exists = GetFileAttributesW(path) != INVALID_FILE_ATTRIBUTES;
    if (exists && !LoadInventoryFile(path, loaded)) return -1;
    skclass::CsLock hold(Get().lock);
    if (exists) Get().inventory = std::move(loaded);
    else if (!SaveInventoryFile(Get().inventory, path)) return -1;
    Get().stateFile = path;
    return 0;
}

__declspec(dllexport) void RavelSim_Reset(void) {
    State &s = Get();
    skclass::CsLock hold(s.lock);
    s.inventory = DefaultInventory();
    s.settings = Settings();
    s.scripts.clear();
    s.latencyUs.clear();
    s.counts.clear();
    s.journal.clear();
    s.lastErrorText.clear();
    s.lastErrorCode = 0;
    s.logger = nullptr;
    s.stateFile.clear();
}

}  // extern "C"
