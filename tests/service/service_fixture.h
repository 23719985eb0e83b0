// A diskBroker started for one test: a private HKLM, the VDDK stand-in installed
// in a temporary folder where the registry says VDDK lives, a temporary data
// directory, compressed time, and every log line captured.
#pragma once

#include <memory>
#include <string>

#include <gtest/gtest.h>

#include <dbtest/log_capture.h>
#include <dbtest/product_keys.h>
#include <dbtest/registry_sandbox.h>
#include <dbtest/temp_dir.h>
#include <dbtest/vddk_install.h>
#include <diskbroker.h>
#include <skclass_mini/handles.h>

namespace servicetest {

using dbtest::kMainAgentKey;
using dbtest::kMainMiscKey;
using dbtest::kProductKey;
using dbtest::kSiblingAgentKey;
using dbtest::kSiblingMiscKey;

// Narrow (UTF-8) and wide forms of a text, for comparing what VDDK recorded.
std::string Utf8(const std::wstring &wide);
std::wstring Wide(const std::string &utf8);

class ServiceTest : public ::testing::Test {
protected:
    // Installs the stand-in for `product` (0 main, other values the mapping
    // services' layout) and points "Data Path" at a temporary folder.
    void SetUpFor(int product);
    void SetUp() override { SetUpFor(0); }
    void TearDown() override;

    // Writes an agent setting in the main product's tree.
    void SetAgentString(const wchar_t *name, const std::wstring &value);
    void SetAgentDword(const wchar_t *name, DWORD value);
    void SetThreadingModelText(const std::wstring &text) { SetAgentString(L"vixDiskLib Threading Model", text); }

    std::unique_ptr<diskBroker> Start();
    std::unique_ptr<diskBroker> StartWithModel(uint32_t model);

    // What the stand-in recorded for key ("configFile", "libDir", ...).
    std::string LastArg(const char *key) const;
    uint64_t Calls(const char *function) const { return sim.VddkSim_CallCount(function); }
    // The stand-in's own text for error, as VDDK would give it.
    std::wstring VddkErrorText(VixError error) const;
    // Takes whatever is in the process-wide VDDK log cache.
    std::wstring DrainCachedLog(diskBroker &service);

    dbtest::RegistrySandbox registry;
    dbtest::TempDir install;
    dbtest::TempDir data;
    dbtest::LogCapture log;
    // The stand-in, loaded by the test before the service loads it again, so
    // the control interface can script InitEx and counts outlive the service.
    skclass::UniqueModule standin;
    dbtest::VddkSimControl sim;
    dbtest::VddkDiskLibExports vddk;
};

// Connect parameters of a remote machine (vmxSpec set), for access preparation.
struct RemoteMachine {
    VixDiskLibConnectParams params{};
    RemoteMachine() {
        params.vmxSpec = const_cast<char *>("moref=vm-42");
        params.serverName = const_cast<char *>("vcenter.example");
    }
};

}  // namespace servicetest
