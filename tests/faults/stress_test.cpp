// Stress: eight job threads, each streaming its own disks through its own
// read cache and writing them back through its own write cache, in every
// threading model, for a fixed number of rounds. Each target is a verifying
// memory disk with the source's pattern, so every byte written is checked
// against what a direct read gives; no thread may hang.
#include <string.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include <vddksim.h>

#include "readcache_fixture.h"

namespace faulttest {
namespace {

using readcachetest::AllModels;
using readcachetest::kEndOfData;
using readcachetest::ModelName;

constexpr int kJobs = 8;
constexpr int kRounds = 3;
constexpr uint64_t kDiskBytes = 1 << 20;
// All jobs together must finish within this; beyond it the run is a deadlock.
constexpr DWORD kAllJobsMs = 120000;

class StressTest : public servicetest::InEachModel<readcachetest::ReadCacheTest> {
protected:
    void SetUp() override {
        InEachModel::SetUp();
        // Who called is not what this test watches, and asking costs a
        // wineserver round trip per read.
        sim.VddkSim_RecordCallers(0);
    }

    // One job: kRounds passes of its source through a read cache into a
    // write cache on its target. Empty when all went well, else what failed.
    std::string RunJob(int job) {
        const std::string seed = std::to_string(100 + job);
        const std::string source = "memdisk://src" + std::to_string(job) + "?size=1048576&seed=" + seed;
        const std::string target = "memdisk://dst" + std::to_string(job) + "?size=1048576&verify=1&seed=" + seed;
        _vixReadWriteHandle *in = nullptr, *out = nullptr;
        wcstring mode;
        if (service->VixDiskLib_Open(connection, source.c_str(), 0, L"Read", &in, mode) != VIX_OK ||
            service->VixDiskLib_Open(connection, target.c_str(), 0, L"Write", &out, mode) != VIX_OK)
            return "open failed";
        diskReadContextStruct reader;
        diskWriteContextStruct writer;
        std::string failure;
        if (service->startReadCacheThread(&reader, 3, 64, 0) != 0 ||
            service->startWriteCacheThread(&writer, 3, 64, 0, 1) != 0)
            failure = "start failed";
        const std::wstring list = WriteExtentList(L"job" + std::to_wstring(job) + L".xml", {{{0, kDiskBytes}}});
        for (int round = 0; round < kRounds && failure.empty(); ++round) {
            reader.broker = service;
            reader.diskHandle = in;
            reader.extentFilePath = list;
            reader.metadataFilePath = data.File(L"meta-" + std::to_wstring(job) + L"-" + std::to_wstring(round));
            writer.broker = service;
            writer.diskHandle = out;
            writer.diskSize = kDiskBytes;
            if (service->startDiskReadBuffer(&reader) != 0 || service->startDiskWriteBuffer(&writer) != 0) {
                failure = "pass did not start";
                break;
            }
            std::vector<uint8_t> chunk(65536);
            uint64_t sector = 0;
            long result = 0;
            for (int calls = 0; calls < 100000 && result == 0; ++calls) {
                unsigned length = static_cast<unsigned>(chunk.size());
                result = service->GetDiskCacheBuffer(&reader, chunk.data(), &length);
                if (result != 0 || length == 0) continue;
                if (service->PutDiskCacheBuffer(&writer, chunk.data(), sector, length / 512) != 0) result = -1;
                sector += length / 512;
            }
            if (result != kEndOfData || sector * 512 != kDiskBytes) failure = "pass ended with " + std::to_string(result);
            service->closeWriteCacheThread(&writer);
            service->closeReadCacheThread(&reader);
        }
        service->stopWriteCacheThread(&writer);
        service->stopReadCacheThread(&reader);
        service->VixDiskLib_Close(in);
        service->VixDiskLib_Close(out);
        if (service->ThreadingModel() == diskBroker::kNoThreadingModel) {
            delete in;
            delete out;
        }
        return failure;
    }
};

TEST_P(StressTest, EightJobsStreamEveryByteIntact) {
    std::vector<std::string> failures(kJobs);
    std::atomic<int> finished{0};
    skclass::UniqueHandle allDone(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    std::vector<std::thread> jobs;
    for (int job = 0; job < kJobs; ++job)
        jobs.emplace_back([&, job] {
            failures[job] = RunJob(job);
            if (++finished == kJobs) SetEvent(allDone.get());
        });
    if (WaitForSingleObject(allDone.get(), kAllJobsMs) != WAIT_OBJECT_0) {
        for (std::thread &job : jobs) job.detach();
        FAIL() << finished.load() << " of " << kJobs << " jobs finished: a deadlock";
    }
    for (std::thread &job : jobs) job.join();
    for (int job = 0; job < kJobs; ++job) {
        SCOPED_TRACE(job);
        EXPECT_EQ(failures[job], "");
        const std::string name = "dst" + std::to_string(job);
        EXPECT_EQ(sim.VddkSim_MemDiskWrittenSectors(name.c_str()), kRounds * kDiskBytes / 512);
        EXPECT_EQ(sim.VddkSim_MemDiskMismatches(name.c_str()), 0u);
    }
}

INSTANTIATE_TEST_SUITE_P(Models, StressTest, ::testing::ValuesIn(AllModels()), ModelName);

}  // namespace
}  // namespace faulttest
