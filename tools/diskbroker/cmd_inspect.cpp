// info, transports and log: looking at disks and VDDK without moving data.
#include <skstdutl/sklog.h>

#include "commands.h"
#include "console.h"
#include "errors.h"
#include "files.h"
#include "job.h"
#include "target_mark.h"

namespace dbtool {
namespace {

const wchar_t kInfoHelp[] =
    L"usage: diskbroker info <disk> [options]\n"
    L"\n"
    L"Prints the disk's capacity, adapter, geometry, chain length, parent, transport\n"
    L"mode and metadata.\n";

const wchar_t kTransportsHelp[] =
    L"usage: diskbroker transports [options]\n"
    L"\n"
    L"Prints the transport modes the loaded VDDK offers.\n";

const wchar_t kLogHelp[] =
    L"usage: diskbroker log [<disk>...] [options]\n"
    L"\n"
    L"Starts VDDK, opens each disk given (a failure to open is reported, not fatal)\n"
    L"and prints the VDDK warnings and panics the library cached meanwhile.\n"
    L"The library's own log is the file named below.\n";

int Help(const wchar_t *text) {
    Out(std::wstring(text) + L"\noptions:\n" + kCommonHelp);
    return kExitOk;
}

std::wstring LogFilePath() {
    wchar_t path[MAX_PATH * 2] = L"";
    SK_GetLogFilePath(path, MAX_PATH * 2);
    return path[0] ? path : L"(none)";
}

}  // namespace

int RunInfo(const Words &words) {
    const Args args(words, WithCommonOptions({}, false), 1, 1);
    if (args.HelpRequested()) return Help(kInfoHelp);
    const std::wstring path = DiskPathFrom(args, args.Positional(0));
    Job job(args, true);
    Disk disk(job.Broker(), job.Link(), path, Disk::Mode::Read);
    const DiskInfo info = disk.Info();
    OutLine(L"disk:        " + path);
    OutLine(L"capacity:    " + std::to_wstring(info.capacityBytes) + L" bytes (" + FormatBytes(info.capacityBytes) +
            L", " + std::to_wstring(info.capacityBytes / 512) + L" sectors)");
    OutLine(L"adapter:     " + info.adapter);
    OutLine(L"geometry:    " + std::to_wstring(info.biosCylinders) + L"/" + std::to_wstring(info.biosHeads) + L"/" +
            std::to_wstring(info.biosSectors) + L" (BIOS C/H/S)");
    OutLine(L"links:       " + std::to_wstring(info.numLinks));
    OutLine(L"parent:      " + (info.parentHint.empty() ? std::wstring(L"(none)") : info.parentHint));
    if (!info.uuid.empty()) OutLine(L"uuid:        " + info.uuid);
    OutLine(L"transport:   " + disk.TransportMode());
    const std::wstring restore = TargetMark::Read(disk).Describe();
    if (!restore.empty()) OutLine(L"restore:     " + restore);
    for (const std::string &key : disk.MetadataKeys())
        OutLine(L"metadata:    " + Wide(key) + L" = " + Wide(disk.ReadMetadata(key)));
    disk.Close();
    return kExitOk;
}

int RunTransports(const Words &words) {
    const Args args(words, WithCommonOptions({}, false), 0, 0);
    if (args.HelpRequested()) return Help(kTransportsHelp);
    Job job(args, true, false);
    const char *modes = job.Broker().Broker().VixDiskLib_ListTransportModes();
    if (!modes) throw Failure(L"VDDK listed no transport modes");
    OutLine(L"transport modes: " + Wide(modes));
    OutLine(L"using: " + job.Vddk().Description());
    return kExitOk;
}

int RunLog(const Words &words) {
    const Args args(words, WithCommonOptions({}, false), 0, 64);
    if (args.HelpRequested()) return Help(kLogHelp);
    Job job(args, true);
    for (const std::wstring &word : args.Positional()) {
        const std::wstring path = DiskPathFrom(args, word);
        try {
            Disk disk(job.Broker(), job.Link(), path, Disk::Mode::Read);
            disk.Close();
            OutLine(L"opened: " + path);
        } catch (const Failure &e) {
            OutLine(L"failed: " + e.Message());
        }
    }
    const std::wstring cached = job.Broker().TakeVddkLog();
    Out(cached.empty() ? std::wstring(L"no VDDK warnings cached\n") : L"VDDK warnings:\n" + cached);
    OutLine(L"library log: " + LogFilePath());
    return kExitOk;
}

}  // namespace dbtool
