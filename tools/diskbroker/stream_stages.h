// A stream's pieces worked on by threads of their own, beside the reading:
// the hashing on one, writing the image on another, so that a backup runs at
// the slowest of reading, hashing and writing, not at their sum.
//
// The pieces are handed over without copies: the producer borrows a buffer,
// fills it (the read cache copies straight into it) and submits it; every
// stage then works on that same buffer, in submission order, each on its own
// thread. A buffer is free again only when every stage is done with it, so
// the stages only ever read it while it is in flight.
//
// Invariant: every buffer is free, borrowed (at most one) or in flight, never
// two of these; submitted = worked on by each stage + still queued for it.
#pragma once
#include <stddef.h>
#include <stdint.h>

#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace dbtool {

class StreamStages {
public:
    using Work = std::function<void(const uint8_t *data, size_t length)>;

    // One thread per stage; bufferCount buffers of bufferBytes each.
    StreamStages(std::vector<Work> stages, size_t bufferBytes, size_t bufferCount);
    // Stops the threads (dropping what is queued) and joins them.
    ~StreamStages();
    StreamStages(const StreamStages &) = delete;
    StreamStages &operator=(const StreamStages &) = delete;

    size_t BufferBytes() const { return bufferBytes_; }
    // A free buffer of BufferBytes() to fill, waiting while none is free; the
    // same one again until it is submitted. Rethrows what a stage threw.
    uint8_t *Borrow();
    // Hands the borrowed buffer's first length bytes to every stage (length 0
    // keeps it borrowed). The caller may go on reading it, never writing it,
    // until its next Borrow.
    void Submit(size_t length);
    // Borrow, copy, Submit: for callers whose data is already in a buffer.
    void Put(const uint8_t *data, size_t length);
    // Waits until every stage has worked on everything submitted; rethrows a failure.
    void Finish();

private:
    struct Buffer {
        // Not zero-filled: a backup's clock runs while the stages are made.
        std::unique_ptr<uint8_t[]> bytes;
        size_t length = 0;
        size_t stagesLeft = 0;  // lock_
    };
    void Run(size_t stage);
    bool WorkOn(size_t stage, Buffer &buffer);

    std::vector<Work> work_;
    const size_t bufferBytes_;
    std::vector<Buffer> buffers_;
    Buffer *borrowed_ = nullptr;  // producer's thread only
    std::mutex lock_;
    std::condition_variable changed_;
    std::vector<Buffer *> free_;                // lock_
    std::vector<std::deque<Buffer *>> queued_;  // lock_: one queue per stage
    size_t inFlight_ = 0;                       // lock_: submitted, not yet free again
    bool stop_ = false;                         // lock_
    std::exception_ptr failure_;                // lock_: the first stage failure
    std::vector<std::thread> threads_;
};

}  // namespace dbtool
