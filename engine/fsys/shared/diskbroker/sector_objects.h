// What the sector bookkeeping holds per data object, and the paths of its files.
#pragma once
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <skclass_mini/handles.h>
#include <skclass_mini/strings.h>

#include "sector_runs.h"

namespace sectormgr {

// One data object's held sets. Every operation on the object runs under lock;
// no other lock is taken while it is held except the table's brief lookup.
struct ObjectState {
    skclass::CriticalSection lock;
    std::map<std::wstring, SectorRunSet> m_heldSets;  // started sets by name; guarded by lock
    SectorRunSet master;                        // master.dat once loaded; guarded by lock
    bool masterLoaded = false;                  // guarded by lock
};

// The state of the object whose folder that is, created on first use and kept
// for the process. Keyed by folder, so that a data directory changed between
// calls (a tool's state folder, a test's) never mixes two objects.
std::shared_ptr<ObjectState> FindObject(const std::wstring &folder);

// The folders and files of one data object, for one call.
struct ObjectFiles {
    std::wstring object;  // the name as given
    std::wstring root;    // <data directory>\SectorManager
    std::wstring folder;  // root\<escaped object>

    // folder\<escaped set>.dat; false (logged) when set cannot be a file name.
    [[nodiscard]] bool SetFile(const std::wstring &set, std::wstring &path) const;
    std::wstring MasterFile() const { return folder + L"\\master.dat"; }
    // Creates root and folder as needed; false (logged) when it cannot.
    [[nodiscard]] bool MakeFolder() const;
};

// False (logged) when the object name cannot be a file name.
[[nodiscard]] bool ResolveObject(const std::wstring &dataObject, int op, ObjectFiles &files);

// Each text of list parsed as a run; false (logged, naming the item) at the
// first that is not one.
[[nodiscard]] bool ParseRunList(const ObjectFiles &files, const std::wstring &set, const std::vector<wcstring> &list,
                  SectorRuns &runs);

// Operations 5, 6 and 7, called under the object's lock.
int DestroyAll(const ObjectFiles &files, ObjectState &state);
int Dump(const ObjectFiles &files);
int LoadMaster(const ObjectFiles &files, ObjectState &state, const std::vector<wcstring> &sets);

}  // namespace sectormgr
