// vm-backup: the vSphere side of a backup around the disk backups of backup.cpp.
#include <time.h>

#include <diskbroker_results.h>
#include <skclass_mini/configuration.h>
#include <skclass_mini/product.h>

#include "console.h"
#include "errors.h"
#include "files.h"
#include "job.h"
#include "transfer.h"
#include "vsphere.h"

namespace dbtool {
namespace {

constexpr uint32_t kHttpsPort = 443;

// "host:port" -> host and port; a bare host keeps HTTPS's port.
void SplitServer(const std::wstring &server, std::wstring &host, uint32_t &port) {
    host = server;
    port = kHttpsPort;
    const size_t colon = server.rfind(L':');
    if (colon == std::wstring::npos || server.find(L':') != colon || colon + 1 == server.size()) return;
    const std::wstring digits = server.substr(colon + 1);
    if (digits.size() > 5 || digits.find_first_not_of(L"0123456789") != std::wstring::npos) return;
    const unsigned long number = wcstoul(digits.c_str(), nullptr, 10);
    if (number == 0 || number > 65535) throw UsageError(L"--server '" + server + L"': the port must be 1-65535");
    host = server.substr(0, colon);
    port = number;
}

const _vmc::VmSnapshotInfo *FindSnapshot(const _vmc::VmSnapshotInfo &tree, const std::string &name) {
    for (const _vmc::VmSnapshotInfo &child : tree.children) {
        if (child.name == name) return &child;
        if (const _vmc::VmSnapshotInfo *found = FindSnapshot(child, name)) return found;
    }
    return nullptr;
}

// A server's disks are read through VDDK's connection to the VM by its
// reference, at the snapshot just taken, with the session's account.
ConnectionOptions ServerDisks(VsphereSession &session, const VmBackupRequest &request, const std::wstring &snapshot) {
    _vmc::_ObjDetails details;
    if (session.Wrapper()->vmcGetObjDetails(session.Handle(), Utf8(request.vm).c_str(), nullptr, nullptr, "DataSet2a",
                                            &details) != 0 ||
        details.moRef.empty())
        throw Failure(L"the reference of the VM '" + request.vm + L"' cannot be read (" + session.LastError() + L")");
    _vmc::VmSnapshotInfo tree;
    const _vmc::VmSnapshotInfo *taken = nullptr;
    if (session.Wrapper()->vmcGetVmSnapshotTree(session.Handle(), Utf8(request.vm).c_str(), tree) == 0)
        taken = FindSnapshot(tree, Utf8(snapshot));
    if (!taken || taken->moRef.empty())
        throw Failure(L"the snapshot '" + snapshot + L"' is not in the snapshot tree of '" + request.vm + L"'");
    ConnectionOptions options;
    uint32_t port = kHttpsPort;
    SplitServer(request.vsphere.server, options.server, port);
    options.port = port;
    options.user = request.vsphere.user;
    options.passwordVariable = request.vsphere.passwordVariable;
    options.vmxSpec = L"moref=" + Wide(details.moRef);
    options.snapshotRef = Wide(taken->moRef);
    options.thumbprint = request.thumbprint;
    options.transports = request.transports;
    options.readOnly = true;
    return options;
}

// The orphan list only works with "AutoOrphanSnapshotRemoval" on; the stand-in
// run switches it on where the agent's settings do not say. It lands in the
// stand-in machine's registry, which keeps it, and the list, for the next run.
void EnableOrphanListIfUnset() {
    Configuration agent;
    const wchar_t *key = CMS_GetProd() == 1 ? L"Software\\Tarrow\\Vaultry\\ORMZ\\Engine\\VMware Agent"
                                            : L"Software\\Halvorn\\Stowline For Windows\\Stowline\\Engine\\VMware Agent";
    if (!agent.Open(Configuration::OpenOrCreate, key, wcstring(), Configuration::ReadWrite)) return;
    unsigned long value = 0;
    if (!agent.LoadDWORD(L"AutoOrphanSnapshotRemoval", value)) agent.SaveDWORD(L"AutoOrphanSnapshotRemoval", 1);
}

std::wstring SnapshotName() {
    const time_t now = time(nullptr);
    struct tm utc {};
    gmtime_s(&utc, &now);
    wchar_t text[64];
    wcsftime(text, 64, L"diskbroker-%Y%m%d-%H%M%S", &utc);
    return text;
}

std::vector<std::wstring> VmDisks(VsphereSession &session, const std::wstring &vm) {
    std::vector<_vmc::_VmDiskDetails> disks;
    const int result = session.Wrapper()->vmcGetAllVmDiskDetails(session.Handle(), Utf8(vm).c_str(), disks);
    if (result != 0)
        throw Failure(L"the server does not know the VM '" + vm + L"' (" + session.LastError() + L")");
    std::vector<std::wstring> paths;
    for (const _vmc::_VmDiskDetails &disk : disks) paths.push_back(Wide(disk.fileName));
    if (paths.empty()) throw Failure(L"the VM '" + vm + L"' has no disks to back up");
    return paths;
}

// The snapshot and the VM lock it holds, given back on every path.
class BackupSnapshot {
public:
    BackupSnapshot(VsphereSession &session, const VmBackupRequest &request)
        : session_(session), request_(request), name_(SnapshotName()) {
        std::wstring host;
        SplitServer(request.vsphere.server, host, port_);
    }
    ~BackupSnapshot() {
        try {
            Remove();
        } catch (...) {
            // Already reported; a clean-up on the way out must not hide the first failure.
        }
    }
    void Create() {
        wcstring vddkLog;
        const VsphereOptions &v = request_.vsphere;
        const uint32_t result =
            vddkCreateSnapshot(request_.vm, name_, L"diskbroker vm-backup", v.server, v.user, session_.Password(),
                               port_, false, true, session_.Wrapper(), session_.Handle(), request_.ownerKey, vddkLog);
        if (result == dbresult::kOk) {
            taken_ = true;
            return;
        }
        // A lock taken before a failed snapshot stays otherwise; releasing a VM
        // that was never locked does no harm.
        wcstring unused;
        (void)vddkSetupVMAccessControl(false, name_, request_.vm, v.server, v.user, session_.Password(), port_,
                                 session_.Wrapper(), session_.Handle(), unused);
        std::wstring text = L"the snapshot of '" + request_.vm + L"' failed (" + Hex32(result) + L")";
        if (result == dbresult::kAccessPrepareFailed) text += L": the VM could not be locked";
        if (!vddkLog.empty()) text += L"\nVDDK reported:\n" + vddkLog;
        throw Failure(text);
    }
    // Removes the snapshot and releases the VM; throws Failure when the server keeps it.
    void Remove() {
        if (!taken_) return;
        taken_ = false;
        const VsphereOptions &v = request_.vsphere;
        const uint32_t result = vddkRemoveSnapshot(name_, request_.vm, v.server, v.user, session_.Password(), port_,
                                                   false, session_.Wrapper(), session_.Handle(), request_.ownerKey);
        if (result != dbresult::kOk)
            throw Failure(L"the snapshot '" + name_ + L"' could not be removed (" + Hex32(result) +
                          L"); the next vm-backup under the same owner key removes it");
    }
    const std::wstring &Name() const { return name_; }

private:
    VsphereSession &session_;
    const VmBackupRequest &request_;
    std::wstring name_;
    uint32_t port_ = kHttpsPort;
    bool taken_ = false;
};

// Each disk into <folder>\<vm>-disk<N>.img, as backup does.
void BackUpDisks(Job &job, const CacheTuning &tuning, const VmBackupRequest &request,
                 const std::vector<std::wstring> &disks, VmBackupResult &result) {
    for (size_t i = 0; i < disks.size(); ++i) {
        if (request.beforeDisk) request.beforeDisk(disks[i]);
        BackupRequest disk;
        disk.disk = disks[i];
        disk.image = request.folder + L"\\" + request.vm + L"-disk" + std::to_wstring(i) + L".img";
        disk.overwrite = true;
        disk.showProgress = request.showProgress;
        const TransferResult done = Backup(job, tuning, disk);
        OutLine(L"disk " + std::to_wstring(i + 1) + L"/" + std::to_wstring(disks.size()) + L": " + disks[i] + L" -> " +
                disk.image + L" (" + FormatBytes(done.bytes) + L", SHA-256 " + done.sha256 + L")");
        result.images.push_back(disk.image);
        result.bytes += done.bytes;
    }
}

}  // namespace

VmBackupResult VmBackup(const VmBackupRequest &request) {
    const Args jobArgs(request.jobWords, WithCommonOptions({}, true), 0, 0);
    const CacheTuning tuning = TuningFrom(jobArgs);  // a bad value stops us before anything is taken
    std::wstring host;
    uint32_t port = 0;
    SplitServer(request.vsphere.server, host, port);  // so does a bad port
    CreateFolders(request.folder);
    const DWORD attributes = GetFileAttributesW(request.folder.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || !(attributes & FILE_ATTRIBUTE_DIRECTORY))
        throw Failure(L"'" + request.folder + L"' is not a folder the images can go into");
    // VDDK (and its install value) first: the vSphere library is found beside it.
    // The stand-in's memory disks are local; a server's disks need the snapshot first.
    Job job(jobArgs, true, request.vsphere.standin);
    VsphereLibrary library(request.vsphere);
    // Only the stand-in machine's registry is ours to change (a server's run on
    // the VDDK stand-in uses it too).
    if (job.Vddk().UsesStandin()) EnableOrphanListIfUnset();
    OutLine(L"vSphere: " + library.Description());
    VsphereSession session(request.vsphere);
    OutLine(L"connected to " + request.vsphere.server + L" as " + request.vsphere.user);
    session.Check(vddkEnableChangeTracking(request.vm, session.Wrapper(), session.Handle()), L"change tracking");
    const std::vector<std::wstring> disks = VmDisks(session, request.vm);

    VmBackupResult result;
    BackupSnapshot snapshot(session, request);
    snapshot.Create();
    result.snapshot = snapshot.Name();
    OutLine(L"snapshot '" + snapshot.Name() + L"' taken; VM '" + request.vm + L"' locked for the backup");
    if (!request.vsphere.standin) job.Connect(ServerDisks(session, request, snapshot.Name()));
    // Declared after the snapshot, so VDDK lets go of the disks before it is removed, on every path.
    struct Disconnect {
        Job &job;
        ~Disconnect() { job.Disconnect(); }
    } disconnect{job};
    BackUpDisks(job, tuning, request, disks, result);
    job.Disconnect();
    snapshot.Remove();
    OutLine(L"snapshot removed; VM '" + request.vm + L"' released");
    return result;
}

}  // namespace dbtool
