// diskbroker.exe killed with TerminateProcess at several points of a backup
// and of a restore leaves: the machine's registry as it was (the stand-in is
// registered only in the stand-in machine's registry, which stays for the next
// run; that it holds no password vm_backup_cli.sh checks after a killed run
// that used one), a backup without a manifest, a target that info reports as
// incomplete, and a re-run that completes. Ctrl-C ends a transfer through the
// same unwinding.
#include <windows.h>

#include <string>

#include <gtest/gtest.h>

#include <dbtest/child_process.h>
#include <dbtest/product_keys.h>
#include <dbtest/registry_sandbox.h>
#include <dbtest/temp_dir.h>

#include "errors.h"
#include "files.h"
#include "interrupt.h"
#include "job.h"
#include "manifest.h"
#include "standin_machine.h"
#include "tool_checks.h"
#include "transfer.h"

namespace {

using namespace dbtool;
using tooltest::ErrorOf;
using tooltest::Holds;

// Generous: a 192 MiB transfer on a loaded machine under Wine.
constexpr DWORD kMustHappenMs = 240000;
const wchar_t kSource[] = L"memdisk://killed?size=201326592&seed=11";
// diskbroker.exe with its stdout and stderr on a pipe the test reads.
dbtest::ChildProcess Tool(const std::wstring &arguments) {
    return dbtest::ChildProcess(L"diskbroker.exe", arguments, true);
}

int RunTool(const std::wstring &arguments, std::string *output = nullptr) {
    dbtest::ChildProcess child = Tool(arguments);
    const int code = static_cast<int>(child.Finish(kMustHappenMs));
    if (output) *output = child.Output();
    return code;
}

std::wstring InstallValue() {
    return dbtest::ReadRegistryString(HKEY_LOCAL_MACHINE, dbtest::kMainInstallKey, L"Path");
}

std::wstring StandinMachineInstallValue() {
    const std::wstring key = std::wstring(StandinMachine::kKeyPath) + L"\\" + dbtest::kMainInstallKey;
    return dbtest::ReadRegistryString(HKEY_CURRENT_USER, key, L"Path");
}

std::wstring Quoted(const std::wstring &path) { return L"\"" + path + L"\""; }

class KilledRun : public ::testing::TestWithParam<int> {
protected:
    // Runs diskbroker.exe and kills it at the progress line "<label>: N%".
    ::testing::AssertionResult KilledAt(const char *label, const std::wstring &arguments) {
        dbtest::ChildProcess child = Tool(arguments + L" --vddk standin --buffer-kb 256");
        const std::string marker = std::string(label) + ": " + std::to_string(GetParam()) + "%";
        if (!child.Started() || !child.ReadUntilLine(marker))
            return ::testing::AssertionFailure() << "no line '" << marker << "' from:\n" << child.Output();
        if (!child.Kill(kMustHappenMs)) return ::testing::AssertionFailure() << label << " ended before it could be killed";
        return ::testing::AssertionSuccess();
    }
    dbtest::TempDir dir;
};

TEST_P(KilledRun, ABackupLeavesNoManifestARestoreItsMarkAndTheRegistryAsItWas) {
    const std::wstring before = InstallValue(), standin = ExeFolder() + L"vddk-standin-install";
    const std::wstring image = dir.File(L"killed.img"), target = dir.File(L"target.vmdk");
    ASSERT_TRUE(KilledAt("backup", L"backup " + Quoted(kSource) + L" " + Quoted(image)));
    EXPECT_EQ(InstallValue(), before);
    EXPECT_EQ(StandinMachineInstallValue(), standin);
    EXPECT_TRUE(PathExists(image));
    EXPECT_FALSE(PathExists(ManifestPathFor(image)));
    std::string output;
    ASSERT_EQ(RunTool(L"backup " + Quoted(kSource) + L" " + Quoted(image) + L" --vddk standin --force", &output), 0)
        << output;
    EXPECT_TRUE(PathExists(ManifestPathFor(image)));
    EXPECT_EQ(InstallValue(), before);
    EXPECT_EQ(StandinMachineInstallValue(), standin);

    ASSERT_TRUE(KilledAt("restore", L"restore " + Quoted(image) + L" " + Quoted(target)));
    EXPECT_EQ(InstallValue(), before);
    ASSERT_EQ(RunTool(L"info " + Quoted(target), &output), 0) << output;
    EXPECT_NE(output.find("restore:     INCOMPLETE"), std::string::npos) << output;
    ASSERT_EQ(RunTool(L"restore " + Quoted(image) + L" " + Quoted(target), &output), 0) << output;
    EXPECT_NE(output.find("read back: matches"), std::string::npos) << output;
    ASSERT_EQ(RunTool(L"info " + Quoted(target), &output), 0) << output;
    EXPECT_NE(output.find("restore:     complete"), std::string::npos) << output;
    EXPECT_EQ(InstallValue(), before);
}

INSTANTIATE_TEST_SUITE_P(AtEachQuarter, KilledRun, ::testing::Values(25, 50, 75));

// Ctrl-C sets the flag the handler sets; the transfer ends through the
// ordinary unwinding and closes its caches and disks. What an interrupted run
// leaves behind (no manifest, the target marked) is ctrl_c.sh's.
class Interrupt : public ::testing::Test {
protected:
    void TearDown() override { ClearInterrupt(); }
    dbtest::TempDir dir;
};

TEST_F(Interrupt, ARestoreEndsAndTheSameJobRunsTheNext) {
    const Args args({L"--vddk", L"standin"}, WithCommonOptions({}, true), 0, 0);
    Job job(args, false);
    BackupRequest backup;
    backup.disk = L"memdisk://interrupted?size=8388608&seed=5";
    backup.image = dir.File(L"i.img");
    backup.showProgress = false;
    ASSERT_NO_THROW(Backup(job, CacheTuning(), backup));

    RestoreRequest restore;
    restore.image = backup.image;
    restore.target = dir.File(L"t.vmdk");
    restore.showProgress = false;
    RequestInterrupt();
    EXPECT_TRUE(Holds(ErrorOf<Failure>([&] { Restore(job, CacheTuning(), restore); }), L"was interrupted"));
    ClearInterrupt();
    // The caches were closed: the same job can run the next transfer.
    EXPECT_NO_THROW(Restore(job, CacheTuning(), restore));
}

}  // namespace
