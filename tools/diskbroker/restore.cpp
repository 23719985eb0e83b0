// Restore: the image's selected ranges through the write cache, checked
// against the manifest on the way, then read back through the read cache.
#include <algorithm>
#include <vector>

#include "console.h"
#include "errors.h"
#include "extents.h"
#include "files.h"
#include "guard.h"
#include "image_check.h"
#include "interrupt.h"
#include "manifest.h"
#include "progress.h"
#include "resume.h"
#include "sha256.h"
#include "stream_stages.h"
#include "target_mark.h"
#include "transfer.h"

namespace dbtool {
namespace {

void AppendMerged(ExtentList &list, const Extent &range) {
    if (!list.empty() && list.back().End() == range.offset)
        list.back().length += range.length;
    else
        list.push_back(range);
}

std::wstring FolderOf(const std::wstring &path) { return path.substr(0, path.find_last_of(L"\\/") + 1); }

// Streams every extent of the image (so each can be checked whole) and puts
// the parts inside the selection.
class ImageFeeder {
public:
    // skipZeros: the target is new, so ranges of zeros read as zeros already
    // and are not written, which keeps the new disk sparse.
    // oneExtent: the stream is that extent, so its digest is the stream's;
    // everything: the selection is every extent, so what is written is the stream.
    ImageFeeder(File &image, const ExtentList &selection, WriteCache &cache, Progress &progress, size_t chunkBytes,
                bool skipZeros, bool oneExtent, bool everything)
        : image_(image), selection_(selection), cache_(cache), progress_(progress), chunk_(chunkBytes),
          skipZeros_(skipZeros), oneExtent_(oneExtent), everything_(everything) {}

    void Feed(const ManifestExtent &extent, size_t number) {
        Sha256 sha;
        for (uint64_t done = 0; done < extent.range.length;) {
            ThrowIfInterrupted(L"the restore");
            const size_t length = static_cast<size_t>(std::min<uint64_t>(chunk_.size(), extent.range.length - done));
            const uint64_t offset = extent.range.offset + done;
            image_.ReadAt(offset, chunk_.data(), length);
            sha.Update(chunk_.data(), length);
            if (!oneExtent_) stream_.Update(chunk_.data(), length);
            for (const Extent &part : Intersection({offset, length}, selection_)) {
                const uint8_t *data = chunk_.data() + (part.offset - offset);
                if (!skipZeros_ || !AllZero(data, static_cast<size_t>(part.length)))
                    cache_.Put(data, part.offset / kSectorSize, part.length / kSectorSize);
                if (!everything_) written_.Update(data, static_cast<size_t>(part.length));
                AppendMerged(writtenRanges_, part);
            }
            done += length;
            progress_.Advance(length);
        }
        const std::wstring actual = sha.FinishHex();
        lastExtentSha_ = actual;
        if (actual != extent.sha256)
            throw MismatchError(L"checksum mismatch in extent " + std::to_wstring(number) + L" (offset " +
                                std::to_wstring(extent.range.offset) + L", " + std::to_wstring(extent.range.length) +
                                L" bytes) of '" + image_.Path() + L"': the image has " + actual +
                                L", the manifest says " + extent.sha256 +
                                L". The target disk is incomplete and must not be used.");
    }
    // Each once, after the last Feed.
    std::wstring StreamSha() {
        if (streamSha_.empty()) streamSha_ = oneExtent_ ? lastExtentSha_ : stream_.FinishHex();
        return streamSha_;
    }
    std::wstring WrittenSha() { return everything_ ? StreamSha() : written_.FinishHex(); }
    const ExtentList &WrittenRanges() const { return writtenRanges_; }

private:
    File &image_;
    const ExtentList &selection_;
    WriteCache &cache_;
    Progress &progress_;
    std::vector<uint8_t> chunk_;
    bool skipZeros_, oneExtent_, everything_;
    Sha256 written_, stream_;
    std::wstring lastExtentSha_, streamSha_;
    ExtentList writtenRanges_;
};

ExtentList Selection(const Manifest &manifest, const RestoreRequest &request) {
    const ExtentList held = Normalized(manifest.Ranges());
    if (request.changeList.empty()) return held;
    const ExtentList wanted = Normalized(LoadChangeList(request.changeList));
    Extent gap;
    if (FirstUncovered(held, wanted, &gap))
        throw Failure(L"the image holds no data for offset " + std::to_wstring(gap.offset) + L" (" +
                      std::to_wstring(gap.length) + L" bytes) that '" + request.changeList + L"' asks for");
    return wanted;
}

// Throws MismatchError when the image's bytes, as restored, are not the
// stream the manifest recorded (an edited digest, an extent left out).
void CheckStream(const Manifest &manifest, const std::wstring &actual, const std::wstring &image) {
    if (actual != manifest.streamSha256)
        throw MismatchError(L"the image '" + image + L"' streams " + actual + L", its manifest says " +
                            manifest.streamSha256 + L". The target disk is incomplete and must not be used.");
}

void CheckTargetSize(uint64_t capacity, const Manifest &manifest, const std::wstring &target) {
    if (capacity != manifest.capacity)
        throw Failure(L"the target '" + target + L"' is " + std::to_wstring(capacity) + L" bytes, the backed-up disk was " +
                      std::to_wstring(manifest.capacity) + L"; restore into a disk of the same size");
}

void ReadBack(Job &job, const CacheTuning &tuning, const RestoreRequest &request, const ExtentList &ranges,
              uint64_t capacity, const std::wstring &expectedSha) {
    Disk disk(job.Broker(), job.Link(), request.target, Disk::Mode::Read, request.ancestors);
    TempPath list(L".extents.xml"), metadata(L".meta");
    SaveChangeList(list.Path(), ranges, capacity);
    Progress progress(L"verify", TotalBytes(ranges), request.showProgress);
    Sha256 sha;
    StreamStages hasher({[&](const uint8_t *data, size_t length) { sha.Update(data, length); }},
                        static_cast<size_t>(tuning.bufferKB) * 1024, 4);
    ReadCache cache(job.Broker(), tuning);
    cache.Stream(disk, list.Path(), metadata.Path(), TotalBytes(ranges), [&](const uint8_t *data, size_t length) {
        hasher.Put(data, length);
        progress.Advance(length);
    });
    hasher.Finish();
    progress.Finish();
    disk.Close();
    const std::wstring actual = sha.FinishHex();
    if (actual != expectedSha)
        throw MismatchError(L"the target '" + request.target + L"' does not read back what was written: " + actual +
                            L" instead of " + expectedSha);
}

// Before the target is created or opened: writing into the image or a file
// beside it would destroy the backup being restored.
void CheckTargetIsNotAnInput(const RestoreRequest &request, const Manifest &manifest) {
    ProtectedFiles inputs;
    inputs.Add(request.image, L"the image");
    inputs.Add(ManifestPathFor(request.image), L"the image's manifest");
    inputs.Add(FolderOf(request.image) + manifest.metadataFile, L"the image's metadata export");
    inputs.Add(ExtentListPathFor(request.image), L"the image's extent list");
    inputs.Add(request.changeList, L"the change list");
    for (const std::wstring &file : DiskFiles(request.target)) inputs.CheckOutput(file);
}

}  // namespace

TransferResult Restore(Job &job, const CacheTuning &tuning, const RestoreRequest &request) {
    const Manifest manifest = Manifest::Load(ManifestPathFor(request.image));
    CheckTargetIsNotAnInput(request, manifest);
    if (!request.resumeFolder.empty()) return ResumableRestore(job, tuning, request);
    File image = File::OpenRead(request.image);
    CheckImageAgainstManifest(image, manifest);
    const ExtentList selection = Selection(manifest, request);
    TransferResult result;
    if (request.mayCreate && !IsUrlPath(request.target) && !PathExists(request.target)) {
        Disk::Create(job.Broker(), job.Link(), request.target, manifest.capacity);
        result.createdTarget = true;
    }
    Disk disk(job.Broker(), job.Link(), request.target, Disk::Mode::Write, request.ancestors);
    const uint64_t capacity = disk.Info().capacityBytes;
    CheckTargetSize(capacity, manifest, request.target);
    CheckWithinDisk(selection, capacity, L"target '" + request.target + L"'");
    const TargetMark mark = MarkIncomplete(disk, manifest.streamSha256, result.createdTarget);
    if (request.metadata) RestoreMetadata(disk, FolderOf(request.image) + manifest.metadataFile);

    Progress progress(L"restore", manifest.StreamBytes(), request.showProgress);
    WriteCache cache(job.Broker(), tuning);
    cache.Begin(disk);
    ImageFeeder feeder(image, selection, cache, progress, static_cast<size_t>(tuning.bufferKB) * 1024, mark.created,
                       manifest.extents.size() == 1, request.changeList.empty());
    for (size_t i = 0; i < manifest.extents.size(); ++i) feeder.Feed(manifest.extents[i], i + 1);
    result.depth = cache.End();
    progress.Finish();
    disk.Close();
    CheckNoProblems(job.Log(), L"the restore");
    CheckStream(manifest, feeder.StreamSha(), request.image);

    result.bytes = TotalBytes(selection);
    result.extents = selection.size();
    result.seconds = progress.Seconds();
    result.sha256 = feeder.WrittenSha();
    if (request.verify) {
        ReadBack(job, tuning, request, feeder.WrittenRanges(), capacity, result.sha256);
        CheckNoProblems(job.Log(), L"the read-back");
        result.verified = true;
    }
    MarkComplete(job, request.target, mark);
    return result;
}

}  // namespace dbtool
