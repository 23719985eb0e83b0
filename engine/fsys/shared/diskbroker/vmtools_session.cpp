// Part of the vSphere layer: server sessions (connect, time-outs and
// preferences, disconnect), the last vSphere error and its translation.
#include <limits.h>

#include <skclass_mini/configuration.h>

#include "vmtools_internal.h"

using namespace vmtools;

namespace {

const wchar_t kConnectLabel[] = L"vddkConnectToVMWareServer()";
const wchar_t kTimeoutsLabel[] = L"vddkSetManagedTimeouts()";
const wchar_t kDisconnectLabel[] = L"vddkDisconnectFromVCServer()";

// The session's settings; the defaults stand for absent values.
struct SessionSettings {
    unsigned long browseSeconds = 180;
    unsigned long powerSeconds = 600;
    unsigned long connectSeconds = 60;
    unsigned long refreshSeconds = 4;
    unsigned long ignoreBrowseError = 0;
    unsigned long ignoreDevicesWithFiles = 0;
    unsigned long ignoreParallelPorts = 1;
    unsigned long ignoreSerialPorts = 1;
    unsigned long ravelkitLogLevel = 0;
};

SessionSettings ReadSessionSettings() {
    SessionSettings s;
    Configuration agent;
    if (!agent.Open(Configuration::OpenExisting, AgentKeyPath(), wcstring(), Configuration::ReadWrite)) return s;
    agent.LoadDWORD(L"VM browse datastore timeout", s.browseSeconds);
    agent.LoadDWORD(L"VM power operation timeout", s.powerSeconds);
    agent.LoadDWORD(L"VCB connect timeout", s.connectSeconds);
    agent.LoadDWORD(L"VCB refresh timeout", s.refreshSeconds);
    unsigned long unusedDebugLevel = 0;  // read in the same pass, as the agent always has
    agent.LoadDWORD(L"VMware Agent debug log level", unusedDebugLevel);
    agent.LoadDWORD(L"Ignore browse error", s.ignoreBrowseError);
    agent.LoadDWORD(L"Ignore devices with attached files", s.ignoreDevicesWithFiles);
    agent.LoadDWORD(L"Ignore parallel ports", s.ignoreParallelPorts);
    agent.LoadDWORD(L"Ignore serial ports", s.ignoreSerialPorts);
    s.ravelkitLogLevel = agent.LoadDWORD(L"RavelKit debug log level", 0ul);
    return s;
}

// Seconds stored as a DWORD are signed for the agent: 0 or "below" means the
// default; a value too large for the library's int milliseconds is capped.
int Milliseconds(unsigned long seconds, int fallbackMs) {
    const long value = static_cast<long>(seconds);
    if (value <= 0) return fallbackMs;
    const long long ms = static_cast<long long>(value) * 1000;
    return ms > INT_MAX ? INT_MAX : static_cast<int>(ms);
}

// Registry part of connect: certificate check and connect time-out (ms).
void ReadConnectSettings(unsigned long &certificateCheck, int &timeoutMs) {
    unsigned long connectSeconds = 60;
    certificateCheck = 0;
    Configuration agent;
    if (agent.Open(Configuration::OpenExisting, AgentKeyPath(), wcstring(), Configuration::ReadWrite)) {
        agent.LoadDWORD(L"VMware Agent VC server certificate check", certificateCheck);
        agent.LoadDWORD(L"VCB connect timeout", connectSeconds);
        agent.Close();
    }
    timeoutMs = Milliseconds(connectSeconds, 60000);
}

uint32_t Connect(const wchar_t *server, const wchar_t *user, const wchar_t *password, soapVmToolsWrapper **wrapperOut,
                 void **sessionOut) {
    if (!wrapperOut) return dbresult::kNullArgument;
    *wrapperOut = nullptr;
    try {
        *wrapperOut = new (std::nothrow) soapVmToolsWrapper();
    } catch (uint32_t loadFailure) {
        return loadFailure;  // the loader logged why
    }
    if (!*wrapperOut) return dbresult::kOutOfResources;
    soapVmToolsWrapper &wrapper = **wrapperOut;
    const wcstring url = wcstring(L"https://") + (server ? server : L"") + L"/sdk";
    unsigned long certificateCheck = 0;
    int timeoutMs = 60000;
    ReadConnectSettings(certificateCheck, timeoutMs);
    void *session = nullptr;
    const int connected = wrapper.vmcConnect(Utf8(url).c_str(), nullptr, nullptr, certificateCheck == 0, nullptr,
                                             &session, timeoutMs, nullptr);
    if (connected != 0) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"%s: vmcConnect failed, result = 0X%X", kConnectLabel, connected);
        if (sessionOut) *sessionOut = nullptr;
        return dbresult::kConnectFailed;
    }
    // Only wrapperOut is checked up front; a null sessionOut still gets a
    // session, which the caller then cannot reach.
    if (sessionOut) *sessionOut = session;
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"%s: vmcConnect OK, vddkSession = %p", kConnectLabel, session);
    const int loggedIn = wrapper.vmcLogin(session, Utf8(user ? user : L"").c_str(),
                                          Utf8(password ? password : L"").c_str(), nullptr);
    if (loggedIn != 0) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"%s: vmcLogin failed, result = 0X%X", kConnectLabel, loggedIn);
        wrapper.vmcDisconnect(session);
        if (sessionOut) *sessionOut = nullptr;
        return dbresult::kLoginFailed;
    }
    const uint32_t status = vddkSetManagedTimeouts(&wrapper, session);
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"%s: status = 0X%X", kConnectLabel, status);
    return status;
}

uint32_t SetManagedTimeouts(soapVmToolsWrapper *wrapper, void *session) {
    if (!wrapper || !session) return dbresult::kNullArgument;
    const SessionSettings s = ReadSessionSettings();
    // A power value stored as 0 or below gives 600 s to the first two and
    // 1800 s to the third; an absent one 600 s to all three. Kept on purpose.
    const int result = wrapper->vmcSetTimeouts(
        session, Milliseconds(s.powerSeconds, 600000), Milliseconds(s.powerSeconds, 600000),
        Milliseconds(s.powerSeconds, 1800000), 180000, 180000, Milliseconds(s.browseSeconds, 180000),
        Milliseconds(s.connectSeconds, 60000), Milliseconds(s.refreshSeconds, 4000));
    if (result != 0) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"%s: vmcSetTimeouts failed, result = 0X%X", kTimeoutsLabel, result);
        return dbresult::kSetTimeoutsFailed;
    }
    if (wrapper->vmcSetPreferences(session, nullptr, nullptr, 0, 0, static_cast<int>(s.ignoreDevicesWithFiles), 0, 0,
                                   static_cast<int>(s.ignoreBrowseError), 0, static_cast<int>(s.ignoreParallelPorts),
                                   static_cast<int>(s.ignoreSerialPorts), 0) != 0)
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"%s: vmcSetPreferences failed", kTimeoutsLabel);
    wrapper->vmcSetLogger(session, &vmcLogCallback);
    wrapper->vmcSetLogLevel(session, static_cast<int>(s.ravelkitLogLevel));
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"%s: OK, ravelkit LogLevel set to %d", kTimeoutsLabel,
                 static_cast<int>(s.ravelkitLogLevel));
    return dbresult::kOk;
}

uint32_t Disconnect(soapVmToolsWrapper *wrapper, void *session) {
    if (!wrapper) return dbresult::kNullArgument;
    uint32_t status = dbresult::kOk;
    if (session) {
        const int loggedOut = wrapper->vmcLogout(session);
        if (loggedOut != 0) {
            SK_Zprintf_2(SK_SOURCE_FILE, 0, L"%s: vmcLogout failed, result = 0X%X", kDisconnectLabel, loggedOut);
            status = dbresult::kLogoutFailed;
        }
        wrapper->vmcDisconnect(session);
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"%s: vmcDisconnect OK, vddkSession = %p", kDisconnectLabel, session);
    }
    delete wrapper;
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"%s: status = 0X%X", kDisconnectLabel, status);
    return status;
}

struct Translation {
    int first, last;  // inclusive range of vSphere fault numbers
    uint32_t result;
};

// The library's fault numbers 25..245; anything else keeps the caller's default.
const Translation kTranslations[] = {
    {25, 25, dbresult::kViFault25},       {26, 26, dbresult::kViFault26},
    {29, 29, dbresult::kViFault29},       {185, 185, dbresult::kViFault185},
    {186, 188, dbresult::kViFaultGroup186}, {194, 198, dbresult::kViFaultGroup186},
    {204, 204, dbresult::kViFaultGroup186}, {220, 220, dbresult::kViFaultGroup186},
    {222, 222, dbresult::kViFaultGroup186}, {190, 190, dbresult::kViFaultGroup190},
    {192, 192, dbresult::kViFaultGroup190}, {200, 200, dbresult::kViFaultGroup190},
    {209, 209, dbresult::kViFaultGroup190}, {216, 217, dbresult::kViFaultGroup190},
    {224, 224, dbresult::kViFaultGroup190}, {226, 226, dbresult::kViFaultGroup190},
    {228, 228, dbresult::kViFaultGroup190}, {237, 240, dbresult::kViFaultGroup190},
    {242, 243, dbresult::kViFaultGroup190}, {191, 191, dbresult::kViFault191},
    {193, 193, dbresult::kViFault193},     {199, 199, dbresult::kViFault199},
    {202, 202, dbresult::kViWarning202},   {205, 205, dbresult::kViFault205},
    {206, 207, dbresult::kViFault206},     {212, 212, dbresult::kViFault212},
    {213, 213, dbresult::kViFaultNotPoweredOn}, {215, 215, dbresult::kViFault215},
    {218, 218, dbresult::kViFault218},     {219, 219, dbresult::kViFault219},
    {223, 223, dbresult::kViFault223},     {225, 225, dbresult::kViFault225},
    {229, 229, dbresult::kViFault229},     {231, 231, dbresult::kViFault231},
    {232, 232, dbresult::kViFault232},     {233, 233, dbresult::kViFault233},
    {234, 234, dbresult::kViFault234},     {235, 235, dbresult::kViFault235},
    {245, 245, dbresult::kViFault245},
};

}  // namespace

extern "C" {

uint32_t vddkConnectToVMWareServer(const wchar_t *server, const wchar_t *user, const wchar_t *password,
                                   soapVmToolsWrapper **wrapperOut, void **sessionOut) {
    return Guarded(L"vddkConnectToVMWareServer", [&] { return Connect(server, user, password, wrapperOut, sessionOut); });
}

uint32_t vddkSetManagedTimeouts(soapVmToolsWrapper *wrapper, void *session) {
    return Guarded(L"vddkSetManagedTimeouts", [&] { return SetManagedTimeouts(wrapper, session); });
}

uint32_t vddkDisconnectFromVCServer(soapVmToolsWrapper *wrapper, void *session) {
    return Guarded(L"vddkDisconnectFromVCServer", [&] { return Disconnect(wrapper, session); });
}

uint32_t vddkGetLastVIErr(wcstring &textOut, int *codeOut, soapVmToolsWrapper *wrapper, void *session) {
    return Guarded(L"vddkGetLastVIErr", [&] {
        if (!wrapper || !session) return dbresult::kNullArgument;
        std::string text;
        wrapper->vmcGetLastVIError(session, text, codeOut);
        textOut = Wide(text);
        return dbresult::kOk;
    });
}

uint32_t vddkConvertVIErrorToEngResult(int viError, uint32_t defaultResult) {
    for (const Translation &t : kTranslations)
        if (viError >= t.first && viError <= t.last) return t.result;
    return defaultResult;
}

}  // extern "C"
