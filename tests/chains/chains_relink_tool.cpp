// Drives diskBroker's local chain relinking from the qemu-img script:
//   chains_relink_tool <disk.vmdk> <out.raw> [<ancestor folder>...]
// opens the disk for reading with VixDiskLib_OpenLocal (relinking it to the
// ancestors' folders), reads it whole through the service and writes it raw.
// The VDDK stand-in is installed in a private registry and folder, as in tests.
// Exit codes: 0 read, 1 failure (the VixError printed), 2 usage.
#include <stdio.h>

#include <memory>
#include <string>
#include <vector>

#include <dbtest/registry_sandbox.h>
#include <dbtest/temp_dir.h>
#include <dbtest/vddk_install.h>
#include <diskbroker.h>
#include <skstdutl/sklog.h>

namespace {

constexpr VixDiskLibSectorType kChunkSectors = 2048;

int Fail(const char *what, VixError error) {
    fprintf(stderr, "%s failed: %llu\n", what, static_cast<unsigned long long>(error));
    return 1;
}

int ReadAll(diskBroker &service, _vixReadWriteHandle *handle, const wchar_t *out) {
    VixDiskLibInfo *info = nullptr;
    VixError error = service.VixDiskLib_GetInfo(handle, &info);
    if (error != VIX_OK) return Fail("GetInfo", error);
    const VixDiskLibSectorType capacity = info->capacity;
    service.VixDiskLib_FreeInfo(info);
    FILE *file = _wfopen(out, L"wb");
    if (!file) return Fail("create output", 0);
    std::vector<uint8_t> buffer(kChunkSectors * 512);
    for (VixDiskLibSectorType sector = 0; sector < capacity && error == VIX_OK; sector += kChunkSectors) {
        const VixDiskLibSectorType count = capacity - sector < kChunkSectors ? capacity - sector : kChunkSectors;
        error = service.VixDiskLib_Read(handle, sector, count, buffer.data());
        if (error == VIX_OK && fwrite(buffer.data(), 512, size_t(count), file) != count) error = VIX_E_FAIL;
    }
    if (fclose(file) != 0 && error == VIX_OK) error = VIX_E_FAIL;
    return error == VIX_OK ? 0 : Fail("Read", error);
}

int Run(int argc, wchar_t **argv) {
    dbtest::RegistrySandbox registry;
    dbtest::TempDir install;
    std::string installError;
    if (!registry.Ok() || !dbtest::InstallVddkStandin(install.Path(), 0, dbtest::VddkVariant::Normal, &installError)) {
        fprintf(stderr, "cannot install the VDDK stand-in: %s\n", installError.c_str());
        return 1;
    }
    std::vector<wcstring> ancestors(argv + 3, argv + argc);
    auto service = std::make_unique<diskBroker>();
    VixDiskLibConnectParams local{};
    VixDiskLibConnection connection = nullptr;
    VixError error = service->VixDiskLib_ConnectEx(&local, 1, nullptr, nullptr, &connection);
    if (error != VIX_OK) return Fail("ConnectEx", error);
    _vixReadWriteHandle *handle = nullptr;
    wcstring mode;
    const cstring disk = cstring::ToAnsi(argv[1]);
    error = service->VixDiskLib_OpenLocal(connection, disk.c_str(), VIXDISKLIB_FLAG_OPEN_READ_ONLY, L"Read", &handle,
                                          mode, ancestors);
    int result = error == VIX_OK ? ReadAll(*service, handle, argv[2]) : Fail("OpenLocal", error);
    if (handle) service->VixDiskLib_Close(handle);
    service->VixDiskLib_Disconnect(connection, &local);
    return result;
}

}  // namespace

int wmain(int argc, wchar_t **argv) {
    if (argc < 3) {
        fprintf(stderr, "usage: chains_relink_tool <disk.vmdk> <out.raw> [<ancestor folder>...]\n");
        return 2;
    }
    SK_SetLogFilePath(L"");
    return Run(argc, argv);
}
