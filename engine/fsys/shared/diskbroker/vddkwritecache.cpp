// Write-behind cache: the job thread drops sector runs into buffers with
// PutDiskCacheBuffer and returns at once; the write thread
// (vddkwritecache_writer.cpp) writes the filled buffers. Each buffer lists the
// runs its bytes belong to, so runs that are not adjacent on disk can share a
// buffer and adjacent ones merge into one VMware write.
#include <string.h>

#include <diskbroker.h>
#include <skclass_mini/dawdle.h>
#include <skclass_mini/handles.h>
#include <skstdutl/sklog.h>

#include "diskbroker_private.h"
#include "vddkcache_common.h"
#include "vddkwritecache_internal.h"
#include "vddkwritecache_runs.h"

using diskbroker_detail::Guarded;
using namespace writecache_detail;

const wchar_t *const writecache_detail::kSourceFile = SK_SOURCE_FILE;

namespace {

constexpr long kEndOfData = 0x2000FE0C;
constexpr uint64_t kSectorBytes = 512;
// Closing rechecks the writer at least this often even when it signals nothing.
constexpr DWORD kCloseStepMs = 5000;
// An idle write thread leaves as soon as it is woken; the wait only keeps the
// thread from touching a context its owner frees right after stopping.
constexpr DWORD kThreadExitWaitMs = 5000;

const wchar_t kStartName[] = L"diskBroker::startWriteCacheThread";

// The pass state cleared at start and after every close; thread, event,
// queues and buffers survive.
void ResetPass(diskWriteContextStruct &context) {
    context.writeActive = 0;
    context.cancelRequested = 0;
    context.endOfData = 0;
    ResetEvent(context.endOfDataEvent.get());
    context.writerBusy = 0;
    context.stopRequested = 0;
    context.fillBuffer = nullptr;
    context.drainBuffer = nullptr;
    context.diskHandle = nullptr;
    context.diskSize = 0;
    context.bytesWritten = 0;
    context.errorCode = 0;
    context.sectorSize = kSectorBytes;
    context.errorText.clear();
    vddkcache::ResetHistogram(context.depthHistogram);
}

long StartWriteCache(diskWriteContextStruct &context, unsigned long bufferCount, unsigned long bufferSizeKB,
                     unsigned long raisePriority, unsigned long minRunSizeKB) {
    // The run tables are sized by this division; refuse before allocating.
    if (minRunSizeKB == 0) {
        SK_Zprintf_2(kSourceFile, 0,
                     L"%s: The minimum run size is 0 KB, so no run table can be sized. Cannot start the Write cache",
                     kStartName);
        return vddkcache::kResourceError;
    }
    if (!vddkcache::BufferSizesUsable(kSourceFile, kStartName, L"Write", bufferCount, bufferSizeKB))
        return vddkcache::kResourceError;
    long result = 0;
    context.startEvent = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    if (!context.startEvent) {
        SK_Zprintf_2(kSourceFile, 0, L"%s Could not create the events. Cannot start the Write cache", kStartName);
        result = vddkcache::kResourceError;
    }
    vddkcache::FreeHistogram(context.depthHistogram);  // a restart's, not a leak
    ResetPass(context);
    const uint32_t runCapacity = bufferSizeKB / minRunSizeKB;
    SK_Zprintf_2(kSourceFile, 0, L"%s: Allocating %d buffers of size %d", kStartName, bufferCount, bufferSizeKB);
    if (!vddkcache::AllocateBuffers(kSourceFile, L"Could not allocate the memory. Cannot start the Write cache",
                                    bufferCount, bufferSizeKB, true, runCapacity, context.allBuffers,
                                    context.freeQueue))
        result = vddkcache::kResourceError;
    context.depthHistogram = vddkcache::AllocateHistogram(bufferCount);
    if (result != 0) return result;

    static const vddkcache::TokenMessages kTokenMessages = {
        L"diskBroker::startWriteCacheThread : Thread is impersonating %s. Setting impersonation token for "
        L"diskWriteThread.",
        L"diskBroker::startWriteCacheThread : DuplicateToken failed! Windows error = %u",
        L"diskBroker::startWriteCacheThread : Thread is not impersonating !",
        L"diskBroker::startWriteCacheThread : OpenThreadToken failed! windows error = %u",
    };
    skclass::UniqueHandle token;
    result = vddkcache::CaptureCallerToken(kSourceFile, kTokenMessages, *token.put());
    if (result != 0) return result;
    // The thread takes the token over as it starts; it stays ours if the
    // thread cannot be started.
    context.impersonationToken = token.get();
    result = vddkcache::StartCacheThread(kSourceFile, diskWriteThread, &context, context.threadHandle,
                                         context.threadId,
                                         L"Could not create the thread. Cannot start the Write cache", raisePriority,
                                         L"Thread's current priority is %d. Bumping it upto %d");
    if (result == 0)
        token.release();
    else
        context.impersonationToken = nullptr;
    return result;
}

// Places what fits of the run in buffer and hands the buffer on when it is
// full or refused the run. Returns the sectors still to place.
uint64_t PlaceRun(diskWriteContextStruct &context, diskCacheBuffer &buffer, const unsigned char *&data,
                  uint64_t &startSector, uint64_t &sectorCount) {
    const RunPlacement placed = PlaceRunInBuffer(buffer, data, startSector, sectorCount);
    if (placed.handOn) vddkcache::HandOn(context.fillBuffer, context.filledQueue);
    return placed.remainder;
}

long PutRun(diskWriteContextStruct &context, const unsigned char *data, uint64_t startSector, uint64_t sectorCount) {
    if (const uint32_t error = vddkcache::ReadError(context.errorCode)) return static_cast<long>(error);
    uint64_t remainder = 0;
    do {
        diskCacheBuffer *buffer =
            vddkcache::TakeEmptyBuffer(kSourceFile, context.freeQueue, context.fillBuffer, context.cancelRequested,
                                       nullptr, L"Write thread: Cancel request received. bailing out...");
        if (!buffer) {
            // Only a failed pass cancels, and no buffer will come for the
            // rest of this run: report the failure rather than wait for ever.
            if (context.endOfData) {
                SK_Zprintf_2(kSourceFile, 0, L"Main Thread: End of Data, emptying the filled up buffers... ");
                return kEndOfData;
            }
            return static_cast<long>(vddkcache::ReadError(context.errorCode));
        }
        remainder = PlaceRun(context, *buffer, data, startSector, sectorCount);
    } while (remainder != 0);
    return 0;
}

// True once the writer has left the pass with nothing pending (or has left a
// failed pass, whose leftovers close discards), or when its thread is gone.
bool WriterDone(diskWriteContextStruct &context) {
    if (!context.writerBusy &&
        ((!context.drainBuffer && context.filledQueue.Count() == 0) || context.cancelRequested))
        return true;
    DWORD exitCode = 0;
    if (!GetExitCodeThread(context.threadHandle, &exitCode)) return true;
    if (exitCode == STILL_ACTIVE) return false;
    SK_Zprintf_2(kSourceFile, 0, L"Write thread is not alive.");
    return true;
}

// Queues the pending buffer as the last one (or marks the end of data) and
// waits until the writer has written everything queued.
void FinishPass(diskWriteContextStruct &context) {
    if (context.fillBuffer && context.cancelRequested) {
        // The writer has given up on this pass; queued, the buffer would be
        // written into the next disk.
        vddkcache::Recycle(context.fillBuffer, context.freeQueue);
        context.fillBuffer = nullptr;
    } else if (context.fillBuffer) {
        context.fillBuffer->isLast = 1;
        vddkcache::HandOn(context.fillBuffer, context.filledQueue);
    } else {
        context.endOfData = 1;
        SetEvent(context.endOfDataEvent.get());
    }
    while (!WriterDone(context)) {
        if (WaitForSingleObject(context.writerLeftPassEvent.get(), kCloseStepMs) == WAIT_FAILED)
            skclass::Dawdle(kCloseStepMs);
    }
    if (context.cancelRequested) DiscardFilledBuffers(context, 0);
    if (context.errorCode == 0 && context.bytesWritten != context.diskSize)
        SK_Zprintf_2(kSourceFile, 0, L"Disk size: '%I64d' Data Written: '%I64d' ", context.diskSize,
                     context.bytesWritten.load());
}

long CloseWriteCache(diskWriteContextStruct &context) {
    if (context.writeActive) FinishPass(context);
    vddkcache::LogHistogram(kSourceFile, context.depthHistogram,
                            L"TRPX Buffered Writes Performance Tuning Analysis. Total no of Writes: '%I64d'",
                            L"\t Write Buffer Depth: '%d'    Occurences: '%d'");
    ResetPass(context);
    return 0;
}

long StopWriteCache(diskWriteContextStruct &context) {
    context.stopRequested = 1;
    SetEvent(context.endOfDataEvent.get());  // a writer still in a pass ends its round now
    if (context.startEvent) SetEvent(context.startEvent);
    skclass::UniqueHandle thread(context.threadHandle);
    skclass::UniqueHandle startEvent(context.startEvent);
    context.threadHandle = nullptr;
    context.startEvent = nullptr;
    if (thread && WaitForSingleObject(thread.get(), kThreadExitWaitMs) != WAIT_OBJECT_0) {
        // Still inside a pass (a VMware write that does not return): what it
        // may touch is left to it, a leak rather than memory freed in use.
        SK_Zprintf_2(kSourceFile, 0,
                     L"%s The write thread '%d' has not left after %d ms; its buffers and histogram are kept.",
                     L"diskBroker::stopWriteCacheThread()", static_cast<int>(context.threadId),
                     static_cast<int>(kThreadExitWaitMs));
        (void)startEvent.release();
        context.allBuffers = nullptr;
        context.depthHistogram = nullptr;
    }
    // The queues are the caller's and outlive the buffers.
    vddkcache::EmptyQueue(context.freeQueue);
    vddkcache::EmptyQueue(context.filledQueue);
    context.fillBuffer = nullptr;
    context.drainBuffer = nullptr;
    vddkcache::FreeBuffers(context.allBuffers);
    vddkcache::FreeHistogram(context.depthHistogram);
    return 0;
}

}  // namespace

long diskBroker::startWriteCacheThread(diskWriteContextStruct *context, unsigned long bufferCount,
                                       unsigned long bufferSizeKB, unsigned long raisePriority,
                                       unsigned long minRunSizeKB) {
    if (!context) return vddkcache::kResourceError;
    return Guarded(L"startWriteCacheThread", vddkcache::kResourceError, [&] {
        return StartWriteCache(*context, bufferCount, bufferSizeKB, raisePriority, minRunSizeKB);
    });
}

long diskBroker::startDiskWriteBuffer(diskWriteContextStruct *context) {
    if (!context) return vddkcache::kResourceError;
    return Guarded(L"startDiskWriteBuffer", vddkcache::kResourceError, [&] {
        SK_Zprintf_2(kSourceFile, 0, L"Main Thread: setting the event startDiskWrite");
        context->writeActive = 1;
        // Busy from here, not from when the thread wakes, so that a close
        // that comes first waits for this pass instead of racing it.
        context->writerBusy = 1;
        SetEvent(context->startEvent);
        return 0L;
    });
}

long diskBroker::PutDiskCacheBuffer(diskWriteContextStruct *context, unsigned char *data,
                                    unsigned long long startSector, unsigned long long sectorCount) {
    if (!context || (!data && sectorCount != 0)) return kWriteFailed;
    return Guarded(L"PutDiskCacheBuffer", kWriteFailed,
                   [&] { return PutRun(*context, data, startSector, sectorCount); });
}

long diskBroker::closeWriteCacheThread(diskWriteContextStruct *context) {
    if (!context) return 0;
    return Guarded(L"closeWriteCacheThread", 0L, [&] { return CloseWriteCache(*context); });
}

long diskBroker::stopWriteCacheThread(diskWriteContextStruct *context) {
    if (!context) return 0;
    return Guarded(L"stopWriteCacheThread", 0L, [&] { return StopWriteCache(*context); });
}
