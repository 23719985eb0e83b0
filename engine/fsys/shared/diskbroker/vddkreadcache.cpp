// Read-ahead cache: a read thread fills a ring of buffers from the extents of a
// disk while the job thread copies the stream out with GetDiskCacheBuffer.
//
// The ring: a buffer in circulation is in freeQueue, in filledQueue, in
// fillBuffer (read thread) or in drainBuffer (job thread), and nowhere twice.
// A close does not drain the queues, so that it never waits on a read thread
// stuck in VMware: what a pass closed early left in filledQueue opens the
// next pass's stream, and the two buffers that were current at the close
// leave circulation until stop frees them.
#include <string.h>

#include <algorithm>

#include <skclass_mini/com.h>
#include <skclass_mini/handles.h>
#include <skclass_mini/impersonator.h>
#include <skxml/xmlreader.h>

#include "diskbroker_private.h"
#include "vddkcache_common.h"
#include "vddkreadcache_internal.h"

namespace vddkreadcache {
const wchar_t *const kSourceFile = SK_SOURCE_FILE;
}  // namespace vddkreadcache

using namespace vddkreadcache;
using diskbroker_detail::Guarded;

namespace {

constexpr DWORD kCloseGraceMs = 5000;
constexpr DWORD kStopGraceMs = 5000;

const wchar_t kReadCancelMessage[] = L"Read thread: Cancel request received. bailing out...";

// The read thread's view of "is the pass over": its event, or the thread gone.
bool WaitForThreadOr(diskReadContextStruct *context, HANDLE event, DWORD milliseconds) {
    HANDLE handles[2];
    DWORD count = 0;
    if (event) handles[count++] = event;
    if (context->threadHandle) handles[count++] = context->threadHandle;
    if (count == 0) return true;  // no thread, so nothing is running
    const DWORD result = WaitForMultipleObjects(count, handles, FALSE, milliseconds);
    return result < WAIT_OBJECT_0 + count;
}

// The pass state, cleared for the next disk; the thread, the event, the
// queues and the buffers survive. The current buffers are forgotten, not
// returned. The extent reader of a pass that ended early is deleted only
// once no read thread can be using it.
void ResetContext(diskReadContextStruct *context, bool readThreadOutOfPass) {
    context->readActive = 0;
    context->cancelRequested = 0;
    ResetEvent(context->cancelEvent.get());
    context->endOfDisk = 0;
    context->stopRequested = 0;
    if (readThreadOutOfPass) delete context->extentReader;
    context->fillBuffer = nullptr;
    context->drainBuffer = nullptr;
    context->extentReader = nullptr;
    context->extentFilePath.clear();
    context->metadataFilePath.clear();
    context->errorText.clear();
    context->diskHandle = nullptr;
    context->sectorSize = kSectorSize;
    context->currentSector = 0;
    context->extentSectors = 0;
    context->extentSectorsDone = 0;
    context->errorCode = 0;
    context->metadataDone = 0;
    vddkcache::ResetHistogram(context->depthHistogram);
}

// --- Read thread -------------------------------------------------------------

diskCacheBuffer *TakeEmptyBuffer(diskReadContextStruct *context) {
    return vddkcache::TakeEmptyBuffer(kSourceFile, context->freeQueue, context->fillBuffer, context->cancelRequested,
                                      context->cancelEvent.get(), kReadCancelMessage);
}

// buffer is the read thread's own copy of fillBuffer (see PassTarget).
void HandOnFillBuffer(diskReadContextStruct *context, diskCacheBuffer *&buffer) {
    vddkcache::HandOn(buffer, context->filledQueue);
    context->fillBuffer = nullptr;
}

long ReadFailed(diskReadContextStruct *context, const PassTarget &target, VixError error, uint64_t count) {
    wcstring text;
    target.broker->GetErrorText(error, text);
    vddkcache::PublishError(context->errorText, text, context->errorCode, static_cast<uint32_t>(kReadError));
    SK_Zprintf_2(kSourceFile, 0,
                 L"%s Could not read the disk. start Sector: '%I64d', Num of sectors: '%I64d' Error Text: '%s' "
                 L"Error: '%I64d' ",
                 L"diskBroker::ReadDiskExtents()", static_cast<long long>(context->currentSector),
                 static_cast<long long>(count), text.c_str(), static_cast<long long>(error));
    return kReadError;
}

// The producer: one VMware read per step, never across an extent's end nor
// beyond the current buffer's free whole sectors.
long ReadDiskExtents(diskReadContextStruct *context, const PassTarget &target) {
    SelectFirstDiskExtent(context);
    diskCacheBuffer *buffer = TakeEmptyBuffer(context);
    if (!buffer) return 0;
    bool going = true;
    for (;;) {
        if (context->extentSectorsDone >= context->extentSectors && GetNextDiskExtent(context) == kEndOfDisk) {
            HandOnFillBuffer(context, buffer);
            going = false;
        }
        if (context->extentSectors != 0) {
            const uint64_t fits = (buffer->capacity - buffer->filled) / context->sectorSize;
            const uint64_t count = std::min(fits, context->extentSectors - context->extentSectorsDone);
            if (context->cancelRequested) {
                going = false;
            } else if (count != 0) {
                const VixError error = target.broker->VixDiskLib_Read(target.diskHandle, context->currentSector,
                                                                      count, buffer->data + buffer->filled);
                if (error != VIX_OK) return ReadFailed(context, target, error, count);
                context->currentSector += count;
                context->extentSectorsDone += count;
                buffer->filled += count * context->sectorSize;
                if (buffer->filled == buffer->capacity) {
                    HandOnFillBuffer(context, buffer);
                    buffer = TakeEmptyBuffer(context);
                    if (!buffer) return 0;
                }
            }
        }
        if (!going) return 0;
    }
}

// One pass: metadata, then the extents. The events are set on every path, so
// neither startDiskReadBuffer nor a close waits out its bound for nothing.
void RunPass(diskReadContextStruct *context) {
    auto announce = skclass::MakeScopeExit([context] {
        context->metadataDone = 1;
        SetEvent(context->metadataDoneEvent.get());
        SetEvent(context->passEndedEvent.get());
    });
    const PassTarget target{context->broker, context->diskHandle};
    if (!target.broker) {  // nothing to read through: an empty pass
        context->endOfDisk = 1;
        return;
    }
    Guarded(L"ReadVMDiskMetaData", 0L, [&] { return ReadVMDiskMetaData(context, target); });
    Guarded(L"ReadDiskExtents", 0L, [&] { return ReadDiskExtents(context, target); });
}

void InitializeCom(diskReadContextStruct *context) {
    // Single-threaded apartment: VDDK's transport plug-ins expect COM set up
    // on the thread that calls them, in the apartment model they register.
    context->comEnvironment = ComEnvironmentFactory::Create(1);
    if (!context->comEnvironment)
        SK_Zprintf_2(kSourceFile, 0, L"%s Failed to get the Com Environment", L"initializeCom");
    else if (FAILED(context->comEnvironment->Status()))
        SK_Zprintf_2(kSourceFile, 0, L"%s Failed to Get Status", L"initializeCom");
}

unsigned RunReadThread(diskReadContextStruct *context) {
    // Our own id: the starter stores threadId only after the thread may already run.
    const int id = static_cast<int>(GetCurrentThreadId());
    SK_Zprintf_2(kSourceFile, 0, L"VixDiskLib_Read(): Read thread '%d' Start", id);
    if (!vddkcache::ImpersonateCaller(
            kSourceFile, context->impersonationToken,
            L"diskBroker::diskReadThread : ImpersonateLoggedOnUse failed! windows error = %u. Thread exiting..."))
        return 1;
    SK_Zprintf_2(kSourceFile, 0, L"diskBroker::diskReadThread : Running as user %s", Impersonator::WhoAmI().c_str());
    InitializeCom(context);
    while (WaitForSingleObject(context->startEvent, INFINITE) == WAIT_OBJECT_0 && !context->stopRequested)
        RunPass(context);
    if (context->impersonationToken) {
        CloseHandle(context->impersonationToken);
        context->impersonationToken = nullptr;
    }
    context->comEnvironment.reset();  // CoUninitialize belongs on this thread
    SK_Zprintf_2(kSourceFile, 0, L"VixDiskLib_Read(): Read thread '%d' Exit ", id);
    return 0;
}

unsigned __stdcall diskReadThread(void *argument) {
    return Guarded(L"diskReadThread", 1u,
                   [argument] { return RunReadThread(static_cast<diskReadContextStruct *>(argument)); });
}

// --- Job thread ----------------------------------------------------------------

bool PassOver(diskReadContextStruct *context) {
    return context->cancelRequested || context->endOfDisk || vddkcache::ReadError(context->errorCode) != 0;
}

// One waiting round on the filled queue. Besides the queue it watches the end
// of the pass, so the last round ends as soon as the read thread has left the
// pass instead of running out its second.
diskCacheBuffer *WaitForFilledBuffer(diskReadContextStruct *context) {
    HANDLE passEnded = context->passEndedEvent.get();
    if (diskCacheBuffer *buffer = vddkcache::WaitAndRemoveOr(context->filledQueue, passEnded, vddkcache::kQueueRoundMs))
        return buffer;
    // The read thread is out of the pass yet no flag says it ended: a round
    // that really waits, not a spin on the event.
    if (passEnded && !PassOver(context) && WaitForSingleObject(passEnded, 0) == WAIT_OBJECT_0)
        return context->filledQueue.WaitAndRemove(vddkcache::kQueueRoundMs);
    return nullptr;
}

diskCacheBuffer *TakeFilledBuffer(diskReadContextStruct *context) {
    if (context->drainBuffer) return context->drainBuffer;
    do {
        vddkcache::SampleDepth(context->depthHistogram, context->filledQueue.Count());
        if (diskCacheBuffer *buffer = WaitForFilledBuffer(context)) {
            context->drainBuffer = buffer;
            return buffer;
        }
    } while (!PassOver(context));
    context->readActive = 0;
    if (vddkcache::ReadError(context->errorCode) != 0)
        SK_Zprintf_2(kSourceFile, 0, L"Read thread: Error '%s' encountered during read.", context->errorText.c_str());
    else if (context->cancelRequested)
        SK_Zprintf_2(kSourceFile, 0, L"Read thread: %s", L"Cancel request received. Bailing out...");
    else
        SK_Zprintf_2(kSourceFile, 0, L"Read thread: %s", L" End of disk.");
    return nullptr;
}

long CopyOut(diskReadContextStruct *context, diskCacheBuffer *buffer, unsigned char *destination,
             unsigned int *length) {
    const uint64_t amount = std::min<uint64_t>(buffer->filled - buffer->consumed, *length);
    if (amount != 0) memcpy(destination, buffer->data + buffer->consumed, static_cast<size_t>(amount));
    *length = static_cast<unsigned int>(amount);
    buffer->consumed += amount;
    if (buffer->consumed == buffer->filled) {
        context->drainBuffer = nullptr;
        vddkcache::Recycle(buffer, context->freeQueue);
    }
    return 0;
}

}  // namespace

namespace vddkreadcache {

bool WaitUntilOutOfPass(diskReadContextStruct *context, DWORD milliseconds) {
    return WaitForThreadOr(context, context->passEndedEvent.get(), milliseconds);
}

}  // namespace vddkreadcache

long diskBroker::startReadCacheThread(diskReadContextStruct *context, unsigned long bufferCount,
                                      unsigned long bufferSizeKB, unsigned long raisePriority) {
    if (!context) return vddkcache::kResourceError;
    return Guarded(L"startReadCacheThread", vddkcache::kResourceError, [&]() -> long {
        if (!vddkcache::BufferSizesUsable(kSourceFile, L"diskBroker::startReadCacheThread()", L"read", bufferCount,
                                          bufferSizeKB))
            return vddkcache::kResourceError;
        long result = 0;
        context->startEvent = CreateEventW(nullptr, FALSE, FALSE, nullptr);
        if (!context->startEvent) {
            SK_Zprintf_2(kSourceFile, 0, L"%s Could not create the events. Cannot start the read cache",
                         L"diskBroker::startReadCacheThread()");
            result = vddkcache::kResourceError;
        }
        vddkcache::FreeHistogram(context->depthHistogram);
        ResetContext(context, true);
        SK_Zprintf_2(kSourceFile, 0, L"startReadCacheThread(): Allocating %d buffers of size %d",
                     static_cast<int>(bufferCount), static_cast<int>(bufferSizeKB));
        const wchar_t allocationFailed[] = L"Could not allocate the memory. Cannot start the read cache";
        if (!vddkcache::AllocateBuffers(kSourceFile, allocationFailed, bufferCount, bufferSizeKB, false, 0,
                                        context->allBuffers, context->freeQueue))
            result = vddkcache::kResourceError;
        context->depthHistogram = vddkcache::AllocateHistogram(static_cast<uint32_t>(bufferCount));
        if (!context->depthHistogram) {
            SK_Zprintf_2(kSourceFile, 0, allocationFailed);
            result = vddkcache::kResourceError;
        }
        if (result != 0) return result;

        const vddkcache::TokenMessages messages{
            L"diskBroker::startReadCacheThread : Thread is impersonating %s. Setting impersonation token for "
            L"diskReadThread.",
            L"diskBroker::startReadCacheThread : DuplicateToken failed! Windows error = %u",
            L"diskBroker::startReadCacheThread : Thread is not impersonating !",
            L"diskBroker::startReadCacheThread : OpenThreadToken failed ! windows error = %u"};
        result = vddkcache::CaptureCallerToken(kSourceFile, messages, context->impersonationToken);
        if (result != 0) return result;
        return vddkcache::StartCacheThread(kSourceFile, &diskReadThread, context, context->threadHandle,
                                           context->threadId,
                                           L"Could not create the thread. Cannot start the read cache", raisePriority,
                                           L"Thread's current priority is %d. Bumping it upto %d");
    });
}

long diskBroker::GetDiskCacheBuffer(diskReadContextStruct *context, unsigned char *destination, unsigned int *length) {
    if (!context || !length) return 0;
    if (!destination && *length != 0) return kReadError;  // nowhere to copy to
    return Guarded(L"GetDiskCacheBuffer", kReadError, [&]() -> long {
        if (const uint32_t error = vddkcache::ReadError(context->errorCode)) return static_cast<long>(error);
        if (diskCacheBuffer *buffer = TakeFilledBuffer(context)) return CopyOut(context, buffer, destination, length);
        if (const uint32_t error = vddkcache::ReadError(context->errorCode)) {
            SK_Zprintf_2(kSourceFile, 0, L"Main Thread: Read error encountered.");
            return static_cast<long>(error);
        }
        if (context->endOfDisk) {
            SK_Zprintf_2(kSourceFile, 0, L"Main Thread: End of Data. ");
            *length = 0;
            return kEndOfData;
        }
        return 0;  // cancelled
    });
}

long diskBroker::closeReadCacheThread(diskReadContextStruct *context) {
    if (!context) return 0;
    return Guarded(L"closeReadCacheThread", 0L, [&]() -> long {
        if (context->readActive) {
            context->cancelRequested = 1;
            SetEvent(context->cancelEvent.get());
        }
        const bool outOfPass = WaitUntilOutOfPass(context, kCloseGraceMs);
        vddkcache::LogHistogram(kSourceFile, context->depthHistogram,
                                L"TRPX Buffered Reads Performance Tuning Analysis. Total no of reads: '%I64d'",
                                L"\t Read Buffer Depth: '%d'    Occurences: '%d'");
        ResetContext(context, outOfPass);
        return 0;
    });
}

long diskBroker::stopReadCacheThread(diskReadContextStruct *context) {
    if (!context) return 0;
    return Guarded(L"stopReadCacheThread", 0L, [&]() -> long {
        context->stopRequested = 1;
        // Meant for an idle thread; one still in a pass is asked to leave it.
        context->cancelRequested = 1;
        SetEvent(context->cancelEvent.get());
        if (context->startEvent) SetEvent(context->startEvent);
        // The thread reads the context while it leaves; freeing under it would
        // be a use after free, so give it a bounded moment to go.
        const bool threadGone =
            !context->threadHandle || WaitForSingleObject(context->threadHandle, kStopGraceMs) == WAIT_OBJECT_0;
        if (!threadGone) {
            // Still inside a pass (a VMware call that does not return): what it
            // may touch is left to it, a leak rather than memory freed in use.
            SK_Zprintf_2(kSourceFile, 0,
                         L"diskBroker::stopReadCacheThread() The read thread '%d' has not left after %d ms; its "
                         L"buffers, histogram and extent reader are kept.",
                         static_cast<int>(context->threadId), static_cast<int>(kStopGraceMs));
            context->allBuffers = nullptr;
            context->depthHistogram = nullptr;
            context->extentReader = nullptr;
            context->startEvent = nullptr;
        }
        vddkcache::EmptyQueue(context->freeQueue);
        vddkcache::EmptyQueue(context->filledQueue);
        context->fillBuffer = nullptr;
        context->drainBuffer = nullptr;
        vddkcache::FreeBuffers(context->allBuffers);
        vddkcache::FreeHistogram(context->depthHistogram);
        delete context->extentReader;
        context->extentReader = nullptr;
        if (threadGone) {  // else the thread closes both as it leaves: COM ends on its own thread
            if (context->impersonationToken) CloseHandle(context->impersonationToken);
            context->impersonationToken = nullptr;
            context->comEnvironment.reset();
        }
        if (context->startEvent) CloseHandle(context->startEvent);
        context->startEvent = nullptr;
        if (context->threadHandle) CloseHandle(context->threadHandle);
        context->threadHandle = nullptr;
        return 0;
    });
}
