// Reads a 1 GiB memory disk through the stand-in's VixDiskLib_Read in 1 MiB requests
// on one thread, then on two, and prints MB/s per thread.
#include <stdio.h>

#include <thread>
#include <vector>

#include <dbtest/vddk_install.h>

namespace {

dbtest::VddkDiskLibExports lib;
constexpr uint64_t kDiskBytes = 1ull << 30;
constexpr uint64_t kRequestSectors = 2048;
const char kDisk[] = "memdisk://bench?size=1073741824&seed=5";

double Seconds(LARGE_INTEGER a, LARGE_INTEGER b) {
    LARGE_INTEGER f;
    QueryPerformanceFrequency(&f);
    return double(b.QuadPart - a.QuadPart) / double(f.QuadPart);
}

// Returns MB/s for one pass over the disk on the calling thread.
double ReadPass(VixDiskLibConnection conn) {
    VixDiskLibHandle h = nullptr;
    if (lib.VixDiskLib_Open(conn, kDisk, VIXDISKLIB_FLAG_OPEN_READ_ONLY, &h) != VIX_OK) return 0;
    std::vector<uint8_t> buf(size_t(kRequestSectors * 512));
    LARGE_INTEGER start, end;
    QueryPerformanceCounter(&start);
    for (uint64_t s = 0; s < kDiskBytes / 512; s += kRequestSectors)
        if (lib.VixDiskLib_Read(h, s, kRequestSectors, buf.data()) != VIX_OK) return 0;
    QueryPerformanceCounter(&end);
    lib.VixDiskLib_Close(h);
    return double(kDiskBytes) / 1e6 / Seconds(start, end);
}

}  // namespace

int main() {
    const std::wstring dll = dbtest::VddkStandinBuildFolder(dbtest::VddkVariant::Normal, L"vixDiskLib.dll") + L"vixDiskLib.dll";
    HMODULE module = LoadLibraryW(dll.c_str());
    if (!module || lib.Load(module) != vddk::kDiskLibEntryPointCount) return 1;
    lib.VixDiskLib_InitEx(8, 0, nullptr, nullptr, nullptr, nullptr, nullptr);
    VixDiskLibConnection conn = nullptr;
    lib.VixDiskLib_Connect(nullptr, &conn);
    printf("standin memdisk read, 1 thread: %.0f MB/s\n", ReadPass(conn));
    double rates[2] = {};
    std::thread second([&] { rates[1] = ReadPass(conn); });
    rates[0] = ReadPass(conn);
    second.join();
    printf("standin memdisk read, 2 threads: %.0f and %.0f MB/s per thread\n", rates[0], rates[1]);
    lib.VixDiskLib_Disconnect(conn);
    lib.VixDiskLib_Exit();
    return 0;
}
