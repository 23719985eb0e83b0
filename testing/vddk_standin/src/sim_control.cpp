// State behind the VddkSim_ control exports and the per-call gate of every VDDK export.
#include "sim_control.h"

#include <stdarg.h>
#include <string.h>

#include <atomic>
#include <deque>
#include <map>
#include <memory>

#include <skclass_mini/handles.h>
#include <sddl.h>

#include "vddksim.h"

namespace vddksim {
namespace {

struct Script {
    uint32_t remaining;
    VixError result;
    std::string pathFilter;  // empty: any path
    uint64_t firstSector;
    uint64_t lastSector;
};

struct FunctionState {
    uint64_t calls = 0;
    uint32_t latencyMicroseconds = 0;
    std::deque<Script> scripts;
    bool blockNext = false;
    // Manual-reset events: held = a call waits inside; release = the test let it go.
    skclass::UniqueHandle held{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    skclass::UniqueHandle release{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
};

struct MemDiskCounts {
    uint64_t written = 0;
    uint64_t mismatched = 0;
};

struct AccessRecord {
    bool prepared = false;
    uint32_t prepares = 0;
    uint32_t ends = 0;
};

struct State {
    skclass::CriticalSection lock;
    // Guarded by lock: everything below.
    std::map<std::string, std::unique_ptr<FunctionState>> functions;
    std::map<std::string, std::string> args;
    std::map<std::string, MemDiskCounts> memDisks;
    std::map<std::string, AccessRecord> access;
    std::string remoteRoot;
    uint32_t cleanupCleaned = 0;
    uint32_t cleanupRemaining = 0;
    int openCloseInFlight = 0;
    uint64_t overlaps = 0;
    uint32_t openHandles = 0;
    VixDiskLibGenericLogFunc *log = nullptr;
    VixDiskLibGenericLogFunc *warn = nullptr;
    VixDiskLibGenericLogFunc *panic = nullptr;
    skclass::UniqueHandle backgroundThread;
    skclass::UniqueHandle backgroundStop;
    DWORD backgroundThreadId = 0;
    // Not guarded by lock: read on every Read and Write.
    std::atomic<bool> recordDataCallers{true};
};

// Leaked on purpose: no static destructor runs Win32 teardown at process exit.
State &S() {
    static State *state = new State;
    return *state;
}

FunctionState &FunctionLocked(const std::string &name) {
    auto &slot = S().functions[name];
    if (!slot) slot = std::make_unique<FunctionState>();
    return *slot;
}

bool ScriptMatches(const Script &s, const CallTarget &t) {
    if (!s.pathFilter.empty() && (!t.path || s.pathFilter != t.path)) return false;
    if (s.firstSector == VDDKSIM_ANY_SECTOR && s.lastSector == VDDKSIM_ANY_SECTOR) return true;
    if (!t.hasSectors) return false;
    return t.firstSector <= s.lastSector && t.lastSector >= s.firstSector;
}

bool TakeScript(FunctionState &f, const CallTarget &t, VixError *result) {
    for (auto it = f.scripts.begin(); it != f.scripts.end(); ++it) {
        if (!ScriptMatches(*it, t)) continue;
        *result = it->result;
        if (--it->remaining == 0) f.scripts.erase(it);
        return true;
    }
    return false;
}

void SpendLatency(uint32_t microseconds) {
    if (microseconds == 0) return;
    LARGE_INTEGER freq, start, now;
    QueryPerformanceFrequency(&freq);
    QueryPerformanceCounter(&start);
    const int64_t ticks = int64_t(microseconds) * freq.QuadPart / 1000000;
    if (microseconds >= 2000) Sleep(microseconds / 1000 - 1);
    do {
        QueryPerformanceCounter(&now);
    } while (now.QuadPart - start.QuadPart < ticks);
}

void Emit(VixDiskLibGenericLogFunc *sink, const char *fmt, va_list args) {
    if (sink) sink(fmt, args);
}

DWORD WINAPI BackgroundMain(void *stopEvent) {
    // Like VDDK's own housekeeping threads: idle until Exit.
    WaitForSingleObject(static_cast<HANDLE>(stopEvent), INFINITE);
    return 0;
}

}  // namespace

bool EnterCall(const char *function, const CallTarget &target, VixError *scripted) {
    HANDLE held = nullptr, release = nullptr;
    uint32_t latency = 0;
    bool isScripted = false;
    {
        skclass::CsLock guard(S().lock);
        FunctionState &f = FunctionLocked(function);
        ++f.calls;
        latency = f.latencyMicroseconds;
        isScripted = TakeScript(f, target, scripted);
        if (f.blockNext) {
            f.blockNext = false;
            held = f.held.get();
            release = f.release.get();
            SetEvent(held);
        }
    }
    if (release) {
        WaitForSingleObject(release, INFINITE);
        skclass::CsLock guard(S().lock);
        ResetEvent(held);
    }
    SpendLatency(latency);
    return isScripted;
}

SerialisedSection::SerialisedSection() {
    skclass::CsLock guard(S().lock);
    if (S().openCloseInFlight++ > 0) ++S().overlaps;
}

SerialisedSection::~SerialisedSection() {
    skclass::CsLock guard(S().lock);
    --S().openCloseInFlight;
}

void RecordArg(const std::string &key, const std::string &value) {
    skclass::CsLock guard(S().lock);
    S().args[key] = value;
}

void RecordImpersonation(const char *function) {
    std::string user;
    skclass::UniqueHandle token;
    if (OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, token.put())) {
        alignas(8) unsigned char buffer[512];
        DWORD size = 0;
        if (GetTokenInformation(token.get(), TokenUser, buffer, sizeof buffer, &size)) {
            char name[256], domain[256];
            DWORD nameLen = sizeof name, domainLen = sizeof domain;
            SID_NAME_USE use;
            auto *tu = reinterpret_cast<TOKEN_USER *>(buffer);
            if (LookupAccountSidA(nullptr, tu->User.Sid, name, &nameLen, domain, &domainLen, &use)) {
                user = std::string(domain) + "\\" + name;
            } else {
                // Wine maps no name to the user of an ImpersonateSelf token
                // (ERROR_NONE_MAPPED): the SID still tells who it is.
                char *sidText = nullptr;
                if (ConvertSidToStringSidA(tu->User.Sid, &sidText)) {
                    user = sidText;
                    LocalFree(sidText);
                }
            }
        }
    }
    RecordArg(std::string("user.") + function, user);
}

void RecordDataCaller(const char *function) {
    if (S().recordDataCallers.load(std::memory_order_relaxed)) RecordImpersonation(function);
}

void SetLogCallbacks(VixDiskLibGenericLogFunc *log, VixDiskLibGenericLogFunc *warn,
                     VixDiskLibGenericLogFunc *panic) {
    skclass::CsLock guard(S().lock);
    S().log = log;
    S().warn = warn;
    S().panic = panic;
}

#define VDDKSIM_DEFINE_LOGGER(fnName, member)                 \
    void fnName(const char *fmt, ...) {                      \
        VixDiskLibGenericLogFunc *sink;                      \
        {                                                    \
            skclass::CsLock guard(S().lock);                 \
            sink = S().member;                               \
        }                                                    \
        va_list args;                                        \
        va_start(args, fmt);                                 \
        Emit(sink, fmt, args);                               \
        va_end(args);                                        \
    }
VDDKSIM_DEFINE_LOGGER(LogInfo, log)
VDDKSIM_DEFINE_LOGGER(LogWarning, warn)
VDDKSIM_DEFINE_LOGGER(LogPanic, panic)
#undef VDDKSIM_DEFINE_LOGGER

void StartBackgroundThread() {
    skclass::CsLock guard(S().lock);
    if (S().backgroundThread) return;
    S().backgroundStop.reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    S().backgroundThread.reset(CreateThread(nullptr, 0, BackgroundMain,
                                            S().backgroundStop.get(), 0, &S().backgroundThreadId));
}

void StopBackgroundThread() {
    skclass::UniqueHandle thread, stop;
    {
        skclass::CsLock guard(S().lock);
        thread = std::move(S().backgroundThread);
        stop = std::move(S().backgroundStop);
        S().backgroundThreadId = 0;
    }
    if (!thread) return;
    SetEvent(stop.get());
    WaitForSingleObject(thread.get(), INFINITE);
}

void AddMemDiskCounts(const std::string &name, uint64_t written, uint64_t mismatched) {
    skclass::CsLock guard(S().lock);
    MemDiskCounts &c = S().memDisks[name];
    c.written += written;
    c.mismatched += mismatched;
}

std::string RemoteRoot() {
    {
        skclass::CsLock guard(S().lock);
        if (!S().remoteRoot.empty()) return S().remoteRoot;
    }
    // A program that has no control interface (the command-line program run
    // against the vSphere simulator) is given the root by its environment.
    char root[MAX_PATH] = {};
    const DWORD length = GetEnvironmentVariableA("VDDKSIM_REMOTE_ROOT", root, MAX_PATH);
    return length > 0 && length < MAX_PATH ? std::string(root, length) : std::string();
}

bool GetCleanupResult(uint32_t *cleaned, uint32_t *remaining) {
    skclass::CsLock guard(S().lock);
    *cleaned = S().cleanupCleaned;
    *remaining = S().cleanupRemaining;
    return S().cleanupRemaining == 0;
}

void MarkAccess(const std::string &vmxSpec, bool prepare) {
    skclass::CsLock guard(S().lock);
    AccessRecord &r = S().access[vmxSpec];
    r.prepared = prepare;
    ++(prepare ? r.prepares : r.ends);
}

void AdjustOpenHandles(int delta) {
    skclass::CsLock guard(S().lock);
    S().openHandles += delta;
}

}  // namespace vddksim

using namespace vddksim;

#define VDDKSIM_DECLARE_EXPORT(name, ret, params) extern "C" __declspec(dllexport) ret name params;
VDDKSIM_CONTROL_ENTRY_POINTS(VDDKSIM_DECLARE_EXPORT)
#undef VDDKSIM_DECLARE_EXPORT

int VddkSim_ScriptResult(const char *function, uint32_t count, uint64_t result,
                         const char *pathFilter, uint64_t firstSector, uint64_t lastSector) {
    if (!function || count == 0) return 0;
    skclass::CsLock guard(S().lock);
    FunctionLocked(function).scripts.push_back(
        Script{count, result, pathFilter ? pathFilter : "", firstSector, lastSector});
    return 1;
}

int VddkSim_SetLatency(const char *function, uint32_t microseconds) {
    if (!function) return 0;
    skclass::CsLock guard(S().lock);
    FunctionLocked(function).latencyMicroseconds = microseconds;
    return 1;
}

int VddkSim_BlockNextCall(const char *function) {
    if (!function) return 0;
    skclass::CsLock guard(S().lock);
    FunctionState &f = FunctionLocked(function);
    f.blockNext = true;
    ResetEvent(f.release.get());
    return 1;
}

int VddkSim_WaitBlocked(const char *function, uint32_t timeoutMs) {
    if (!function) return 0;
    HANDLE held;
    {
        skclass::CsLock guard(S().lock);
        held = FunctionLocked(function).held.get();
    }
    return WaitForSingleObject(held, timeoutMs) == WAIT_OBJECT_0 ? 1 : 0;
}

int VddkSim_Release(const char *function) {
    if (!function) return 0;
    skclass::CsLock guard(S().lock);
    FunctionState &f = FunctionLocked(function);
    f.blockNext = false;
    SetEvent(f.release.get());
    return 1;
}

uint64_t VddkSim_CallCount(const char *function) {
    if (!function) return 0;
    skclass::CsLock guard(S().lock);
    auto it = S().functions.find(function);
    return it == S().functions.end() ? 0 : it->second->calls;
}

size_t VddkSim_LastArg(const char *key, char *buf, size_t bufLen) {
    if (!key) return 0;
    skclass::CsLock guard(S().lock);
    auto it = S().args.find(key);
    if (it == S().args.end()) return 0;
    const size_t needed = it->second.size() + 1;
    if (buf && bufLen >= needed) memcpy(buf, it->second.c_str(), needed);
    return needed;
}

uint64_t VddkSim_OverlapCount(void) {
    skclass::CsLock guard(S().lock);
    return S().overlaps;
}

int VddkSim_TriggerLog(int kind, const char *text) {
    if (!text) return 0;
    switch (kind) {
    case VDDKSIM_LOG: LogInfo("%s\n", text); return 1;
    case VDDKSIM_WARNING: LogWarning("%s\n", text); return 1;
    case VDDKSIM_PANIC: LogPanic("%s\n", text); return 1;
    default: return 0;
    }
}

uint32_t VddkSim_BackgroundThreadId(void) {
    skclass::CsLock guard(S().lock);
    return S().backgroundThread ? S().backgroundThreadId : 0;
}

uint64_t VddkSim_MemDiskMismatches(const char *name) {
    skclass::CsLock guard(S().lock);
    auto it = S().memDisks.find(name ? name : "");
    return it == S().memDisks.end() ? 0 : it->second.mismatched;
}

uint64_t VddkSim_MemDiskWrittenSectors(const char *name) {
    skclass::CsLock guard(S().lock);
    auto it = S().memDisks.find(name ? name : "");
    return it == S().memDisks.end() ? 0 : it->second.written;
}

int VddkSim_SetRemoteRoot(const char *folder) {
    skclass::CsLock guard(S().lock);
    S().remoteRoot = folder ? folder : "";
    return 1;
}

int VddkSim_AccessState(const char *vmxSpec, uint32_t *prepareCount, uint32_t *endCount) {
    skclass::CsLock guard(S().lock);
    auto it = S().access.find(vmxSpec ? vmxSpec : "");
    const AccessRecord r = it == S().access.end() ? AccessRecord{} : it->second;
    if (prepareCount) *prepareCount = r.prepares;
    if (endCount) *endCount = r.ends;
    return r.prepared ? 1 : 0;
}

int VddkSim_SetCleanupResult(uint32_t numCleanedUp, uint32_t numRemaining) {
    skclass::CsLock guard(S().lock);
    S().cleanupCleaned = numCleanedUp;
    S().cleanupRemaining = numRemaining;
    return 1;
}

uint32_t VddkSim_OpenHandleCount(void) {
    skclass::CsLock guard(S().lock);
    return S().openHandles;
}

void VddkSim_RecordCallers(int on) { S().recordDataCallers.store(on != 0); }

void VddkSim_Reset(void) {
    skclass::CsLock guard(S().lock);
    S().recordDataCallers.store(true);
    for (auto &entry : S().functions) SetEvent(entry.second->release.get());
    // Held calls still reference their events: keep the states, clear their contents.
    for (auto &entry : S().functions) {
        FunctionState &f = *entry.second;
        f.calls = 0;
        f.latencyMicroseconds = 0;
        f.scripts.clear();
        f.blockNext = false;
    }
    S().args.clear();
    S().memDisks.clear();
    S().access.clear();
    S().remoteRoot.clear();
    S().cleanupCleaned = S().cleanupRemaining = 0;
    S().overlaps = 0;
}

// For the stand-in's vixMntapi.dll, which shares this control state.
extern "C" __declspec(dllexport) int VddkSimInternal_EnterCall(const char *function, const char *path,
                                                                uint64_t *scripted) {
    vddksim::CallTarget target;
    target.path = path;
    VixError result = VIX_OK;
    const bool isScripted = vddksim::EnterCall(function, target, &result);
    *scripted = result;
    return isScripted ? 1 : 0;
}
