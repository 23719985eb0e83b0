// The stand-in's test-controlled state: scripts, latency, blocks, counts, recorded
// arguments, Open/Close overlap detection, and the log callbacks InitEx received.
#pragma once

#include <stdint.h>

#include <string>

#include <vmware/vddk_api.h>

namespace vddksim {

// Where a call is aimed, for script filters.
struct CallTarget {
    const char *path = nullptr;
    bool hasSectors = false;  // Read/Write: [firstSector, lastSector] is the request
    uint64_t firstSector = 0;
    uint64_t lastSector = 0;
};

// Entry of every exported VDDK function: counts the call, applies latency, holds it
// when blocked. Returns true with *scripted set when a script decides the result.
bool EnterCall(const char *function, const CallTarget &target, VixError *scripted);

// Brackets an Open or Close so overlapping ones are counted.
class SerialisedSection {
public:
    SerialisedSection();
    ~SerialisedSection();
    SerialisedSection(const SerialisedSection &) = delete;
    SerialisedSection &operator=(const SerialisedSection &) = delete;
};

void RecordArg(const std::string &key, const std::string &value);
// Records "user.<function>" from the calling thread's impersonation token.
void RecordImpersonation(const char *function);
// The same for the data calls (Read, Write), unless VddkSim_RecordCallers(0) turned it off.
void RecordDataCaller(const char *function);

void SetLogCallbacks(VixDiskLibGenericLogFunc *log, VixDiskLibGenericLogFunc *warn,
                     VixDiskLibGenericLogFunc *panic);
// printf-style lines through the InitEx callbacks (dropped when none was given).
void LogInfo(const char *fmt, ...);
void LogWarning(const char *fmt, ...);
void LogPanic(const char *fmt, ...);

void StartBackgroundThread();
void StopBackgroundThread();

void AddMemDiskCounts(const std::string &name, uint64_t written, uint64_t mismatched);
std::string RemoteRoot();
bool GetCleanupResult(uint32_t *cleaned, uint32_t *remaining);

// Per-VM access preparation.
void MarkAccess(const std::string &vmxSpec, bool prepare);

void AdjustOpenHandles(int delta);

}  // namespace vddksim
