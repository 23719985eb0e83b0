// The mark a restore leaves in its target's metadata: "incomplete" from before
// the first byte is written until the data has been written, checked against
// the manifest and read back, then "complete". A killed or failed restore
// therefore leaves a disk that says so (info shows it), wherever the disk is
// copied, since the mark travels in the disk's own descriptor.
#pragma once
#include <string>

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

}  // namespace dbtool
