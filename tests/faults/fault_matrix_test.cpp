// The fault matrix: each VDDK entry point a cache pass calls x {fails once,
// fails always, takes 200 ms}, in every threading model. Each combination
// ends with the result the caches promise for it, within the bounded waits
// of the test, and a write pass writes nothing it was not given.
#include <atomic>
#include <thread>

#include <vddksim.h>

#include "fault_matrix.h"
#include "readcache_fixture.h"

namespace faulttest {
namespace {

using readcachetest::AllModels;
using readcachetest::Area;
using readcachetest::CacheContext;
using readcachetest::kEndOfData;
using readcachetest::kMetadataKeysError;
using readcachetest::kReadError;
using readcachetest::ModelName;
using readcachetest::Stream;

constexpr long kWriteFailed = static_cast<long>(0xE0009579u);
constexpr uint64_t kDiskBytes = 131072;  // two 64 KB buffers

class FaultMatrixTest : public servicetest::InEachModel<readcachetest::ReadCacheTest> {
protected:
    void Inject(const char *function, Fault fault) { ASSERT_TRUE(faulttest::Inject(sim, function, fault)); }
    // One read pass over the first kDiskBytes of path; the stream's result.
    long ReadPass(const std::string &path, Stream &stream) {
        _vixReadWriteHandle *handle = OpenDisk(path);
        if (!handle) return -1;
        long result = -1;
        {
            CacheContext cache(*service);
            if (cache.Start(2, 64) == 0) {
                Prepare(cache.context, handle, WriteExtentList(L"pass.xml", {{{0, kDiskBytes}}}));
                if (StreamPass(cache.context, 65536, stream)) result = stream.lastResult;
            }
        }
        sim.VddkSim_Reset();
        CloseDisk(handle);
        return result;
    }
};

// Metadata keys: the length probe's result is not looked at, so a failure of
// either call fails the pass with the key-list result. Reads: a failure fails
// the pass with the read result. A metadata value that fails once is asked for
// again: the pass is whole. Slow is only slow.
TEST_P(FaultMatrixTest, ReadPassEndsWithThePromisedResult) {
    const std::string sparse = CreateSparseDisk(L"faults.vmdk", kDiskBytes / 512, {{0, kDiskBytes / 512}}, 3);
    _vixReadWriteHandle *reference = OpenDisk(sparse);
    ASSERT_NE(reference, nullptr);
    const std::vector<uint8_t> expected = DirectRead(reference, {{{0, kDiskBytes}}});
    CloseDisk(reference);
    const struct {
        const char *function;
        long once, always;  // kEndOfData: the pass is whole; 0: not here
    } entryPoints[] = {{"VixDiskLib_GetMetadataKeys", kMetadataKeysError, kMetadataKeysError},
                       {"VixDiskLib_Read", kReadError, kReadError},
                       {"VixDiskLib_ReadMetadata", kEndOfData, 0}};  // always: AMetadataValueThatFailsAlways...
    for (const auto &entry : entryPoints) {
        for (Fault fault : kFaults) {
            const long promised =
                fault == Fault::Once ? entry.once : fault == Fault::Always ? entry.always : kEndOfData;
            if (promised == 0) continue;
            SCOPED_TRACE(std::string(entry.function) + " " + FaultName(fault));
            Inject(entry.function, fault);
            Stream stream;
            EXPECT_EQ(ReadPass(sparse, stream), promised);
            if (promised == kEndOfData) {
                EXPECT_EQ(stream.bytes, expected);
            } else {
                EXPECT_LE(stream.bytes.size(), expected.size());
            }
        }
    }
}

// The text of a failure: VDDK giving none (once or always) or taking 200 ms
// leaves the failure as it was, logged with an empty text or its own.
TEST_P(FaultMatrixTest, AFailureWhoseTextFailsOrIsSlowEndsTheSame) {
    const std::string sparse = CreateSparseDisk(L"text.vmdk", kDiskBytes / 512, {{0, kDiskBytes / 512}}, 3);
    for (Fault fault : kFaults) {
        SCOPED_TRACE(FaultName(fault));
        Inject("VixDiskLib_GetErrorText", fault);
        ASSERT_EQ(sim.ScriptResult("VixDiskLib_Read", 1, VIX_E_DISK_NOIO), 1);
        log.Clear();
        Stream stream;
        EXPECT_EQ(ReadPass(sparse, stream), kReadError);
        const std::wstring text = fault == Fault::Slow ? VddkErrorText(VIX_E_DISK_NOIO) : std::wstring();
        EXPECT_EQ(log.CountStartingWith(L"diskBroker::ReadDiskExtents() Could not read the disk. start Sector: '0', "
                                        L"Num of sectors: '128' Error Text: '" +
                                        text + L"' Error: '16002' "),
                  1u);
    }
}

// A metadata value that fails always is asked for until the job closes the
// cache: the job's start call, held until the export ends, then returns, the
// close ends the pass, and the export holds nothing of the unreadable key.
TEST_P(FaultMatrixTest, AMetadataValueThatFailsAlwaysEndsWithTheClose) {
    const std::string sparse = CreateSparseDisk(L"stuck.vmdk", kDiskBytes / 512, {{0, 8}}, 3);
    _vixReadWriteHandle *handle = OpenDisk(sparse);
    ASSERT_NE(handle, nullptr);
    char keys[4096] = {};
    size_t keysLength = 0;
    ASSERT_EQ(service->VixDiskLib_GetMetadataKeys(handle, keys, sizeof keys, &keysLength), VixError(VIX_OK));
    Inject("VixDiskLib_ReadMetadata", Fault::Always);
    CacheContext cache(*service);
    ASSERT_EQ(cache.Start(2, 64), 0);
    Prepare(cache.context, handle, WriteExtentList(L"stuck.xml", {{{0, kDiskBytes}}}));
    const std::wstring metadataPath = cache.context.metadataFilePath;
    // 1. The job starts the pass; the call waits for the metadata export.
    skclass::UniqueHandle started(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    std::atomic<long> startResult{-1};
    std::thread job([&] {
        startResult = service->startDiskReadBuffer(&cache.context);
        SetEvent(started.get());
    });
    // 2. The read thread meets the failure and says it retries.
    const std::wstring retry = L"diskBroker::ReadVMDiskMetaData() Could not read the value of the key '" +
                               std::wstring(wcstring::FromUtf8(keys)) + L"' Error: '16002'. Retrying...";
    EXPECT_TRUE(log.WaitFor(retry, readcachetest::kTimeoutMs));
    // 3. Another thread of the job closes the cache: the start call returns.
    EXPECT_EQ(cache.Close(), 0);
    if (WaitForSingleObject(started.get(), readcachetest::kTimeoutMs) != WAIT_OBJECT_0) {
        cache.context.stopRequested = 1;
        job.detach();
        FAIL() << "startDiskReadBuffer did not return after the close";
    }
    job.join();
    EXPECT_EQ(startResult.load(), 0);
    WIN32_FILE_ATTRIBUTE_DATA exported = {};
    ASSERT_TRUE(GetFileAttributesExW(metadataPath.c_str(), GetFileExInfoStandard, &exported));
    EXPECT_EQ(exported.nFileSizeLow, 0u) << "nothing of a key whose value was never read";
    sim.VddkSim_Reset();
    CloseDisk(handle);
}

// Writes: a failure fails the pass (a later put or the close sees it) and
// nothing beyond what was put reaches the disk; slow is only slow.
TEST_P(FaultMatrixTest, WritePassEndsWithThePromisedResult) {
    for (Fault fault : kFaults) {
        SCOPED_TRACE(FaultName(fault));
        const std::string name = std::string("w") + FaultName(fault);
        _vixReadWriteHandle *handle = OpenDisk("memdisk://" + name + "?size=1048576&seed=5&verify=1", L"Write");
        ASSERT_NE(handle, nullptr);
        Inject("VixDiskLib_Write", fault);
        diskWriteContextStruct context;
        ASSERT_EQ(service->startWriteCacheThread(&context, 2, 64, 0, 1), 0);
        context.broker = skclass::shared_ptr<diskBroker>(service.get(), [](diskBroker *) {});
        context.diskHandle = handle;
        context.diskSize = kDiskBytes * 2;
        ASSERT_EQ(service->startDiskWriteBuffer(&context), 0);
        std::vector<uint8_t> bytes = servicetest::PatternBytes(5, 0, kDiskBytes / 512);
        long result = service->PutDiskCacheBuffer(&context, bytes.data(), 0, kDiskBytes / 512);
        EXPECT_EQ(service->closeWriteCacheThread(&context), 0);
        EXPECT_EQ(service->stopWriteCacheThread(&context), 0);
        const uint64_t written = sim.VddkSim_MemDiskWrittenSectors(name.c_str());
        EXPECT_EQ(sim.VddkSim_MemDiskMismatches(name.c_str()), 0u);
        EXPECT_LE(written, kDiskBytes / 512) << "nothing beyond what was put";
        if (fault == Fault::Slow) {
            EXPECT_EQ(result, 0);
            EXPECT_EQ(written, kDiskBytes / 512);
        } else {
            EXPECT_TRUE(result == 0 || result == kWriteFailed) << result;
            EXPECT_LT(written, kDiskBytes / 512) << "a failed write is not counted as written";
            EXPECT_GE(log.CountStartingWith(L"diskBroker::WriteDiskExtents() Could not write to the disk."), 1u);
        }
        sim.VddkSim_Reset();
        CloseDisk(handle);
    }
}

INSTANTIATE_TEST_SUITE_P(Models, FaultMatrixTest, ::testing::ValuesIn(AllModels()), ModelName);

}  // namespace
}  // namespace faulttest
