// What the benches on the VDDK stand-in share: the clock and statistics, the
// stand-in installed the production way in a private registry, and a memory
// disk opened through a diskBroker.
#pragma once
#include <stdio.h>

#include <memory>
#include <string>

#include <dbtest/registry_sandbox.h>
#include <dbtest/temp_dir.h>
#include <dbtest/vddk_install.h>
#include <diskbroker.h>
#include <skclass_mini/handles.h>

#include "bench_timing.h"

namespace benchsupport {

// Installs the stand-in for the main product under install, with HKLM
// sandboxed by registry; says why on stderr when it cannot.
inline bool InstallStandin(const dbtest::RegistrySandbox &registry, const dbtest::TempDir &install) {
    std::string error;
    if (registry.Ok() && !install.Path().empty() &&
        dbtest::InstallVddkStandin(install.Path(), 0, dbtest::VddkVariant::Normal, &error))
        return true;
    fprintf(stderr, "cannot install the VDDK stand-in: %s\n", error.c_str());
    return false;
}

// The stand-in installed, its control interface reached, and one memory disk
// open through a diskBroker of its own; closed in reverse order at the end.
class MemoryDiskBench {
public:
    MemoryDiskBench() = default;
    MemoryDiskBench(const MemoryDiskBench &) = delete;
    MemoryDiskBench &operator=(const MemoryDiskBench &) = delete;
    ~MemoryDiskBench() {
        if (disk) service->VixDiskLib_Close(disk);
        if (connection) service->VixDiskLib_Disconnect(connection, &local);
        service.reset();
    }

    // Opens path ("memdisk://...") with tag ("Read", "Write"); says why on
    // stderr when it cannot.
    bool Open(const char *path, const wchar_t *tag) {
        if (!InstallStandin(registry, install)) return false;
        const std::wstring dll = dbtest::VddkStandinInstallFolder(install.Path(), 0) + L"vixDiskLib.dll";
        standin.reset(LoadLibraryW(dll.c_str()));
        if (!standin || !sim.Load(standin.get())) {
            fprintf(stderr, "cannot reach the stand-in's control interface\n");
            return false;
        }
        // Recording who calls asks Windows for the thread's token on every
        // read: a wineserver round trip that would be most of what is timed.
        sim.VddkSim_RecordCallers(0);
        service = std::make_unique<diskBroker>();
        wcstring mode;
        if (service->VixDiskLib_ConnectEx(&local, 0, nullptr, nullptr, &connection) != VIX_OK ||
            service->VixDiskLib_Open(connection, path, 0, tag, &disk, mode) != VIX_OK) {
            fprintf(stderr, "cannot open the memory disk\n");
            return false;
        }
        return true;
    }

    dbtest::RegistrySandbox registry;
    dbtest::TempDir install;
    skclass::UniqueModule standin;
    dbtest::VddkSimControl sim;
    std::unique_ptr<diskBroker> service;
    VixDiskLibConnectParams local{};
    VixDiskLibConnection connection = nullptr;
    _vixReadWriteHandle *disk = nullptr;
};

}  // namespace benchsupport
