// The vSphere layer of diskBroker.dll over this client, installed where the
// product's registry says the library lives, against the simulator: the
// session codes, change tracking, hosts, snapshots under an owner key and the
// orphan a killed run leaves behind.
#include <skclass_mini/configuration.h>
#include <skclass_mini/dawdle.h>
#include <skclass_mini/singleton.h>
#include <skstdutl/sklog.h>

#include <dbtest/install_files.h>
#include <dbtest/log_capture.h>
#include <dbtest/product_keys.h>
#include <dbtest/registry_sandbox.h>
#include <dbtest/temp_dir.h>
#include <dbtest/vddk_install.h>
#include <diskbroker.h>
#include <diskbroker_results.h>
#include <vmtools_soapwrapper.h>

#include "live_fixture.h"

namespace {

using livetest::SimulatorUrl;

const wchar_t kOwner[] = L"nightly-job";
const wchar_t kVm[] = L"DC0_H0_VM0";

std::wstring Widen(const std::string &text) { return std::wstring(text.begin(), text.end()); }

class LayerTest : public ::testing::Test {
protected:
    void SetUp() override {
        const std::string url = SimulatorUrl();
        if (url.empty()) GTEST_SKIP() << "the vSphere simulator is not running (no Go?)";
        // "https://127.0.0.1:<port>/sdk" -> "127.0.0.1:<port>", the layer adds the rest.
        server = Widen(url.substr(8, url.size() - 8 - 4));
        SK_SetLogFilePath(L"");
        ASSERT_TRUE(registry.Ok());
        std::string error;
        ASSERT_TRUE(dbtest::InstallVddkStandin(install.Path(), 0, dbtest::VddkVariant::Normal, &error)) << error;
        ASSERT_EQ(registry.SetString(dbtest::kMainMiscKey, L"Data Path", data.Path()), ERROR_SUCCESS);
        // The client goes where the product's install value points, as the stand-in would.
        ASSERT_TRUE(CopyFileW((dbtest::ExeFolder() + L"ravelkit-live\\ravelkit.dll").c_str(),
                              (install.Path() + L"\\ravelkit.dll").c_str(), FALSE));
        ASSERT_EQ(registry.SetString(dbtest::kMainInstallKey, L"Path", install.Path()), ERROR_SUCCESS);
        ASSERT_EQ(registry.SetDword(dbtest::kMainAgentKey, L"AutoOrphanSnapshotRemoval", 1), ERROR_SUCCESS);
        skclass::SetTimeScale(0);
    }
    void TearDown() override {
        if (wrapper) {
            EXPECT_EQ(dbresult::kOk, vddkDisconnectFromVCServer(wrapper, session));
        }
        wrapper = nullptr;
        diskBroker::ReleaseInstance();
        skclass::ReleaseSingleton("vmToolsLoader");
        skclass::SetTimeScale(1.0);
        EXPECT_TRUE(Unloaded(install.Path() + L"\\ravelkit.dll")) << "the client stays loaded once the layer lets it go";
        for (const std::wstring &line : log.Lines())
            EXPECT_EQ(std::wstring::npos, line.find(Widen(livetest::kPassword))) << std::string(line.begin(), line.end());
    }
    // The last request's thread gives its reference back as it leaves, which
    // can come a moment after the layer's own.
    static bool Unloaded(const std::wstring &path) {
        for (int waitedMs = 0; GetModuleHandleW(path.c_str()); waitedMs += 10) {
            if (waitedMs >= 10000) return false;
            Sleep(10);
        }
        return true;
    }
    uint32_t Connect(const wchar_t *password) {
        return vddkConnectToVMWareServer(server.c_str(), Widen(livetest::kUser).c_str(), password, &wrapper, &session);
    }
    uint32_t Create(const wchar_t *name) {
        wcstring vddkLog;
        return vddkCreateSnapshot(kVm, name, L"backup", server, Widen(livetest::kUser), Widen(livetest::kPassword),
                                  443, false, false, wrapper, session, kOwner, vddkLog);
    }
    uint32_t Remove(const wchar_t *name) {
        return vddkRemoveSnapshot(name, kVm, server, Widen(livetest::kUser), Widen(livetest::kPassword), 443, false,
                                  wrapper, session, kOwner);
    }
    std::vector<std::string> Snapshots() {
        _vmc::VmSnapshotInfo tree;
        EXPECT_EQ(0, wrapper->vmcGetVmSnapshotTree(session, "DC0_H0_VM0", tree));
        std::vector<std::string> names;
        for (const auto &child : tree.children) names.push_back(child.name);
        return names;
    }
    std::vector<wcstring> OrphanList() {
        const std::wstring path = std::wstring(dbtest::kMainAgentKey) + L"\\VmSnapshots\\" + server + L"\\" + kVm;
        Configuration list;
        std::vector<wcstring> entries;
        if (list.Open(Configuration::OpenExisting, path, wcstring(), Configuration::Read))
            list.LoadMultiString(path, entries);
        return entries;
    }

    std::wstring server;
    dbtest::RegistrySandbox registry;
    dbtest::TempDir install;
    dbtest::TempDir data;
    dbtest::LogCapture log;
    soapVmToolsWrapper *wrapper = nullptr;
    void *session = nullptr;
};

TEST_F(LayerTest, WrongPasswordIsALoginFailureAndTheRightOneConnects) {
    EXPECT_EQ(0xE0009541u, Connect(L"wrong"));
    if (wrapper) {
        EXPECT_EQ(dbresult::kOk, vddkDisconnectFromVCServer(wrapper, session));
    }
    wrapper = nullptr;
    ASSERT_EQ(dbresult::kOk, Connect(Widen(livetest::kPassword).c_str()));
    std::vector<vddkHostInfo> hosts;
    ASSERT_EQ(dbresult::kOk, vddkGetAllHosts(&hosts, wrapper, session));
    EXPECT_FALSE(hosts.empty());
    wcstring fqdn;
    EXPECT_EQ(dbresult::kOk, vddkGetVmFQDN(kVm, fqdn, wrapper, session));
}

TEST_F(LayerTest, ChangeTrackingIsEnabledForReal) {
    ASSERT_EQ(dbresult::kOk, Connect(Widen(livetest::kPassword).c_str()));
    const std::string vm = "DC0_C0_RP0_VM1";
    ASSERT_EQ(dbresult::kOk, vddkEnableChangeTracking(L"DC0_C0_RP0_VM1", wrapper, session));
    bool enabled = false, supported = false;
    ASSERT_EQ(0, wrapper->vmcIsChangeTrackingEnabled(session, vm, enabled, supported));
    EXPECT_TRUE(enabled);
}

TEST_F(LayerTest, AnOrphanOfAKilledRunIsRemovedByTheNextCreation) {
    ASSERT_EQ(dbresult::kOk, Connect(Widen(livetest::kPassword).c_str()));
    ASSERT_EQ(dbresult::kOk, Create(L"run-1"));
    EXPECT_EQ(std::vector<std::string>{"run-1"}, Snapshots());
    EXPECT_EQ(std::vector<wcstring>{L"run-1[:]nightly-job"}, OrphanList());
    // The run is killed here: no removal. The next run's creation finds its snapshot.
    ASSERT_EQ(dbresult::kOk, Create(L"run-2"));
    EXPECT_EQ(std::vector<std::string>{"run-2"}, Snapshots());
    EXPECT_EQ(std::vector<wcstring>{L"run-2[:]nightly-job"}, OrphanList());
    ASSERT_EQ(dbresult::kOk, Remove(L"run-2"));
    EXPECT_TRUE(Snapshots().empty());
    EXPECT_TRUE(OrphanList().empty());
    // Already gone (53 from the client) counts as removed.
    EXPECT_EQ(dbresult::kOk, Remove(L"run-2"));
}

}  // namespace

namespace {

// The layer's task calls end on the server: a task made for the VM's host runs,
// reports progress and a description, and ends; once ended it takes no new state,
// which the layer reports with its warning code so a backup can go on.
TEST_F(LayerTest, ATaskForTheVmsHostRunsAndEnds) {
    ASSERT_EQ(dbresult::kOk, Connect(Widen(livetest::kPassword).c_str()));
    wcstring task;
    ASSERT_EQ(dbresult::kOk, vddkCreateVMwareTask(task, kVm, L"com.diskbroker.backup", L"nightly-job", true, wrapper,
                                                  session));
    EXPECT_EQ(0u, task.find(L"task-"));
    EXPECT_EQ(dbresult::kOk, vddkSetVMwareTaskState(task, L"running", wrapper, session));
    EXPECT_EQ(dbresult::kOk, vddkUpdateVMwareTaskProgress(task, 50, wrapper, session));
    const wcstring message = L"reading disk 1 of 1";
    EXPECT_EQ(dbresult::kOk, vddkSetVMwareTaskDescription(task, message, nullptr, nullptr, wrapper, session));
    EXPECT_EQ(dbresult::kOk, vddkSetVMwareTaskState(task, L"success", wrapper, session));
    EXPECT_EQ(0x200095C5u, vddkSetVMwareTaskState(task, L"running", wrapper, session));
    EXPECT_EQ(0x200095C8u, vddkCancelVMwareTask(task, wrapper, session));
}

}  // namespace
