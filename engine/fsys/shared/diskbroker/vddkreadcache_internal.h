// The read cache's pieces shared by its two sources: the buffer ring and read
// thread (vddkreadcache.cpp), the extent list and metadata export
// (vddkreadcache_extents.cpp). Every line either logs names vddkreadcache.cpp.
#pragma once

#include <stdint.h>

#include <diskbroker.h>
#include <vddkcache.h>

namespace vddkreadcache {

// The source file every read-cache log line names.
extern const wchar_t *const kSourceFile;

constexpr long kXmlError = static_cast<long>(0xE0009588u);          // extent list not opened or loaded
constexpr long kReadError = static_cast<long>(0xE0009578u);         // a disk read failed
constexpr long kMetadataKeysError = static_cast<long>(0xE000957Au); // VMware could not list the keys
constexpr long kMetadataFileError = static_cast<long>(0xE0009596u); // the export file not created
constexpr long kEndOfData = static_cast<long>(0x2000FE0Cu);
constexpr long kEndOfDisk = static_cast<long>(0x2000FE07u);

constexpr uint64_t kSectorSize = 512;

// What one pass reads through, taken when the pass starts, so that a close
// that resets the context under a pass that outlived its grace cannot pull the
// broker or the handle away mid-read.
struct PassTarget {
    skclass::shared_ptr<diskBroker> broker;
    _vixReadWriteHandle *diskHandle = nullptr;
};

// Puts the first extent of the first area into currentSector / extentSectors.
// Without one nothing is set and the reader is dropped, so the next step ends
// the pass.
void SelectFirstDiskExtent(diskReadContextStruct *context);
// Moves to the next extent, in this area or else first in the next area: 0,
// or kEndOfDisk when there is none (endOfDisk set, the reader deleted).
long GetNextDiskExtent(diskReadContextStruct *context);
// Exports the disk's metadata to metadataFilePath; sets metadataDone (and its
// event) on every path. 0, kResourceError, kMetadataFileError or
// kMetadataKeysError (which also fails the pass through errorCode).
long ReadVMDiskMetaData(diskReadContextStruct *context, const PassTarget &target);

// Whether the read thread is not inside a pass (or no longer exists); waits up
// to milliseconds for that.
bool WaitUntilOutOfPass(diskReadContextStruct *context, DWORD milliseconds);

}  // namespace vddkreadcache
