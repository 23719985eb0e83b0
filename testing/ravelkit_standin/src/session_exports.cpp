// The stand-in's session entry points: connect, login, settings, the last
// error, server and object details.
#include "state.h"

using namespace ravelsim;

namespace {

// Result numbers of the stand-in's own failures.
constexpr int kBadArgument = 3;
constexpr int kCannotConnect = 4;
constexpr int kBadSession = 5;
constexpr int kLoginRefused = 35;
constexpr int kNotFound = 2;

// "https://<server>/sdk" -> server; empty when the URL has another shape.
std::string ServerOfUrl(const char *url) {
    const std::string text = url ? url : "";
    const std::string prefix = "https://", suffix = "/sdk";
    if (text.size() <= prefix.size() + suffix.size() || text.compare(0, prefix.size(), prefix) != 0 ||
        text.compare(text.size() - suffix.size(), suffix.size(), suffix) != 0)
        return std::string();
    return text.substr(prefix.size(), text.size() - prefix.size() - suffix.size());
}

std::string Numbers(const std::vector<int> &values) {
    std::string out;
    for (int v : values) out += (out.empty() ? "" : ",") + std::to_string(v);
    return out;
}

}  // namespace

extern "C" {

int vmcConnect(const char *url, const char *proxy, const char *thumbprint, bool acceptAnyCertificate,
               vmcConnectCallback, void **session, int timeoutMs, const char *options) {
    RAVELSIM_ENTER(Args({url, proxy, thumbprint, acceptAnyCertificate ? "accept" : "check",
                         std::to_string(timeoutMs).c_str(), options}));
    if (!session) return Fail(kBadArgument, "no session pointer", 0);
    *session = nullptr;
    const std::string server = ServerOfUrl(url);
    if (server.empty()) return Fail(kBadArgument, std::string("malformed URL ") + Text(url), 0);
    State &s = Get();
    skclass::CsLock hold(s.lock);
    s.settings.url = url;
    s.settings.connectTimeoutMs = timeoutMs;
    s.settings.acceptAnyCertificate = acceptAnyCertificate;
    if (_stricmp(server.c_str(), s.inventory.server.c_str()) != 0) {
        s.lastErrorText = "Cannot connect to host " + server;
        s.lastErrorCode = 0;
        return kCannotConnect;
    }
    Session *opened = new Session;
    opened->url = url;
    s.sessions.insert(opened);
    *session = opened;
    return 0;
}

void vmcDisconnect(void *session) {
    RAVELSIM_ENTER_VOID(std::string());
    State &s = Get();
    skclass::CsLock hold(s.lock);
    if (s.sessions.erase(static_cast<Session *>(session))) delete static_cast<Session *>(session);
}

int vmcLogin(void *session, const char *user, const char *password, const char *locale) {
    RAVELSIM_ENTER(Args({user, password ? "<hidden>" : nullptr, locale}));
    State &s = Get();
    {
        skclass::CsLock hold(s.lock);
        if (!ValidSession(session)) return kBadSession;
        auto account = s.inventory.accounts.find(user ? user : "");
        if (account == s.inventory.accounts.end() || !password || account->second != password) {
            s.lastErrorText = "Cannot complete login due to an incorrect user name or password.";
            s.lastErrorCode = 185;
            return kLoginRefused;
        }
        static_cast<Session *>(session)->loggedIn = true;
        static_cast<Session *>(session)->user = user;
        s.settings.user = user;
    }
    Log(std::string("user ") + user + " logged in");
    return 0;
}

int vmcLogout(void *session) {
    RAVELSIM_ENTER(std::string());
    skclass::CsLock hold(Get().lock);
    if (!ValidSession(session)) return kBadSession;
    static_cast<Session *>(session)->loggedIn = false;
    return 0;
}

void vmcSetVmView(void *, const char *view) { RAVELSIM_ENTER_VOID(Args({view})); }

int vmcSetTimeouts(void *session, int t1, int t2, int t3, int t4, int t5, int t6, int t7, int t8) {
    const std::vector<int> values = {t1, t2, t3, t4, t5, t6, t7, t8};
    RAVELSIM_ENTER(Numbers(values));
    skclass::CsLock hold(Get().lock);
    if (!ValidSession(session)) return kBadSession;
    Get().settings.timeouts = values;
    return 0;
}

int vmcSetPreferences(void *session, const char *text1, const char *text2, int p1, int p2, int p3, int p4, int p5,
                      int p6, int p7, int p8, int p9, int p10) {
    const std::vector<int> values = {p1, p2, p3, p4, p5, p6, p7, p8, p9, p10};
    RAVELSIM_ENTER(Args({text1, text2}) + ", " + Numbers(values));
    skclass::CsLock hold(Get().lock);
    if (!ValidSession(session)) return kBadSession;
    Get().settings.preferences = values;
    return 0;
}

void vmcSetLogger(void *, vmcLoggerCallback logger) {
    RAVELSIM_ENTER_VOID(logger ? "callback" : "(null)");
    skclass::CsLock hold(Get().lock);
    Get().logger = logger;
}

void vmcSetLogLevel(void *, int level) {
    RAVELSIM_ENTER_VOID(std::to_string(level));
    skclass::CsLock hold(Get().lock);
    Get().settings.logLevel = level;
}

void vmcGetLastVIError(void *, std::string &text, int *code) {
    RAVELSIM_ENTER_VOID(std::string());
    skclass::CsLock hold(Get().lock);
    text = Get().lastErrorText;
    if (code) *code = Get().lastErrorCode;
}

int vmcGetServerDetails(void *session, _vmc::_ObjDetails *details) {
    RAVELSIM_ENTER(std::string());
    skclass::CsLock hold(Get().lock);
    if (!ValidSession(session)) return kBadSession;
    if (!details) return kBadArgument;
    *details = _vmc::_ObjDetails();
    details->type = Get().inventory.serverType;
    details->moRef = "ServiceInstance";
    return 0;
}

int vmcGetObjDetails(void *session, const char *name, const char *type, const char *moRef, const char *dataSet,
                     _vmc::_ObjDetails *details) {
    RAVELSIM_ENTER(Args({name, type, moRef, dataSet}));
    State &s = Get();
    skclass::CsLock hold(s.lock);
    if (!ValidSession(session)) return kBadSession;
    if (!details) return kBadArgument;
    const Vm *vm = FindVm(name ? name : (moRef ? moRef : ""));
    if (!vm) {
        s.lastErrorText = std::string("The object '") + Text(name) + "' has already been deleted or has not been completely created";
        s.lastErrorCode = 25;
        return kNotFound;
    }
    *details = _vmc::_ObjDetails();
    details->type = vm->name;
    details->moRef = vm->moRef;
    const Host *host = FindHost(vm->hostMoRef);
    details->host = (host ? host->name : std::string("unknown")) + " (<" + vm->hostMoRef + ">)";
    if (!vm->hostText.empty()) details->host = vm->hostText;
    details->powerState = vm->powerState;
    details->guestHostName = vm->guestHostName;
    details->diskMode = vm->diskMode;
    details->hardwareVersion = vm->hardwareVersion;
    return 0;
}

}  // extern "C"

namespace ravelsim {

// Texts of the last session's settings for RavelSim_Query; empty key: unknown.
bool SettingsText(const std::string &key, std::string &out) {
    const Settings &st = Get().settings;
    if (key == "timeouts") out = Numbers(st.timeouts);
    else if (key == "preferences") out = Numbers(st.preferences);
    else if (key == "connectTimeout") out = std::to_string(st.connectTimeoutMs);
    else if (key == "acceptAnyCertificate") out = st.acceptAnyCertificate ? "1" : "0";
    else if (key == "url") out = st.url;
    else if (key == "user") out = st.user;
    else if (key == "logLevel") out = std::to_string(st.logLevel);
    else if (key == "sessions") out = std::to_string(Get().sessions.size());
    else return false;
    return true;
}

}  // namespace ravelsim
