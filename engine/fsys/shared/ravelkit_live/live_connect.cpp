// Session entry points: connect (RetrieveServiceContent), login and logout,
// settings, the last error and the server's details.
#include <memory>
#include "live_served.h"
#include "live_soap.h"

namespace ravelkit_live {

namespace {

const wchar_t *const kContentFields[] = {L"rootFolder",     L"propertyCollector", L"viewManager",
                                         L"sessionManager", L"searchIndex",       L"taskManager",
                                         L"extensionManager", L"eventManager"};

void ReadContent(CXmlReader &answer, ServiceContent &content) {
    std::string *targets[] = {&content.rootFolder,  &content.propertyCollector, &content.viewManager,
                              &content.sessionManager, &content.searchIndex,    &content.taskManager,
                              &content.extensionManager, &content.eventManager};
    for (size_t i = 0; i < sizeof(targets) / sizeof(targets[0]); ++i)
        if (answer.SelectSingleNode(kContentFields[i])) *targets[i] = TextOf(answer);
    if (answer.SelectSingleNode(L"apiType")) content.apiType = TextOf(answer);
    if (answer.SelectSingleNode(L"apiVersion")) content.apiVersion = TextOf(answer);
}

}  // namespace

Session *SessionOf(void *session, const char *entry) {
    Session *checked = Checked(session);
    if (!checked) Fail(kBadSession, std::string(entry) + ": not a session of this library");
    return checked;
}

int Served::vmcConnect(const char *url, const char *, const char *, bool acceptAnyCertificate,
                       vmcConnectCallback, void **session, int timeoutMs, const char *) {
    if (!session) return Fail(kBadArgument, "vmcConnect: no session pointer");
    *session = nullptr;
    if (!url || !*url) return Fail(kBadArgument, "vmcConnect: no URL");
    std::unique_ptr<Session> opened(new Session);
    opened->url = url;
    std::string error;
    if (!opened->channel.Open(url, acceptAnyCertificate, timeoutMs, error))
        return Fail(kBadArgument, "vmcConnect: " + error);
    CXmlReader answer;
    const int result = Call(*opened, L"RetrieveServiceContent",
                            [](CXmlBuilder &b) { MoRef(b, L"_this", "ServiceInstance", "ServiceInstance"); },
                            answer);
    if (result != kOk) {
        std::string text;
        int number = 0;
        GetLastErrorText(text, number);
        return Fail(kCannotConnect, "vmcConnect: cannot reach " + std::string(url) + ": " + text, number);
    }
    ReadContent(answer, opened->content);
    if (opened->content.sessionManager.empty() || opened->content.propertyCollector.empty())
        return Fail(kCannotConnect, "vmcConnect: " + std::string(url) + " is not a vSphere SDK endpoint");
    Log("connected to " + std::string(url) + " (" + opened->content.apiType + " " + opened->content.apiVersion + ")");
    Remember(opened.get());
    *session = opened.release();
    return kOk;
}

void Served::vmcDisconnect(void *session) {
    Session *checked = Checked(session);
    if (!checked) return;
    Forget(checked);
    delete checked;
}

int Served::vmcLogin(void *session, const char *user, const char *password, const char *locale) {
    Session *s = SessionOf(session, "vmcLogin");
    if (!s) return kBadSession;
    if (!user || !password) return Fail(kBadArgument, "vmcLogin: no user name or password");
    CXmlReader answer;
    // The password goes into the request only; nothing here logs a request.
    const int result = Call(*s, L"Login",
                            [&](CXmlBuilder &b) {
                                MoRef(b, L"_this", "SessionManager", s->content.sessionManager);
                                Element(b, L"userName", user);
                                Element(b, L"password", password);
                                if (locale && *locale) Element(b, L"locale", locale);
                            },
                            answer);
    if (result == kServerFault) {
        std::string text;
        int number = 0;
        GetLastErrorText(text, number);
        if (number == kInvalidLoginNumber)
            return Fail(kLoginRefused, "Cannot complete login due to an incorrect user name or password.", number);
    }
    if (result != kOk) return result;
    s->loggedIn = true;
    Log(std::string("user ") + user + " logged in");
    return kOk;
}

int Served::vmcLogout(void *session) {
    Session *s = SessionOf(session, "vmcLogout");
    if (!s) return kBadSession;
    if (!s->loggedIn) return kOk;
    CXmlReader answer;
    const int result = Call(*s, L"Logout",
                            [&](CXmlBuilder &b) { MoRef(b, L"_this", "SessionManager", s->content.sessionManager); },
                            answer);
    s->loggedIn = false;
    s->channel.ForgetCookie();
    return result;
}

void Served::vmcSetVmView(void *session, const char *view) {
    if (Session *s = Checked(session)) s->vmView = view ? view : "";
}

int Served::vmcSetTimeouts(void *session, int, int, int powerLongMs, int snapshotMs, int, int, int connectMs, int) {
    Session *s = SessionOf(session, "vmcSetTimeouts");
    if (!s) return kBadSession;
    if (connectMs > 0) s->channel.SetTimeout(connectMs);
    const int longest = snapshotMs > powerLongMs ? snapshotMs : powerLongMs;
    if (longest > 0) s->taskTimeoutMs = longest;
    return kOk;
}

int Served::vmcSetPreferences(void *session, const char *, const char *, int, int, int, int, int, int, int, int,
                              int, int) {
    return SessionOf(session, "vmcSetPreferences") ? kOk : kBadSession;
}

void Served::vmcSetLogger(void *, vmcLoggerCallback logger) { SetLogger(logger); }

void Served::vmcSetLogLevel(void *session, int level) {
    if (Session *s = Checked(session)) s->logLevel = level;
}

void Served::vmcGetLastVIError(void *, std::string &text, int *code) {
    int number = 0;
    GetLastErrorText(text, number);
    if (code) *code = number;
}

int Served::vmcGetServerDetails(void *session, _vmc::_ObjDetails *details) {
    Session *s = SessionOf(session, "vmcGetServerDetails");
    if (!s) return kBadSession;
    if (!details) return Fail(kBadArgument, "vmcGetServerDetails: no details record");
    *details = _vmc::_ObjDetails();
    details->type = s->content.apiType;
    details->moRef = "ServiceInstance";
    return kOk;
}

}  // namespace ravelkit_live
