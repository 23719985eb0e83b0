#include "job.h"

#include <wchar.h>

#include <algorithm>

#include "console.h"
#include "errors.h"
#include "files.h"
#include "sha256.h"

namespace dbtool {

const wchar_t kCommonHelp[] =
    L"  --vddk auto|standin|installed  which VDDK to load (default auto: the registered\n"
    L"                          one when it is there, else the stand-in beside this program)\n"
    L"  --server NAME           connect to a vCenter/ESXi server instead of local disks\n"
    L"  --user NAME             user for --server; the password is read from the\n"
    L"                          environment variable named by --password-env\n"
    L"  --password-env VAR      (default DISKBROKER_PASSWORD); never pass it as an argument\n"
    L"  --thumbprint HEX        server certificate thumbprint\n"
    L"  --vm MOREF              the virtual machine, e.g. moref=vm-42\n"
    L"  --snapshot MOREF        the snapshot to read from\n"
    L"  --port N                server port\n"
    L"  --transports LIST       transport modes to try, e.g. nbdssl:nbd\n";

const wchar_t kCacheHelp[] =
    L"  --buffers N             cache buffers (default 8)\n"
    L"  --buffer-kb N           size of each buffer in KiB (default 1024)\n"
    L"  --raise-priority        run the cache thread above normal priority\n";

std::vector<OptionSpec> WithCommonOptions(std::vector<OptionSpec> own, bool cacheOptions) {
    const OptionSpec common[] = {{L"vddk", true},       {L"server", true}, {L"user", true},
                                 {L"password-env", true}, {L"thumbprint", true}, {L"vm", true},
                                 {L"snapshot", true},   {L"port", true},   {L"transports", true}};
    own.insert(own.end(), std::begin(common), std::end(common));
    if (cacheOptions) {
        own.push_back({L"buffers", true});
        own.push_back({L"buffer-kb", true});
        own.push_back({L"raise-priority", false});
    }
    return own;
}

ConnectionOptions ConnectionFrom(const Args &args, bool readOnly) {
    ConnectionOptions options;
    options.server = args.Value(L"server");
    options.user = args.Value(L"user");
    options.passwordVariable = args.Value(L"password-env", options.passwordVariable);
    options.thumbprint = args.Value(L"thumbprint");
    options.vmxSpec = args.Value(L"vm");
    options.snapshotRef = args.Value(L"snapshot");
    options.port = static_cast<uint32_t>(args.Number(L"port", 0, 0, 65535));
    options.transports = args.Value(L"transports");
    options.readOnly = readOnly;
    if (options.server.empty() && (args.Has(L"user") || args.Has(L"vm") || args.Has(L"snapshot")))
        throw UsageError(L"--user, --vm and --snapshot need --server");
    return options;
}

std::wstring DiskPathFrom(const Args &args, const std::wstring &word) {
    return args.Has(L"server") ? word : FullPath(word);
}

CacheTuning TuningFrom(const Args &args) {
    CacheTuning tuning;
    tuning.bufferCount = static_cast<unsigned long>(args.Number(L"buffers", tuning.bufferCount, 1, 1024));
    tuning.bufferKB = static_cast<unsigned long>(args.Number(L"buffer-kb", tuning.bufferKB, 4, 65536));
    tuning.raisePriority = args.Has(L"raise-priority");
    return tuning;
}

Job::Job(const Args &args, bool readOnly, bool connect) {
    const ConnectionOptions options = ConnectionFrom(args, readOnly);
    Sha256::Prepare();  // before HKLM becomes the stand-in machine's
    vddk_ = std::make_unique<VddkSetup>(ParseVddkChoice(args.Value(L"vddk", L"auto")));
    service_ = std::make_unique<Service>();
    if (connect) connection_ = std::make_unique<Connection>(*service_, options);
}

void Job::Connect(const ConnectionOptions &options) {
    connection_.reset();
    connection_ = std::make_unique<Connection>(*service_, options);
}

Job::~Job() {
    if (!service_) return;
    try {
        const std::wstring warnings = service_->TakeVddkLog();
        if (!warnings.empty()) Err(L"VDDK reported:\n" + warnings);
    } catch (...) {
        // A report on the way out must not turn a result into a crash.
    }
}

void PrintStatistics(const std::vector<std::wstring> &lines) {
    bool any = false;
    // In the order the kinds first appear: a restore reports its writes first.
    std::vector<const wchar_t *> kinds;
    for (const std::wstring &line : lines)
        for (const wchar_t *kind : {L"VixDiskLib_Read(", L"VixDiskLib_Write("})
            if (line.compare(0, wcslen(kind), kind) == 0 && std::find(kinds.begin(), kinds.end(), kind) == kinds.end())
                kinds.push_back(kind);
    for (const wchar_t *kind : kinds) {
        std::vector<std::wstring> ofKind;
        for (const std::wstring &line : lines)
            if (line.compare(0, wcslen(kind), kind) == 0) ofKind.push_back(line);
        if (ofKind.empty()) continue;
        any = true;
        std::wstring text = L"statistics: " + ofKind.back();
        while (!text.empty() && text.back() == L' ') text.pop_back();
        if (ofKind.size() > 1)
            text += L"  (+" + std::to_wstring(ofKind.size() - 1) + L" more extent lines in the log)";
        OutLine(text);
    }
    if (!any) OutLine(L"statistics: none logged");
}

void CheckNoProblems(LogWatch &log, const std::wstring &what) {
    const std::vector<std::wstring> problems = log.TakeProblems();
    if (problems.empty()) return;
    std::wstring text = what + L" lost data; the library logged:";
    for (const std::wstring &line : problems) text += L"\n  " + line;
    throw Failure(text);
}

}  // namespace dbtool
