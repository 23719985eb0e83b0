// The state folder of a resumable job and its sector bookkeeping.
#include "resume.h"

#include <data_object_sector_mgr.h>
#include <skclass_mini/handles.h>

#include "console.h"
#include "errors.h"
#include "files.h"

namespace dbtool {
namespace {

const char kStateHeader[] = "diskbroker resume state 1\n";
// The data set of every job's object: one job per state folder.
const wchar_t kSet[] = L"data";

std::wstring JobFile(const std::wstring &folder) { return folder + L"\\job.txt"; }

}  // namespace

SectorBook::SectorBook(const std::wstring &folder, const std::wstring &object, const std::wstring &description)
    : folder_(folder), object_(object) {
    CreateFolders(folder);
    const std::string recorded = kStateHeader + cstring::ToUtf8(object + L"\n" + description + L"\n");
    const std::wstring jobFile = JobFile(folder);
    fresh_ = !PathExists(jobFile);
    if (fresh_) {
        WriteWholeFile(jobFile, recorded);
    } else if (ReadWholeFile(jobFile) != recorded) {
        throw Failure(L"the state folder '" + folder + L"' belongs to another job (see its job.txt); use a new folder");
    }
    DataSetSectorManagerSetDataPath(folder.c_str());
    auto undo = skclass::MakeScopeExit([] { DataSetSectorManagerSetDataPath(nullptr); });
    Call(DataSetSectorManager(object_, kSet, SECTOR_MANAGER_START_QUERY), L"load the commit list");
    undo.Dismiss();
    started_ = true;
}

SectorBook::~SectorBook() { DataSetSectorManagerSetDataPath(nullptr); }

void SectorBook::Call(int result, const std::wstring &what) const {
    if (result != 0)
        throw Failure(L"sector bookkeeping in '" + folder_ + L"': cannot " + what +
                      L" (the library's log says why: DataSetSectorManager lines)");
}

ExtentList SectorBook::Left(const ExtentList &wanted, uint64_t capacity) {
    const std::wstring wantedPath = folder_ + L"\\wanted.xml";
    SaveChangeList(wantedPath, wanted, capacity);
    wcstring answer = folder_ + L"\\left.xml", summary;
    Call(DataSetSectorManager(object_, wantedPath, answer, summary, SECTOR_MANAGER_QUERY_SECTORS),
         L"ask what is left");
    OutLine(L"resume: " + summary);
    return LoadChangeList(answer);
}

void SectorBook::Commit(const ExtentList &ranges) {
    std::vector<wcstring> runs;
    for (const Extent &range : ranges)
        runs.push_back(std::to_wstring(range.offset / kSectorSize) + L" " + std::to_wstring(range.length / kSectorSize));
    Call(DataSetSectorManager(object_, kSet, runs, SECTOR_MANAGER_COMMIT_SECTORS), L"commit written ranges");
}

void SectorBook::End() {
    if (!started_) return;
    Call(DataSetSectorManager(object_, kSet, SECTOR_MANAGER_END_QUERY), L"compact the commit list");
    started_ = false;
}

void SectorBook::Forget() {
    Call(DataSetSectorManager(object_, SECTOR_MANAGER_DESTROY_ALL), L"drop the commit list");
    started_ = false;
    Call(DataSetSectorManager(object_, kSet, SECTOR_MANAGER_START_QUERY), L"load the commit list");
    started_ = true;
    fresh_ = true;
}

void StopSwitch::Advance(uint64_t bytes) {
    done_ += bytes;
    if (limit_ == 0 || done_ < limit_) return;
    ErrLine(L"diskbroker: stopped hard after " + std::to_wstring(done_) + L" bytes (--stop-after)");
    // Hard on purpose: what a crash leaves is what the resume must cope with.
    TerminateProcess(GetCurrentProcess(), kExitStopped);
}

}  // namespace dbtool
