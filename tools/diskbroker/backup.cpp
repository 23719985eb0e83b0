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
#include "transfer_stages.h"
#include "transfer.h"

namespace dbtool {
namespace {

// One checksum per extent, on a stage thread. With a single extent (a whole
// disk) that digest is also the stream's; with several, the stream's digest is
// a stage of its own, so the bytes are not hashed twice on one thread.
class ExtentHasher {
public:
    ExtentHasher(const ExtentList &extents, Manifest &manifest) : extents_(extents), manifest_(manifest) {}

    void Take(const uint8_t *data, size_t length) {
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
    bool StreamIsOneExtent() const { return extents_.size() == 1; }
    std::wstring StreamSha(Sha256 &stream) {
        return StreamIsOneExtent() && manifest_.extents.size() == 1 ? manifest_.extents[0].sha256 : stream.FinishHex();
    }

private:
    const ExtentList &extents_;
    Manifest &manifest_;
    size_t index_ = 0;
    uint64_t done_ = 0;
    Sha256 sha_;
};

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
    Sha256 stream;
    std::vector<StreamStages::Work> work{[&](const uint8_t *data, size_t length) { hashes.Take(data, length); },
                                         [&](const uint8_t *data, size_t length) { writer.Take(data, length); }};
    if (!hashes.StreamIsOneExtent())
        work.push_back([&](const uint8_t *data, size_t length) { stream.Update(data, length); });
    StreamStages stages(std::move(work), PieceBytes(tuning), kPiecesInFlight);
    StagesTarget target(stages, progress);
    ReadCache cache(job.Broker(), tuning);
    TransferResult result;
    result.depth = cache.Stream(disk, listPath, MetadataPathFor(request.image), TotalBytes(extents), target);
    stages.Finish();
    progress.Finish();
    disk.Close();
    image.Close();
    CheckNoProblems(job.Log(), L"the backup");
    manifest.streamSha256 = hashes.StreamSha(stream);
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
