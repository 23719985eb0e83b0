// The write-behind cache against a plain loop of diskBroker::VixDiskLib_Write
// on the same verifying memory disk (the stand-in compares every written
// sector with the disk's pattern, so a write costs what touching its bytes
// costs, and the bench checks the data), side by side in one run:
//   raw:     no stand-in latency, no producer work: the cache's own cost
//            (goal: cache rate / loop rate >= 0.9). The plain loop writes
//            either what the job has at a time (a put's 64 KiB, as a job
//            without the cache would) or one buffer's worth per call, as the
//            cache's writer does: the worst case, in which the cache's copy
//            of every byte cannot hide. With 1 MiB and 4 MiB buffers, since
//            every buffer pays the queues' hand-offs, which under Wine are
//            wineserver round trips;
//   overlap: 1 ms stand-in latency per write and 1 ms of producer work per
//            buffer: what the cache is for (goal >= 1.8); the plain loop
//            writes a buffer's worth per call.
// Rounds alternate so both see the same machine load; medians are printed.
//
//   bench_writecache [rounds]
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <memory>
#include <thread>
#include <vector>

#include <dbtest/registry_sandbox.h>
#include <dbtest/temp_dir.h>
#include <dbtest/vddk_install.h>
#include <diskbroker.h>
#include <skstdutl/sklog.h>

#include "../support/bench_support.h"

namespace {

using benchsupport::Now;
using benchsupport::Work;
using benchsupport::TwoThreadSpeedUp;
using benchsupport::Median;

constexpr uint64_t kSeed = 3;
constexpr uint64_t kDiskSectors = 512ull * 1024;  // 256 MiB
const char kDisk[] = "memdisk://bench?size=268435456&seed=3&verify=1";
constexpr uint64_t kPutSectors = 128;  // the job hands over 64 KiB at a time

struct Case {
    const char *name;
    unsigned long bufferKB;
    unsigned long bufferCount;
    uint64_t plainWriteSectors;  // per plain VixDiskLib_Write; 0: a buffer's worth
    uint64_t passSectors;
    double workMs;        // producer work per buffer
    uint32_t latencyUs;   // stand-in latency per write
    double goal;
};

std::vector<unsigned char> Pattern(uint64_t sectors) {
    std::vector<unsigned char> bytes(size_t(sectors * 512));
    for (size_t word = 0; word < bytes.size() / 8; ++word) {
        const uint64_t value = VddkSimPatternWord(kSeed, word);
        memcpy(&bytes[word * 8], &value, 8);
    }
    return bytes;
}

struct Bench {
    diskBroker &service;
    _vixReadWriteHandle *disk;
    std::vector<unsigned char> source;  // the disk's pattern from sector 0

    // MB/s of work and one write per buffer; -1 on a failed write.
    double PlainLoop(const Case &c) {
        const uint64_t bufferSectors = c.bufferKB * 2ull;
        const uint64_t writeSectors = c.plainWriteSectors ? c.plainWriteSectors : bufferSectors;
        const double start = Now();
        for (uint64_t first = 0; first < c.passSectors; first += writeSectors) {
            if (first % bufferSectors == 0) Work(c.workMs);
            if (service.VixDiskLib_Write(disk, first, writeSectors, source.data() + first * 512) != VIX_OK)
                return -1;
        }
        return double(c.passSectors * 512) / 1e6 / (Now() - start);
    }

    // MB/s of one pass through the cache, close included; -1 on a failed put.
    double ThroughCache(const Case &c, diskWriteContextStruct &context) {
        const uint64_t bufferSectors = c.bufferKB * 2ull;
        context.broker = skclass::shared_ptr<diskBroker>(&service, [](diskBroker *) {});
        context.diskHandle = disk;
        context.diskSize = c.passSectors * 512;
        const double start = Now();
        service.startDiskWriteBuffer(&context);
        for (uint64_t first = 0; first < c.passSectors; first += kPutSectors) {
            if (first % bufferSectors == 0) Work(c.workMs);
            if (service.PutDiskCacheBuffer(&context, source.data() + first * 512, first, kPutSectors) != 0) return -1;
        }
        service.closeWriteCacheThread(&context);
        return double(c.passSectors * 512) / 1e6 / (Now() - start);
    }
};

bool Run(Bench &bench, dbtest::VddkSimControl &sim, const Case &c, int rounds) {
    diskWriteContextStruct context;
    if (bench.service.startWriteCacheThread(&context, c.bufferCount, c.bufferKB, 1, 64) != 0) return false;
    sim.VddkSim_SetLatency("VixDiskLib_Write", c.latencyUs);
    std::vector<double> loop, cache;
    for (int round = 0; round < rounds; ++round) {
        loop.push_back(bench.PlainLoop(c));
        cache.push_back(bench.ThroughCache(c, context));
    }
    sim.VddkSim_SetLatency("VixDiskLib_Write", 0);
    bench.service.stopWriteCacheThread(&context);
    const double plain = Median(loop), cached = Median(cache);
    const uint64_t writeSectors = c.plainWriteSectors ? c.plainWriteSectors : c.bufferKB * 2ull;
    printf("%-8s %3lu MiB a pass, %lu x %4lu KiB buffers, plain writes of %4llu KiB: plain loop %6.0f MB/s  "
           "cache %6.0f MB/s  ratio %.2f (goal >= %.2f)\n",
           c.name, static_cast<unsigned long>(c.passSectors / 2048), c.bufferCount, c.bufferKB,
           static_cast<unsigned long long>(writeSectors / 2), plain, cached, cached / plain, c.goal);
    return plain > 0 && cached > 0;
}

}  // namespace

int main(int argc, char **argv) {
    const int rounds = argc > 1 ? atoi(argv[1]) : 7;
    if (rounds <= 0) return 2;

    SK_SetLogFilePath(L"");  // no log file in the bench's folders
    benchsupport::MemoryDiskBench memory;
    if (!memory.Open(kDisk, L"Write")) return 1;
    dbtest::VddkSimControl &sim = memory.sim;

    Bench bench{*memory.service, memory.disk, Pattern(kDiskSectors)};
    printf("write cache vs plain VixDiskLib_Write loop, %llu KiB puts, medians of %d rounds\n",
           static_cast<unsigned long long>(kPutSectors / 2), rounds);
    printf("two-thread speed-up this machine gives now: %.2f (the overlap goal assumes ~2)\n", TwoThreadSpeedUp());
    const bool ran = Run(bench, sim, {"raw", 1024, 8, kPutSectors, kDiskSectors, 0, 0, 0.9}, rounds) &&
                     Run(bench, sim, {"raw", 1024, 8, 0, kDiskSectors, 0, 0, 0.9}, rounds) &&
                     Run(bench, sim, {"raw", 4096, 8, 0, kDiskSectors, 0, 0, 0.9}, rounds) &&
                     Run(bench, sim, {"overlap", 256, 8, 0, kDiskSectors / 8, 1.0, 1000, 1.8}, rounds);
    const uint64_t mismatches = sim.VddkSim_MemDiskMismatches("bench");
    printf("sectors written with the wrong bytes: %llu\n", static_cast<unsigned long long>(mismatches));
    return ran && mismatches == 0 ? 0 : 1;
}
