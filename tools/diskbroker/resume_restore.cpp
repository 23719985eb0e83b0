// restore --resume: writes only the ranges the state folder does not record
// as already in the target, one write pass per step, each step committed once
// the write cache has put it on the disk.
#include <algorithm>
#include <vector>

#include "console.h"
#include "errors.h"
#include "files.h"
#include "image_check.h"
#include "manifest.h"
#include "progress.h"
#include "resume.h"
#include "sha256.h"
#include "target_mark.h"

namespace dbtool {
namespace {

// Data in one write pass, committed when the pass ends.
constexpr uint64_t kStepBytes = 4ull << 20;
constexpr size_t kChunk = 1 << 20;

// Every extent of the image against its manifest checksum, before anything is
// written: a resumed restore streams only part of the image, and must still
// refuse a damaged one.
void CheckImage(File &image, const Manifest &manifest) {
    std::vector<uint8_t> chunk(kChunk);
    for (size_t i = 0; i < manifest.extents.size(); ++i) {
        const ManifestExtent &extent = manifest.extents[i];
        Sha256 sha;
        for (uint64_t done = 0; done < extent.range.length;) {
            const size_t length = static_cast<size_t>(std::min<uint64_t>(chunk.size(), extent.range.length - done));
            image.ReadAt(extent.range.offset + done, chunk.data(), length);
            sha.Update(chunk.data(), length);
            done += length;
        }
        if (sha.FinishHex() != extent.sha256)
            throw MismatchError(L"checksum mismatch in extent " + std::to_wstring(i + 1) + L" of '" + image.Path() +
                                L"': the image does not hold what its manifest says; nothing was written");
    }
}

ExtentList Selection(const Manifest &manifest, const RestoreRequest &request) {
    const ExtentList held = Normalized(manifest.Ranges());
    if (request.changeList.empty()) return held;
    const ExtentList wanted = Normalized(LoadChangeList(request.changeList));
    Extent gap;
    if (FirstUncovered(held, wanted, &gap))
        throw Failure(L"the image holds no data for offset " + std::to_wstring(gap.offset) + L" that '" +
                      request.changeList + L"' asks for");
    return wanted;
}

// The ranges of left cut into steps of about kStepBytes, in order.
std::vector<ExtentList> Steps(const ExtentList &left) {
    std::vector<ExtentList> steps(1);
    uint64_t inStep = 0;
    for (Extent range : left) {
        while (range.length > 0) {
            if (inStep == kStepBytes) steps.emplace_back(), inStep = 0;
            const uint64_t take = std::min(range.length, kStepBytes - inStep);
            steps.back().push_back({range.offset, take});
            range.offset += take, range.length -= take, inStep += take;
        }
    }
    if (steps.back().empty()) steps.pop_back();
    return steps;
}

void WriteStep(File &image, WriteCache &cache, Disk &disk, const ExtentList &step, Progress &progress) {
    std::vector<uint8_t> chunk(kChunk);
    cache.Begin(disk);
    for (const Extent &range : step) {
        for (uint64_t done = 0; done < range.length;) {
            const size_t length = static_cast<size_t>(std::min<uint64_t>(chunk.size(), range.length - done));
            image.ReadAt(range.offset + done, chunk.data(), length);
            cache.Put(chunk.data(), (range.offset + done) / kSectorSize, length / kSectorSize);
            done += length;
            progress.Advance(length);
        }
    }
    cache.End();
}

// SHA-256 of the selection, from the image and from the target.
void ReadBack(Job &job, const CacheTuning &tuning, File &image, const RestoreRequest &request,
              const ExtentList &selection, uint64_t capacity, TransferResult &result) {
    Sha256 expected;
    std::vector<uint8_t> chunk(kChunk);
    for (const Extent &range : selection)
        for (uint64_t done = 0; done < range.length;) {
            const size_t length = static_cast<size_t>(std::min<uint64_t>(chunk.size(), range.length - done));
            image.ReadAt(range.offset + done, chunk.data(), length);
            expected.Update(chunk.data(), length);
            done += length;
        }
    result.sha256 = expected.FinishHex();
    Disk disk(job.Broker(), job.Link(), request.target, Disk::Mode::Read, request.ancestors);
    TempPath list(L".extents.xml"), metadata(L".meta");
    SaveChangeList(list.Path(), selection, capacity);
    Sha256 actual;
    ReadCache cache(job.Broker(), tuning);
    cache.Stream(disk, list.Path(), metadata.Path(), TotalBytes(selection),
                 [&](const uint8_t *data, size_t length) { actual.Update(data, length); });
    disk.Close();
    const std::wstring text = actual.FinishHex();
    if (text != result.sha256)
        throw MismatchError(L"the target '" + request.target + L"' does not read back what was written: " + text +
                            L" instead of " + result.sha256);
    result.verified = true;
}

}  // namespace

TransferResult ResumableRestore(Job &job, const CacheTuning &tuning, const RestoreRequest &request) {
    const Manifest manifest = Manifest::Load(ManifestPathFor(request.image));
    File image = File::OpenRead(request.image);
    const ExtentList selection = Selection(manifest, request);
    CheckImageAgainstManifest(image, manifest);  // the image is the one the manifest describes
    CheckImage(image, manifest);
    SectorBook book(request.resumeFolder, L"restore",
                    L"image " + request.image + L"\ntarget " + request.target + L"\nchanges " + request.changeList);
    TransferResult result;
    if (!book.Fresh() && !IsUrlPath(request.target) && !PathExists(request.target)) {
        OutLine(L"resume: '" + request.target + L"' is not there; its bookkeeping is dropped and the restore starts over");
        book.Forget();
    }
    if (book.Fresh() && request.mayCreate && !IsUrlPath(request.target) && !PathExists(request.target)) {
        Disk::Create(job.Broker(), job.Link(), request.target, manifest.capacity);
        result.createdTarget = true;
    }
    Disk disk(job.Broker(), job.Link(), request.target, Disk::Mode::Write, request.ancestors);
    const uint64_t capacity = disk.Info().capacityBytes;
    CheckWithinDisk(selection, capacity, L"target '" + request.target + L"'");
    // Incomplete from before the first byte of this attempt to the end of the
    // last one: an attempt that stops anywhere, and every attempt between,
    // leaves a target that says so.
    const TargetMark mark = MarkIncomplete(disk, manifest.streamSha256, result.createdTarget);
    if (request.metadata)
        RestoreMetadata(disk, request.image.substr(0, request.image.find_last_of(L"\\/") + 1) + manifest.metadataFile);
    const ExtentList left = book.Left(selection, capacity);
    Progress progress(L"restore", TotalBytes(left), request.showProgress);
    StopSwitch stop(request.stopAfterBytes);
    WriteCache cache(job.Broker(), tuning);
    for (const ExtentList &step : Steps(left)) {
        WriteStep(image, cache, disk, step, progress);
        book.Commit(step);
        stop.Advance(TotalBytes(step));
    }
    progress.Finish();
    disk.Close();
    CheckNoProblems(job.Log(), L"the restore");
    book.End();
    result.bytes = TotalBytes(left);
    result.extents = selection.size();
    result.seconds = progress.Seconds();
    if (request.verify) {
        ReadBack(job, tuning, image, request, selection, capacity, result);
        CheckNoProblems(job.Log(), L"the read-back");
    }
    MarkComplete(job, request.target, mark);
    return result;
}

}  // namespace dbtool
