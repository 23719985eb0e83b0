// demo: a whole backup-and-restore story on built-in defaults, told briefly.
#include <vector>

#include "commands.h"
#include "demo_resume.h"
#include "console.h"
#include "errors.h"
#include "extents.h"
#include "files.h"
#include "transfer.h"

namespace dbtool {
namespace {

const wchar_t kDemoHelp[] =
    L"usage: diskbroker demo [--dir <folder>] [--size-mb N] [options]\n"
    L"\n"
    L"Makes a base disk and a child disk over it with different data, backs the child\n"
    L"up in full, changes it, backs up only the changes from a change list, restores\n"
    L"both backups into a new disk and shows that its SHA-256 equals the source's;\n"
    L"then backs the child up with --resume in a second process stopped hard part-way\n"
    L"(--stop-after), resumes it, and shows that only the rest was read.\n"
    L"\n"
    L"  --dir <folder>          where the disks and images go (emptied first;\n"
    L"                          default %TEMP%\\diskbroker-demo)\n"
    L"  --size-mb N             size of the disks in MiB (default 64, at least 16)\n";

constexpr uint64_t kMiB = 1ull << 20;

// Deterministic data that differs per region, so a misplaced or missing range
// changes the checksum.
void FillPattern(std::vector<uint8_t> &buffer, uint64_t seed) {
    uint64_t state = seed * 0x9E3779B97F4A7C15ull + 1;
    for (size_t i = 0; i < buffer.size(); i += 8) {
        state ^= state << 13, state ^= state >> 7, state ^= state << 17;
        for (size_t j = 0; j < 8 && i + j < buffer.size(); ++j) buffer[i + j] = static_cast<uint8_t>(state >> (8 * j));
    }
}

struct Region {
    uint64_t offset;
    uint64_t length;
    uint64_t seed;
};

uint64_t WriteRegions(Job &job, const std::wstring &path, const std::vector<Region> &regions) {
    Disk disk(job.Broker(), job.Link(), path, Disk::Mode::Write);
    std::vector<uint8_t> buffer;
    uint64_t total = 0;
    for (const Region &region : regions) {
        buffer.resize(static_cast<size_t>(region.length));
        FillPattern(buffer, region.seed);
        disk.Write(region.offset / kSectorSize, region.length / kSectorSize, buffer.data());
        total += region.length;
    }
    disk.Close();
    return total;
}

std::wstring DefaultFolder() {
    wchar_t temp[MAX_PATH + 1];
    const DWORD length = GetTempPathW(MAX_PATH + 1, temp);
    if (length == 0 || length > MAX_PATH) ThrowLastError(L"cannot find the temporary folder");
    return std::wstring(temp) + L"diskbroker-demo";
}

// Empties a folder this demo made before; any other existing folder is left
// alone, since --dir may name something the user cares about.
void PrepareFolder(const std::wstring &dir) {
    const std::wstring marker = dir + L"\\.diskbroker-demo";
    if (PathExists(dir)) {
        if (!PathExists(marker))
            throw Failure(L"'" + dir + L"' exists and was not made by the demo; choose another --dir");
        DeleteTree(dir);
    }
    CreateFolders(dir);
    WriteWholeFile(marker, "");
}

std::wstring Speed(const TransferResult &r) {
    wchar_t text[64];
    swprintf(text, 64, L"%.1fs, %.1f MB/s", r.seconds, r.seconds > 0 ? static_cast<double>(r.bytes) / 1e6 / r.seconds : 0.0);
    return FormatBytes(r.bytes) + L" in " + text;
}

// The story's steps, each printing its line of the narrative.
class DemoStory {
public:
    DemoStory(Job &job, const CacheTuning &tuning, const std::wstring &dir, uint64_t size)
        : job_(job), tuning_(tuning), size_(size), base_(dir + L"\\base.vmdk"), child_(dir + L"\\child.vmdk"),
          restored_(dir + L"\\restored.vmdk"), full_(dir + L"\\full.img"), incr_(dir + L"\\incr.img"),
          changes_(dir + L"\\changes.xml"), dir_(dir) {}

    void MakeChain() {
        Disk::Create(job_.Broker(), job_.Link(), base_, size_);
        const uint64_t inBase = WriteRegions(job_, base_, {{0, 8 * kMiB, 1}, {size_ / 2, 4 * kMiB, 2}});
        Disk parent(job_.Broker(), job_.Link(), base_, Disk::Mode::Read);
        parent.CreateChild(child_);
        parent.Close();
        const uint64_t inChild = WriteRegions(job_, child_, {{4 * kMiB, 8 * kMiB, 3}, {size_ / 4, kMiB, 4}});
        OutLine(L"1. made a disk chain: base.vmdk (" + FormatBytes(size_) + L", " + FormatBytes(inBase) +
                L" written) <- child.vmdk (" + FormatBytes(inChild) + L" written over it)");
    }

    void FullBackup() {
        const TransferResult r = Backup(job_, tuning_, QuietBackup(full_, L""));
        OutLine(L"2. full backup of child.vmdk -> full.img: " + Speed(r) + L"; " +
                r.depth.Describe(L"reader-bound", L"consumer-bound"));
    }

    // Writes new data into the child and lists where, as a change-tracking
    // query would.
    void ChangeChild() {
        const std::vector<Region> changed = {{6 * kMiB, kMiB, 5}, {size_ * 3 / 8, 64 * 1024, 6}, {size_ - kMiB, kMiB, 7}};
        const uint64_t bytes = WriteRegions(job_, child_, changed);
        ExtentList extents;
        for (const Region &region : changed) extents.push_back({region.offset, region.length});
        SaveChangeList(changes_, extents, size_);
        OutLine(L"3. changed child.vmdk in " + std::to_wstring(changed.size()) + L" places (" + FormatBytes(bytes) +
                L") and listed them in changes.xml");
    }

    void IncrementalBackup() {
        const TransferResult r = Backup(job_, tuning_, QuietBackup(incr_, changes_));
        OutLine(L"4. incremental backup from changes.xml -> incr.img: " + std::to_wstring(r.extents) +
                L" extents, " + Speed(r));
    }

    void RestoreBoth() {
        const TransferResult full = Restore(job_, tuning_, QuietRestore(full_));
        const TransferResult incr = Restore(job_, tuning_, QuietRestore(incr_));
        OutLine(L"5. restored full.img into the new disk restored.vmdk (" + Speed(full) + L"), then incr.img on top (" +
                Speed(incr) + L"); every extent matched its manifest checksum and read back intact");
    }

    void CompareChecksums() {
        const std::wstring source = Checksum(job_, tuning_, child_, false).sha256;
        const std::wstring copy = Checksum(job_, tuning_, restored_, false).sha256;
        OutLine(L"6. SHA-256 of child.vmdk (source):    " + source);
        OutLine(L"   SHA-256 of restored.vmdk (target): " + copy);
        PrintStatistics(job_.Log().TakeStatistics());
        if (source != copy) throw MismatchError(L"the restored disk differs from the source");
        OutLine(L"MATCH: the restored disk is identical to the source.");
        sourceSha_ = source;
    }

    void ResumedBackup(const std::wstring &vddk) {
        TellResumedBackup(job_, tuning_, dir_, child_, size_, sourceSha_, vddk);
    }

private:
    // Of child.vmdk, over an image left by an earlier run, without a bar.
    BackupRequest QuietBackup(const std::wstring &image, const std::wstring &changeList) const {
        BackupRequest request;
        request.disk = child_;
        request.image = image;
        request.changeList = changeList;
        request.overwrite = true;
        request.showProgress = false;
        return request;
    }
    // Into restored.vmdk (made by the first restore), checked, without a bar.
    RestoreRequest QuietRestore(const std::wstring &image) const {
        RestoreRequest request;
        request.image = image;
        request.target = restored_;
        request.showProgress = false;
        return request;
    }

    Job &job_;
    const CacheTuning &tuning_;
    uint64_t size_;
    std::wstring base_, child_, restored_, full_, incr_, changes_;
    std::wstring dir_, sourceSha_;
};

}  // namespace

int RunDemo(const Words &words) {
    const Args args(words, WithCommonOptions({{L"dir", true}, {L"size-mb", true}}, true), 0, 0);
    if (args.HelpRequested()) {
        Out(std::wstring(kDemoHelp) + L"\noptions:\n" + kCacheHelp + kCommonHelp);
        return kExitOk;
    }
    const uint64_t size = args.Number(L"size-mb", 64, 16, 1 << 20) * kMiB;
    const std::wstring dir = FullPath(args.Value(L"dir", DefaultFolder()));
    const CacheTuning tuning = TuningFrom(args);
    Job job(args, false);
    PrepareFolder(dir);
    OutLine(L"diskBroker demo on the " + job.Vddk().Description());
    OutLine(L"working folder: " + dir);
    DemoStory story(job, tuning, dir, size);
    story.MakeChain();
    story.FullBackup();
    story.ChangeChild();
    story.IncrementalBackup();
    story.RestoreBoth();
    story.CompareChecksums();
    story.ResumedBackup(args.Value(L"vddk", L"auto"));
    return kExitOk;
}

}  // namespace dbtool
