// The library's read-ahead and write-behind caches in the calling order a job
// uses: one cache thread per object, one pass per disk. The destructor stops
// the thread and waits for it to leave before the context record is freed.
#pragma once
#include <stdint.h>

#include <functional>
#include <memory>
#include <string>

#include "observe.h"
#include "session.h"

namespace dbtool {

struct CacheTuning {
    unsigned long bufferCount = 8;
    unsigned long bufferKB = 1024;
    bool raisePriority = false;
    // Write cache: a buffer holds up to bufferKB / minRunKB + 1 separate runs.
    unsigned long minRunKB = 1;
};

class ReadCache {
public:
    using Sink = std::function<void(const uint8_t *data, size_t length)>;
    // Buffers the caller lends the pass: the cache copies straight into them,
    // so data bound for worker threads is not copied a second time.
    class Target {
    public:
        virtual ~Target() = default;
        // A buffer for the next bytes of the stream, and its size.
        virtual uint8_t *Borrow(size_t *capacity) = 0;
        // The borrowed buffer holds the next length bytes: full, or the last.
        virtual void Take(size_t length) = 0;
    };

    ReadCache(Service &service, const CacheTuning &tuning);
    ~ReadCache();
    ReadCache(const ReadCache &) = delete;
    ReadCache &operator=(const ReadCache &) = delete;

    // One pass over disk: the metadata export goes to metadataPath (which must
    // not exist), then the bytes of the extents that listPath names reach sink
    // in order. Throws Failure when the pass fails or delivers other than
    // expectedBytes. Returns the reading of the depth histogram.
    DepthReading Stream(Disk &disk, const std::wstring &listPath, const std::wstring &metadataPath,
                        uint64_t expectedBytes, const Sink &sink);
    // The same pass into the target's buffers, each filled before it is taken.
    DepthReading Stream(Disk &disk, const std::wstring &listPath, const std::wstring &metadataPath,
                        uint64_t expectedBytes, Target &target);

private:
    // Copies the pass into target until the end of data; returns the bytes.
    uint64_t Drain(Disk &disk, uint64_t expectedBytes, Target &target);

    Service &service_;
    CacheTuning tuning_;
    std::unique_ptr<diskReadContextStruct> context_;
};

class WriteCache {
public:
    WriteCache(Service &service, const CacheTuning &tuning);
    ~WriteCache();
    WriteCache(const WriteCache &) = delete;
    WriteCache &operator=(const WriteCache &) = delete;

    // Starts a pass on disk.
    void Begin(Disk &disk);
    // Queues sectorCount sectors from data for the sectors from startSector on.
    void Put(const uint8_t *data, uint64_t startSector, uint64_t sectorCount);
    // Flushes, waits for the writer, ends the pass; returns the depth reading.
    // The library compares what it wrote with what was queued and logs a
    // difference (see LogWatch::TakeProblems).
    DepthReading End();

private:
    [[noreturn]] void ThrowPassError(const std::wstring &what, long result);

    Service &service_;
    CacheTuning tuning_;
    std::unique_ptr<diskWriteContextStruct> context_;
    bool passOpen_ = false;
    uint64_t queuedBytes_ = 0;
};

}  // namespace dbtool
