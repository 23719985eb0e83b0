// A diskBroker started for one test: a private HKLM, the VDDK stand-in installed
// in a temporary folder where the registry says VDDK lives, a temporary data
// directory, compressed time, and every log line captured.
#pragma once

#include <stdint.h>

#include <memory>
#include <string>
#include <vector>

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
    void SetAgentString(const wchar_t *name, const std::wstring &value) {
        ASSERT_EQ(registry.SetString(kMainAgentKey, name, value), ERROR_SUCCESS);
    }
    void SetAgentDword(const wchar_t *name, DWORD value) {
        ASSERT_EQ(registry.SetDword(kMainAgentKey, name, value), ERROR_SUCCESS);
    }
    void SetThreadingModelText(const std::wstring &text) { SetAgentString(L"vixDiskLib Threading Model", text); }

    std::unique_ptr<diskBroker> Start() { return std::make_unique<diskBroker>(); }

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

// A threading model as the registry selects it.
struct Model {
    const wchar_t *threadingText;  // "vixDiskLib Threading Model"
    DWORD workerForReadWrite;      // "Use Worker thread for vixDiskLib read-write"
};
std::string ModelName(const ::testing::TestParamInfo<Model> &info);
// Both threading models, each with and without per-handle workers.
const std::vector<Model> &AllModels();

// A service started in one model with a local connection: the base of the
// handle and cache tests.
class ConnectedServiceTest : public ServiceTest {
protected:
    // Settings for model, the service, the local connection; the log cleared.
    void StartService(const Model &model);
    void TearDown() override;
    // Opens with tag; CloseDisk also frees the record where the model leaves it to the caller.
    _vixReadWriteHandle *OpenDisk(const std::string &path, const wchar_t *tag = L"Read");
    VixError CloseDisk(_vixReadWriteHandle *handle);

    std::shared_ptr<diskBroker> service;
    VixDiskLibConnectParams local{};
    VixDiskLibConnection connection = nullptr;
};

// Base (a ConnectedServiceTest) with its service started in the parameter's model.
template <class Base>
class InEachModel : public Base, public ::testing::WithParamInterface<Model> {
protected:
    void SetUp() override {
        Base::SetUp();
        this->StartService(GetParam());
    }
};

// The stand-in's memory-disk pattern of seed for sectors [first, first + count).
std::vector<uint8_t> PatternBytes(uint64_t seed, uint64_t first, uint64_t count);

// Connect parameters of a remote machine (vmxSpec set), for access preparation.
struct RemoteMachine {
    VixDiskLibConnectParams params{};
    RemoteMachine() {
        params.vmxSpec = const_cast<char *>("moref=vm-42");
        params.serverName = const_cast<char *>("vcenter.example");
    }
};

}  // namespace servicetest
