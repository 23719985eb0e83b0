// diskbroker's backup measured against its two halves, in one run on the
// stand-in's memory disk (rounds alternate so each sees the same machine load;
// medians are printed):
//   reading alone: the read cache streaming the disk to a consumer that drops it;
//   hashing alone: SHA-256 (CNG) over as many bytes, in buffer-sized pieces;
//   backup:        the program's Backup(): reading, with the image written and
//                  the checksums made on stage threads of their own;
//   and, to show where a backup's time goes, each stage with the reading but
//   without the other: writing the image, and hashing (the checksum command).
// Goal: backup >= 0.9 x the slower of reading alone and hashing alone (the
// stages run beside the reading, so their times overlap instead of adding).
//
//   bench_tool_backup [rounds] [size-mb]
#include <stdio.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include <dbtest/temp_dir.h>

#include "../support/bench_timing.h"
#include "caches.h"
#include "errors.h"
#include "extents.h"
#include "files.h"
#include "job.h"
#include "progress.h"
#include "sha256.h"
#include "stream_stages.h"
#include "transfer.h"
#include "transfer_stages.h"

namespace {

using namespace dbtool;
using benchsupport::Median;
using benchsupport::Now;

double ReadingAlone(Job &job, const CacheTuning &tuning, const std::wstring &path, const dbtest::TempDir &dir) {
    Disk disk(job.Broker(), job.Link(), path, Disk::Mode::Read);
    const uint64_t bytes = disk.Info().capacityBytes;
    const std::wstring list = dir.File(L"read.xml"), metadata = dir.File(L"read.meta");
    SaveChangeList(list, {{0, bytes}}, bytes);
    ReadCache cache(job.Broker(), tuning);
    const double start = Now();
    cache.Stream(disk, list, metadata, bytes, [](const uint8_t *, size_t) {});
    return double(bytes) / 1e6 / (Now() - start);
}

// The writing stage of a backup on its own: reading, and writing the image
// on a stage thread in the backup's pieces, flushes included.
double ReadingAndWriting(Job &job, const CacheTuning &tuning, const std::wstring &path, const dbtest::TempDir &dir) {
    Disk disk(job.Broker(), job.Link(), path, Disk::Mode::Read);
    const uint64_t bytes = disk.Info().capacityBytes;
    const std::wstring list = dir.File(L"write.xml"), metadata = dir.File(L"write.meta");
    const ExtentList extents{{0, bytes}};
    SaveChangeList(list, extents, bytes);
    File image = File::Create(dir.File(L"write.img"), true);
    image.SetSize(bytes);
    ReadCache cache(job.Broker(), tuning);
    Progress progress(L"write", bytes, false);
    ExtentImageWriter writer(image, extents);
    StreamStages stages({[&](const uint8_t *data, size_t length) { writer.Take(data, length); }}, PieceBytes(tuning),
                        kPiecesInFlight);
    StagesTarget target(stages, progress);
    cache.Stream(disk, list, metadata, bytes, target);
    stages.Finish();
    image.Close();
    return double(bytes) / 1e6 / progress.Seconds();
}

// The hashing stage of a backup on its own: reading, and hashing on a stage
// thread (the program's checksum command).
double ReadingAndHashing(Job &job, const CacheTuning &tuning, const std::wstring &path) {
    const TransferResult result = Checksum(job, tuning, path, false);
    return double(result.bytes) / 1e6 / result.seconds;
}

double HashingAlone(uint64_t bytes, size_t pieceBytes) {
    std::vector<uint8_t> piece(pieceBytes);
    for (size_t i = 0; i < piece.size(); ++i) piece[i] = static_cast<uint8_t>(i * 131 + 7);
    Sha256 sha;
    const double start = Now();
    for (uint64_t done = 0; done < bytes; done += pieceBytes) sha.Update(piece.data(), pieceBytes);
    sha.Finish();
    return double(bytes) / 1e6 / (Now() - start);
}

double BackupRate(Job &job, const CacheTuning &tuning, const std::wstring &path, const dbtest::TempDir &dir) {
    BackupRequest request;
    request.disk = path;
    request.image = dir.File(L"bench.img");
    request.overwrite = true;
    request.showProgress = false;
    const TransferResult result = Backup(job, tuning, request);
    return double(result.bytes) / 1e6 / result.seconds;
}

int Run(int rounds, uint64_t sizeMb) {
    const std::wstring path = L"memdisk://bench?size=" + std::to_wstring(sizeMb << 20) + L"&seed=3";
    const Args args({L"--vddk", L"standin"}, WithCommonOptions({}, true), 0, 0);
    Job job(args, true);
    const CacheTuning tuning;
    dbtest::TempDir dir;
    std::vector<double> reading, writing, hashingStage, hashing, backup;
    for (int round = 0; round < rounds; ++round) {
        reading.push_back(ReadingAlone(job, tuning, path, dir));
        writing.push_back(ReadingAndWriting(job, tuning, path, dir));
        hashingStage.push_back(ReadingAndHashing(job, tuning, path));
        hashing.push_back(HashingAlone(sizeMb << 20, size_t(tuning.bufferKB) * 1024));
        backup.push_back(BackupRate(job, tuning, path, dir));
    }
    const double slower = std::min(Median(reading), Median(hashing));
    printf("backup of a %llu MiB memory disk, %d rounds (medians, MB/s):\n", static_cast<unsigned long long>(sizeMb),
           rounds);
    printf("  reading alone  %8.1f\n  hashing alone  %8.1f\n  backup         %8.1f\n", Median(reading),
           Median(hashing), Median(backup));
    printf("  each stage of the backup alone, reading included: writing the image %.1f (flushes included),\n"
           "  hashing %.1f (the checksum command)\n",
           Median(writing), Median(hashingStage));
    const double speedUp = benchsupport::TwoThreadSpeedUp();
    printf("  backup / slower of the two = %.2f (goal >= 0.90); a second thread lends %.2fx here\n",
           Median(backup) / slower, speedUp);
    // Without a second core the stages take turns instead of overlapping:
    // then even a perfect pipeline loses the writing stage's time.
    if (speedUp < 1.5)
        printf("  with about one core, the stages taking turns reach at best %.2f of the slower\n",
               1.0 / (1.0 + Median(hashing) / Median(writing)));
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    const int rounds = argc > 1 ? atoi(argv[1]) : 5;
    const long long sizeMb = argc > 2 ? atoll(argv[2]) : 256;
    if (rounds < 1 || sizeMb < 1) {
        fprintf(stderr, "usage: bench_tool_backup [rounds] [size-mb]\n");
        return 2;
    }
    try {
        return Run(rounds, static_cast<uint64_t>(sizeMb));
    } catch (const ToolError &e) {
        fprintf(stderr, "bench_tool_backup: %ls\n", e.Message().c_str());
    } catch (const std::exception &e) {
        fprintf(stderr, "bench_tool_backup: %s\n", e.what());
    }
    return 1;
}
