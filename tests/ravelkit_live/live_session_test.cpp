// Sessions against the simulator: connect, login, the server's type, the
// certificate policy, a server that never answers, and the entry points this
// client does not serve. (A wrong password: vm_backup_live.sh, through the
// program.)
#include <winsock2.h>
#include "live_fixture.h"

using namespace livetest;

namespace {

TEST_F(LiveTest, LoggedInSessionSeesTheServerTypeAndEndsAtLogout) {
    void *session = OpenSession();
    _vmc::_ObjDetails details;
    EXPECT_EQ(0, vmc->vmcGetServerDetails(session, &details));
    EXPECT_EQ("VirtualCenter", details.type);
    EXPECT_EQ(0, vmc->vmcLogout(session));
    // Logged out, the server no longer answers for the session.
    std::vector<_vmc::_HostSummary> hosts;
    EXPECT_EQ(36, vmc->vmcGetAllHosts(session, &hosts));
}

TEST_F(LiveTest, BadCertificatesSessionsAndUrlsAreRefused) {
    // A self-signed certificate is refused unless the caller says otherwise.
    void *session = reinterpret_cast<void *>(0x1234);
    EXPECT_EQ(4, vmc->vmcConnect(url.c_str(), nullptr, nullptr, false, nullptr, &session, 30000, nullptr));
    EXPECT_EQ(nullptr, session);

    EXPECT_EQ(5, vmc->vmcLogin(&session, kUser, kPassword, nullptr));
    EXPECT_EQ(3, vmc->vmcConnect(url.c_str(), nullptr, nullptr, true, nullptr, nullptr, 1000, nullptr));
    // A web server that is not a vSphere endpoint.
    const std::string elsewhere = url.substr(0, url.rfind('/')) + "/nothing-here";
    EXPECT_EQ(4, vmc->vmcConnect(elsewhere.c_str(), nullptr, nullptr, true, nullptr, &session, 30000, nullptr));
    EXPECT_EQ(nullptr, session);
}

TEST_F(LiveTest, EntryPointsNotServedAnswerOne) {
    void *session = OpenSession();
    std::vector<_vmc::_DatastoreDetails> datastores;
    EXPECT_EQ(1, vmc->vmcGetConfigTargetDatastoreDetails(session, "DC0_H0_VM0", datastores));
    EXPECT_EQ(nullptr, vmc->vmcGetXmlWriter());
}

// A socket that listens but never answers: the TLS handshake gets no reply.
struct SilentServer {
    SOCKET socket = INVALID_SOCKET;
    int port = 0;
    SilentServer() {
        WSADATA data;
        WSAStartup(MAKEWORD(2, 2), &data);
        socket = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        int length = sizeof(address);
        if (bind(socket, reinterpret_cast<sockaddr *>(&address), length) == 0 && listen(socket, 4) == 0 &&
            getsockname(socket, reinterpret_cast<sockaddr *>(&address), &length) == 0)
            port = ntohs(address.sin_port);
    }
    ~SilentServer() {
        closesocket(socket);
        WSACleanup();
    }
};

TEST(LiveTimeout, AServerThatNeverAnswersFailsConnectWithinTheTimeOut) {
    const ravelkit::EntryTable &vmc = Client();
    ASSERT_NE(nullptr, vmc.vmcConnect);
    SilentServer server;
    ASSERT_NE(0, server.port);
    const std::string silent = "https://127.0.0.1:" + std::to_string(server.port) + "/sdk";
    void *session = nullptr;
    // The test's own time limit is what bounds it; the library must give up by itself.
    EXPECT_EQ(4, vmc.vmcConnect(silent.c_str(), nullptr, nullptr, true, nullptr, &session, 1500, nullptr));
    EXPECT_EQ(nullptr, session);
}

TEST_F(LiveTest, EventExtensionRegisteredFoundAndUnregistered) {
    void *session = OpenSession();
    const char key[] = "com.example.diskbroker.events";
    bool registered = false;
    ASSERT_EQ(0, vmc->vmcRegisterEventExtension(session, key, "diskBroker", "backup events", "Example", "1.0",
                                                nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                                nullptr, 0))
        << LastErrorText();
    // A second session sees it.
    void *other = OpenSession();
    ASSERT_EQ(0, vmc->vmcIsEventExtensionRegistered(other, key, &registered));
    EXPECT_TRUE(registered);
    ASSERT_EQ(0, vmc->vmcUnregisterEventExtension(session, key)) << LastErrorText();
    ASSERT_EQ(0, vmc->vmcIsEventExtensionRegistered(other, key, &registered));
    EXPECT_FALSE(registered);
}

}  // namespace
