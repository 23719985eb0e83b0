// The read-ahead and write-behind caches' records. The caller allocates and
// constructs a context (its queues' locks and semaphores come with the
// constructor), sets the fields marked "set by the caller", and passes it to
// every diskBroker cache call. The library fills the rest.
#pragma once
#include <stdint.h>

#include <atomic>
#include <memory>

#include <skclass_mini/com.h>
#include <skclass_mini/handles.h>
#include <skclass_mini/singleton.h>
#include <skclass_mini/strings.h>
#include <vddkcache_buffer.h>
#include <vixreadwritehandle.h>

class CXmlReader;
class diskBroker;

// A FIFO of buffers: the lock guards head, tail and count for one append or
// removal; the semaphore's count equals the number of queued buffers.
struct diskCacheQueue {
    diskCacheQueue() : semaphore(CreateSemaphoreW(nullptr, 0, 0x7FFFFFFF, nullptr)) {}
    diskCacheQueue(const diskCacheQueue &) = delete;
    diskCacheQueue &operator=(const diskCacheQueue &) = delete;

    // Appends buffer and releases the semaphore by one.
    void Append(diskCacheBuffer *buffer) {
        {
            skclass::CsLock hold(lock);
            buffer->next = nullptr;
            if (tail)
                tail->next = buffer;
            else
                head = buffer;
            tail = buffer;
            ++count;
        }
        ReleaseSemaphore(semaphore.get(), 1, nullptr);
    }
    // Waits up to milliseconds for a queued buffer and removes it; null when
    // none came in time.
    diskCacheBuffer *WaitAndRemove(DWORD milliseconds) {
        if (WaitForSingleObject(semaphore.get(), milliseconds) != WAIT_OBJECT_0) return nullptr;
        return RemoveHead();
    }
    // Removes the head after a wait has taken one count of the semaphore.
    diskCacheBuffer *RemoveHead() {
        skclass::CsLock hold(lock);
        diskCacheBuffer *buffer = head;
        if (!buffer) return nullptr;
        head = buffer->next;
        if (!head) tail = nullptr;
        buffer->next = nullptr;
        --count;
        return buffer;
    }
    uint32_t Count() {
        skclass::CsLock hold(lock);
        return count;
    }

    diskCacheBuffer *head = nullptr;
    diskCacheBuffer *tail = nullptr;
    uint32_t count = 0;
    skclass::CriticalSection lock;
    skclass::UniqueHandle semaphore;
};

// How deep the filled queue was each time the consumer had to wait: one block,
// counters indexed by depth 0..bucketCount inclusive.
struct bufferDepthHistogram {
    uint32_t bucketCount;
    uint64_t totalSamples;
    uint32_t counts[1];  // bucketCount + 1 entries
};

// The flags and counters the job thread and the cache thread both touch are
// atomic: each is written by one side and polled by the other.
struct diskReadContextStruct {
    // Frees nothing the library allocated: stopReadCacheThread does.
    diskReadContextStruct() = default;
    diskReadContextStruct(const diskReadContextStruct &) = delete;
    diskReadContextStruct &operator=(const diskReadContextStruct &) = delete;

    HANDLE threadHandle = nullptr;
    uint32_t threadId = 0;
    HANDLE impersonationToken = nullptr;
    HANDLE startEvent = nullptr;  // auto-reset: one pass, or wake to stop
    std::atomic<unsigned char> readActive{0};
    std::atomic<unsigned char> cancelRequested{0};
    std::atomic<unsigned char> endOfDisk{0};
    diskCacheBuffer *allBuffers = nullptr;  // every buffer ever allocated, newest first
    diskCacheQueue freeQueue;
    diskCacheQueue filledQueue;
    diskCacheBuffer *fillBuffer = nullptr;   // read thread's
    diskCacheBuffer *drainBuffer = nullptr;  // job thread's
    CXmlReader *extentReader = nullptr;
    wcstring extentFilePath;                   // set by the caller
    skclass::shared_ptr<diskBroker> broker;    // set by the caller
    _vixReadWriteHandle *diskHandle = nullptr; // set by the caller
    uint64_t sectorSize = 512;
    uint64_t currentSector = 0;
    uint64_t extentSectors = 0;
    uint64_t extentSectorsDone = 0;
    std::atomic<uint32_t> errorCode{0};
    wcstring errorText;
    wcstring metadataFilePath;  // set by the caller
    std::atomic<unsigned char> metadataDone{0};
    bufferDepthHistogram *depthHistogram = nullptr;
    std::unique_ptr<ComEnvironment> comEnvironment;
    std::atomic<unsigned char> stopRequested{0};
    // Let bounded waits end as soon as what they wait for happens: set by the
    // read thread when a pass's metadata export is done, and when it leaves a
    // pass (manual-reset; the job thread resets them before a pass).
    skclass::UniqueHandle metadataDoneEvent{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    skclass::UniqueHandle passEndedEvent{CreateEventW(nullptr, TRUE, TRUE, nullptr)};
    // Set with cancelRequested by close and stop, so a read thread waiting for
    // an empty buffer sees the cancel at once (manual-reset; reset with the flag).
    skclass::UniqueHandle cancelEvent{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
};

struct diskWriteContextStruct {
    // Frees nothing the library allocated: stopWriteCacheThread does.
    diskWriteContextStruct() = default;
    diskWriteContextStruct(const diskWriteContextStruct &) = delete;
    diskWriteContextStruct &operator=(const diskWriteContextStruct &) = delete;

    HANDLE threadHandle = nullptr;
    uint32_t threadId = 0;
    HANDLE impersonationToken = nullptr;
    HANDLE startEvent = nullptr;
    std::atomic<unsigned char> writeActive{0};
    std::atomic<unsigned char> cancelRequested{0};
    std::atomic<unsigned char> endOfData{0};
    diskCacheBuffer *allBuffers = nullptr;
    diskCacheQueue freeQueue;
    diskCacheQueue filledQueue;
    diskCacheBuffer *fillBuffer = nullptr;   // job thread's
    diskCacheBuffer *drainBuffer = nullptr;  // write thread's
    skclass::shared_ptr<diskBroker> broker;     // set by the caller
    _vixReadWriteHandle *diskHandle = nullptr;  // set by the caller
    uint64_t sectorSize = 512;
    uint64_t diskSize = 0;  // set by the caller: bytes expected, checked at close
    std::atomic<uint64_t> bytesWritten{0};
    std::atomic<uint32_t> errorCode{0};
    wcstring errorText;
    bufferDepthHistogram *depthHistogram = nullptr;
    std::atomic<unsigned char> writerBusy{0};
    std::atomic<unsigned char> stopRequested{0};
    // Set by the write thread when it leaves a pass (auto-reset), so closing
    // returns as soon as the writer is done with the queue.
    skclass::UniqueHandle writerLeftPassEvent{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
    // Set with endOfData by close, so the writer's wait for a buffer ends once
    // the queue is empty instead of after its round (manual-reset; reset with
    // the flag).
    skclass::UniqueHandle endOfDataEvent{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
};
