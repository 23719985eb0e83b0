// A vSphere layer test: a private HKLM, the VDDK stand-in and the web-services
// library stand-in installed where the registry says they live, compressed
// time, every log line captured, and a session pair on the stand-in's vCenter.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <dbtest/log_capture.h>
#include <dbtest/product_keys.h>
#include <dbtest/ravelkit_install.h>
#include <dbtest/registry_sandbox.h>
#include <dbtest/temp_dir.h>
#include <dbtest/vddk_install.h>
#include <diskbroker_results.h>
#include <skclass_mini/handles.h>
#include <vmtools_soapwrapper.h>

namespace vspheretest {

// The stand-in's built-in account and server (see ravelkit_standin/src/state.cpp).
inline constexpr wchar_t kServer[] = L"vcenter.example";
inline constexpr wchar_t kUser[] = L"backup@vsphere.local";
inline constexpr wchar_t kPassword[] = L"Standin-Pass1";
inline constexpr wchar_t kVm[] = L"web01";          // powered on, on host-12, vm-42
inline constexpr char kVmSpec[] = "moRef=vm-42";
inline constexpr wchar_t kOffVm[] = L"db01";       // powered off, no change tracking
inline constexpr uint32_t kPort = 443;

// The orphan-snapshot list of web01 on vcenter.example as the layer stores it:
// a multi-string under a value named by the key's own path. Empty without one.
extern const std::wstring kOrphanListPath;
std::vector<wcstring> OrphanList();

class VsphereTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Installs only the library stand-in for `product` (the VDDK stand-in is
    // installed for product 0 by SetUp); loads it so the control interface
    // reaches the module the layer will load.
    void InstallRavelkit(int product, dbtest::RavelkitVariant variant, const std::wstring *installValue = nullptr);
    // Drops the test's own reference to the library stand-in (and its control interface).
    void UnloadRavelkit();
    void SetAgentDword(const wchar_t *name, DWORD value);
    // Connects with the built-in account; asserts success.
    void Connect();
    // Writes an inventory file and loads it into the stand-in.
    void LoadInventory(const std::string &xml);
    // PrepareForAccess / EndAccess calls the VDDK stand-in saw for the VM.
    uint32_t Prepared() const { return AccessCalls().first; }
    uint32_t Ended() const { return AccessCalls().second; }
    std::pair<uint32_t, uint32_t> AccessCalls() const;
    // Whether the library stand-in's journal of calls holds `text`; shows the journal when not.
    ::testing::AssertionResult JournalHas(const std::string &text);

    dbtest::RegistrySandbox registry;
    dbtest::TempDir install;
    dbtest::TempDir data;
    dbtest::LogCapture log;
    skclass::UniqueModule vddkModule;
    dbtest::VddkSimControl vddk;
    skclass::UniqueModule ravelModule;
    dbtest::RavelSimControl sim;
    soapVmToolsWrapper *wrapper = nullptr;
    void *session = nullptr;
};

// The same, connected with the built-in account before each test.
class ConnectedTest : public VsphereTest {
protected:
    void SetUp() override {
        VsphereTest::SetUp();
        if (!HasFatalFailure()) Connect();
    }
};

}  // namespace vspheretest
