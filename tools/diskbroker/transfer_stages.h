// The parts of a transfer that run on stage threads (see stream_stages.h):
// the image writer, and the read cache's target that feeds the stages.
#pragma once
#include <stddef.h>
#include <stdint.h>

#include "caches.h"
#include "extents.h"
#include "stream_stages.h"

namespace dbtool {

class File;
class Progress;

// A stage's piece spans several of the read cache's buffers, so the stages
// wake, and the image is written, a few times less often than the cache
// hands out buffers; the pieces ahead of the slowest stage (the hashing)
// ride out the moments the reading thread is not scheduled.
constexpr size_t kBuffersPerPiece = 4;
constexpr size_t kPiecesInFlight = 6;

inline size_t PieceBytes(const CacheTuning &tuning) {
    return static_cast<size_t>(tuning.bufferKB) * 1024 * kBuffersPerPiece;
}

// Lays the stream out at the extents' offsets in the image, on a stage thread
// beside the hashing. It flushes what it wrote every kFlushEveryBytes and once
// more after the last byte, so that the flush the image needs before a
// manifest may name it no longer waits, after the reading and hashing are
// over, for every byte of the image to reach the disk.
class ExtentImageWriter {
public:
    // image (created at full size) and extents must outlive the writer.
    ExtentImageWriter(File &image, const ExtentList &extents);
    void Take(const uint8_t *data, size_t length);

private:
    static constexpr uint64_t kFlushEveryBytes = 32ull << 20;
    File &image_;
    const ExtentList &extents_;
    const uint64_t total_;
    size_t index_ = 0;
    uint64_t done_ = 0, written_ = 0, unflushed_ = 0;
};

// The reading thread's part: the read cache fills the stages' buffers, which
// then go to every stage as they are.
class StagesTarget : public ReadCache::Target {
public:
    StagesTarget(StreamStages &stages, Progress &progress) : stages_(stages), progress_(progress) {}
    uint8_t *Borrow(size_t *capacity) override;
    void Take(size_t length) override;

private:
    StreamStages &stages_;
    Progress &progress_;
};

}  // namespace dbtool
