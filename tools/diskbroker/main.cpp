// diskbroker: back up, restore and inspect virtual disks through diskBroker.dll.
// Every failure ends here as a message on stderr and a non-zero exit code.
#include <new>

#include <skclass_mini/crash_exit.h>

#include "commands.h"
#include "console.h"
#include "errors.h"
#include "interrupt.h"

namespace dbtool {
namespace {

struct Command {
    const wchar_t *name;
    const wchar_t *summary;
    int (*run)(const Words &);
};

const Command kCommands[] = {
    {L"demo", L"the whole story on built-in defaults: chain, full + incremental backup, restore, SHA-256 match", RunDemo},
    {L"backup", L"stream a disk (or the extents of a change list) to a raw image + manifest", RunBackup},
    {L"restore", L"stream an image into a new or existing disk, checking the manifest", RunRestore},
    {L"checksum", L"SHA-256 of a whole disk", RunChecksum},
    {L"info", L"disk information and metadata", RunInfo},
    {L"transports", L"the transport modes VDDK offers", RunTransports},
    {L"log", L"the VDDK warnings the library cached", RunLog},
    {L"mount", L"the volumes of a disk set: type, size, mounted path; mount on request", RunMount},
    {L"vm-backup", L"back up a VM's disks under a snapshot that locks the VM (vSphere)", RunVmBackup},
    {L"vm-info", L"what the vSphere server knows of a VM", RunVmInfo},
    {L"snapshots", L"a VM's snapshots (vSphere)", RunSnapshots},
    {L"hosts", L"the vSphere server's hosts", RunHosts},
};

void PrintUsage() {
    std::wstring text = L"usage: diskbroker <command> [arguments] [options]\n\ncommands:\n";
    for (const Command &command : kCommands) {
        std::wstring name = command.name;
        name.resize(12, L' ');
        text += L"  " + name + command.summary + L"\n";
    }
    text += L"\n'diskbroker <command> --help' describes a command.\n"
            L"exit codes: 0 success, 1 failure, 2 bad command line, 3 data did not match its checksum,\n"
            L"70 the program crashed\n";
    Out(text);
}

int Dispatch(const Words &words) {
    if (words.empty()) {
        PrintUsage();
        return kExitUsage;
    }
    const std::wstring &name = words[0];
    if (name == L"--help" || name == L"-h" || name == L"help") {
        PrintUsage();
        return kExitOk;
    }
    for (const Command &command : kCommands)
        if (name == command.name) return command.run(Words(words.begin() + 1, words.end()));
    throw UsageError(L"unknown command '" + name + L"'");
}

}  // namespace
}  // namespace dbtool

int wmain(int argc, wchar_t **argv) {
    using namespace dbtool;
    // A crash must never end as a success for the script or agent that ran us.
    skclass::ExitOnUnhandledException(kExitCrashed);
    try {
        InstallInterruptHandler();
        return Dispatch(Words(argv + 1, argv + argc));
    } catch (const UsageError &e) {
        ErrLine(L"diskbroker: " + e.Message());
        ErrLine(L"run 'diskbroker --help' or 'diskbroker <command> --help' for usage");
        return e.Code();
    } catch (const ToolError &e) {
        ErrLine(L"diskbroker: error: " + e.Message());
        return e.Code();
    } catch (const std::bad_alloc &) {
        ErrLine(L"diskbroker: error: out of memory");
    } catch (const std::exception &e) {
        ErrLine(L"diskbroker: error: " + Wide(e.what()));
    } catch (...) {
        ErrLine(L"diskbroker: error: unexpected failure");
    }
    return kExitFailed;
}
