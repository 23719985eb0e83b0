// The crash test's child: commits the plan's runs to one set for ever, with a
// compaction now and then, until the test kills it. Arguments: the data
// directory, the seed, the parent's process id. Exit codes: 2 bad arguments,
// 3 no shared memory, 4 a call failed (its log, crash-child.log in the data
// directory, says why).
#include <stdlib.h>

#include <data_object_sector_mgr.h>
#include <skclass_mini/handles.h>
#include <skclass_mini/win.h>

#include <shellapi.h>  // after <windows.h>, which it needs
#include <skstdutl/sklog.h>

#include "sector_crash_plan.h"

using namespace sectorcrash;

namespace {

bool CommitNext(uint64_t seed, uint64_t index) {
    std::vector<wcstring> texts;
    for (const auto &run : CommitRuns(seed, index))
        texts.push_back(std::to_wstring(run.first) + L" " + std::to_wstring(run.second));
    return DataSetSectorManager(L"crash", L"set", texts, SECTOR_MANAGER_COMMIT_SECTORS) == 0;
}

bool Compact() {
    return DataSetSectorManager(L"crash", L"set", SECTOR_MANAGER_END_QUERY) == 0 &&
           DataSetSectorManager(L"crash", L"set", SECTOR_MANAGER_START_QUERY) == 0;
}

int Run(const wchar_t *dataPath, uint64_t seed, DWORD parent) {
    // Beside the bookkeeping, so that a child that gave up can say why.
    SK_SetLogFilePath((std::wstring(dataPath) + L"\\crash-child.log").c_str());
    DataSetSectorManagerSetDataPath(dataPath);
    skclass::UniqueHandle mapping(OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, SharedName(parent).c_str()));
    skclass::UniqueHandle ack(OpenEventW(EVENT_MODIFY_STATE, FALSE, AckEventName(parent).c_str()));
    Shared *shared = mapping ? static_cast<Shared *>(MapViewOfFile(mapping.get(), FILE_MAP_ALL_ACCESS, 0, 0, sizeof(Shared)))
                             : nullptr;
    if (!shared || !ack) return 3;
    auto unmap = skclass::MakeScopeExit([shared] { UnmapViewOfFile(shared); });
    if (DataSetSectorManager(L"crash", L"set", SECTOR_MANAGER_START_QUERY) != 0) return 4;
    // A bound, so a child whose test died does not run for ever.
    for (uint64_t index = Acknowledged(shared), made = 0; made < 1000000; ++index, ++made) {
        if (!CommitNext(seed, index)) return 4;
        InterlockedExchange64(&shared->acknowledged, static_cast<LONG64>(index + 1));
        SetEvent(ack.get());
        if ((index + 1) % kCompactEvery == 0 && !Compact()) return 4;
    }
    return 0;
}

}  // namespace

int main() {
    int argc = 0;
    wchar_t **argv = CommandLineToArgvW(GetCommandLineW(), &argc);
    if (!argv || argc != 4) return 2;
    const int code = Run(argv[1], _wcstoui64(argv[2], nullptr, 10), static_cast<DWORD>(wcstoul(argv[3], nullptr, 10)));
    LocalFree(argv);
    return code;
}
