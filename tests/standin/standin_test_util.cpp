#include "standin_test_util.h"

#include <stdio.h>

#include <mutex>

namespace standin_test {
namespace {

std::mutex logLock;
std::vector<std::string> logLines;  // guarded by logLock

void Capture(const char *prefix, const char *fmt, va_list args) {
    char buf[1024];
    vsnprintf(buf, sizeof buf, fmt, args);
    std::lock_guard<std::mutex> guard(logLock);
    logLines.push_back(std::string(prefix) + buf);
}
void OnLog(const char *fmt, va_list args) { Capture("", fmt, args); }
void OnWarn(const char *fmt, va_list args) { Capture("W:", fmt, args); }
void OnPanic(const char *fmt, va_list args) { Capture("P:", fmt, args); }

void DeleteTree(const std::wstring &folder) {
    WIN32_FIND_DATAW data;
    HANDLE find = FindFirstFileW((folder + L"\\*").c_str(), &data);
    if (find != INVALID_HANDLE_VALUE) {
        do {
            const std::wstring name = data.cFileName;
            if (name == L"." || name == L"..") continue;
            if (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) DeleteTree(folder + L"\\" + name);
            else DeleteFileW((folder + L"\\" + name).c_str());
        } while (FindNextFileW(find, &data));
        FindClose(find);
    }
    RemoveDirectoryW(folder.c_str());
}

}  // namespace

std::vector<std::string> LogLines() {
    std::lock_guard<std::mutex> guard(logLock);
    return logLines;
}

void StandinTest::SetUp() {
    {
        std::lock_guard<std::mutex> guard(logLock);
        logLines.clear();
    }
    const std::wstring dll = dbtest::VddkStandinBuildFolder(dbtest::VddkVariant::Normal, L"vixDiskLib.dll") + L"vixDiskLib.dll";
    lib_ = LoadLibraryW(dll.c_str());
    ASSERT_NE(lib_, nullptr);
    ASSERT_EQ(vddk_.Load(lib_), vddk::kDiskLibEntryPointCount);
    ASSERT_TRUE(sim_.Load(lib_));
    sim_.VddkSim_Reset();
    ASSERT_EQ(vddk_.VixDiskLib_InitEx(8, 0, OnLog, OnWarn, OnPanic, "C:\\vddk", nullptr), VIX_OK);
    ASSERT_EQ(vddk_.VixDiskLib_Connect(nullptr, &conn_), VIX_OK);
}

void StandinTest::TearDown() {
    if (lib_) {
        if (conn_) vddk_.VixDiskLib_Disconnect(conn_);
        vddk_.VixDiskLib_Exit();
        sim_.VddkSim_Reset();
        FreeLibrary(lib_);
    }
    for (const auto &f : folders_) {
        wchar_t wide[MAX_PATH];
        MultiByteToWideChar(CP_UTF8, 0, f.c_str(), -1, wide, MAX_PATH);
        DeleteTree(wide);
    }
}

std::string StandinTest::TempFolder() {
    char base[MAX_PATH];
    GetTempPathA(MAX_PATH, base);
    const std::string folder = std::string(base) + "standin-" + std::to_string(GetCurrentProcessId()) + "-" +
                               std::to_string(folders_.size());
    CreateDirectoryA(folder.c_str(), nullptr);
    folders_.push_back(folder);
    return folder;
}

VixError CreateSparse(const dbtest::VddkDiskLibExports &vddk, VixDiskLibConnection conn, const std::string &path,
                      uint64_t sectors, VixDiskLibDiskType type) {
    VixDiskLibCreateParams p = {type, VIXDISKLIB_ADAPTER_SCSI_LSILOGIC, 7, sectors, 512, 512};
    return vddk.VixDiskLib_Create(conn, path.c_str(), &p, nullptr, nullptr);
}

}  // namespace standin_test
