// Backup and checksum: streams through the read cache to stage threads.
#include <algorithm>
#include <vector>

#include "console.h"
#include "errors.h"
#include "extents.h"
#include "files.h"
#include "guard.h"
#include "manifest.h"
#include "progress.h"
#include "resume.h"
#include "sha256.h"
#include "stream_stages.h"
#include "transfer.h"

namespace dbtool {
namespace {

// One checksum per extent and one over the whole stream; runs on the hash
// thread. With a single extent (a whole disk) the two are the same digest.
class ExtentHasher {
public:
    ExtentHasher(const ExtentList &extents, Manifest &manifest) : extents_(extents), manifest_(manifest) {}

    void Take(const uint8_t *data, size_t length) {
        if (extents_.size() != 1) stream_.Update(data, length);
        while (length > 0) {
            // The read cache stops at the listed total, so index_ stays in range.
            const Extent &extent = extents_.at(index_);
            const size_t take = static_cast<size_t>(std::min<uint64_t>(length, extent.length - done_));
            sha_.Update(data, take);
            done_ += take, data += take, length -= take;
            if (done_ == extent.length) {
                manifest_.extents.push_back({extent, sha_.FinishHex()});
                ++index_;
                done_ = 0;
            }
        }
    }
    std::wstring StreamSha() {
        return extents_.size() == 1 && manifest_.extents.size() == 1 ? manifest_.extents[0].sha256 : stream_.FinishHex();
    }

private:
    const ExtentList &extents_;
    Manifest &manifest_;
    size_t index_ = 0;
    uint64_t done_ = 0;
    Sha256 sha_, stream_;
};

// Lays the stream out at the extents' offsets in the image; runs on a stage
// thread of its own, beside the hashing. It flushes what it wrote every
// kFlushEveryBytes and once more after the last byte, so that the flush the
// image needs before a manifest may name it no longer waits, after the
// reading and hashing are over, for every byte of the image to reach the disk.
class ExtentImageWriter {
public:
    ExtentImageWriter(File &image, const ExtentList &extents) : image_(image), extents_(extents), total_(TotalBytes(extents)) {}

    void Take(const uint8_t *data, size_t length) {
        written_ += length, unflushed_ += length;
        while (length > 0) {
            const Extent &extent = extents_.at(index_);
            const size_t take = static_cast<size_t>(std::min<uint64_t>(length, extent.length - done_));
            // The image was created at full size, so a range of zeros is
            // already there; skipping it keeps the file sparse.
            if (!AllZero(data, take))
                image_.WriteAt(extent.offset + done_, data, take);
            done_ += take, data += take, length -= take;
            if (done_ == extent.length) ++index_, done_ = 0;
        }
        if (unflushed_ >= kFlushEveryBytes || written_ == total_) {
            image_.Flush();
            unflushed_ = 0;
        }
    }

private:
    static constexpr uint64_t kFlushEveryBytes = 32ull << 20;
    File &image_;
    const ExtentList &extents_;
    const uint64_t total_;
    size_t index_ = 0;
    uint64_t done_ = 0, written_ = 0, unflushed_ = 0;
};

// The reading thread's part: pieces of the read cache go to the stages
// (hashing, writing) in the buffers they are read into.
class StagesTarget : public ReadCache::Target {
public:
    StagesTarget(StreamStages &stages, Progress &progress) : stages_(stages), progress_(progress) {}
    uint8_t *Borrow(size_t *capacity) override {
        *capacity = stages_.BufferBytes();
        return stages_.Borrow();
    }
    void Take(size_t length) override {
        stages_.Submit(length);
        progress_.Advance(length);
    }

private:
    StreamStages &stages_;
    Progress &progress_;
};

// A stage's piece spans several of the read cache's buffers, so the stages
// wake, and the image is written, a few times less often than the cache
// hands out buffers; the pieces ahead of the slowest stage (the hashing)
// ride out the moments the reading thread is not scheduled.
constexpr size_t kBuffersPerPiece = 4;
constexpr size_t kPiecesInFlight = 6;

size_t PieceBytes(const CacheTuning &tuning) { return static_cast<size_t>(tuning.bufferKB) * 1024 * kBuffersPerPiece; }

std::wstring FileName(const std::wstring &path) { return path.substr(path.find_last_of(L"\\/") + 1); }

std::vector<std::wstring> Outputs(const std::wstring &image) {
    return {image, MetadataPathFor(image), ManifestPathFor(image), ManifestPathFor(image) + L".partial",
            ExtentListPathFor(image)};
}

// Before anything is deleted: --force over the source itself would lose it.
void CheckOutputsAreNotInputs(const BackupRequest &request) {
    ProtectedFiles inputs;
    inputs.AddDisk(request.disk, L"a file of the source disk");
    inputs.Add(request.changeList, L"the change list");
    for (const std::wstring &path : Outputs(request.image)) inputs.CheckOutput(path);
}

void ClearOutputs(const std::wstring &image, bool overwrite) {
    for (const std::wstring &path : Outputs(image)) {
        if (!PathExists(path)) continue;
        if (!overwrite) throw Failure(L"'" + path + L"' already exists (use --force to replace it)");
        DeleteIfExists(path);
    }
}

}  // namespace

TransferResult Backup(Job &job, const CacheTuning &tuning, const BackupRequest &request) {
    CheckOutputsAreNotInputs(request);
    if (!request.resumeFolder.empty()) return ResumableBackup(job, tuning, request);
    // The list first: a mistake in it should not cost a disk open.
    const ExtentList listed = request.changeList.empty() ? ExtentList() : Normalized(LoadChangeList(request.changeList));
    Disk disk(job.Broker(), job.Link(), request.disk, Disk::Mode::Read, request.ancestors);
    const DiskInfo info = disk.Info();
    const ExtentList extents = request.changeList.empty() ? ExtentList{{0, info.capacityBytes}} : listed;
    CheckWithinDisk(extents, info.capacityBytes, L"change list '" + request.changeList + L"'");
    ClearOutputs(request.image, request.overwrite);

    // The library gets a list we wrote: one area, sorted, merged, so that what
    // it streams is exactly what the manifest records.
    const std::wstring listPath = ExtentListPathFor(request.image);
    SaveChangeList(listPath, extents, info.capacityBytes);
    File image = File::Create(request.image, false);
    image.TryMakeSparse();
    image.SetSize(info.capacityBytes);

    Manifest manifest;
    manifest.source = request.disk;
    manifest.capacity = info.capacityBytes;
    manifest.metadataFile = FileName(MetadataPathFor(request.image));
    Progress progress(L"backup", TotalBytes(extents), request.showProgress);
    ExtentHasher hashes(extents, manifest);
    ExtentImageWriter writer(image, extents);
    StreamStages stages({[&](const uint8_t *data, size_t length) { hashes.Take(data, length); },
                         [&](const uint8_t *data, size_t length) { writer.Take(data, length); }},
                        PieceBytes(tuning), kPiecesInFlight);
    StagesTarget target(stages, progress);
    ReadCache cache(job.Broker(), tuning);
    TransferResult result;
    result.depth = cache.Stream(disk, listPath, MetadataPathFor(request.image), TotalBytes(extents), target);
    stages.Finish();
    progress.Finish();
    disk.Close();
    image.Close();
    CheckNoProblems(job.Log(), L"the backup");
    manifest.streamSha256 = hashes.StreamSha();
    manifest.Save(ManifestPathFor(request.image));

    result.bytes = TotalBytes(extents);
    result.extents = extents.size();
    result.seconds = progress.Seconds();
    result.sha256 = manifest.streamSha256;
    return result;
}

TransferResult Checksum(Job &job, const CacheTuning &tuning, const std::wstring &path, bool showProgress) {
    Disk disk(job.Broker(), job.Link(), path, Disk::Mode::Read);
    const DiskInfo info = disk.Info();
    TempPath list(L".extents.xml"), metadata(L".meta");
    SaveChangeList(list.Path(), {{0, info.capacityBytes}}, info.capacityBytes);
    Progress progress(L"checksum", info.capacityBytes, showProgress);
    Sha256 sha;
    StreamStages stages({[&](const uint8_t *data, size_t length) { sha.Update(data, length); }}, PieceBytes(tuning),
                        kPiecesInFlight);
    StagesTarget target(stages, progress);
    ReadCache cache(job.Broker(), tuning);
    TransferResult result;
    result.depth = cache.Stream(disk, list.Path(), metadata.Path(), info.capacityBytes, target);
    stages.Finish();
    progress.Finish();
    disk.Close();
    CheckNoProblems(job.Log(), L"the checksum pass");
    result.bytes = info.capacityBytes;
    result.extents = 1;
    result.seconds = progress.Seconds();
    result.sha256 = sha.FinishHex();
    return result;
}

}  // namespace dbtool
