#include "caches.h"

#include <algorithm>
#include <vector>

#include <vddkcache.h>

#include "console.h"
#include "extents.h"
#include "errors.h"
#include "files.h"
#include "interrupt.h"

namespace dbtool {
namespace {

constexpr long kEndOfData = 0x2000FE0C;
// The stopped cache thread only has to notice its stop flag and return.
constexpr DWORD kThreadExitTimeoutMs = 30000;

std::wstring ResultText(long result) { return Hex32(static_cast<uint32_t>(result)); }

// A second handle on the cache thread, taken before the stop call closes the
// context's own, so we can wait for the thread to leave the context alone.
HANDLE DuplicateThread(HANDLE thread) {
    HANDLE copy = nullptr;
    if (thread) DuplicateHandle(GetCurrentProcess(), thread, GetCurrentProcess(), &copy, SYNCHRONIZE, FALSE, 0);
    return copy;
}

// True when the thread has left; a context it may still touch must not be freed.
bool WaitForExit(HANDLE copy) {
    if (!copy) return true;
    const bool left = WaitForSingleObject(copy, kThreadExitTimeoutMs) == WAIT_OBJECT_0;
    CloseHandle(copy);
    return left;
}

template <typename Context>
void ReleaseContext(std::unique_ptr<Context> &context, HANDLE threadCopy, const wchar_t *which) {
    if (WaitForExit(threadCopy)) {
        context.reset();
        return;
    }
    // Leaking beats freeing memory a live thread reads.
    ErrLine(std::wstring(L"warning: the ") + which + L" cache thread did not stop in time");
    context.release();
}

}  // namespace

ReadCache::ReadCache(Service &service, const CacheTuning &tuning)
    : service_(service), tuning_(tuning), context_(std::make_unique<diskReadContextStruct>()) {
    const long result = service_.Broker().startReadCacheThread(context_.get(), tuning.bufferCount, tuning.bufferKB,
                                                               tuning.raisePriority ? 1 : 0);
    if (result != 0) {
        HANDLE copy = DuplicateThread(context_->threadHandle);
        service_.Broker().stopReadCacheThread(context_.get());
        ReleaseContext(context_, copy, L"read");
        throw Failure(L"the read cache could not start (" + ResultText(result) + L", see the log)");
    }
}

ReadCache::~ReadCache() {
    if (!context_) return;
    HANDLE copy = DuplicateThread(context_->threadHandle);
    service_.Broker().stopReadCacheThread(context_.get());
    context_->broker.reset();
    ReleaseContext(context_, copy, L"read");
}

namespace {

// The Sink form: one buffer of the cache's size, reused for every piece.
class SinkTarget : public ReadCache::Target {
public:
    SinkTarget(size_t bytes, const ReadCache::Sink &sink) : chunk_(bytes), sink_(sink) {}
    uint8_t *Borrow(size_t *capacity) override {
        *capacity = chunk_.size();
        return chunk_.data();
    }
    void Take(size_t length) override { sink_(chunk_.data(), length); }

private:
    std::vector<uint8_t> chunk_;
    const ReadCache::Sink &sink_;
};

}  // namespace

DepthReading ReadCache::Stream(Disk &disk, const std::wstring &listPath, const std::wstring &metadataPath,
                               uint64_t expectedBytes, const Sink &sink) {
    SinkTarget target(static_cast<size_t>(tuning_.bufferKB) * 1024, sink);
    return Stream(disk, listPath, metadataPath, expectedBytes, target);
}

uint64_t ReadCache::Drain(Disk &disk, uint64_t expectedBytes, Target &target) {
    diskReadContextStruct &ctx = *context_;
    uint8_t *buffer = nullptr;
    size_t capacity = 0, filled = 0;
    uint64_t delivered = 0;
    for (;;) {
        if (Interrupted()) ThrowIfInterrupted(L"reading '" + disk.Path() + L"'");
        if (!buffer) buffer = target.Borrow(&capacity), filled = 0;
        unsigned int length = static_cast<unsigned int>(std::min<size_t>(capacity - filled, 1u << 30));
        const long result = service_.Broker().GetDiskCacheBuffer(&ctx, buffer + filled, &length);
        if (result == kEndOfData) break;
        if (result != 0)
            throw Failure(L"reading '" + disk.Path() + L"' failed: " +
                          (ctx.errorText.empty() ? std::wstring(L"see the log") : std::wstring(ctx.errorText)) + L" (" +
                          ResultText(result) + L")");
        if (length > capacity - filled || delivered + length > expectedBytes)
            throw Failure(L"the read cache delivered more than the " + std::to_wstring(expectedBytes) +
                          L" bytes the list names");
        filled += length, delivered += length;
        if (filled == capacity) target.Take(filled), buffer = nullptr;
    }
    if (buffer && filled != 0) target.Take(filled);
    return delivered;
}

DepthReading ReadCache::Stream(Disk &disk, const std::wstring &listPath, const std::wstring &metadataPath,
                               uint64_t expectedBytes, Target &target) {
    diskReadContextStruct &ctx = *context_;
    diskBroker &broker = service_.Broker();
    DeleteIfExists(metadataPath);  // the export refuses to overwrite
    ctx.broker = service_.Shared();
    ctx.diskHandle = disk.Handle();
    ctx.extentFilePath = listPath;
    ctx.metadataFilePath = metadataPath;
    const long started = broker.startDiskReadBuffer(&ctx);
    if (started != 0) {
        broker.closeReadCacheThread(&ctx);
        throw Failure(L"the read pass could not start with the list '" + listPath + L"' (" + ResultText(started) + L")");
    }
    auto close = skclass::MakeScopeExit([&] { broker.closeReadCacheThread(&ctx); });
    const uint64_t delivered = Drain(disk, expectedBytes, target);
    if (delivered != expectedBytes)
        throw Failure(L"the read cache delivered " + std::to_wstring(delivered) + L" bytes, the list names " +
                      std::to_wstring(expectedBytes));
    DepthReading reading = DepthReading::Of(ctx.depthHistogram);
    close.Dismiss();
    const long closed = broker.closeReadCacheThread(&ctx);
    if (closed != 0) throw Failure(L"the read pass did not close cleanly (" + ResultText(closed) + L")");
    if (!PathExists(metadataPath))
        throw Failure(L"the metadata export '" + metadataPath + L"' was not written (see the log)");
    return reading;
}

WriteCache::WriteCache(Service &service, const CacheTuning &tuning)
    : service_(service), tuning_(tuning), context_(std::make_unique<diskWriteContextStruct>()) {
    const long result = service_.Broker().startWriteCacheThread(context_.get(), tuning.bufferCount, tuning.bufferKB,
                                                                tuning.raisePriority ? 1 : 0, tuning.minRunKB);
    if (result != 0) {
        HANDLE copy = DuplicateThread(context_->threadHandle);
        service_.Broker().stopWriteCacheThread(context_.get());
        ReleaseContext(context_, copy, L"write");
        throw Failure(L"the write cache could not start (" + ResultText(result) + L", see the log)");
    }
}

WriteCache::~WriteCache() {
    if (!context_) return;
    if (passOpen_) service_.Broker().closeWriteCacheThread(context_.get());
    HANDLE copy = DuplicateThread(context_->threadHandle);
    service_.Broker().stopWriteCacheThread(context_.get());
    context_->broker.reset();
    ReleaseContext(context_, copy, L"write");
}

void WriteCache::Begin(Disk &disk) {
    diskWriteContextStruct &ctx = *context_;
    ctx.broker = service_.Shared();
    ctx.diskHandle = disk.Handle();
    queuedBytes_ = 0;
    const long result = service_.Broker().startDiskWriteBuffer(&ctx);
    if (result != 0) throw Failure(L"the write pass could not start (" + ResultText(result) + L")");
    passOpen_ = true;
}

void WriteCache::ThrowPassError(const std::wstring &what, long result) {
    const std::wstring text = context_->errorText;
    throw Failure(what + L": " + (text.empty() ? std::wstring(L"see the log") : text) + L" (" + ResultText(result) + L")");
}

void WriteCache::Put(const uint8_t *data, uint64_t startSector, uint64_t sectorCount) {
    const long result = service_.Broker().PutDiskCacheBuffer(context_.get(), const_cast<unsigned char *>(data),
                                                             startSector, sectorCount);
    if (result != 0) ThrowPassError(L"writing the disk failed", result);
    queuedBytes_ += sectorCount * kSectorSize;
}

DepthReading WriteCache::End() {
    diskWriteContextStruct &ctx = *context_;
    DepthReading reading = DepthReading::Of(ctx.depthHistogram);
    // Read only by the close on this thread.
    ctx.diskSize = queuedBytes_;
    passOpen_ = false;
    const long closed = service_.Broker().closeWriteCacheThread(&ctx);
    if (closed != 0) ThrowPassError(L"the write pass did not close cleanly", closed);
    return reading;
}

}  // namespace dbtool
