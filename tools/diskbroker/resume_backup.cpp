// backup --resume: streams only what the state folder does not record as
// already in the image, commits each range once the image is flushed, and
// builds the manifest from the finished image.
#include <algorithm>
#include <vector>

#include "console.h"
#include "errors.h"
#include "files.h"
#include "manifest.h"
#include "progress.h"
#include "resume.h"
#include "sha256.h"

namespace dbtool {
namespace {

// Data between two commits: a crash loses at most this much work.
constexpr uint64_t kCommitBytes = 4ull << 20;
constexpr size_t kHashChunk = 1 << 20;

// Lays the stream out at the offsets of the ranges left and commits them in
// steps: flush the image, then record the ranges.
class ResumingImageWriter {
public:
    ResumingImageWriter(File &image, const ExtentList &left, SectorBook &book, Progress &progress, StopSwitch &stop)
        : image_(image), left_(left), book_(book), progress_(progress), stop_(stop) {}

    void Take(const uint8_t *data, size_t length) {
        progress_.Advance(length);
        while (length > 0) {
            const Extent &extent = left_.at(index_);
            const size_t take = static_cast<size_t>(std::min<uint64_t>(length, extent.length - done_));
            // Holes of the image read as zeros already: skipping keeps it sparse.
            if (std::any_of(data, data + take, [](uint8_t b) { return b != 0; }))
                image_.WriteAt(extent.offset + done_, data, take);
            Pend({extent.offset + done_, take});
            done_ += take, data += take, length -= take;
            if (done_ == extent.length) ++index_, done_ = 0;
            if (pendingBytes_ >= kCommitBytes) CommitPending();
            stop_.Advance(take);
        }
    }

    void CommitPending() {
        if (pending_.empty()) return;
        image_.Flush();
        book_.Commit(pending_);
        pending_.clear();
        pendingBytes_ = 0;
    }

private:
    void Pend(const Extent &range) {
        if (!pending_.empty() && pending_.back().End() == range.offset) pending_.back().length += range.length;
        else pending_.push_back(range);
        pendingBytes_ += range.length;
    }

    File &image_;
    const ExtentList &left_;
    SectorBook &book_;
    Progress &progress_;
    StopSwitch &stop_;
    size_t index_ = 0;
    uint64_t done_ = 0;
    ExtentList pending_;
    uint64_t pendingBytes_ = 0;
};

std::wstring FileName(const std::wstring &path) { return path.substr(path.find_last_of(L"\\/") + 1); }

// The manifest as a plain backup would have written it, from the image.
Manifest ManifestFromImage(File &image, const BackupRequest &request, const ExtentList &extents, uint64_t capacity) {
    Manifest manifest;
    manifest.source = request.disk;
    manifest.capacity = capacity;
    manifest.metadataFile = FileName(MetadataPathFor(request.image));
    Sha256 stream;
    std::vector<uint8_t> chunk(kHashChunk);
    for (const Extent &extent : extents) {
        Sha256 sha;
        for (uint64_t done = 0; done < extent.length;) {
            const size_t length = static_cast<size_t>(std::min<uint64_t>(chunk.size(), extent.length - done));
            image.ReadAt(extent.offset + done, chunk.data(), length);
            sha.Update(chunk.data(), length);
            stream.Update(chunk.data(), length);
            done += length;
        }
        manifest.extents.push_back({extent, sha.FinishHex()});
    }
    manifest.streamSha256 = stream.FinishHex();
    return manifest;
}

// A fresh job starts from a new image; a resumed one keeps what is there. An
// image that is gone (or never got made before a crash) takes its commits with it.
File OpenImage(const BackupRequest &request, SectorBook &book, uint64_t capacity) {
    bool ours = false;
    if (!book.Fresh()) {
        if (PathExists(request.image)) return File::OpenReadWrite(request.image);
        OutLine(L"resume: '" + request.image + L"' is not there; its bookkeeping is dropped and the backup starts over");
        book.Forget();
        ours = true;  // the companion files left are this job's own
    }
    for (const std::wstring &path : {request.image, MetadataPathFor(request.image), ExtentListPathFor(request.image)}) {
        if (!PathExists(path)) continue;
        if (!request.overwrite && !ours) throw Failure(L"'" + path + L"' already exists (use --force to replace it)");
        DeleteIfExists(path);
    }
    File image = File::Create(request.image, false);
    image.TryMakeSparse();
    image.SetSize(capacity);
    return image;
}

}  // namespace

TransferResult ResumableBackup(Job &job, const CacheTuning &tuning, const BackupRequest &request) {
    const ExtentList listed = request.changeList.empty() ? ExtentList() : Normalized(LoadChangeList(request.changeList));
    Disk disk(job.Broker(), job.Link(), request.disk, Disk::Mode::Read, request.ancestors);
    const DiskInfo info = disk.Info();
    const ExtentList extents = request.changeList.empty() ? ExtentList{{0, info.capacityBytes}} : listed;
    CheckWithinDisk(extents, info.capacityBytes, L"change list '" + request.changeList + L"'");
    SectorBook book(request.resumeFolder, L"backup",
                    L"disk " + request.disk + L"\nimage " + request.image + L"\nchanges " + request.changeList);
    File image = OpenImage(request, book, info.capacityBytes);
    DeleteIfExists(ManifestPathFor(request.image));  // written again last, once the image is whole
    SaveChangeList(ExtentListPathFor(request.image), extents, info.capacityBytes);

    const ExtentList left = book.Left(extents, info.capacityBytes);
    TransferResult result;
    Progress progress(L"backup", TotalBytes(left), request.showProgress);
    if (!left.empty()) {
        // The pass exports the metadata again, into a file it must create.
        DeleteIfExists(MetadataPathFor(request.image));
        const std::wstring list = book.WorkFile(L"pass.xml");
        SaveChangeList(list, left, info.capacityBytes);
        StopSwitch stop(request.stopAfterBytes);
        ResumingImageWriter writer(image, left, book, progress, stop);
        ReadCache cache(job.Broker(), tuning);
        result.depth = cache.Stream(disk, list, MetadataPathFor(request.image), TotalBytes(left),
                                    [&](const uint8_t *data, size_t length) { writer.Take(data, length); });
        writer.CommitPending();
    }
    progress.Finish();
    disk.Close();
    CheckNoProblems(job.Log(), L"the backup");
    book.End();
    const Manifest manifest = ManifestFromImage(image, request, extents, info.capacityBytes);
    image.Close();
    manifest.Save(ManifestPathFor(request.image));

    result.bytes = TotalBytes(left);
    result.extents = extents.size();
    result.seconds = progress.Seconds();
    result.sha256 = manifest.streamSha256;
    return result;
}

}  // namespace dbtool
