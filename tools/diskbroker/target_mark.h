// The mark a restore leaves in its target's metadata: "incomplete" from before
// the first byte is written until the data has been written, checked against
// the manifest and read back, then "complete". A killed or failed restore
// therefore leaves a disk that says so (info shows it), wherever the disk is
// copied, since the mark travels in the disk's own descriptor.
#pragma once
#include <string>

#include "job.h"
#include "session.h"

namespace dbtool {

// The metadata key; the restore never copies a source's value of it.
extern const char kRestoreMarkKey[];

struct TargetMark {
    enum class State { None, Incomplete, Complete };
    State state = State::None;
    // The restore created the target: what it did not write reads as zeros.
    bool created = false;
    std::wstring streamSha256;  // of the image being restored

    static TargetMark Read(Disk &disk);
    void Write(Disk &disk) const;
    // "INCOMPLETE: ..." / "complete" for info; empty when unmarked.
    std::wstring Describe() const;
};

// Marks the open target incomplete before the first byte of data, so a
// restore that stops anywhere says so, and returns the mark. created: this
// run made the disk; an earlier interrupted run of the same image that made
// it counts too (its unwritten ranges still read as zeros).
TargetMark MarkIncomplete(Disk &disk, const std::wstring &streamSha256, bool created);
// Writes the keys of a metadata export (the read cache's file) back to disk,
// all but the restore mark: a backup of a restored disk carries one, and it
// must not stand in for this restore's own. A missing export is a Failure.
void RestoreMetadata(Disk &disk, const std::wstring &metadataPath);
// Reopens target and marks it complete: the last step of a restore that
// wrote, checked and read back everything.
void MarkComplete(Job &job, const std::wstring &target, TargetMark mark);

}  // namespace dbtool
