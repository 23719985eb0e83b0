// Finding and binding the web-services library, the wrapper's forwarding, and
// the library's log lines reaching the product's log.
#include <skclass_mini/singleton.h>

#include "vsphere_fixture.h"

namespace vspheretest {
namespace {

using dbtest::RavelkitVariant;

class BindingTest : public VsphereTest {
protected:
    // Connects and disconnects at once; returns connect's result.
    uint32_t ConnectOnce() {
        soapVmToolsWrapper *w = nullptr;
        void *s = nullptr;
        const uint32_t result = vddkConnectToVMWareServer(kServer, kUser, kPassword, &w, &s);
        if (w) {
            EXPECT_EQ(vddkDisconnectFromVCServer(w, s), dbresult::kOk);
        }
        return result;
    }
};

TEST_F(BindingTest, LoadsFromTheProductsInstallPathOnceAndBindsAll64) {
    const std::wstring value = install.Path() + L"\\\\\\";  // trailing backslashes become one
    InstallRavelkit(0, RavelkitVariant::Normal, &value);
    EXPECT_EQ(ConnectOnce(), dbresult::kOk);
    EXPECT_EQ(log.Count(L"DynLoadRavelkitLib: loaded OK"), 1u);
    EXPECT_EQ(sim.RavelSim_CallCount("vmcConnect"), 1u) << "the layer called the stand-in this test installed";
    EXPECT_EQ(ConnectOnce(), dbresult::kOk);
    EXPECT_EQ(log.Count(L"DynLoadRavelkitLib: loaded OK"), 1u) << "later wrappers share the loader";
    ASSERT_EQ(registry.SetString(dbtest::kMainInstallKey, L"Path", install.Path() + L"\\none"), ERROR_SUCCESS);
    UnloadRavelkit();
    EXPECT_EQ(ConnectOnce(), dbresult::kOk) << "the loader of the first connect is still alive";
}

// Product 1 loads vyravelkit from Vaultry's bin folder and reads its own agent
// key; product 2 reads Installdir but loads ravelkit beside it.
TEST_F(BindingTest, OtherProductsLoadTheirOwnLibraryAndReadTheirOwnAgentKey) {
    ASSERT_EQ(registry.SetDword(dbtest::kSiblingAgentKey, L"VCB connect timeout", 7), ERROR_SUCCESS);
    ASSERT_EQ(registry.SetDword(dbtest::kMainAgentKey, L"VCB connect timeout", 9), ERROR_SUCCESS);
    for (const auto &c : {std::make_pair(1, "7000"), std::make_pair(2, "9000")}) {
        SCOPED_TRACE(c.first);
        ASSERT_EQ(registry.SetDword(dbtest::kProductKey, L"Product", c.first), ERROR_SUCCESS);
        InstallRavelkit(c.first, RavelkitVariant::Normal);
        EXPECT_EQ(ConnectOnce(), dbresult::kOk);
        EXPECT_EQ(sim.Query("connectTimeout"), c.second) << "the library installed for the product was called";
        skclass::ReleaseSingleton("vmToolsLoader");  // the next product's library is loaded afresh
    }
}

TEST_F(BindingTest, LibraryLackingOneEntryFailsWholeAndTheNextWrapperRetries) {
    InstallRavelkit(0, RavelkitVariant::NoGetAllHosts);
    soapVmToolsWrapper *w = reinterpret_cast<soapVmToolsWrapper *>(1);
    void *s = nullptr;
    EXPECT_EQ(vddkConnectToVMWareServer(kServer, kUser, kPassword, &w, &s), dbresult::kRavelkitNotLoaded);
    EXPECT_EQ(w, nullptr);
    EXPECT_TRUE(log.Contains(L"Error while dynamically loading : vmcGetAllHosts"));
    EXPECT_EQ(sim.RavelSim_CallCount("vmcConnect"), 0u);
    // The failed load freed its library, so the complete one can take its place.
    InstallRavelkit(0, RavelkitVariant::Normal);
    EXPECT_EQ(ConnectOnce(), dbresult::kOk);
}

TEST_F(BindingTest, LibraryLogLinesReachTheLogAndEmptyOnesDoNot) {
    Connect();
    ASSERT_TRUE(sim.RavelSim_EmitLog("session 7 renewed, 100% done"));
    ASSERT_TRUE(sim.RavelSim_EmitLog(""));
    ASSERT_TRUE(sim.RavelSim_EmitLog("h\xC3\xB4te \xE2\x82\xAC"));
    const std::vector<std::wstring> expected = {L"RavelKit: session 7 renewed, 100% done", L"RavelKit: h\u00F4te \u20AC"};
    EXPECT_EQ(log.Lines(), expected);
}

}  // namespace
}  // namespace vspheretest
