// The sector bookkeeping's objects and folders: the table of data objects,
// their file paths, and the operations on a whole object (destroy, dump,
// master list).
#include <string>

#include <skstdutl/sklog.h>

#include "sector_names.h"
#include "sector_objects.h"
#include "sector_store.h"
#include "sector_text.h"

namespace sectormgr {

namespace {

// Longest list item quoted in a log line.
constexpr int kQuotedChars = 64;

// Folders are names in a case-blind file system: "C:\Data" and "c:\data" are
// one object, with one lock.
struct FolderLess {
    bool operator()(const std::wstring &a, const std::wstring &b) const { return comparei(a, b) < 0; }
};

struct ObjectTable {
    skclass::CriticalSection lock;  // held only to find or add an entry
    std::map<std::wstring, std::shared_ptr<ObjectState>, FolderLess> m_objects;  // by folder; guarded by lock
};

ObjectTable &Table() {
    static ObjectTable table;
    return table;
}

bool MakeDirectory(const std::wstring &path) {
    if (CreateDirectoryW(path.c_str(), nullptr) || GetLastError() == ERROR_ALREADY_EXISTS) return true;
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"DataSetSectorManager: cannot create the folder '%s', error %u", path.c_str(),
                 static_cast<unsigned>(GetLastError()));
    return false;
}

// Removes path and everything under it; false (logged) at the first thing
// that stays.
bool RemoveTree(const std::wstring &path) {
    WIN32_FIND_DATAW found;
    skclass::UniqueFind find(FindFirstFileW((path + L"\\*").c_str(), &found));
    if (find) {
        do {
            const std::wstring name = found.cFileName;
            if (name == L"." || name == L"..") continue;
            const std::wstring child = path + L"\\" + name;
            const bool folder = (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
            if (folder ? !RemoveTree(child) : !DeleteFileW(child.c_str())) {
                if (!folder)
                    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"DataSetSectorManager: cannot delete '%s', error %u",
                                 child.c_str(), static_cast<unsigned>(GetLastError()));
                return false;
            }
        } while (FindNextFileW(find.get(), &found));
    }
    find.reset();
    if (RemoveDirectoryW(path.c_str())) return true;
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"DataSetSectorManager: cannot remove the folder '%s', error %u", path.c_str(),
                 static_cast<unsigned>(GetLastError()));
    return false;
}

bool IsFolder(const std::wstring &path) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

// The commit-list files in the folder: set names (master as "master.dat"
// apart) with their paths, in name order.
std::map<std::wstring, std::wstring> ListFiles(const ObjectFiles &files) {
    std::map<std::wstring, std::wstring> sets;
    WIN32_FIND_DATAW found;
    skclass::UniqueFind find(FindFirstFileW((files.folder + L"\\*.dat").c_str(), &found));
    if (!find) return sets;
    do {
        std::wstring file = found.cFileName, set;
        if (file.size() < 5 || file.compare(file.size() - 4, 4, L".dat") != 0) continue;
        const std::wstring escaped = file.substr(0, file.size() - 4);
        if (escaped == L"master") set = L"(master)";
        else if (!UnescapeName(escaped, set)) set = L"(not ours) " + file;
        sets.emplace(set, files.folder + L"\\" + file);
    } while (FindNextFileW(find.get(), &found));
    return sets;
}

void DumpFile(const ObjectFiles &files, const std::wstring &set, const std::wstring &path) {
    SectorRunSet loaded;
    if (!LoadRunFile(path, loaded)) return;
    const SectorRuns &runs = loaded.Runs();
    for (const SectorRun &run : runs)
        ForEachCountedRun(run, [&](uint64_t start, uint64_t count) {
            SK_Zprintf_2(SK_SOURCE_FILE, 0, L"DataSetSectorManager: dump '%s' set '%s': run %I64u %I64u",
                         files.object.c_str(), set.c_str(), start, count);
        });
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"DataSetSectorManager: dump '%s' set '%s': %I64u runs, %I64u sectors",
                 files.object.c_str(), set.c_str(), static_cast<uint64_t>(runs.size()), CountSectors(runs));
}

}  // namespace

std::shared_ptr<ObjectState> FindObject(const std::wstring &folder) {
    ObjectTable &table = Table();
    skclass::CsLock hold(table.lock);
    std::shared_ptr<ObjectState> &state = table.m_objects[folder];
    if (!state) state = std::make_shared<ObjectState>();
    return state;
}

bool ResolveObject(const std::wstring &dataObject, int op, ObjectFiles &files) {
    std::wstring escaped;
    if (!EscapeName(dataObject, escaped)) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0,
                     L"DataSetSectorManager: operation %d: data object name '%.64s' is empty or too long for a file name",
                     op, dataObject.c_str());
        return false;
    }
    files.object = dataObject;
    files.root = DataDirectory() + L"\\SectorManager";
    files.folder = files.root + L"\\" + escaped;
    return true;
}

bool ObjectFiles::SetFile(const std::wstring &set, std::wstring &path) const {
    std::wstring escaped;
    if (!EscapeName(set, escaped)) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0,
                     L"DataSetSectorManager: data set name '%.64s' of '%s' is empty or too long for a file name",
                     set.c_str(), object.c_str());
        return false;
    }
    path = folder + L"\\" + escaped + L".dat";
    return true;
}

bool ObjectFiles::MakeFolder() const { return MakeDirectory(root) && MakeDirectory(folder); }

bool ParseRunList(const ObjectFiles &files, const std::wstring &set, const std::vector<wcstring> &list,
                  SectorRuns &runs) {
    runs.reserve(list.size());
    for (size_t i = 0; i < list.size(); ++i) {
        SectorRun run;
        const wcstring &text = list[i];
        if (!ParseRunText(text.data(), text.data() + text.size(), run)) {
            SK_Zprintf_2(SK_SOURCE_FILE, 0,
                         L"DataSetSectorManager: commit to '%s' set '%s': item %I64u '%.*s' is not a run \"start count\" in decimal sectors (count 1 or more, not past sector 2^64-1); nothing committed",
                         files.object.c_str(), set.c_str(), static_cast<uint64_t>(i + 1), kQuotedChars, text.c_str());
            return false;
        }
        runs.push_back(run);
    }
    return true;
}

int DestroyAll(const ObjectFiles &files, ObjectState &state) {
    state.m_heldSets.clear();
    state.master.Clear();
    state.masterLoaded = false;
    if (IsFolder(files.folder) && !RemoveTree(files.folder)) return 1;
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"DataSetSectorManager: destroyed all data of '%s'", files.object.c_str());
    return 0;
}

int Dump(const ObjectFiles &files) {
    const std::map<std::wstring, std::wstring> sets = ListFiles(files);
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"DataSetSectorManager: dump '%s': %u commit lists in '%s'", files.object.c_str(),
                 static_cast<unsigned>(sets.size()), files.folder.c_str());
    for (const auto &set : sets) DumpFile(files, set.first, set.second);
    return 0;
}

int LoadMaster(const ObjectFiles &files, ObjectState &state, const std::vector<wcstring> &sets) {
    if (sets.empty()) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"DataSetSectorManager: master list of '%s': no data set named",
                     files.object.c_str());
        return 1;
    }
    SectorRunSet master;
    if (!LoadRunFile(files.MasterFile(), master)) return 1;
    for (const wcstring &set : sets) {
        std::wstring path;
        if (!files.SetFile(set, path)) return 1;
        if (GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES) {
            SK_Zprintf_2(SK_SOURCE_FILE, 0, L"DataSetSectorManager: master list of '%s': data set '%s' has no commit list",
                         files.object.c_str(), set.c_str());
            return 1;
        }
        if (!LoadRunFile(path, master)) return 1;
    }
    if (!files.MakeFolder() || !RewriteRuns(files.MasterFile(), master.Runs())) return 1;
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"DataSetSectorManager: master list of '%s': %I64u runs, %I64u sectors",
                 files.object.c_str(), static_cast<uint64_t>(master.Runs().size()), CountSectors(master.Runs()));
    if (state.masterLoaded) state.master.Add(master.Runs());
    return 0;
}

}  // namespace sectormgr
