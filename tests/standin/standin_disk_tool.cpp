// Drives the VDDK stand-in from the qemu-img interop script:
//   standin_disk_tool <folder> <expected>   base + child written through the stand-in in
//        <folder> (base.vmdk, child.vmdk); <expected> gets the child's contents computed
//        independently of any VMDK code.
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include <dbtest/vddk_install.h>

namespace {

dbtest::VddkDiskLibExports lib_;

bool Check(VixError err, const char *what) {
    if (err == VIX_OK) return true;
    fprintf(stderr, "%s failed: %llu\n", what, static_cast<unsigned long long>(err));
    return false;
}

bool WriteFileAll(const char *path, const std::vector<uint8_t> &data) {
    FILE *f = fopen(path, "wb");
    if (!f) return false;
    const bool ok = fwrite(data.data(), 1, data.size(), f) == data.size();
    return fclose(f) == 0 && ok;
}

bool Fill(VixDiskLibHandle h, std::vector<uint8_t> *expected, uint64_t offset, uint64_t length, uint8_t byte) {
    std::vector<uint8_t> buf(size_t(length), byte);
    memset(expected->data() + offset, byte, size_t(length));
    return Check(lib_.VixDiskLib_Write(h, offset / 512, length / 512, buf.data()), "Write");
}

int WriteChain(VixDiskLibConnection conn, const std::string &folder, const char *expectedOut) {
    const uint64_t MiB = 1 << 20;
    const std::string base = folder + "\\base.vmdk", child = folder + "\\child.vmdk";
    CreateDirectoryA(folder.c_str(), nullptr);
    VixDiskLibCreateParams p = {VIXDISKLIB_DISK_MONOLITHIC_SPARSE, VIXDISKLIB_ADAPTER_SCSI_LSILOGIC, 7, 64 * MiB / 512, 512, 512};
    if (!Check(lib_.VixDiskLib_Create(conn, base.c_str(), &p, nullptr, nullptr), "Create")) return 1;
    std::vector<uint8_t> expected(size_t(64 * MiB), 0);
    VixDiskLibHandle h = nullptr;
    if (!Check(lib_.VixDiskLib_Open(conn, base.c_str(), 0, &h), "Open base")) return 1;
    // A region crossing grains, and a partial grain beyond the first grain table (32 MiB).
    if (!Fill(h, &expected, 0, 8 * MiB, 0xa1) || !Fill(h, &expected, 40 * MiB + 512, 4096, 0x5c)) return 1;
    lib_.VixDiskLib_Close(h);
    if (!Check(lib_.VixDiskLib_Open(conn, base.c_str(), VIXDISKLIB_FLAG_OPEN_READ_ONLY, &h), "Open base RO")) return 1;
    if (!Check(lib_.VixDiskLib_CreateChild(h, child.c_str(), VIXDISKLIB_DISK_MONOLITHIC_SPARSE, nullptr, nullptr), "CreateChild")) return 1;
    lib_.VixDiskLib_Close(h);
    if (!Check(lib_.VixDiskLib_Open(conn, child.c_str(), 0, &h), "Open child")) return 1;
    // Unaligned writes over base data: the rest of each grain is copied from the base.
    if (!Fill(h, &expected, 4 * MiB, 8 * MiB, 0xc3) || !Fill(h, &expected, MiB + 512, 4096, 0xd4) ||
        !Fill(h, &expected, 40 * MiB + 1024, 512, 0xe5))
        return 1;
    lib_.VixDiskLib_Close(h);
    return WriteFileAll(expectedOut, expected) ? 0 : 1;
}

}  // namespace

// The script's paths are plain ASCII (a mktemp folder), so narrow arguments do.
int main(int argc, char **argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: standin_disk_tool <folder> <expected>\n");
        return 2;
    }
    const std::wstring dll = dbtest::VddkStandinBuildFolder(dbtest::VddkVariant::Normal, L"vixDiskLib.dll") + L"vixDiskLib.dll";
    HMODULE lib = LoadLibraryW(dll.c_str());
    if (!lib || lib_.Load(lib) != vddk::kDiskLibEntryPointCount) {
        fprintf(stderr, "cannot load the stand-in\n");
        return 1;
    }
    if (!Check(lib_.VixDiskLib_InitEx(8, 0, nullptr, nullptr, nullptr, nullptr, nullptr), "InitEx")) return 1;
    VixDiskLibConnection conn = nullptr;
    if (!Check(lib_.VixDiskLib_Connect(nullptr, &conn), "Connect")) return 1;
    const int rc = WriteChain(conn, argv[1], argv[2]);
    lib_.VixDiskLib_Disconnect(conn);
    lib_.VixDiskLib_Exit();
    return rc;
}
