// The write thread of the write-behind cache: takes filled buffers and writes
// each buffer's sector runs through diskBroker::VixDiskLib_Write. The first
// failure ends the pass and discards what is queued behind it.
#include <utility>

#include <diskbroker.h>
#include <skclass_mini/handles.h>
#include <skclass_mini/impersonator.h>
#include <skstdutl/sklog.h>

#include "diskbroker_private.h"
#include "vddkcache_common.h"
#include "vddkwritecache_internal.h"

namespace writecache_detail {
namespace {

// A write without a disk fails as VDDK fails a write on a bad handle.
constexpr VixError kNoDiskHandleError = VIX_E_INVALID_HANDLE;
const wchar_t kWriteExtents[] = L"diskBroker::WriteDiskExtents()";

// The buffer to write next: the current one, else one from filledQueue in
// rounds of kQueueRoundMs that end once the pass is over (cancel, end of
// data, stop). Null when there is none; a buffer that arrives after a
// failure is recycled unwritten.
diskCacheBuffer *TakeFilledBuffer(diskWriteContextStruct &context) {
    if (context.drainBuffer) return context.drainBuffer;
    diskCacheBuffer *buffer = nullptr;
    do {
        vddkcache::SampleDepth(context.depthHistogram, context.filledQueue.Count());
        buffer = vddkcache::WaitAndRemoveOr(context.filledQueue, context.endOfDataEvent.get(), vddkcache::kQueueRoundMs);
    } while (!buffer && !context.cancelRequested && !context.endOfData && !context.stopRequested);
    if (!buffer) {
        SK_Zprintf_2(kSourceFile, 0, L"Write thread: %s",
                     context.cancelRequested ? L"Write Error or Cancel request received. Bailing out..."
                                             : L" End of disk.");
        return nullptr;
    }
    if (context.cancelRequested) {
        SK_Zprintf_2(kSourceFile, 0, L"Write thread: write error encountered earlier. Flushing the current buffer ");
        vddkcache::Recycle(buffer, context.freeQueue);
        return nullptr;
    }
    context.drainBuffer = buffer;
    return buffer;
}

// Records the first failure, cancels the pass (the job thread sees errorCode
// on its next put) and returns every buffer of the pass to freeQueue.
void FailPass(diskWriteContextStruct &context, const diskCacheRun &run, VixError error) {
    wcstring text;
    if (context.broker) context.broker->GetErrorText(error, text);
    vddkcache::PublishError(context.errorText, text, context.errorCode, static_cast<uint32_t>(kWriteFailed));
    SK_Zprintf_2(kSourceFile, 0,
                 L"%s Could not write to the disk. start Sector: '%I64d', Num of sectors: '%I64d' Error Text: '%s' "
                 L"Error: '%I64d' ",
                 kWriteExtents, run.startSector, run.sectorCount, text.c_str(), error);
    context.cancelRequested = 1;
    vddkcache::Recycle(context.drainBuffer, context.freeQueue);
    context.drainBuffer = nullptr;
    DiscardFilledBuffers(context, vddkcache::kQueueRoundMs);
}

// Writes the runs of drainBuffer in table order and recycles it once all its
// bytes are out. False after a failure.
bool WriteBufferRuns(diskWriteContextStruct &context) {
    diskCacheBuffer &buffer = *context.drainBuffer;
    const diskCacheRunTable &table = *buffer.runTable;
    for (uint32_t i = 0; i < table.runsUsed; ++i) {
        const diskCacheRun run = table.runs[i];
        VixError result = kNoDiskHandleError;
        if (context.diskHandle && context.broker)
            result = context.broker->VixDiskLib_Write(context.diskHandle, run.startSector, run.sectorCount,
                                                      buffer.data + buffer.consumed);
        if (result != VIX_OK) {
            FailPass(context, run, result);
            return false;
        }
        const uint64_t bytes = run.sectorCount * context.sectorSize;
        buffer.consumed += bytes;
        context.bytesWritten = context.bytesWritten + bytes;
    }
    // Checked after the loop so that a buffer without runs (an empty last
    // buffer handed on by close) is recycled too instead of staying current.
    if (buffer.consumed == buffer.filled) {
        vddkcache::Recycle(&buffer, context.freeQueue);
        context.drainBuffer = nullptr;
    }
    return true;
}

// One write pass: buffers until the last one, the end of data or a failure.
long WriteDiskExtents(diskWriteContextStruct &context) {
    bool lastCame = false;
    bool failed = false;
    while (!lastCame) {
        diskCacheBuffer *buffer = TakeFilledBuffer(context);
        if (!buffer) break;
        if (buffer->isLast) {
            SK_Zprintf_2(kSourceFile, 0, L"%s Acknowledged the receipt of the last buffer. ", kWriteExtents);
            buffer->isLast = 0;
            lastCame = true;
        }
        if (!WriteBufferRuns(context)) failed = true;
        if (context.drainBuffer) {
            // Runs and bytes disagree: nothing can write the rest, so the
            // buffer goes back rather than being taken again for ever.
            SK_Zprintf_2(kSourceFile, 0, L"%s Buffer is not empty...", kWriteExtents);
            vddkcache::Recycle(context.drainBuffer, context.freeQueue);
            context.drainBuffer = nullptr;
        }
    }
    SK_Zprintf_2(kSourceFile, 0, L"%s Suspending the write thread", kWriteExtents);
    context.writerBusy = 0;
    SetEvent(context.writerLeftPassEvent.get());
    return failed ? kWriteFailed : 0;
}

unsigned RunWriteThread(diskWriteContextStruct &context) {
    // The thread owns the job's token from here on and closes it on exit.
    skclass::UniqueHandle token(std::exchange(context.impersonationToken, nullptr));
    if (!vddkcache::ImpersonateCaller(
            kSourceFile, token.get(),
            L"diskBroker::diskWriteThread : ImpersonateLoggedOnUse failed! Windows error = %u. Thread exiting..."))
        return 1;
    SK_Zprintf_2(kSourceFile, 0, L"diskBroker::diskWriteThread : Running as user %s",
                 Impersonator::WhoAmI().c_str());
    for (;;) {
        if (WaitForSingleObject(context.startEvent, INFINITE) != WAIT_OBJECT_0 || context.stopRequested) break;
        context.writerBusy = 1;
        WriteDiskExtents(context);
    }
    SK_Zprintf_2(kSourceFile, 0, L"VixDiskLib_Write(): Write thread '%d' Exit ", context.threadId);
    return 0;
}

}  // namespace

unsigned __stdcall diskWriteThread(void *context) {
    return diskbroker_detail::Guarded<unsigned>(L"diskWriteThread", 1u, [&] {
        return RunWriteThread(*static_cast<diskWriteContextStruct *>(context));
    });
}

void DiscardFilledBuffers(diskWriteContextStruct &context, DWORD waitMs) {
    while (diskCacheBuffer *buffer = context.filledQueue.WaitAndRemove(waitMs))
        vddkcache::Recycle(buffer, context.freeQueue);
}

}  // namespace writecache_detail
