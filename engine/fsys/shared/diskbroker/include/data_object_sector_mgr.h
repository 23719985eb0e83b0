// Sector bookkeeping for resumable jobs. A job streams a disk's extents into a
// data set (a backup target) of a data object and, once bytes are durably in
// the data set, commits their sector runs; after a crash the next attempt asks
// which sectors are still to be written and streams only those.
//
// Files: <Data Path>\SectorManager\<object>\<set>.dat, one committed run a line
// ("start count", decimal sectors); master.dat beside them holds the merged
// runs of the sets chosen with SECTOR_MANAGER_LOAD_MASTER, and counts as
// committed for every set of the object. Object and set names may be any
// non-empty text: they are escaped into file names so that two different
// names, also names that differ only in case, never share a file.
//
// Every form returns 0 on success and 1 on any failure; each failure logs one
// line through SK_Zprintf_2 saying what and why, and leaves the outputs
// untouched. Nothing throws. Calls on one data object are serialised by that
// object's lock; calls on different objects never wait for each other.
#pragma once
#include <vector>

#include <diskbroker_export.h>
#include <skclass_mini/strings.h>

enum SECTOR_MANAGER_OP_TYPE : int {
    SECTOR_MANAGER_START_QUERY = 1,     // sectorInformation: the data set
    SECTOR_MANAGER_QUERY_SECTORS = 2,   // sectorInformation: a DiskChangeInfo file
    SECTOR_MANAGER_COMMIT_SECTORS = 3,  // sectorInformation: the data set; list: runs
    SECTOR_MANAGER_END_QUERY = 4,       // sectorInformation: the data set
    SECTOR_MANAGER_DESTROY_ALL = 5,
    SECTOR_MANAGER_DUMP = 6,
    SECTOR_MANAGER_LOAD_MASTER = 7,     // list: the data sets
};

// The full form; what each argument means depends on op:
//
// 1 start query operations: loads the commit list of the data set named by
//   sectorInformation, with master.dat, and holds it for queries. A second
//   start of a held set does nothing. A set with no file starts empty.
// 2 query sectors to write: sectorInformation is the path of a DiskChangeInfo
//   file (areas of <extent offset= length=> in bytes, cut to whole sectors as
//   the read cache cuts them). The answer, its extents minus the committed
//   runs, is written as a DiskChangeInfo file of one area with sorted,
//   sector-aligned byte extents, which the read cache takes as its extent list
//   unchanged. out1: the answer's path; when empty on entry, a new file
//   query-<n>.xml in the object's folder, whose path is returned. out2: one
//   line "extents E, sectors asked A, already committed C, left L". list: the
//   held sets whose runs count (their union); empty: the one held set, and it
//   is a failure when none or several are held.
// 3 commit written sectors: sectorInformation names the data set; each list
//   text is one run "start count" (decimal sectors, count >= 1, not past
//   sector 2^64 - 1). All runs are checked before any is written; they are on
//   disk (flushed) when 0 is returned. Runs may overlap, touch or come in any
//   order. A held set sees them at once.
// 4 end query operations: rewrites the set's file as its merged runs (a new
//   file flushed, then moved over the old with write-through, so a crash
//   leaves the old or the new file, whole) and stops holding the set.
// 5 destroy all data: removes the object's folder and everything held for it.
// 6 dump: logs every run of every file of the object, and each file's totals.
// 7 load the master commit list: merges the runs of the sets named in list
//   (at least one, each with a file) into master.dat, rewritten as in 4.
//
// Any other op: logs "DataSetSectorManager: Unknown operation type provided"
// and returns 1.
DISKBROKER_API int DataSetSectorManager(const wcstring &dataObject, const wcstring &sectorInformation,
                                        wcstring &out1, wcstring &out2, const std::vector<wcstring> &list,
                                        SECTOR_MANAGER_OP_TYPE op);

// Destroy (5) and dump (6): empty sectorInformation, outputs and list.
DISKBROKER_API int DataSetSectorManager(const wcstring &dataObject, SECTOR_MANAGER_OP_TYPE op);

// Start (1) and end (4) of a data set's queries: sectorInformation names the
// set; no outputs, empty list.
DISKBROKER_API int DataSetSectorManager(const wcstring &dataObject, const wcstring &sectorInformation,
                                        SECTOR_MANAGER_OP_TYPE op);

// Commit (3): sectorInformation names the set, list holds the runs; no outputs.
DISKBROKER_API int DataSetSectorManager(const wcstring &dataObject, const wcstring &sectorInformation,
                                        const std::vector<wcstring> &list, SECTOR_MANAGER_OP_TYPE op);

// Query (2) against the object's one held set: sectorInformation is the
// DiskChangeInfo file, out1/out2 as in the full form, empty list.
DISKBROKER_API int DataSetSectorManager(const wcstring &dataObject, const wcstring &sectorInformation,
                                        wcstring &out1, wcstring &out2, SECTOR_MANAGER_OP_TYPE op);

// Load of the master commit list (7): list names the sets; empty
// sectorInformation, no outputs.
DISKBROKER_API int DataSetSectorManager(const wcstring &dataObject, const std::vector<wcstring> &list,
                                        SECTOR_MANAGER_OP_TYPE op);

// Where the SectorManager folder lives for this process: path replaces the
// registry's "Data Path" (no trailing backslash needed); null or empty returns
// to the registry, read at each call. For tools that keep a job's state elsewhere,
// and for tests. Thread-safe; affects calls that start after it returns.
DISKBROKER_API void DataSetSectorManagerSetDataPath(const wchar_t *path);
