// Start-up and buffer plumbing shared by the read-ahead and write-behind caches.
// Every function that logs takes the calling cache's source file name
// (SK_SOURCE_FILE of vddkreadcache.cpp or vddkwritecache.cpp) and the exact
// message texts of that cache, so each line names the cache it belongs to.
#pragma once

#include <stdint.h>

#include <atomic>

#include <skclass_mini/strings.h>
#include <skclass_mini/win.h>
#include <vddkcache.h>

namespace vddkcache {

// Results both caches use (32-bit product codes).
constexpr long kResourceError = static_cast<long>(0xE0008442u);  // event, buffer or thread
constexpr long kTokenError = static_cast<long>(0xE0008488u);     // token not duplicated

// One wait on a queue's semaphore; the waiting side rechecks its flags after each.
constexpr DWORD kQueueRoundMs = 1000;

// --- Buffers ----------------------------------------------------------------

// Most buffers one cache may ask for; beyond it a count is a fault, not a
// setting (each failed buffer would cost a log line, and a pass no more speed).
constexpr unsigned long kMaxBufferCount = 65536;
// Largest size whose byte count still fits the 32 bits it is computed in.
constexpr unsigned long kMaxBufferSizeKB = 0xFFFFFFFFu / 1024u;

// Whether a cache can be built from these sizes: no buffer of 0 bytes (no
// sector ever fits, so the pass never moves), no size that wraps in 32 bits,
// no absurd count. When not, logs "<startName>: <what is wrong>. Cannot start
// the <cacheName> cache" and returns false.
bool BufferSizesUsable(const wchar_t *sourceFile, const wchar_t *startName, const wchar_t *cacheName,
                       unsigned long bufferCount, unsigned long bufferSizeKB);

// Allocates bufferCount buffers of bufferSizeKB x 1024 bytes (computed in 32
// bits: BufferSizesUsable keeps that from wrapping) with index 0..bufferCount-1, pushes each onto
// allBuffers (newest first) and appends it to freeQueue. With withRunTables,
// each buffer also gets a zeroed run table with runCapacity set and room for
// runCapacity + 1 runs. A buffer that cannot be allocated whole is freed,
// failureMessage (no arguments) is logged and the loop goes on. Returns false
// when any buffer failed.
bool AllocateBuffers(const wchar_t *sourceFile, const wchar_t *failureMessage, unsigned long bufferCount,
                     unsigned long bufferSizeKB, bool withRunTables, uint32_t runCapacity,
                     diskCacheBuffer *&allBuffers, diskCacheQueue &freeQueue);

// Frees every buffer on the allBuffers list (data, run table, record), whichever
// queue or slot still points at it, and clears the list.
void FreeBuffers(diskCacheBuffer *&allBuffers);

// Empties a buffer (filled, consumed, isLast, and its run table if any) and
// appends it to freeQueue.
void Recycle(diskCacheBuffer *buffer, diskCacheQueue &freeQueue);

// Appends slot's buffer (if any) to queue and clears slot.
void HandOn(diskCacheBuffer *&slot, diskCacheQueue &queue);

// One waiting round on queue that also ends when wake (nullable) is
// signalled: the removed head when the queue's semaphore was signalled
// (a queued buffer wins over wake), else null.
diskCacheBuffer *WaitAndRemoveOr(diskCacheQueue &queue, HANDLE wake, DWORD milliseconds);

// Returns slot's buffer if set; otherwise waits in kQueueRoundMs rounds on
// freeQueue until a buffer comes (stored in slot and returned) or cancelRequested
// is found set after a round without one: then logs cancelMessage (no arguments)
// and returns null. cancelEvent (nullable), set together with the flag, ends a
// round early.
diskCacheBuffer *TakeEmptyBuffer(const wchar_t *sourceFile, diskCacheQueue &freeQueue, diskCacheBuffer *&slot,
                                 const std::atomic<unsigned char> &cancelRequested, HANDLE cancelEvent,
                                 const wchar_t *cancelMessage);

// Forgets every queued buffer and takes the semaphore back to 0, so a queue
// whose buffers were freed holds no dangling pointers.
void EmptyQueue(diskCacheQueue &queue);

// --- Depth histogram ----------------------------------------------------------

// One zeroed block with bucketCount + 1 counters; null when out of memory.
bufferDepthHistogram *AllocateHistogram(uint32_t bucketCount);
// Counters and totalSamples to 0, bucketCount kept. Null does nothing.
void ResetHistogram(bufferDepthHistogram *histogram);
void FreeHistogram(bufferDepthHistogram *&histogram);
// Counts one sample of depth (clamped to bucketCount). Null does nothing.
void SampleDepth(bufferDepthHistogram *histogram, uint32_t depth);
// Logs headerFormat with totalSamples (%I64d), then lineFormat with each depth
// 0..bucketCount and its counter (%d, %d). Null does nothing.
void LogHistogram(const wchar_t *sourceFile, const bufferDepthHistogram *histogram, const wchar_t *headerFormat,
                  const wchar_t *lineFormat);

// --- Identity and thread ----------------------------------------------------

// The texts of the token hand-over, each the calling cache's own.
struct TokenMessages {
    const wchar_t *impersonating;     // %s: the user (Impersonator::WhoAmI)
    const wchar_t *duplicateFailed;   // %u: GetLastError of DuplicateToken
    const wchar_t *notImpersonating;  // no arguments: OpenThreadToken gave 1008
    const wchar_t *openFailed;        // %u: any other OpenThreadToken error
};

// Captures the calling thread's impersonation token (OpenThreadToken with
// TOKEN_DUPLICATE | TOKEN_QUERY, not as self) as a SecurityImpersonation
// duplicate in token. A thread that is not impersonating, or whose token cannot
// be opened, leaves token null and gives 0; a failed duplicate gives
// kTokenError. The opened token is closed on every path. token is left
// untouched unless a duplicate is made.
long CaptureCallerToken(const wchar_t *sourceFile, const TokenMessages &messages, HANDLE &token);

// On the cache thread: impersonates token if set. On failure logs
// failureMessage with GetLastError (%u) and returns false (the thread exits).
bool ImpersonateCaller(const wchar_t *sourceFile, HANDLE token, const wchar_t *failureMessage);

using ThreadEntry = unsigned(__stdcall *)(void *);

// Starts entry(argument) with _beginthreadex (default stack, running) into
// threadHandle and threadId. On failure logs failureMessage (no arguments) and
// returns kResourceError. With raisePriority non-zero, raises the thread to
// THREAD_PRIORITY_ABOVE_NORMAL and, if that worked, logs priorityMessage with
// the old priority and the new one (%d, %d); a failure there is silent.
long StartCacheThread(const wchar_t *sourceFile, ThreadEntry entry, void *argument, HANDLE &threadHandle,
                      uint32_t &threadId, const wchar_t *failureMessage, unsigned long raisePriority,
                      const wchar_t *priorityMessage);

// Records a failure for the other side: the text first, then the code, so a
// thread that sees the code also sees its text.
void PublishError(wcstring &errorText, const wcstring &text, std::atomic<uint32_t> &errorCode, uint32_t code);
// Reads a code written by PublishError; once non-zero, its text may be read.
uint32_t ReadError(const std::atomic<uint32_t> &errorCode);

}  // namespace vddkcache
