#include "live_fixture.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <fstream>
#include <mutex>

#include <dbtest/install_files.h>

namespace livetest {

const char kUser[] = "backup@vsphere.local";
const char kPassword[] = "Sim-Pass1";

namespace {

std::mutex logLock;
std::vector<std::string> logLines;  // what the client logged through vmcSetLogger; guarded by logLock

void Logger(const char *format, char *arguments) {
    char text[2048];
    va_list args;
    static_assert(sizeof args == sizeof arguments, "va_list is a pointer on Windows");
    memcpy(&args, &arguments, sizeof args);
    vsnprintf(text, sizeof text, format, args);
    std::lock_guard<std::mutex> hold(logLock);
    logLines.push_back(text);
}

}  // namespace

std::string SimulatorUrl() {
    const char *file = getenv("VCSIM_URL_FILE");
    if (!file) return std::string();
    std::ifstream in(file);
    std::string line;
    std::getline(in, line);
    while (!line.empty() && (line.back() == '\r' || line.back() == '\n' || line.back() == ' ')) line.pop_back();
    return line;
}

const ravelkit::EntryTable &Client() {
    static ravelkit::EntryTable table;
    static HMODULE module = [] {
        HMODULE loaded = LoadLibraryW((dbtest::ExeFolder() + L"ravelkit-live\\ravelkit.dll").c_str());
        if (!loaded) return loaded;
#define LIVETEST_BIND(name, ret, params, args) \
    table.name = reinterpret_cast<name##_fn>(reinterpret_cast<void *>(GetProcAddress(loaded, #name)));
        RAVELKIT_ENTRY_POINTS(LIVETEST_BIND)
#undef LIVETEST_BIND
        return loaded;
    }();
    (void)module;
    return table;
}

std::string LastErrorText() {
    std::string text;
    int number = -1;
    Client().vmcGetLastVIError(nullptr, text, &number);
    return text;
}

void LiveTest::SetUp() {
    vmc = &Client();
    ASSERT_NE(nullptr, vmc->vmcGetAllHosts) << "ravelkit-live\\ravelkit.dll did not load";
    vmc->vmcSetLogger(nullptr, Logger);
    {
        std::lock_guard<std::mutex> hold(logLock);
        logLines.clear();
    }
    url = SimulatorUrl();
    if (url.empty()) GTEST_SKIP() << "the vSphere simulator is not running (no Go?)";
}

void LiveTest::TearDown() {
    for (void *session : sessions) {
        vmc->vmcLogout(session);
        vmc->vmcDisconnect(session);
    }
    // Whatever happened, neither the password nor the session cookie was logged.
    std::lock_guard<std::mutex> hold(logLock);
    for (const std::string &line : logLines) {
        EXPECT_EQ(std::string::npos, line.find(kPassword)) << line;
        EXPECT_EQ(std::string::npos, line.find("vmware_soap_session")) << line;
    }
}

void *LiveTest::OpenSession() {
    void *session = nullptr;
    EXPECT_EQ(0, vmc->vmcConnect(url.c_str(), nullptr, nullptr, true, nullptr, &session, 30000, nullptr))
        << LastErrorText();
    if (!session) return nullptr;
    sessions.push_back(session);
    EXPECT_EQ(0, vmc->vmcLogin(session, kUser, kPassword, nullptr)) << LastErrorText();
    return session;
}

}  // namespace livetest
