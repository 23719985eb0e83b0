// A diskBroker on the VDDK stand-in (the service tests' fixture) with what the
// read-cache tests need around it: disks to read (memory disks and sparse
// VMDK files written through the broker), extent-list files, a cache context
// that is always closed and stopped, and a streaming loop that records every
// length GetDiskCacheBuffer hands back.
#pragma once

#include <stdint.h>

#include <memory>
#include <string>
#include <vector>

#include <dbtest/wait.h>

#include "service_fixture.h"

namespace readcachetest {

using dbtest::kTimeoutMs;  // for what must happen

constexpr long kEndOfData = static_cast<long>(0x2000FE0Cu);
constexpr long kReadError = static_cast<long>(0xE0009578u);
constexpr long kXmlError = static_cast<long>(0xE0009588u);
constexpr long kMetadataKeysError = static_cast<long>(0xE000957Au);

// Byte values as an extent list carries them.
struct Extent {
    uint64_t offset;
    uint64_t length;
};
using Area = std::vector<Extent>;

using servicetest::AllModels;
using servicetest::Model;
using servicetest::ModelName;

// A context whose thread is always stopped before it goes away.
class CacheContext {
public:
    explicit CacheContext(diskBroker &service) : service_(service) {}
    ~CacheContext();
    long Start(unsigned long bufferCount, unsigned long bufferSizeKB);
    long Close() { return service_.closeReadCacheThread(&context); }
    diskReadContextStruct context;

private:
    diskBroker &service_;
    bool started_ = false;
};

// What one pass delivered.
struct Stream {
    std::vector<uint8_t> bytes;
    std::vector<unsigned> lengths;  // of every call that returned 0
    long lastResult = 0;
    bool cancelled = false;  // ended by a call that returned 0 and left the length alone
};

class ReadCacheTest : public servicetest::ConnectedServiceTest {
protected:
    void TearDown() override;
    // Opens path as `disk` and starts `cache` over it with bufferCount buffers
    // of bufferSizeKB, prepared for a pass over areas; a disk and cache opened
    // before go first. The cache is closed before the disk: a read thread may
    // still be reading it.
    ::testing::AssertionResult OpenWithCache(const std::string &path, unsigned long bufferCount,
                                             unsigned long bufferSizeKB, const std::vector<Area> &areas);
    void CloseDiskAndCache();
    // A sparse VMDK of capacity sectors in the data folder; each run of
    // `written` (first sector, count) is filled with the memory-disk pattern
    // of seed. Returns its UTF-8 path.
    std::string CreateSparseDisk(const std::wstring &name, uint64_t capacity,
                                 const std::vector<Extent> &writtenSectors, uint64_t seed);
    // An extent-list file in the data folder.
    std::wstring WriteExtentList(const std::wstring &name, const std::vector<Area> &areas);
    std::wstring WriteFileText(const std::wstring &name, const std::string &text);
    // What the cache must deliver: each extent's whole sectors, read directly.
    std::vector<uint8_t> DirectRead(_vixReadWriteHandle *handle, const std::vector<Area> &areas);

    // Points context at a disk, its list and a fresh metadata file name.
    void Prepare(diskReadContextStruct &context, _vixReadWriteHandle *handle, const std::wstring &extentList);
    // startDiskReadBuffer, then GetDiskCacheBuffer with requestBytes until a
    // result other than 0, or a call that ends a cancelled pass.
    ::testing::AssertionResult StreamPass(diskReadContextStruct &context, unsigned requestBytes, Stream &stream,
                                          size_t maxCalls = 100000);

    unsigned metadataFiles = 0;
    _vixReadWriteHandle *disk = nullptr;
    std::unique_ptr<CacheContext> cache;
};

}  // namespace readcachetest
