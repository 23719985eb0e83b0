// Hashing on a thread of its own, beside the reading: the caller hands over
// the data in order (copied into one of a few buffers, so the caller's buffer
// is free again at once) and the thread runs `work` on each piece in the same
// order. A backup then runs at the slower of reading and hashing, not at the
// sum of both.
#pragma once
#include <stddef.h>
#include <stdint.h>

#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace dbtool {

class HashThread {
public:
    using Work = std::function<void(const uint8_t *data, size_t length)>;

    // bufferBytes: the largest piece handed over in one copy.
    HashThread(Work work, size_t bufferBytes, size_t bufferCount = 4);
    // Stops the thread (dropping what is queued) and joins it.
    ~HashThread();
    HashThread(const HashThread &) = delete;
    HashThread &operator=(const HashThread &) = delete;

    // Queues a copy of the data, waiting while every buffer is in use.
    // Rethrows what `work` threw, once the thread has stopped on it.
    void Put(const uint8_t *data, size_t length);
    // Waits until everything queued has been worked on; rethrows a failure.
    void Finish();

private:
    struct Piece {
        std::vector<uint8_t> *buffer;
        size_t length;
    };
    void Run();
    void RethrowLocked();

    Work work_;
    std::vector<std::vector<uint8_t>> buffers_;
    std::mutex lock_;
    std::condition_variable changed_;
    std::vector<std::vector<uint8_t> *> free_;  // lock_
    std::deque<Piece> queued_;                   // lock_
    bool busy_ = false;                          // lock_: a piece is being worked on
    bool stop_ = false;                          // lock_
    std::exception_ptr failure_;                 // lock_
    std::thread thread_;
};

}  // namespace dbtool
