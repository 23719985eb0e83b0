// What the service adds to a direct read: a plain loop of
// diskBroker::VixDiskLib_Read on the stand-in's memory disk next to the same
// loop calling the stand-in's own VixDiskLib_Read export on the same VDDK
// handle, at 64 KiB and at 1 MiB per call (goal: ratio >= 0.9 at both).
// Samples are short (16 MiB) and alternate between the two loops, so both see
// the same machine load; the medians of many are printed side by side.
//
//   bench_directread [rounds]
#include <stdio.h>
#include <stdlib.h>

#include <vector>

#include <skstdutl/sklog.h>

#include "../support/bench_support.h"

namespace {

using benchsupport::Median;
using benchsupport::Now;

const char kDisk[] = "memdisk://direct?size=134217728&seed=5";  // 128 MiB
constexpr uint64_t kSampleSectors = (16u << 20) / 512;
constexpr uint64_t kSamplesPerDisk = 8;
constexpr int kSamplesPerRound = 16;

// MB/s of 16 MiB read with requests of requestBytes, from the sample's place
// on the disk; -1 on a failure.
template <typename Read>
double Sample(int sample, unsigned requestBytes, std::vector<unsigned char> &destination, Read read) {
    const uint64_t sectors = requestBytes / 512;
    const uint64_t begin = uint64_t(sample) % kSamplesPerDisk * kSampleSectors;
    const double start = Now();
    for (uint64_t first = begin; first < begin + kSampleSectors; first += sectors)
        if (read(first, sectors, destination.data()) != VIX_OK) return -1;
    return double(kSampleSectors * 512) / 1e6 / (Now() - start);
}

}  // namespace

int main(int argc, char **argv) {
    const int rounds = argc > 1 ? atoi(argv[1]) : 5;
    if (rounds <= 0) return 2;
    SK_SetLogFilePath(L"");
    benchsupport::MemoryDiskBench memory;
    if (!memory.Open(kDisk, L"Read")) return 1;
    dbtest::VddkDiskLibExports vddk;
    vddk.Load(memory.standin.get());
    if (!vddk.VixDiskLib_Read) {
        fprintf(stderr, "the stand-in has no VixDiskLib_Read export\n");
        return 1;
    }
    diskBroker &service = *memory.service;
    _vixReadWriteHandle *disk = memory.disk;
    std::vector<unsigned char> destination(1u << 20);
    printf("direct reads on the stand-in's memory disk, medians of %d samples of 16 MiB each\n",
           rounds * kSamplesPerRound);
    bool ok = true;
    for (unsigned requestKB : {64u, 1024u}) {
        std::vector<double> broker, standin;
        for (int sample = 0; sample < rounds * kSamplesPerRound && ok; ++sample) {
            broker.push_back(Sample(sample, requestKB * 1024, destination,
                                    [&](uint64_t first, uint64_t count, uint8 *bytes) {
                                        return service.VixDiskLib_Read(disk, first, count, bytes);
                                    }));
            standin.push_back(Sample(sample, requestKB * 1024, destination,
                                     [&](uint64_t first, uint64_t count, uint8 *bytes) {
                                         return vddk.VixDiskLib_Read(disk->vixHandle, first, count, bytes);
                                     }));
            ok = broker.back() > 0 && standin.back() > 0;
        }
        if (!ok) break;
        const double viaBroker = Median(broker), direct = Median(standin);
        printf("%5u KiB requests: stand-in export %6.0f MB/s  diskBroker::VixDiskLib_Read %6.0f MB/s  "
               "ratio %.2f (goal >= 0.9)\n",
               requestKB, direct, viaBroker, viaBroker / direct);
    }
    return ok ? 0 : 1;
}
