// backup, restore and checksum: command lines and reports.
#include "ancestors.h"
#include "commands.h"
#include "console.h"
#include "errors.h"
#include "files.h"
#include "manifest.h"
#include "transfer.h"

namespace dbtool {
namespace {

const wchar_t kBackupHelp[] =
    L"usage: diskbroker backup <disk> <image> [--changes <list.xml>] [--force] [options]\n"
    L"\n"
    L"Streams the disk through the library's read cache into <image>, a raw file of\n"
    L"the disk's size holding the streamed data at its offsets (sparse elsewhere).\n"
    L"Beside it: <image>.meta (the disk's metadata export), <image>.extents.xml (the\n"
    L"list given to the library) and <image>.manifest (size, extents, SHA-256 of each\n"
    L"extent's data), written last. List extents that are not whole sectors are widened\n"
    L"to the sectors holding them. An output that is one of the inputs (the disk under\n"
    L"any name, one of its extent files or parents, the list) is refused.\n"
    L"\n"
    L"  <disk>                  a .vmdk path, or memdisk://name?size=<bytes> on the stand-in\n"
    L"  --changes <list.xml>    back up only the extents of a DiskChangeInfo list\n"
    L"                          (an incremental backup); default: the whole disk\n"
    L"  --force                 replace an existing image and its companion files\n"
    L"  --ancestors <folder>... folders holding the disk's parents (nearest last); the\n"
    L"                          disk is relinked to them before it is read\n"
    L"  --resume <state folder> keep sector bookkeeping there: a backup killed part-way\n"
    L"                          and run again with the same folder reads only what is\n"
    L"                          not yet in the image (the folder belongs to this job)\n"
    L"  --stop-after <bytes>    with --resume, a test switch: stop hard (exit code 9, no\n"
    L"                          clean-up, as a crash) once this much data is streamed\n";

const wchar_t kRestoreHelp[] =
    L"usage: diskbroker restore <image> <target> [--changes <list.xml>] [--no-verify]\n"
    L"                          [--no-metadata] [options]\n"
    L"\n"
    L"Streams the extents of <image> (as its <image>.manifest lists them) into <target>\n"
    L"through the library's write cache. A target file that does not exist is created\n"
    L"as a sparse disk of the manifest's size. Every extent read from the image is\n"
    L"checked against the manifest's SHA-256; a mismatch stops the restore with exit\n"
    L"code 3. Afterwards the written ranges are read back from the target and compared.\n"
    L"Before writing, the image's size and extent list must match the manifest, and the\n"
    L"whole stream must match its digest (exit 3 otherwise). The target carries the\n"
    L"metadata mark diskbroker.restore, \"incomplete\" until the restore has ended\n"
    L"('diskbroker info' shows it); a re-run from the same image completes it.\n"
    L"\n"
    L"  --changes <list.xml>    write only these ranges (they must lie inside the image's\n"
    L"                          extents; the image is still checked in full)\n"
    L"  --no-verify             skip reading the target back\n"
    L"  --no-metadata           do not write the metadata export back to the target\n"
    L"  --ancestors <folder>... folders holding the target's parents (nearest last), for\n"
    L"                          reading the target back\n"
    L"  --resume <state folder> keep sector bookkeeping there: a restore killed part-way\n"
    L"                          and run again with the same folder writes only what is\n"
    L"                          not yet in the target (the image is still checked whole)\n"
    L"  --stop-after <bytes>    with --resume, a test switch: stop hard (exit code 9)\n"
    L"                          once this much data is written\n";

const wchar_t kChecksumHelp[] =
    L"usage: diskbroker checksum <disk> [options]\n"
    L"\n"
    L"Prints the SHA-256 of the whole disk, read through the library's read cache\n"
    L"(the same value sha256sum gives for the disk converted to raw).\n";

const OptionSpec kResumeOptions[] = {{L"resume", true}, {L"stop-after", true}};

// --resume and --stop-after into the request's two fields.
template <typename Request>
void TakeResumeOptions(const Args &args, Request &request) {
    if (args.Has(L"resume")) request.resumeFolder = FullPath(args.Value(L"resume"));
    request.stopAfterBytes = args.Number(L"stop-after", 0, 1, UINT64_MAX / 2);
    if (request.stopAfterBytes && request.resumeFolder.empty())
        throw UsageError(L"--stop-after needs --resume (a stopped run without bookkeeping could not be resumed)");
}

int Help(const wchar_t *text, bool cache) {
    Out(std::wstring(text) + L"\noptions:\n" + (cache ? kCacheHelp : L"") + kCommonHelp);
    return kExitOk;
}

void Report(Job &job, const TransferResult &result, const std::wstring &emptyVerdict, const std::wstring &fullVerdict) {
    PrintStatistics(job.Log().TakeStatistics());
    OutLine(L"buffer depth: " + result.depth.Describe(emptyVerdict, fullVerdict));
}

}  // namespace

int RunBackup(const Words &allWords) {
    Words words = allWords;
    const std::vector<std::wstring> ancestors = TakeAncestors(words);
    const Args args(words, WithCommonOptions({{L"changes", true}, {L"force", false}, kResumeOptions[0], kResumeOptions[1]}, true), 2, 2);
    if (args.HelpRequested()) return Help(kBackupHelp, true);
    BackupRequest request;
    request.disk = DiskPathFrom(args, args.Positional(0));
    request.image = FullPath(args.Positional(1));
    if (args.Has(L"changes")) request.changeList = FullPath(args.Value(L"changes"));
    request.overwrite = args.Has(L"force");
    request.ancestors = ancestors;
    TakeResumeOptions(args, request);
    Job job(args, true);
    const TransferResult result = Backup(job, TuningFrom(args), request);
    OutLine(L"image: " + request.image + L" (" + std::to_wstring(result.extents) + L" extent" +
            (result.extents == 1 ? L"" : L"s") + L", " + FormatBytes(result.bytes) + L")");
    OutLine(L"manifest: " + ManifestPathFor(request.image));
    OutLine(L"stream SHA-256: " + result.sha256);
    Report(job, result, L"reader-bound", L"consumer-bound");
    return kExitOk;
}

int RunRestore(const Words &allWords) {
    Words words = allWords;
    const std::vector<std::wstring> ancestors = TakeAncestors(words);
    const Args args(
        words, WithCommonOptions({{L"changes", true}, {L"no-verify", false}, {L"no-metadata", false}, kResumeOptions[0], kResumeOptions[1]}, true), 2, 2);
    if (args.HelpRequested()) return Help(kRestoreHelp, true);
    RestoreRequest request;
    request.image = FullPath(args.Positional(0));
    request.target = DiskPathFrom(args, args.Positional(1));
    request.mayCreate = !args.Has(L"server");
    if (args.Has(L"changes")) request.changeList = FullPath(args.Value(L"changes"));
    request.verify = !args.Has(L"no-verify");
    request.metadata = !args.Has(L"no-metadata");
    request.ancestors = ancestors;
    TakeResumeOptions(args, request);
    Job job(args, false);
    const TransferResult result = Restore(job, TuningFrom(args), request);
    OutLine(L"target: " + request.target + (result.createdTarget ? L" (created)" : L"") + L", " +
            std::to_wstring(result.extents) + L" range" + (result.extents == 1 ? L"" : L"s") + L", " +
            FormatBytes(result.bytes) + L" written");
    OutLine(L"manifest checksums: all extents match");
    if (result.verified) OutLine(L"read back: matches (SHA-256 " + result.sha256 + L")");
    // The write cache's histogram is sampled by the writer: an empty queue
    // means it waited for us to feed it.
    Report(job, result, L"feeder-bound", L"writer-bound");
    return kExitOk;
}

int RunChecksum(const Words &words) {
    const Args args(words, WithCommonOptions({}, true), 1, 1);
    if (args.HelpRequested()) return Help(kChecksumHelp, true);
    const std::wstring disk = DiskPathFrom(args, args.Positional(0));
    Job job(args, true);
    const TransferResult result = Checksum(job, TuningFrom(args), disk, true);
    OutLine(result.sha256 + L"  " + disk);
    Report(job, result, L"reader-bound", L"consumer-bound");
    return kExitOk;
}

}  // namespace dbtool
