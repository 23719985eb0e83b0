// Server sessions: connect, login, time-outs and preferences from the
// registry, disconnect, the last vSphere error and its translation.
#include <map>

#include "vsphere_fixture.h"

namespace vspheretest {
namespace {

class SessionTest : public VsphereTest {};

TEST_F(SessionTest, ConnectLogsInAndTunesTheSessionWithDefaults) {
    ASSERT_EQ(vddkConnectToVMWareServer(kServer, kUser, kPassword, &wrapper, &session), dbresult::kOk);
    EXPECT_EQ(sim.Query("connectTimeout"), "60000");
    EXPECT_EQ(sim.Query("acceptAnyCertificate"), "1") << "certificate check 0 accepts the certificate";
    EXPECT_EQ(sim.Query("timeouts"), "600000,600000,600000,180000,180000,180000,60000,4000");
    EXPECT_EQ(sim.Query("preferences"), "0,0,0,0,0,0,0,1,1,0");
    const std::string journal = sim.Query("journal");
    EXPECT_EQ(journal.find("Standin-Pass1"), std::string::npos) << "a password never reaches the journal";
    for (const std::wstring &line : log.Lines()) EXPECT_EQ(line.find(kPassword), std::wstring::npos);
}

TEST_F(SessionTest, RegistryTuningWithTheDeliberatePowerAsymmetry) {
    SetAgentDword(L"VMware Agent VC server certificate check", 1);
    SetAgentDword(L"VCB connect timeout", 0);
    SetAgentDword(L"VM power operation timeout", 0);
    SetAgentDword(L"VM browse datastore timeout", 30);
    SetAgentDword(L"VCB refresh timeout", 9);
    SetAgentDword(L"Ignore browse error", 1);
    SetAgentDword(L"Ignore devices with attached files", 1);
    SetAgentDword(L"Ignore parallel ports", 0);
    SetAgentDword(L"Ignore serial ports", 0);
    SetAgentDword(L"RavelKit debug log level", 5);
    Connect();
    EXPECT_EQ(sim.Query("acceptAnyCertificate"), "0");
    EXPECT_EQ(sim.Query("connectTimeout"), "60000") << "a connect time-out stored as 0 gives 60 s";
    EXPECT_EQ(sim.Query("timeouts"), "600000,600000,1800000,180000,180000,30000,60000,9000");
    EXPECT_EQ(sim.Query("preferences"), "0,0,1,0,0,1,0,0,0,0");
    EXPECT_EQ(sim.Query("logLevel"), "5");
    SetAgentDword(L"VM power operation timeout", 20);
    SetAgentDword(L"VCB connect timeout", 15);
    EXPECT_EQ(vddkSetManagedTimeouts(wrapper, session), dbresult::kOk);
    EXPECT_EQ(sim.Query("timeouts"), "20000,20000,20000,180000,180000,30000,15000,9000");
    SetAgentDword(L"VM browse datastore timeout", 0x7FFFFFFF);
    SetAgentDword(L"VCB refresh timeout", 0xFFFFFFFF);
    EXPECT_EQ(vddkSetManagedTimeouts(wrapper, session), dbresult::kOk);
    EXPECT_EQ(sim.Query("timeouts"), "20000,20000,20000,180000,180000,2147483647,15000,4000")
        << "too large for milliseconds: capped; negative: the default";
}

TEST_F(SessionTest, WrongPasswordFailsLoginAndDisconnects) {
    EXPECT_EQ(vddkConnectToVMWareServer(kServer, kUser, L"wrong", &wrapper, &session), dbresult::kLoginFailed);
    EXPECT_EQ(session, nullptr);
    ASSERT_NE(wrapper, nullptr) << "the wrapper stays for the caller to free";
    EXPECT_EQ(sim.Query("sessions"), "0");
    wcstring text;
    int code = 0;
    EXPECT_EQ(vddkGetLastVIErr(text, &code, wrapper, reinterpret_cast<void *>(1)), dbresult::kOk);
    EXPECT_EQ(text, L"Cannot complete login due to an incorrect user name or password.");
    EXPECT_EQ(code, 185);
    EXPECT_EQ(vddkDisconnectFromVCServer(wrapper, session), dbresult::kOk);
    wrapper = nullptr;
    EXPECT_EQ(sim.RavelSim_CallCount("vmcLogout"), 0u) << "a null session only deletes the wrapper";
}

// A failed connect leaves no stale session behind for the caller to use.
TEST_F(SessionTest, UnreachableServerFailsConnect) {
    session = reinterpret_cast<void *>(1);
    EXPECT_EQ(vddkConnectToVMWareServer(L"nowhere.example", kUser, kPassword, &wrapper, &session),
              dbresult::kConnectFailed);
    EXPECT_EQ(session, nullptr);
}

TEST_F(SessionTest, NullArgumentsAndANullSessionOutThatIsNotCaught) {
    EXPECT_EQ(vddkConnectToVMWareServer(kServer, kUser, kPassword, nullptr, &session), dbresult::kNullArgument);
    EXPECT_EQ(vddkConnectToVMWareServer(kServer, kUser, kPassword, &wrapper, nullptr), dbresult::kOk);
    EXPECT_EQ(sim.Query("sessions"), "1");
}

TEST_F(SessionTest, FailedTimeoutsLeaveTheSessionLoggedInAndFailedPreferencesOnlyLog) {
    sim.Script("vmcSetTimeouts", {9});
    EXPECT_EQ(vddkConnectToVMWareServer(kServer, kUser, kPassword, &wrapper, &session), dbresult::kSetTimeoutsFailed);
    EXPECT_NE(session, nullptr);
    EXPECT_EQ(sim.RavelSim_CallCount("vmcSetPreferences"), 0u);
    // Failing preferences only log.
    sim.Script("vmcSetPreferences", {2});
    EXPECT_EQ(vddkSetManagedTimeouts(wrapper, session), dbresult::kOk);
    EXPECT_TRUE(log.Contains(L"vddkSetManagedTimeouts(): vmcSetPreferences failed"));
}

TEST_F(SessionTest, FailedLogoutStillDisconnects) {
    Connect();
    sim.Script("vmcLogout", {17});
    EXPECT_EQ(vddkDisconnectFromVCServer(wrapper, session), dbresult::kLogoutFailed);
    wrapper = nullptr;
    EXPECT_EQ(sim.Query("sessions"), "0");
}

TEST_F(SessionTest, TranslationTableWhole) {
    // Written out from the product's table, independently of the code's grouping.
    const std::map<int, uint32_t> table = {
        {25, 0xE00095AA}, {26, 0xE00095A5}, {29, 0xE00095AC}, {185, 0xE000959A}, {186, 0xE00095A4},
        {187, 0xE00095A4}, {188, 0xE00095A4}, {194, 0xE00095A4}, {195, 0xE00095A4}, {196, 0xE00095A4},
        {197, 0xE00095A4}, {198, 0xE00095A4}, {204, 0xE00095A4}, {220, 0xE00095A4}, {222, 0xE00095A4},
        {190, 0xE00095A7}, {192, 0xE00095A7}, {200, 0xE00095A7}, {209, 0xE00095A7}, {216, 0xE00095A7},
        {217, 0xE00095A7}, {224, 0xE00095A7}, {226, 0xE00095A7}, {228, 0xE00095A7}, {237, 0xE00095A7},
        {238, 0xE00095A7}, {239, 0xE00095A7}, {240, 0xE00095A7}, {242, 0xE00095A7}, {243, 0xE00095A7},
        {191, 0xE00095AE}, {193, 0xE00095AD}, {199, 0xE000959B}, {202, 0x200095C1}, {205, 0xE00095AF},
        {206, 0xE00095B0}, {207, 0xE00095B0}, {212, 0xE00095A9}, {213, 0xE00095A3}, {215, 0xE00095A6},
        {218, 0xE000959C}, {219, 0xE000959E}, {223, 0xE00095AB}, {225, 0xE00095B1}, {229, 0xE000959F},
        {231, 0xE00095A0}, {232, 0xE00095A1}, {233, 0xE00095A2}, {234, 0xE00095A8}, {235, 0xE000959D},
        {245, 0xE00095B2}};
    const uint32_t fallback = 0xE0001234;
    for (int n = -1; n <= 300; ++n) {
        auto it = table.find(n);
        EXPECT_EQ(vddkConvertVIErrorToEngResult(n, fallback), it == table.end() ? fallback : it->second) << n;
    }
}

}  // namespace
}  // namespace vspheretest
