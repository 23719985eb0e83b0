// The vSphere layer of diskBroker.dll over this client, installed where the
// product's registry says the library lives, against the simulator: the
// guest's name and tasks, and the client let go with the layer. (Login, hosts,
// change tracking, snapshots and the orphan a killed run leaves:
// vm_backup_live.sh, through the program.)
#include <dbtest/install_files.h>
#include <dbtest/module_watch.h>

#include "../vsphere/vsphere_fixture.h"
#include "live_fixture.h"

namespace {

const wchar_t kVm[] = L"DC0_H0_VM0";

std::wstring Widen(const std::string &text) { return std::wstring(text.begin(), text.end()); }

// The layer's own fixture, with this client where the stand-in was installed.
class LayerTest : public vspheretest::VsphereTest {
protected:
    void SetUp() override {
        const std::string url = livetest::SimulatorUrl();
        if (url.empty()) GTEST_SKIP() << "the vSphere simulator is not running (no Go?)";
        // "https://127.0.0.1:<port>/sdk" -> "127.0.0.1:<port>", the layer adds the rest.
        server = Widen(url.substr(8, url.size() - 8 - 4));
        VsphereTest::SetUp();
        if (HasFatalFailure()) return;
        UnloadRavelkit();
        ASSERT_TRUE(CopyFileW((dbtest::ExeFolder() + L"ravelkit-live\\ravelkit.dll").c_str(), Client().c_str(), FALSE));
    }
    void TearDown() override {
        // The last request's thread gives its reference back as it leaves,
        // which can come a moment after the layer's own.
        const dbtest::ModuleUnloadWatch client(Client().c_str());
        VsphereTest::TearDown();
        EXPECT_TRUE(client.Unloaded()) << "the client stays loaded once the layer lets it go";
        for (const std::wstring &line : log.Lines())
            EXPECT_EQ(std::wstring::npos, line.find(Widen(livetest::kPassword))) << std::string(line.begin(), line.end());
    }
    std::wstring Client() const { return dbtest::RavelkitInstallPath(install.Path(), 0); }
    uint32_t Connect() {
        return vddkConnectToVMWareServer(server.c_str(), Widen(livetest::kUser).c_str(),
                                         Widen(livetest::kPassword).c_str(), &wrapper, &session);
    }

    std::wstring server;
};

// Each call's result is the server's: the layer's task calls end on the
// server, and a task once ended takes no new state, which the layer reports
// with its warning code so a backup can go on. (Login, hosts and change
// tracking through the layer over this client: vm_backup_live.sh.)
TEST_F(LayerTest, GuestNameAndATaskForTheVmsHost) {
    ASSERT_EQ(dbresult::kOk, Connect());
    wcstring fqdn;
    EXPECT_EQ(dbresult::kOk, vddkGetVmFQDN(kVm, fqdn, wrapper, session));

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

    wcstring cancelled;
    ASSERT_EQ(dbresult::kOk, vddkCreateVMwareTask(cancelled, kVm, L"com.diskbroker.backup", L"", true, wrapper, session));
    EXPECT_EQ(dbresult::kOk, vddkSetVMwareTaskState(cancelled, L"running", wrapper, session));
    EXPECT_EQ(dbresult::kOk, vddkCancelVMwareTask(cancelled, wrapper, session));
    EXPECT_EQ(dbresult::kTaskStateFailed, vddkSetVMwareTaskState(L"task-999999", L"running", wrapper, session));
}

}  // namespace
