// One test's VDDK world: a private HKLM, the stand-in installed in a temporary
// folder where the registry says VDDK lives, PATH restored afterwards, and
// every log line captured. The bindings under test load the stand-in
// themselves (registry, PATH, LoadLibraryW); the test then reaches the control
// interface of the very module they loaded.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <dbtest/log_capture.h>
#include <dbtest/product_keys.h>
#include <dbtest/registry_sandbox.h>
#include <dbtest/temp_dir.h>
#include <dbtest/vddk_install.h>
#include <skclass_mini/handles.h>

namespace bindingtest {

// How long anything that must happen may take before a test calls it a hang:
// generous, because under Wine on a loaded machine every hand-off between
// threads is a round trip through wineserver.
constexpr DWORD kTimeoutMs = 60000;

using dbtest::kMainInstallKey;
using dbtest::kProductKey;
using dbtest::kSiblingInstallKey;

std::string Utf8(const std::wstring &wide);
// A number as the trace and statistics lines print it: decimal, at least 8 digits.
std::wstring Padded(uint64_t value);
std::wstring Padded(const void *pointer);
// "Calling the vixdiskLib api: " + rest.
std::wstring Api(const std::wstring &rest);
std::wstring CurrentPath();

class BindingTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Installs the stand-in under install.Path() for product (0 or 1; 1 also
    // sets "Product").
    void Install(int product = 0, dbtest::VddkVariant variant = dbtest::VddkVariant::Normal);
    // The folder the registry points at for product, and the VDDK folders
    // derived from it (with trailing backslash).
    std::wstring Root() const { return install.Path(); }
    std::wstring InstallDir(int product) const;
    std::wstring BinDir(int product) const;

    // Pins the stand-in module that a binding loaded (so counts outlive the
    // binding) and loads its control interface.
    ::testing::AssertionResult Attach(HMODULE loadedDiskLib);
    uint64_t Calls(const char *function) const { return sim.VddkSim_CallCount(function); }

    dbtest::RegistrySandbox registry;
    dbtest::TempDir install;
    dbtest::LogCapture log;
    skclass::UniqueModule pinned;
    dbtest::VddkSimControl sim;

private:
    std::wstring savedPath_;
};

}  // namespace bindingtest
