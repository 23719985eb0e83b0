// Start-up and buffer plumbing shared by the read-ahead and write-behind caches.
#include "vddkcache_common.h"

#include <process.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>

#include <atomic>
#include <new>

#include <skclass_mini/handles.h>
#include <skclass_mini/impersonator.h>
#include <skstdutl/sklog.h>

namespace vddkcache {
namespace {

size_t RunTableBytes(uint32_t runCapacity) {
    return offsetof(diskCacheRunTable, runs) + (static_cast<size_t>(runCapacity) + 1) * sizeof(diskCacheRun);
}

size_t HistogramBytes(uint32_t bucketCount) {
    return offsetof(bufferDepthHistogram, counts) + (static_cast<size_t>(bucketCount) + 1) * sizeof(uint32_t);
}

void FreeBuffer(diskCacheBuffer *buffer) {
    delete[] buffer->data;
    free(buffer->runTable);
    delete buffer;
}

// One buffer with its data (and run table), or null with nothing left allocated.
diskCacheBuffer *NewBuffer(uint32_t index, uint32_t capacity, bool withRunTable, uint32_t runCapacity) {
    diskCacheBuffer *buffer = new (std::nothrow) diskCacheBuffer;
    if (!buffer) return nullptr;
    buffer->index = index;
    buffer->capacity = capacity;
    buffer->data = new (std::nothrow) unsigned char[capacity];
    if (withRunTable) {
        buffer->runTable = static_cast<diskCacheRunTable *>(calloc(1, RunTableBytes(runCapacity)));
        if (buffer->runTable) buffer->runTable->runCapacity = runCapacity;
    }
    if (!buffer->data || (withRunTable && !buffer->runTable)) {
        FreeBuffer(buffer);
        return nullptr;
    }
    return buffer;
}

}  // namespace

bool BufferSizesUsable(const wchar_t *sourceFile, const wchar_t *startName, const wchar_t *cacheName,
                       unsigned long bufferCount, unsigned long bufferSizeKB) {
    const wchar_t *problem = nullptr;
    if (bufferSizeKB == 0)
        problem = L"A buffer size of 0 KB holds no sector";
    else if (bufferSizeKB > kMaxBufferSizeKB)
        problem = L"The buffer size in bytes does not fit in 32 bits";
    else if (bufferCount > kMaxBufferCount)
        problem = L"The buffer count is beyond what any cache uses";
    if (!problem) return true;
    SK_Zprintf_2(sourceFile, 0, L"%s: %s (%lu buffers of %lu KB). Cannot start the %s cache", startName, problem,
                 bufferCount, bufferSizeKB, cacheName);
    return false;
}

bool AllocateBuffers(const wchar_t *sourceFile, const wchar_t *failureMessage, unsigned long bufferCount,
                     unsigned long bufferSizeKB, bool withRunTables, uint32_t runCapacity,
                     diskCacheBuffer *&allBuffers, diskCacheQueue &freeQueue) {
    const uint32_t capacity = static_cast<uint32_t>(bufferSizeKB) * 1024u;
    bool allAllocated = true;
    for (unsigned long index = 0; index < bufferCount; ++index) {
        diskCacheBuffer *buffer = NewBuffer(static_cast<uint32_t>(index), capacity, withRunTables, runCapacity);
        if (!buffer) {
            SK_Zprintf_2(sourceFile, 0, failureMessage);
            allAllocated = false;
            continue;
        }
        buffer->nextAllocated = allBuffers;
        allBuffers = buffer;
        freeQueue.Append(buffer);
    }
    return allAllocated;
}

void FreeBuffers(diskCacheBuffer *&allBuffers) {
    while (allBuffers) {
        diskCacheBuffer *buffer = allBuffers;
        allBuffers = buffer->nextAllocated;
        FreeBuffer(buffer);
    }
}

void Recycle(diskCacheBuffer *buffer, diskCacheQueue &freeQueue) {
    buffer->filled = 0;
    buffer->consumed = 0;
    buffer->isLast = 0;  // a buffer discarded before the writer saw it must not end a later pass
    if (buffer->runTable) {
        diskCacheRunTable *table = buffer->runTable;
        memset(table->runs, 0, (static_cast<size_t>(table->runCapacity) + 1) * sizeof(diskCacheRun));
        table->runsUsed = 0;
    }
    freeQueue.Append(buffer);
}

void HandOn(diskCacheBuffer *&slot, diskCacheQueue &queue) {
    diskCacheBuffer *buffer = slot;
    slot = nullptr;
    if (buffer) queue.Append(buffer);
}

diskCacheBuffer *WaitAndRemoveOr(diskCacheQueue &queue, HANDLE wake, DWORD milliseconds) {
    // While data streams the other side hands on a buffer within microseconds;
    // a spin of a few hundred of them spares the sleep and wake-up of a
    // blocking wait (under Wine a wineserver round trip each), which with 1 MiB
    // buffers costs a fifth of the throughput.
    for (int spin = 0; spin < 4096 && queue.Count() == 0; ++spin) YieldProcessor();
    if (!wake) return queue.WaitAndRemove(milliseconds);
    // The queue is listed first: when both are signalled, a buffer wins.
    HANDLE handles[2] = {queue.semaphore.get(), wake};
    if (WaitForMultipleObjects(2, handles, FALSE, milliseconds) != WAIT_OBJECT_0) return nullptr;
    return queue.RemoveHead();
}

diskCacheBuffer *TakeEmptyBuffer(const wchar_t *sourceFile, diskCacheQueue &freeQueue, diskCacheBuffer *&slot,
                                 const std::atomic<unsigned char> &cancelRequested, HANDLE cancelEvent,
                                 const wchar_t *cancelMessage) {
    if (slot) return slot;
    for (;;) {
        if (diskCacheBuffer *buffer = WaitAndRemoveOr(freeQueue, cancelEvent, kQueueRoundMs)) {
            slot = buffer;
            return buffer;
        }
        if (cancelRequested) {
            SK_Zprintf_2(sourceFile, 0, cancelMessage);
            return nullptr;
        }
    }
}

void EmptyQueue(diskCacheQueue &queue) {
    {
        skclass::CsLock hold(queue.lock);
        queue.head = nullptr;
        queue.tail = nullptr;
        queue.count = 0;
    }
    while (WaitForSingleObject(queue.semaphore.get(), 0) == WAIT_OBJECT_0) {
    }
}

bufferDepthHistogram *AllocateHistogram(uint32_t bucketCount) {
    auto *histogram = static_cast<bufferDepthHistogram *>(calloc(1, HistogramBytes(bucketCount)));
    if (histogram) histogram->bucketCount = bucketCount;
    return histogram;
}

void ResetHistogram(bufferDepthHistogram *histogram) {
    if (!histogram) return;
    histogram->totalSamples = 0;
    memset(histogram->counts, 0, (static_cast<size_t>(histogram->bucketCount) + 1) * sizeof(uint32_t));
}

void FreeHistogram(bufferDepthHistogram *&histogram) {
    free(histogram);
    histogram = nullptr;
}

void SampleDepth(bufferDepthHistogram *histogram, uint32_t depth) {
    if (!histogram) return;
    ++histogram->counts[depth < histogram->bucketCount ? depth : histogram->bucketCount];
    ++histogram->totalSamples;
}

void LogHistogram(const wchar_t *sourceFile, const bufferDepthHistogram *histogram, const wchar_t *headerFormat,
                  const wchar_t *lineFormat) {
    if (!histogram) return;
    SK_Zprintf_2(sourceFile, 0, headerFormat, static_cast<long long>(histogram->totalSamples));
    for (uint32_t depth = 0; depth <= histogram->bucketCount; ++depth)
        SK_Zprintf_2(sourceFile, 0, lineFormat, static_cast<int>(depth), static_cast<int>(histogram->counts[depth]));
}

long CaptureCallerToken(const wchar_t *sourceFile, const TokenMessages &messages, HANDLE &token) {
    skclass::UniqueHandle opened;
    if (!OpenThreadToken(GetCurrentThread(), TOKEN_DUPLICATE | TOKEN_QUERY, FALSE, opened.put())) {
        const DWORD error = GetLastError();
        if (error == ERROR_NO_TOKEN)
            SK_Zprintf_2(sourceFile, 0, messages.notImpersonating);
        else
            SK_Zprintf_2(sourceFile, 0, messages.openFailed, static_cast<unsigned>(error));
        return 0;
    }
    SK_Zprintf_2(sourceFile, 0, messages.impersonating, Impersonator::WhoAmI().c_str());
    skclass::UniqueHandle duplicate;
    if (!DuplicateToken(opened.get(), SecurityImpersonation, duplicate.put())) {
        SK_Zprintf_2(sourceFile, 0, messages.duplicateFailed, static_cast<unsigned>(GetLastError()));
        return kTokenError;
    }
    token = duplicate.release();
    return 0;
}

bool ImpersonateCaller(const wchar_t *sourceFile, HANDLE token, const wchar_t *failureMessage) {
    if (!token || ImpersonateLoggedOnUser(token)) return true;
    SK_Zprintf_2(sourceFile, 0, failureMessage, static_cast<unsigned>(GetLastError()));
    return false;
}

long StartCacheThread(const wchar_t *sourceFile, ThreadEntry entry, void *argument, HANDLE &threadHandle,
                      uint32_t &threadId, const wchar_t *failureMessage, unsigned long raisePriority,
                      const wchar_t *priorityMessage) {
    unsigned id = 0;
    const uintptr_t started = _beginthreadex(nullptr, 0, entry, argument, 0, &id);
    if (started == 0) {
        SK_Zprintf_2(sourceFile, 0, failureMessage);
        return kResourceError;
    }
    threadHandle = reinterpret_cast<HANDLE>(started);
    threadId = id;
    if (raisePriority) {
        const int previous = GetThreadPriority(threadHandle);
        if (SetThreadPriority(threadHandle, THREAD_PRIORITY_ABOVE_NORMAL))
            SK_Zprintf_2(sourceFile, 0, priorityMessage, previous, static_cast<int>(THREAD_PRIORITY_ABOVE_NORMAL));
    }
    return 0;
}

void PublishError(wcstring &errorText, const wcstring &text, std::atomic<uint32_t> &errorCode, uint32_t code) {
    errorText = text;
    errorCode.store(code, std::memory_order_release);
}

uint32_t ReadError(const std::atomic<uint32_t> &errorCode) { return errorCode.load(std::memory_order_acquire); }

}  // namespace vddkcache
