// Backup, restore and checksum of a disk through the library's caches, as
// building blocks for the commands and the demo.
#pragma once
#include <stdint.h>

#include <string>
#include <vector>

#include "job.h"
#include "observe.h"

namespace dbtool {

struct TransferResult {
    uint64_t bytes = 0;
    size_t extents = 0;
    double seconds = 0;
    std::wstring sha256;  // of the streamed (backup, checksum) or written (restore) bytes
    DepthReading depth;
    bool createdTarget = false;
    bool verified = false;
};

struct BackupRequest {
    std::wstring disk;
    std::wstring image;
    std::wstring changeList;  // empty: the whole disk
    std::vector<std::wstring> ancestors;  // folders of the disk's parents, nearest last
    bool overwrite = false;
    bool showProgress = true;
    // Not empty: the state folder of a resumable backup (see resume.h). Only
    // what it does not record as already in the image is streamed, and the
    // manifest is made from the finished image.
    std::wstring resumeFolder;
    uint64_t stopAfterBytes = 0;  // with resumeFolder: stop hard after this much data (a test switch)
};
// Writes the image (the streamed data at its disk offsets, sparse elsewhere),
// the metadata export, the extent list given to the library and, last, the
// manifest; a manifest therefore exists only for a complete backup.
TransferResult Backup(Job &job, const CacheTuning &tuning, const BackupRequest &request);

struct RestoreRequest {
    std::wstring image;
    std::wstring target;
    std::wstring changeList;  // empty: every extent of the manifest
    std::vector<std::wstring> ancestors;  // folders of the target's parents, nearest last
    bool verify = true;       // read the written ranges back through the read cache
    bool metadata = true;     // write the metadata export back to the target
    bool mayCreate = true;    // false on a server, where disks are not created
    bool showProgress = true;
    // Not empty: the state folder of a resumable restore (see resume.h); the
    // image is checked whole first, then only what is left is written.
    std::wstring resumeFolder;
    uint64_t stopAfterBytes = 0;  // with resumeFolder: stop hard after this much data (a test switch)
};
// Creates the target (a sparse disk of the manifest's capacity) when it does
// not exist, streams the selected ranges into it through the write cache and
// checks every extent of the image against the manifest on the way: a
// mismatch throws MismatchError. With verify, the target is read back.
TransferResult Restore(Job &job, const CacheTuning &tuning, const RestoreRequest &request);

// SHA-256 of the whole disk, read through the read cache.
TransferResult Checksum(Job &job, const CacheTuning &tuning, const std::wstring &disk, bool showProgress);

}  // namespace dbtool
