// DataSetSectorManager: per data object and data set, which sector runs are
// durably written, and which sectors of a change list are still to be written.
#include <data_object_sector_mgr.h>

#include <exception>
#include <string>
#include <vector>

#include <skstdutl/sklog.h>

#include "sector_changelist.h"
#include "sector_names.h"
#include "sector_objects.h"
#include "sector_store.h"

using namespace sectormgr;

namespace {

// Tries query-0.xml, query-1.xml, ... for a free answer name; past this many
// the folder is full of answers nobody removed, and a failure says so.
constexpr unsigned kAnswerNames = 10000;

// Nothing held yet: loads the set's file, and master.dat once per object.
int StartQuery(const ObjectFiles &files, ObjectState &state, const std::wstring &set) {
    std::wstring path;
    if (!files.SetFile(set, path)) return 1;
    if (state.m_heldSets.count(set)) return 0;
    SectorRunSet runs;
    if (!LoadRunFile(path, runs)) return 1;
    if (!state.masterLoaded) {
        if (!LoadRunFile(files.MasterFile(), state.master)) return 1;
        state.masterLoaded = true;
    }
    const SectorRuns &merged = runs.Runs();
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"DataSetSectorManager: started '%s' set '%s': %I64u runs, %I64u sectors committed",
                 files.object.c_str(), set.c_str(), static_cast<uint64_t>(merged.size()), CountSectors(merged));
    state.m_heldSets.emplace(set, std::move(runs));
    return 0;
}

// The held sets the query counts: those named, or the one held.
bool QuerySets(const ObjectFiles &files, ObjectState &state, const std::vector<wcstring> &names,
               std::vector<SectorRunSet *> &sets) {
    if (names.empty()) {
        if (state.m_heldSets.size() != 1) {
            SK_Zprintf_2(SK_SOURCE_FILE, 0,
                         L"DataSetSectorManager: query on '%s': %u data sets started; start one, or name those to count",
                         files.object.c_str(), static_cast<unsigned>(state.m_heldSets.size()));
            return false;
        }
        sets.push_back(&state.m_heldSets.begin()->second);
        return true;
    }
    for (const wcstring &name : names) {
        auto found = state.m_heldSets.find(name);
        if (found == state.m_heldSets.end()) {
            SK_Zprintf_2(SK_SOURCE_FILE, 0, L"DataSetSectorManager: query on '%s': data set '%s' is not started",
                         files.object.c_str(), name.c_str());
            return false;
        }
        sets.push_back(&found->second);
    }
    return true;
}

bool NewAnswerPath(const ObjectFiles &files, std::wstring &path) {
    if (!files.MakeFolder()) return false;
    for (unsigned n = 0; n < kAnswerNames; ++n) {
        const std::wstring candidate = files.folder + L"\\query-" + std::to_wstring(n) + L".xml";
        skclass::UniqueFile claim(CreateFileW(candidate.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                              FILE_ATTRIBUTE_NORMAL, nullptr));
        if (claim) {
            path = candidate;
            return true;
        }
        if (GetLastError() != ERROR_FILE_EXISTS && GetLastError() != ERROR_ALREADY_EXISTS) break;
    }
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"DataSetSectorManager: no free answer file name in '%s', error %u",
                 files.folder.c_str(), static_cast<unsigned>(GetLastError()));
    return false;
}

// An answer written over a commit list would lose what it records.
bool IsOwnFile(const ObjectFiles &files, const std::wstring &path) {
    wchar_t full[MAX_PATH], root[MAX_PATH];
    if (!GetFullPathNameW(path.c_str(), MAX_PATH, full, nullptr) ||
        !GetFullPathNameW((files.root + L"\\").c_str(), MAX_PATH, root, nullptr))
        return false;
    const std::wstring answer = full, tree = root;
    const std::wstring extension = answer.size() > 4 ? answer.substr(answer.size() - 4) : std::wstring();
    return comparei(answer.substr(0, tree.size()), tree) == 0 &&
           (comparei(extension, L".dat") == 0 || comparei(extension, L".tmp") == 0);
}

int QuerySectors(const ObjectFiles &files, ObjectState &state, const std::wstring &changeList, wcstring &answer,
                 wcstring &summary, const std::vector<wcstring> &names) {
    std::vector<SectorRunSet *> sets;
    if (!QuerySets(files, state, names, sets)) return 1;
    std::wstring path = answer;
    if (!path.empty() && IsOwnFile(files, path)) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"DataSetSectorManager: query on '%s': the answer path '%s' is a commit list",
                     files.object.c_str(), path.c_str());
        return 1;
    }
    SectorRunSet asked;
    uint64_t extents = 0;
    if (!ReadChangeList(changeList, asked, extents)) return 1;
    const uint64_t askedSectors = CountSectors(asked.Runs());
    std::vector<const SectorRuns *> committed = {&state.master.Runs()};
    for (SectorRunSet *set : sets) committed.push_back(&set->Runs());
    const SectorRuns left = SubtractAll(asked.Take(), committed);
    if (path.empty() && !NewAnswerPath(files, path)) return 1;
    if (!WriteChangeList(path, left)) return 1;
    const uint64_t leftSectors = CountSectors(left);
    const std::wstring line = L"extents " + std::to_wstring(left.size()) + L", sectors asked " +
                              std::to_wstring(askedSectors) + L", already committed " +
                              std::to_wstring(askedSectors - leftSectors) + L", left " + std::to_wstring(leftSectors);
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"DataSetSectorManager: query on '%s' from '%s' (%I64u extents): %s into '%s'",
                 files.object.c_str(), changeList.c_str(), extents, line.c_str(), path.c_str());
    answer = path;
    summary = line;
    return 0;
}

int CommitSectors(const ObjectFiles &files, ObjectState &state, const std::wstring &set,
                  const std::vector<wcstring> &list) {
    std::wstring path;
    SectorRuns runs;
    if (!files.SetFile(set, path) || !ParseRunList(files, set, list, runs)) return 1;
    if (runs.empty()) return 0;
    if (!files.MakeFolder() || !AppendRuns(path, runs)) return 1;
    auto held = state.m_heldSets.find(set);
    if (held != state.m_heldSets.end()) held->second.Add(runs);
    return 0;
}

int EndQuery(const ObjectFiles &files, ObjectState &state, const std::wstring &set) {
    std::wstring path;
    if (!files.SetFile(set, path)) return 1;
    auto held = state.m_heldSets.find(set);
    SectorRunSet loaded;
    if (held == state.m_heldSets.end() && !LoadRunFile(path, loaded)) return 1;
    SectorRunSet &runs = held != state.m_heldSets.end() ? held->second : loaded;
    const bool nothing = runs.Empty() && GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES;
    if (!nothing && (!files.MakeFolder() || !RewriteRuns(path, runs.Runs()))) return 1;
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"DataSetSectorManager: ended '%s' set '%s': %I64u runs, %I64u sectors committed",
                 files.object.c_str(), set.c_str(), static_cast<uint64_t>(runs.Runs().size()),
                 CountSectors(runs.Runs()));
    if (held != state.m_heldSets.end()) state.m_heldSets.erase(held);
    if (state.m_heldSets.empty()) {  // nobody queries: the master is read afresh next time
        state.master.Clear();
        state.masterLoaded = false;
    }
    return 0;
}

bool NeedsSet(const ObjectFiles &files, int op, const std::wstring &set) {
    if (!set.empty()) return true;
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"DataSetSectorManager: operation %d on '%s' needs a data set name", op,
                 files.object.c_str());
    return false;
}

int Dispatch(const wcstring &dataObject, const wcstring &sectorInformation, wcstring &out1, wcstring &out2,
             const std::vector<wcstring> &list, int op) {
    if (op < SECTOR_MANAGER_START_QUERY || op > SECTOR_MANAGER_LOAD_MASTER) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"DataSetSectorManager: Unknown operation type provided");
        return 1;
    }
    ObjectFiles files;
    if (!ResolveObject(dataObject, op, files)) return 1;
    const bool named = op == SECTOR_MANAGER_START_QUERY || op == SECTOR_MANAGER_COMMIT_SECTORS ||
                       op == SECTOR_MANAGER_END_QUERY;
    if (named && !NeedsSet(files, op, sectorInformation)) return 1;
    std::shared_ptr<ObjectState> state = FindObject(files.folder);
    skclass::CsLock hold(state->lock);
    switch (op) {
    case SECTOR_MANAGER_START_QUERY: return StartQuery(files, *state, sectorInformation);
    case SECTOR_MANAGER_QUERY_SECTORS: return QuerySectors(files, *state, sectorInformation, out1, out2, list);
    case SECTOR_MANAGER_COMMIT_SECTORS: return CommitSectors(files, *state, sectorInformation, list);
    case SECTOR_MANAGER_END_QUERY: return EndQuery(files, *state, sectorInformation);
    case SECTOR_MANAGER_DESTROY_ALL: return DestroyAll(files, *state);
    case SECTOR_MANAGER_DUMP: return Dump(files);
    default: return LoadMaster(files, *state, list);
    }
}

int Guarded(const wcstring &dataObject, const wcstring &sectorInformation, wcstring &out1, wcstring &out2,
            const std::vector<wcstring> &list, SECTOR_MANAGER_OP_TYPE op) noexcept {
    try {
        return Dispatch(dataObject, sectorInformation, out1, out2, list, static_cast<int>(op));
    } catch (const std::exception &e) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"Exception in DataSetSectorManager %hs", e.what());
    } catch (...) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"Exception (unknown) in DataSetSectorManager");
    }
    return 1;
}

}  // namespace

int DataSetSectorManager(const wcstring &dataObject, const wcstring &sectorInformation, wcstring &out1,
                         wcstring &out2, const std::vector<wcstring> &list, SECTOR_MANAGER_OP_TYPE op) {
    return Guarded(dataObject, sectorInformation, out1, out2, list, op);
}

int DataSetSectorManager(const wcstring &dataObject, SECTOR_MANAGER_OP_TYPE op) {
    wcstring out1, out2;
    return Guarded(dataObject, wcstring(), out1, out2, std::vector<wcstring>(), op);
}

int DataSetSectorManager(const wcstring &dataObject, const wcstring &sectorInformation, SECTOR_MANAGER_OP_TYPE op) {
    wcstring out1, out2;
    return Guarded(dataObject, sectorInformation, out1, out2, std::vector<wcstring>(), op);
}

int DataSetSectorManager(const wcstring &dataObject, const wcstring &sectorInformation,
                         const std::vector<wcstring> &list, SECTOR_MANAGER_OP_TYPE op) {
    wcstring out1, out2;
    return Guarded(dataObject, sectorInformation, out1, out2, list, op);
}

int DataSetSectorManager(const wcstring &dataObject, const wcstring &sectorInformation, wcstring &out1,
                         wcstring &out2, SECTOR_MANAGER_OP_TYPE op) {
    return Guarded(dataObject, sectorInformation, out1, out2, std::vector<wcstring>(), op);
}

int DataSetSectorManager(const wcstring &dataObject, const std::vector<wcstring> &list, SECTOR_MANAGER_OP_TYPE op) {
    wcstring out1, out2;
    return Guarded(dataObject, wcstring(), out1, out2, list, op);
}

void DataSetSectorManagerSetDataPath(const wchar_t *path) { SetDataDirectoryOverride(path); }
