// Backups and restores that resume where a killed attempt stopped: the
// library's sector bookkeeping (DataSetSectorManager) kept in a state folder
// says which ranges are already durably in the image or target, and only the
// rest is streamed.
#pragma once
#include <stdint.h>

#include <string>

#include "extents.h"
#include "transfer.h"

namespace dbtool {

// The exit code of a run stopped on purpose by --stop-after.
constexpr int kExitStopped = 9;

// The job's bookkeeping in its state folder. The folder also records which
// job it belongs to, so that a folder is never taken for another job's.
class SectorBook {
public:
    // Points the library at folder (created if missing) for this process.
    // object names the job's side ("backup", "restore"); description the job
    // (disk, image, list); a folder that records another job is a Failure.
    SectorBook(const std::wstring &folder, const std::wstring &object, const std::wstring &description);
    ~SectorBook();
    SectorBook(const SectorBook &) = delete;
    SectorBook &operator=(const SectorBook &) = delete;

    // True when no earlier attempt of this job is recorded.
    bool Fresh() const { return fresh_; }
    // The ranges of wanted (normalized) not yet committed, in order; prints the
    // library's summary line.
    ExtentList Left(const ExtentList &wanted, uint64_t capacity);
    // Records ranges as durably written.
    void Commit(const ExtentList &ranges);
    // Compacts the commit list.
    void End();
    // Drops every commit (what they describe is gone) and starts afresh.
    void Forget();
    // A working file of this job, kept in the state folder so that a run killed
    // half-way leaves nothing behind anywhere else.
    std::wstring WorkFile(const std::wstring &name) const { return folder_ + L"\\" + name; }

private:
    void Call(int result, const std::wstring &what) const;

    std::wstring folder_, object_;
    bool fresh_ = false;
    bool started_ = false;
};

// --stop-after: ends the process hard (no clean-up at all, as a crash would)
// once limit bytes have passed; 0 never stops.
class StopSwitch {
public:
    explicit StopSwitch(uint64_t limit) : limit_(limit) {}
    void Advance(uint64_t bytes);

private:
    uint64_t limit_;
    uint64_t done_ = 0;
};

// Backup with request.resumeFolder set: see BackupRequest.
TransferResult ResumableBackup(Job &job, const CacheTuning &tuning, const BackupRequest &request);
// Restore with request.resumeFolder set: see RestoreRequest.
TransferResult ResumableRestore(Job &job, const CacheTuning &tuning, const RestoreRequest &request);

}  // namespace dbtool
