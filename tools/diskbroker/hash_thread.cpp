#include "hash_thread.h"

#include <string.h>

#include <algorithm>

namespace dbtool {

HashThread::HashThread(Work work, size_t bufferBytes, size_t bufferCount)
    : work_(std::move(work)), buffers_(std::max<size_t>(bufferCount, 1), std::vector<uint8_t>(std::max<size_t>(bufferBytes, 1))) {
    for (std::vector<uint8_t> &buffer : buffers_) free_.push_back(&buffer);
    thread_ = std::thread([this] { Run(); });
}

HashThread::~HashThread() {
    {
        std::lock_guard<std::mutex> hold(lock_);
        stop_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

void HashThread::RethrowLocked() {
    if (failure_) std::rethrow_exception(failure_);
}

void HashThread::Put(const uint8_t *data, size_t length) {
    while (length > 0) {
        std::vector<uint8_t> *buffer = nullptr;
        {
            std::unique_lock<std::mutex> hold(lock_);
            changed_.wait(hold, [&] { return !free_.empty() || failure_; });
            RethrowLocked();
            buffer = free_.back();
            free_.pop_back();
        }
        const size_t step = std::min(length, buffer->size());
        memcpy(buffer->data(), data, step);
        {
            std::lock_guard<std::mutex> hold(lock_);
            queued_.push_back({buffer, step});
        }
        changed_.notify_all();
        data += step, length -= step;
    }
}

void HashThread::Finish() {
    std::unique_lock<std::mutex> hold(lock_);
    changed_.wait(hold, [&] { return (queued_.empty() && !busy_) || failure_; });
    RethrowLocked();
}

void HashThread::Run() {
    std::unique_lock<std::mutex> hold(lock_);
    for (;;) {
        changed_.wait(hold, [&] { return !queued_.empty() || stop_; });
        if (stop_) return;
        const Piece piece = queued_.front();
        queued_.pop_front();
        busy_ = true;
        hold.unlock();
        std::exception_ptr failure;
        try {
            work_(piece.buffer->data(), piece.length);
        } catch (...) {
            failure = std::current_exception();
        }
        hold.lock();
        busy_ = false;
        free_.push_back(piece.buffer);
        if (failure) failure_ = failure;
        changed_.notify_all();
        if (failure_) return;
    }
}

}  // namespace dbtool
