// vm-backup, vm-info, snapshots and hosts: command lines and reports.
#include <diskbroker_results.h>

#include "cli.h"
#include "commands.h"
#include "console.h"
#include "errors.h"
#include "files.h"
#include "job.h"
#include "vsphere.h"

namespace dbtool {
namespace {

const wchar_t kVsphereHelp[] =
    L"  --server NAME           the vCenter or ESXi server (required)\n"
    L"  --user NAME             default backup@vsphere.local (the stand-in's account); the\n"
    L"                          password is read from the environment variable named by\n"
    L"  --password-env VAR      (default DISKBROKER_PASSWORD); never pass it as an argument\n"
    L"  --vsphere standin|live|installed   the web-services library: the stand-in beside this\n"
    L"                          program (a small vCenter 'vcenter.example' with the VMs web01\n"
    L"                          and db01; the default with --inventory), this product's client\n"
    L"                          for a real server (--server HOST[:PORT]; the default otherwise),\n"
    L"                          or the registered ravelkit.dll\n"
    L"  --inventory FILE        the stand-in's server state (an <inventory> document), kept\n"
    L"                          across runs; default: vsphere-standin-inventory.xml beside\n"
    L"                          the stand-in\n";

const wchar_t kVmBackupHelp[] =
    L"usage: diskbroker vm-backup --server NAME --vm NAME <folder> [options]\n"
    L"\n"
    L"Backs up a VM: connects, enables change tracking, takes a snapshot under an owner\n"
    L"key (which locks the VM against migration), streams each of the VM's disks through\n"
    L"the read cache into <folder>\\<vm>-disk<N>.img with the files 'backup' writes,\n"
    L"removes the snapshot (releasing the VM) and disconnects. A snapshot left behind by a\n"
    L"killed run is found in the registry's orphan list and removed by the next run\n"
    L"under the same owner key (on the stand-in \"AutoOrphanSnapshotRemoval\" is switched\n"
    L"on when the agent's settings do not say). On a server the disks are read through\n"
    L"VDDK at the snapshot, connected to the VM by its reference (moref=vm-N).\n"
    L"\n"
    L"  --vm NAME               the VM's name on the server\n"
    L"  --owner KEY             the owner key of the snapshot (default 'diskbroker vm-backup')\n"
    L"  --thumbprint HEX        a server's certificate thumbprint, for VDDK's connection\n"
    L"  --transports LIST       VDDK's transport modes to try on a server, e.g. nbdssl:nbd\n";

const wchar_t kVmInfoHelp[] =
    L"usage: diskbroker vm-info --server NAME --vm NAME [options]\n"
    L"\n"
    L"What the server knows of a VM: its reference and host, power state, guest host\n"
    L"name, change tracking, disks and snapshots.\n";

const wchar_t kSnapshotsHelp[] =
    L"usage: diskbroker snapshots --server NAME --vm NAME [options]\n\nThe VM's snapshots, one per line.\n";

const wchar_t kHostsHelp[] =
    L"usage: diskbroker hosts --server NAME [options]\n\nThe server's hosts with their versions.\n";

std::vector<OptionSpec> VsphereOptionSpecs(std::vector<OptionSpec> own) {
    const OptionSpec common[] = {{L"server", true}, {L"user", true}, {L"password-env", true}, {L"vsphere", true},
                                 {L"inventory", true}, {L"vddk", true}};
    own.insert(own.end(), std::begin(common), std::end(common));
    return own;
}

VsphereOptions VsphereFrom(const Args &args) {
    VsphereOptions options;
    options.server = args.Value(L"server");
    if (options.server.empty()) throw UsageError(L"--server is required");
    options.user = args.Value(L"user", options.user);
    options.passwordVariable = args.Value(L"password-env", options.passwordVariable);
    // A server with no inventory file is a real one (or the simulator): this product's client.
    const std::wstring library =
        args.Choice(L"vsphere", args.Has(L"inventory") ? L"standin" : L"live", {L"standin", L"live", L"installed"});
    options.standin = library == L"standin";
    options.live = library == L"live";
    options.inventory = args.Value(L"inventory");
    if (!options.standin && args.Has(L"inventory")) throw UsageError(L"--inventory is for the stand-in only");
    return options;
}

std::wstring RequiredVm(const Args &args) {
    const std::wstring vm = args.Value(L"vm");
    if (vm.empty()) throw UsageError(L"--vm is required");
    return vm;
}

int Help(const wchar_t *text, bool cache) {
    Out(std::wstring(text) + L"\noptions:\n" + kVsphereHelp +
        L"  --vddk auto|standin|installed  which VDDK to load (the stand-in's disks need the stand-in)\n" +
        (cache ? kCacheHelp : L""));
    return kExitOk;
}

// VDDK set-up (the stand-in's install value), the library, a session: what the
// query commands need around one session.
struct QueryContext {
    explicit QueryContext(const Args &args)
        : options(VsphereFrom(args)),
          vddk(ParseVddkChoice(args.Value(L"vddk", options.standin ? L"standin" : L"auto"))),
          library(options),
          session(options) {}
    VsphereOptions options;
    VddkSetup vddk;
    VsphereLibrary library;
    VsphereSession session;
};

}  // namespace

int RunVmBackup(const Words &words) {
    const Args args(words,
                    VsphereOptionSpecs({{L"vm", true}, {L"owner", true}, {L"buffers", true}, {L"buffer-kb", true},
                                        {L"raise-priority", false}, {L"thumbprint", true}, {L"transports", true}}),
                    1, 1);
    if (args.HelpRequested()) return Help(kVmBackupHelp, true);
    VmBackupRequest request;
    request.vsphere = VsphereFrom(args);
    request.vm = RequiredVm(args);
    request.folder = FullPath(args.Positional(0));
    request.ownerKey = args.Value(L"owner", request.ownerKey);
    if (request.ownerKey.empty()) throw UsageError(L"--owner must not be empty");
    request.thumbprint = args.Value(L"thumbprint");
    request.transports = args.Value(L"transports");
    if (request.vsphere.standin && (args.Has(L"thumbprint") || args.Has(L"transports")))
        throw UsageError(L"--thumbprint and --transports are for a server's disks, not the stand-in's");
    // The stand-in's memory disks need the VDDK stand-in; a server's disks the installed VDDK when there is one.
    request.jobWords = {L"--vddk", args.Value(L"vddk", request.vsphere.standin ? L"standin" : L"auto")};
    for (const wchar_t *option : {L"buffers", L"buffer-kb"})
        if (args.Has(option)) request.jobWords.insert(request.jobWords.end(), {std::wstring(L"--") + option, args.Value(option)});
    if (args.Has(L"raise-priority")) request.jobWords.push_back(L"--raise-priority");
    const VmBackupResult result = VmBackup(request);
    OutLine(L"backed up " + std::to_wstring(result.images.size()) + L" disk" + (result.images.size() == 1 ? L"" : L"s") +
            L" of '" + request.vm + L"' (" + FormatBytes(result.bytes) + L") into " + request.folder);
    return kExitOk;
}

int RunVmInfo(const Words &words) {
    const Args args(words, VsphereOptionSpecs({{L"vm", true}}), 0, 0);
    if (args.HelpRequested()) return Help(kVmInfoHelp, false);
    const std::wstring vm = RequiredVm(args);
    QueryContext context(args);
    VsphereSession &s = context.session;
    _vmc::_ObjDetails details;
    if (s.Wrapper()->vmcGetObjDetails(s.Handle(), Utf8(vm).c_str(), nullptr, nullptr, "DataSet2a", &details) != 0)
        throw Failure(L"the server does not know the VM '" + vm + L"' (" + s.LastError() + L")");
    wcstring fqdn;
    const uint32_t fqdnResult = vddkGetVmFQDN(vm, fqdn, s.Wrapper(), s.Handle());
    bool enabled = false, supported = false;
    s.Wrapper()->vmcIsChangeTrackingEnabled(s.Handle(), Utf8(vm), enabled, supported);
    OutLine(L"VM:             " + vm + L" (" + Wide(details.moRef) + L")");
    OutLine(L"host:           " + Wide(details.host));
    OutLine(L"power state:    " + Wide(details.powerState));
    OutLine(L"guest host:     " + fqdn + (fqdnResult == dbresult::kVmHasPhysicalModeDisk ? L" (physical-mode disk)" : L""));
    OutLine(std::wstring(L"change tracking: ") + (enabled ? L"enabled" : supported ? L"supported, off" : L"not supported"));
    std::vector<_vmc::_VmDiskDetails> disks;
    if (s.Wrapper()->vmcGetAllVmDiskDetails(s.Handle(), Utf8(vm).c_str(), disks) == 0)
        for (const auto &disk : disks) OutLine(L"disk:           " + Wide(disk.fileName));
    _vmc::VmSnapshotInfo tree;
    if (s.Wrapper()->vmcGetVmSnapshotTree(s.Handle(), Utf8(vm).c_str(), tree) == 0)
        OutLine(L"snapshots:      " + std::to_wstring(tree.children.size()));
    return kExitOk;
}

int RunSnapshots(const Words &words) {
    const Args args(words, VsphereOptionSpecs({{L"vm", true}}), 0, 0);
    if (args.HelpRequested()) return Help(kSnapshotsHelp, false);
    const std::wstring vm = RequiredVm(args);
    QueryContext context(args);
    VsphereSession &s = context.session;
    _vmc::VmSnapshotInfo tree;
    if (s.Wrapper()->vmcGetVmSnapshotTree(s.Handle(), Utf8(vm).c_str(), tree) != 0)
        throw Failure(L"the snapshots of '" + vm + L"' cannot be listed (" + s.LastError() + L")");
    if (tree.children.empty()) OutLine(L"(no snapshots)");
    for (const auto &snapshot : tree.children) OutLine(Wide(snapshot.name));
    return kExitOk;
}

int RunHosts(const Words &words) {
    const Args args(words, VsphereOptionSpecs({}), 0, 0);
    if (args.HelpRequested()) return Help(kHostsHelp, false);
    QueryContext context(args);
    std::vector<vddkHostInfo> hosts;
    context.session.Check(vddkGetAllHosts(&hosts, context.session.Wrapper(), context.session.Handle()),
                          L"the host list");
    for (const vddkHostInfo &host : hosts)
        OutLine(host.name + L"  version " + std::to_wstring(host.majorVersion) + L"." +
                std::to_wstring(host.minorVersion));
    if (hosts.empty()) OutLine(L"(no hosts)");
    return kExitOk;
}

}  // namespace dbtool
