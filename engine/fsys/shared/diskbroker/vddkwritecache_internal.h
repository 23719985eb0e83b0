// The write-behind cache's pieces shared by its two sources: the exported
// calls (vddkwritecache.cpp) and the write thread (vddkwritecache_writer.cpp).
#pragma once

#include <vddkcache.h>

namespace writecache_detail {

// Every log line of the cache names vddkwritecache.cpp, whichever of its
// sources logs it.
extern const wchar_t *const kSourceFile;

constexpr long kWriteFailed = static_cast<long>(0xE0009579);

// The write thread (_beginthreadex): impersonates the job's token, then runs
// one write pass per signal of startEvent until stopRequested. Exit code 1
// when the token cannot be impersonated, else 0.
unsigned __stdcall diskWriteThread(void *context);

// Moves every buffer queued in filledQueue back to freeQueue unwritten,
// waiting up to waitMs for each next one; returns when a wait times out.
void DiscardFilledBuffers(diskWriteContextStruct &context, DWORD waitMs);

}  // namespace writecache_detail
