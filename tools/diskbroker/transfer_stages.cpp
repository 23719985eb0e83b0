#include "transfer_stages.h"

#include <algorithm>

#include "files.h"
#include "progress.h"

namespace dbtool {

ExtentImageWriter::ExtentImageWriter(File &image, const ExtentList &extents)
    : image_(image), extents_(extents), total_(TotalBytes(extents)) {}

void ExtentImageWriter::Take(const uint8_t *data, size_t length) {
    written_ += length, unflushed_ += length;
    while (length > 0) {
        const Extent &extent = extents_.at(index_);
        const size_t take = static_cast<size_t>(std::min<uint64_t>(length, extent.length - done_));
        // The image was created at full size, so a range of zeros is already
        // there; skipping it keeps the file sparse.
        if (!AllZero(data, take)) image_.WriteAt(extent.offset + done_, data, take);
        done_ += take, data += take, length -= take;
        if (done_ == extent.length) ++index_, done_ = 0;
    }
    if (unflushed_ >= kFlushEveryBytes || written_ == total_) {
        image_.Flush();
        unflushed_ = 0;
    }
}

uint8_t *StagesTarget::Borrow(size_t *capacity) {
    *capacity = stages_.BufferBytes();
    return stages_.Borrow();
}

void StagesTarget::Take(size_t length) {
    stages_.Submit(length);
    progress_.Advance(length);
}

}  // namespace dbtool
