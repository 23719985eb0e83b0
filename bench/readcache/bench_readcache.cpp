// The read-ahead cache measured side by side in one run on the stand-in's
// memory disk (rounds alternate so both sides see the same machine load;
// medians are printed):
//   (a) raw:     the cache with no latency and no consumer work, at 64 KiB
//                requests as a job makes them and at requests as large as a
//                buffer. Goal: >= 0.9 of the bare two-thread fill+copy
//                pipeline, the most any cache that hands bytes from one
//                thread to another can reach here. Printed beside it, for
//                information only, the plain loop of diskBroker::VixDiskLib_Read
//                with the same requests: with the stand-in's caller lookup off
//                it runs at memory speed (bench_directread holds it to >= 0.9
//                of the stand-in's own export), so cache / plain loop shows
//                what the hand-over costs, not a target;
//   (b) overlap: 1 ms stand-in latency per read and 1 ms consumer work per
//                buffer, cache vs the same work done serially in the plain
//                loop (goal >= 1.8);
//   (c) walk:    a 1,000,000-extent list loaded and walked through
//                startDiskReadBuffer's path (zero-length extents, so no data
//                is read) vs a bare XmlLite pass over the file (goal <= 1.5);
//   (d) first byte: startDiskReadBuffer to the first byte delivered (goal < 50 ms).
//
//   bench_readcache [rounds]
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <skstdutl/sklog.h>

#include "../support/bench_support.h"
#include "../support/extent_list_xml.h"

namespace {

using benchsupport::Now;
using benchsupport::Work;
using benchsupport::TwoThreadSpeedUp;
using benchsupport::Median;
using benchsupport::WriteExtentList;
using benchsupport::BareXmlLitePass;

const char kDisk[] = "memdisk://bench?size=134217728&seed=3";  // 128 MiB
constexpr uint64_t kDiskBytes = 134217728;

// MB/s of a bare pipeline: a pattern fill on one thread into a ring of
// 8 x 1 MiB, memcpy out on another, two semaphores. Handing bytes from core to
// core is what the cache adds to a plain read loop; with buffer-sized requests
// on a disk as fast as memory, no cache can pass this rate.
double BarePipelineRate() {
    const size_t bufferBytes = 1u << 20, ringCount = 8, buffers = 128;
    auto fill = [](size_t buffer, unsigned char *bytes) {
        for (size_t word = 0; word < (1u << 17); ++word) {
            const uint64_t value = (buffer * (1u << 17) + word) * 0x9E3779B97F4A7C15ull;
            memcpy(bytes + word * 8, &value, 8);
        }
    };
    std::vector<unsigned char> hot(bufferBytes), ring(bufferBytes * ringCount);
    HANDLE empty = CreateSemaphoreW(nullptr, LONG(ringCount), LONG(ringCount), nullptr);
    HANDLE full = CreateSemaphoreW(nullptr, 0, LONG(ringCount), nullptr);
    const double start = Now();
    std::thread producer([&] {
        for (size_t b = 0; b < buffers; ++b) {
            WaitForSingleObject(empty, INFINITE);
            fill(b, &ring[(b % ringCount) * bufferBytes]);
            ReleaseSemaphore(full, 1, nullptr);
        }
    });
    for (size_t b = 0; b < buffers; ++b) {
        WaitForSingleObject(full, INFINITE);
        memcpy(hot.data(), &ring[(b % ringCount) * bufferBytes], bufferBytes);
        ReleaseSemaphore(empty, 1, nullptr);
    }
    producer.join();
    const double piped = Now() - start;
    CloseHandle(empty);
    CloseHandle(full);
    return double(buffers * bufferBytes) / 1e6 / piped;
}

struct Bench {
    diskBroker &service;
    _vixReadWriteHandle *disk;
    dbtest::TempDir &folder;
    unsigned passes = 0;
    std::vector<unsigned char> destination = std::vector<unsigned char>(4u << 20);

    // Plain loop over the first passBytes: one read of requestBytes per
    // call, workMs per call. MB/s.
    double PlainLoop(uint64_t passBytes, unsigned requestBytes, double workMs) {
        const uint64_t sectors = requestBytes / 512;
        const double start = Now();
        for (uint64_t first = 0; first < passBytes / 512; first += sectors) {
            if (service.VixDiskLib_Read(disk, first, sectors, destination.data()) != VIX_OK) return -1;
            Work(workMs);
        }
        return double(passBytes) / 1e6 / (Now() - start);
    }

    // Points the context at the disk and a list; a fresh metadata file per pass.
    void Prepare(diskReadContextStruct &context, const std::wstring &list) {
        context.broker = skclass::shared_ptr<diskBroker>(&service, [](diskBroker *) {});
        context.diskHandle = disk;
        context.extentFilePath = list;
        context.metadataFilePath = folder.File(L"metadata-" + std::to_wstring(++passes) + L".bin");
    }

    // One pass through the cache, close included; requestBytes and workMs per
    // call. Returns seconds (-1 on failure); firstByte gets the seconds from
    // startDiskReadBuffer to the first byte delivered.
    double Pass(diskReadContextStruct &context, const std::wstring &list, unsigned requestBytes, double workMs,
                uint64_t &bytes, double *firstByte = nullptr) {
        Prepare(context, list);
        bytes = 0;
        const double start = Now();
        if (service.startDiskReadBuffer(&context) != 0) return -1;
        for (;;) {
            unsigned length = requestBytes;
            const long result = service.GetDiskCacheBuffer(&context, destination.data(), &length);
            if (result == static_cast<long>(0x2000FE0Cu)) break;
            if (result != 0) return -1;
            if (bytes == 0 && length != 0 && firstByte) *firstByte = Now() - start;
            bytes += length;
            if (length) Work(workMs);
        }
        service.closeReadCacheThread(&context);
        return Now() - start;
    }
};

struct Case {
    const char *name;
    unsigned long bufferKB;  // 8 buffers of this size
    unsigned requestKB;      // what the job asks for per call, in both loops
    uint64_t passBytes;      // from the start of the disk
    uint32_t latencyUs;      // stand-in latency per VMware read
    double workMs;           // consumer work per buffer's worth of data
    double goal;             // for cache / pipeline when pipelineMBs > 0, else cache / plain loop
    double pipelineMBs;      // the bare pipeline's rate, measured once; 0: held to the plain loop
};

bool Throughput(Bench &bench, dbtest::VddkSimControl &sim, const Case &c, int rounds,
                std::vector<double> &firstBytes) {
    diskReadContextStruct context;
    if (bench.service.startReadCacheThread(&context, 8, c.bufferKB, 1) != 0) return false;
    const std::wstring list = bench.folder.File(L"pass.xml");
    WriteExtentList(list, 1, 1, c.passBytes);
    sim.VddkSim_SetLatency("VixDiskLib_Read", c.latencyUs);
    const double workPerRequest = c.workMs * c.requestKB / c.bufferKB;
    std::vector<double> loop, cache;
    bool ok = true;
    for (int round = 0; round < rounds && ok; ++round) {
        loop.push_back(bench.PlainLoop(c.passBytes, c.requestKB * 1024, workPerRequest));
        double firstByte = 0;
        uint64_t bytes = 0;
        const double seconds = bench.Pass(context, list, c.requestKB * 1024, workPerRequest, bytes, &firstByte);
        cache.push_back(double(bytes) / 1e6 / seconds);
        firstBytes.push_back(firstByte);
        ok = seconds > 0 && bytes == c.passBytes && loop.back() > 0;
    }
    sim.VddkSim_SetLatency("VixDiskLib_Read", 0);
    bench.service.stopReadCacheThread(&context);
    if (!ok) return false;
    const double plain = Median(loop), cached = Median(cache);
    if (c.pipelineMBs > 0)
        printf("%-12s %3u MiB, 8 x %4lu KiB buffers, %4u KiB requests: cache %6.0f MB/s  pipeline %6.0f MB/s  "
               "ratio %.2f (goal >= %.1f)  [plain loop %6.0f MB/s, cache / plain %.2f: no goal]\n",
               c.name, unsigned(c.passBytes >> 20), c.bufferKB, c.requestKB, cached, c.pipelineMBs,
               cached / c.pipelineMBs, c.goal, plain, cached / plain);
    else
        printf("%-12s %3u MiB, 8 x %4lu KiB buffers, %4u KiB requests: serial loop %6.0f MB/s  cache %6.0f MB/s  "
               "ratio %.2f (goal >= %.1f)\n",
               c.name, unsigned(c.passBytes >> 20), c.bufferKB, c.requestKB, plain, cached, cached / plain, c.goal);
    return true;
}

bool ExtentWalk(Bench &bench, int rounds) {
    rounds = std::min(rounds, 3);  // a second or two each
    const std::wstring list = bench.folder.File(L"million.xml");
    if (!WriteExtentList(list, 1000, 1000, 0)) return false;
    diskReadContextStruct context;
    if (bench.service.startReadCacheThread(&context, 2, 64, 1) != 0) return false;
    std::vector<double> bare, walk;
    bool ok = true;
    for (int round = 0; round < rounds && ok; ++round) {
        double start = Now();
        ok = BareXmlLitePass(list) == 1000u * 1001u + 1;
        bare.push_back(Now() - start);
        uint64_t bytes = 0;
        walk.push_back(bench.Pass(context, list, 65536, 0, bytes));
        ok = ok && walk.back() > 0;
    }
    bench.service.stopReadCacheThread(&context);
    if (!ok) return false;
    printf("(c) walk     1,000,000 extents: bare XmlLite pass %.3f s  load + walk %.3f s  ratio %.2f (goal <= 1.5)\n",
           Median(bare), Median(walk), Median(walk) / Median(bare));
    return true;
}

}  // namespace

int main(int argc, char **argv) {
    const int rounds = argc > 1 ? atoi(argv[1]) : 5;
    if (rounds <= 0) return 2;

    SK_SetLogFilePath(L"");  // no log file in the bench's folders
    benchsupport::MemoryDiskBench memory;
    dbtest::TempDir folder;
    if (!memory.Open(kDisk, L"Read")) return 1;
    if (folder.Path().empty()) {
        fprintf(stderr, "cannot make a temporary folder\n");
        return 1;
    }

    Bench bench{*memory.service, memory.disk, folder};
    printf("read cache on the stand-in's memory disk, medians of %d rounds\n", rounds);
    printf("two-thread speed-up this machine gives now: %.2f (the overlap goal assumes ~2)\n", TwoThreadSpeedUp());
    std::vector<double> pipeline;
    for (int round = 0; round < rounds; ++round) pipeline.push_back(BarePipelineRate());
    const double pipelineMBs = Median(pipeline);
    printf("bare two-thread fill+copy pipeline: %.0f MB/s (what a raw pass through any cache can reach at most)\n",
           pipelineMBs);
    std::vector<double> firstBytes;
    const Case cases[] = {
        {"(a) raw", 1024, 64, kDiskBytes, 0, 0, 0.9, pipelineMBs},
        {"(a) raw", 1024, 1024, kDiskBytes, 0, 0, 0.9, pipelineMBs},
        {"(b) overlap", 256, 256, kDiskBytes / 4, 1000, 1.0, 1.8, 0},
    };
    bool ran = true;
    for (const Case &c : cases) ran = ran && Throughput(bench, memory.sim, c, rounds, firstBytes);
    ran = ran && ExtentWalk(bench, rounds);
    if (ran)
        printf("(d) first byte after startDiskReadBuffer: median %.1f ms, worst %.1f ms (goal < 50 ms)\n",
               Median(firstBytes) * 1000, *std::max_element(firstBytes.begin(), firstBytes.end()) * 1000);
    return ran ? 0 : 1;
}
