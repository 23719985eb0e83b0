// Restore: the image's selected ranges through the write cache, checked
// against the manifest on the way, then read back through the read cache.
#include <algorithm>
#include <vector>

#include "console.h"
#include "errors.h"
#include "extents.h"
#include "files.h"
#include "manifest.h"
#include "progress.h"
#include "resume.h"
#include "sha256.h"
#include "transfer.h"

namespace dbtool {
namespace {

// The metadata export: key, NUL, value, NUL, ... as the read cache writes it.
std::vector<std::pair<std::string, std::string>> ParseMetadata(const std::string &bytes) {
    std::vector<std::string> parts;
    size_t start = 0;
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (bytes[i] != '\0') continue;
        parts.push_back(bytes.substr(start, i - start));
        start = i + 1;
    }
    std::vector<std::pair<std::string, std::string>> pairs;
    for (size_t i = 0; i + 1 < parts.size(); i += 2) pairs.emplace_back(parts[i], parts[i + 1]);
    return pairs;
}

void RestoreMetadata(Disk &disk, const std::wstring &metadataPath) {
    if (!PathExists(metadataPath)) throw Failure(L"the metadata export '" + metadataPath + L"' is missing (or use --no-metadata)");
    for (const auto &entry : ParseMetadata(ReadWholeFile(metadataPath)))
        disk.WriteMetadata(entry.first, entry.second);
}

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
    ImageFeeder(File &image, const ExtentList &selection, WriteCache &cache, Progress &progress, size_t chunkBytes,
                bool skipZeros)
        : image_(image), selection_(selection), cache_(cache), progress_(progress), chunk_(chunkBytes),
          skipZeros_(skipZeros) {}

    void Feed(const ManifestExtent &extent, size_t number) {
        Sha256 sha;
        for (uint64_t done = 0; done < extent.range.length;) {
            const size_t length = static_cast<size_t>(std::min<uint64_t>(chunk_.size(), extent.range.length - done));
            const uint64_t offset = extent.range.offset + done;
            image_.ReadAt(offset, chunk_.data(), length);
            sha.Update(chunk_.data(), length);
            for (const Extent &part : Intersection({offset, length}, selection_)) {
                const uint8_t *data = chunk_.data() + (part.offset - offset);
                if (!skipZeros_ || std::any_of(data, data + part.length, [](uint8_t b) { return b != 0; }))
                    cache_.Put(data, part.offset / kSectorSize, part.length / kSectorSize);
                written_.Update(data, static_cast<size_t>(part.length));
                AppendMerged(writtenRanges_, part);
            }
            done += length;
            progress_.Advance(length);
        }
        const std::wstring actual = sha.FinishHex();
        if (actual != extent.sha256)
            throw MismatchError(L"checksum mismatch in extent " + std::to_wstring(number) + L" (offset " +
                                std::to_wstring(extent.range.offset) + L", " + std::to_wstring(extent.range.length) +
                                L" bytes) of '" + image_.Path() + L"': the image has " + actual +
                                L", the manifest says " + extent.sha256 +
                                L". The target disk is incomplete and must not be used.");
    }
    std::wstring WrittenSha() { return written_.FinishHex(); }
    const ExtentList &WrittenRanges() const { return writtenRanges_; }

private:
    File &image_;
    const ExtentList &selection_;
    WriteCache &cache_;
    Progress &progress_;
    std::vector<uint8_t> chunk_;
    bool skipZeros_;
    Sha256 written_;
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

void ReadBack(Job &job, const CacheTuning &tuning, const RestoreRequest &request, const ExtentList &ranges,
              uint64_t capacity, const std::wstring &expectedSha) {
    Disk disk(job.Broker(), job.Link(), request.target, Disk::Mode::Read);
    TempPath list(L".extents.xml"), metadata(L".meta");
    SaveChangeList(list.Path(), ranges, capacity);
    Progress progress(L"verify", TotalBytes(ranges), request.showProgress);
    Sha256 sha;
    ReadCache cache(job.Broker(), tuning);
    cache.Stream(disk, list.Path(), metadata.Path(), TotalBytes(ranges), [&](const uint8_t *data, size_t length) {
        sha.Update(data, length);
        progress.Advance(length);
    });
    progress.Finish();
    disk.Close();
    const std::wstring actual = sha.FinishHex();
    if (actual != expectedSha)
        throw MismatchError(L"the target '" + request.target + L"' does not read back what was written: " + actual +
                            L" instead of " + expectedSha);
}

}  // namespace

TransferResult Restore(Job &job, const CacheTuning &tuning, const RestoreRequest &request) {
    if (!request.resumeFolder.empty()) return ResumableRestore(job, tuning, request);
    const Manifest manifest = Manifest::Load(ManifestPathFor(request.image));
    File image = File::OpenRead(request.image);
    const ExtentList selection = Selection(manifest, request);
    TransferResult result;
    if (request.mayCreate && !IsUrlPath(request.target) && !PathExists(request.target)) {
        Disk::Create(job.Broker(), job.Link(), request.target, manifest.capacity);
        result.createdTarget = true;
    }
    Disk disk(job.Broker(), job.Link(), request.target, Disk::Mode::Write);
    const uint64_t capacity = disk.Info().capacityBytes;
    CheckWithinDisk(selection, capacity, L"target '" + request.target + L"'");
    if (request.metadata) RestoreMetadata(disk, FolderOf(request.image) + manifest.metadataFile);

    Progress progress(L"restore", manifest.StreamBytes(), request.showProgress);
    WriteCache cache(job.Broker(), tuning);
    cache.Begin(disk);
    ImageFeeder feeder(image, selection, cache, progress, static_cast<size_t>(tuning.bufferKB) * 1024,
                       result.createdTarget);
    for (size_t i = 0; i < manifest.extents.size(); ++i) feeder.Feed(manifest.extents[i], i + 1);
    result.depth = cache.End();
    progress.Finish();
    disk.Close();
    CheckNoProblems(job.Log(), L"the restore");

    result.bytes = TotalBytes(selection);
    result.extents = selection.size();
    result.seconds = progress.Seconds();
    result.sha256 = feeder.WrittenSha();
    if (request.verify) {
        ReadBack(job, tuning, request, feeder.WrittenRanges(), capacity, result.sha256);
        CheckNoProblems(job.Log(), L"the read-back");
        result.verified = true;
    }
    return result;
}

}  // namespace dbtool
