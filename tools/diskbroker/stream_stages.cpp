#include "stream_stages.h"

#include <string.h>

#include <algorithm>

namespace dbtool {

StreamStages::StreamStages(std::vector<Work> stages, size_t bufferBytes, size_t bufferCount)
    : work_(std::move(stages)), bufferBytes_(std::max<size_t>(bufferBytes, 1)),
      buffers_(std::max<size_t>(bufferCount, 1)), queued_(work_.size()) {
    for (Buffer &buffer : buffers_) {
        buffer.bytes.reset(new uint8_t[bufferBytes_]);
        free_.push_back(&buffer);
    }
    for (size_t stage = 0; stage < work_.size(); ++stage) threads_.emplace_back([this, stage] { Run(stage); });
}

StreamStages::~StreamStages() {
    {
        std::lock_guard<std::mutex> hold(lock_);
        stop_ = true;
    }
    changed_.notify_all();
    for (std::thread &thread : threads_) thread.join();
}

uint8_t *StreamStages::Borrow() {
    if (!borrowed_) {
        std::unique_lock<std::mutex> hold(lock_);
        changed_.wait(hold, [&] { return !free_.empty() || failure_; });
        if (failure_) std::rethrow_exception(failure_);
        borrowed_ = free_.back();
        free_.pop_back();
    }
    return borrowed_->bytes.get();
}

void StreamStages::Submit(size_t length) {
    if (!borrowed_ || length == 0) return;
    Buffer *buffer = borrowed_;
    borrowed_ = nullptr;
    buffer->length = std::min(length, bufferBytes_);
    {
        std::lock_guard<std::mutex> hold(lock_);
        if (failure_) std::rethrow_exception(failure_);
        if (work_.empty()) {
            free_.push_back(buffer);
            return;
        }
        buffer->stagesLeft = work_.size();
        ++inFlight_;
        for (std::deque<Buffer *> &queue : queued_) queue.push_back(buffer);
    }
    changed_.notify_all();
}

void StreamStages::Put(const uint8_t *data, size_t length) {
    while (length > 0) {
        const size_t step = std::min(length, bufferBytes_);
        memcpy(Borrow(), data, step);
        Submit(step);
        data += step, length -= step;
    }
}

void StreamStages::Finish() {
    std::unique_lock<std::mutex> hold(lock_);
    changed_.wait(hold, [&] { return inFlight_ == 0 || failure_; });
    if (failure_) std::rethrow_exception(failure_);
}

// Runs the stage's work outside the lock; false once the stage failed.
bool StreamStages::WorkOn(size_t stage, Buffer &buffer) {
    std::exception_ptr failure;
    try {
        work_[stage](buffer.bytes.get(), buffer.length);
    } catch (...) {
        failure = std::current_exception();
    }
    std::lock_guard<std::mutex> hold(lock_);
    if (--buffer.stagesLeft == 0) {
        free_.push_back(&buffer);
        --inFlight_;
    }
    if (failure && !failure_) failure_ = failure;
    changed_.notify_all();
    return !failure;
}

void StreamStages::Run(size_t stage) {
    std::deque<Buffer *> &queue = queued_[stage];
    for (;;) {
        Buffer *buffer = nullptr;
        {
            std::unique_lock<std::mutex> hold(lock_);
            changed_.wait(hold, [&] { return !queue.empty() || stop_ || failure_; });
            // After any stage failed, what is still queued is not worked on.
            if (stop_ || failure_) return;
            buffer = queue.front();
            queue.pop_front();
        }
        if (!WorkOn(stage, *buffer)) return;
    }
}

}  // namespace dbtool
