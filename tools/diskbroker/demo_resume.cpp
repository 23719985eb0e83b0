// The demo's resumed backup: the first attempt runs in a process of its own,
// so that stopping it hard is a real crash for the bookkeeping.
#include "demo_resume.h"

#include <skclass_mini/handles.h>

#include "console.h"
#include "errors.h"
#include "files.h"
#include "manifest.h"
#include "resume.h"
#include "transfer.h"

namespace dbtool {
namespace {

// The stopped attempt is a whole backup's start-up plus a third of the disk.
constexpr DWORD kAttemptTimeoutMs = 10 * 60 * 1000;

std::wstring ThisProgram() {
    wchar_t path[MAX_PATH + 1];
    const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH + 1);
    if (length == 0 || length > MAX_PATH) ThrowLastError(L"cannot find this program's path");
    return std::wstring(path, length);
}

// Runs the command line and returns its exit code.
DWORD RunAndWait(std::wstring command) {
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION info{};
    if (!CreateProcessW(nullptr, &command[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &info))
        ThrowLastError(L"cannot start the first attempt");
    skclass::UniqueHandle process(info.hProcess), thread(info.hThread);
    if (WaitForSingleObject(process.get(), kAttemptTimeoutMs) != WAIT_OBJECT_0) {
        TerminateProcess(process.get(), kExitFailed);
        throw Failure(L"the first attempt did not stop within " + std::to_wstring(kAttemptTimeoutMs / 1000) + L" s");
    }
    DWORD code = 0;
    GetExitCodeProcess(process.get(), &code);
    return code;
}

}  // namespace

void TellResumedBackup(Job &job, const CacheTuning &tuning, const std::wstring &dir, const std::wstring &disk,
                       uint64_t diskBytes, const std::wstring &sourceSha, const std::wstring &vddk) {
    const std::wstring image = dir + L"\\resumed.img", state = dir + L"\\resume-state";
    const uint64_t stopAfter = diskBytes / 3;
    OutLine(L"7. backup of child.vmdk -> resumed.img with --resume, in a second diskbroker process that --stop-after " +
            FormatBytes(stopAfter) + L" stops hard once that much is streamed:");
    const DWORD code = RunAndWait(L"\"" + ThisProgram() + L"\" backup \"" + disk + L"\" \"" + image + L"\" --resume \"" +
                                  state + L"\" --stop-after " + std::to_wstring(stopAfter) + L" --vddk " + vddk);
    if (code != static_cast<DWORD>(kExitStopped))
        throw Failure(L"the first attempt ended with exit code " + std::to_wstring(code) + L", not the stop's " +
                      std::to_wstring(kExitStopped));
    if (PathExists(ManifestPathFor(image))) throw Failure(L"the stopped attempt left a manifest behind");
    OutLine(L"   it ended with exit code " + std::to_wstring(code) + L" and no manifest, as a crash leaves it;");
    OutLine(L"   the same command again, without --stop-after, reads only what was not committed:");
    BackupRequest request;
    request.disk = disk;
    request.image = image;
    request.resumeFolder = state;
    request.showProgress = false;
    const TransferResult r = Backup(job, tuning, request);
    OutLine(L"   read " + FormatBytes(r.bytes) + L" of " + FormatBytes(diskBytes) + L"; the handle's statistics line:");
    PrintStatistics(job.Log().TakeStatistics());
    OutLine(L"   SHA-256 of resumed.img's stream: " + r.sha256);
    if (r.sha256 != sourceSha) throw MismatchError(L"the resumed backup differs from the source");
    OutLine(L"MATCH: the resumed backup is identical to the source.");
}

}  // namespace dbtool
