#include "standin_test_util.h"

#include <stdio.h>

#include <mutex>

namespace standin_test {
namespace {

std::mutex logLock;
std::vector<std::string> logLines;  // guarded by logLock; warning and panic lines are prefixed "W:" / "P:"

void Capture(const char *prefix, const char *fmt, va_list args) {
    char buf[1024];
    vsnprintf(buf, sizeof buf, fmt, args);
    std::lock_guard<std::mutex> guard(logLock);
    logLines.push_back(std::string(prefix) + buf);
}
void OnLog(const char *fmt, va_list args) { Capture("", fmt, args); }
void OnWarn(const char *fmt, va_list args) { Capture("W:", fmt, args); }
void OnPanic(const char *fmt, va_list args) { Capture("P:", fmt, args); }

}  // namespace

bool Warned(const char *text) {
    std::lock_guard<std::mutex> guard(logLock);
    for (const std::string &line : logLines)
        if (line.rfind("W:", 0) == 0 && line.find(text) != std::string::npos) return true;
    return false;
}

bool WriteText(const std::string &path, const std::string &text) {
    FILE *f = fopen(path.c_str(), "wb");
    if (!f) return false;
    const bool written = fputs(text.c_str(), f) >= 0;
    return fclose(f) == 0 && written;
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
    folders_.clear();  // after the library let go of their files
}

std::string StandinTest::TempFolder() {
    folders_.push_back(std::make_unique<dbtest::TempDir>());
    const std::wstring &folder = folders_.back()->Path();
    char narrow[MAX_PATH * 3] = "";
    WideCharToMultiByte(CP_UTF8, 0, folder.c_str(), -1, narrow, sizeof narrow, nullptr, nullptr);
    return narrow;
}

VixError CreateSparse(const dbtest::VddkDiskLibExports &vddk, VixDiskLibConnection conn, const std::string &path,
                      uint64_t sectors, VixDiskLibDiskType type) {
    VixDiskLibCreateParams p = {type, VIXDISKLIB_ADAPTER_SCSI_LSILOGIC, 7, sectors, 512, 512};
    return vddk.VixDiskLib_Create(conn, path.c_str(), &p, nullptr, nullptr);
}

}  // namespace standin_test
