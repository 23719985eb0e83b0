// Loads a stand-in vixDiskLib.dll for one test and captures its log lines.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <dbtest/temp_dir.h>
#include <dbtest/vddk_install.h>

namespace standin_test {

// Whether a warning line holding text was logged.
bool Warned(const char *text);
// Creates or truncates path (UTF-8) and writes text.
bool WriteText(const std::string &path, const std::string &text);

// Loads the built stand-in (a variant), InitEx with capturing callbacks, a local
// connection; Exit and unload at the end.
class StandinTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
    // A fresh empty folder (Windows path, no trailing separator) under the temp folder.
    std::string TempFolder();

    HMODULE lib_ = nullptr;
    dbtest::VddkDiskLibExports vddk_;
    dbtest::VddkSimControl sim_;
    VixDiskLibConnection conn_ = nullptr;
    std::vector<std::unique_ptr<dbtest::TempDir>> folders_;
};

VixError CreateSparse(const dbtest::VddkDiskLibExports &vddk, VixDiskLibConnection conn, const std::string &path,
                      uint64_t sectors, VixDiskLibDiskType type = VIXDISKLIB_DISK_MONOLITHIC_SPARSE);

}  // namespace standin_test
