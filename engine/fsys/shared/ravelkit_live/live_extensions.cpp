// Event extensions through the server's ExtensionManager: find, register and
// unregister by key.
#include <time.h>
#include "live_served.h"
#include "live_soap.h"

namespace ravelkit_live {

namespace {

std::string UtcNow() {
    const time_t now = time(nullptr);
    struct tm utc = {};
    gmtime_s(&utc, &now);
    char text[32] = {};
    strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text;
}

std::string Text(const char *text) { return text ? text : ""; }

}  // namespace

int Served::vmcIsEventExtensionRegistered(void *session, const char *key, bool *registered) {
    Session *s = SessionOf(session, "vmcIsEventExtensionRegistered");
    if (!s) return kBadSession;
    if (!key || !*key || !registered) return Fail(kBadArgument, "vmcIsEventExtensionRegistered: no key or result");
    CXmlReader answer;
    const int result = Call(*s, L"FindExtension",
                            [&](CXmlBuilder &b) {
                                MoRef(b, L"_this", "ExtensionManager", s->content.extensionManager);
                                Element(b, L"extensionKey", key);
                            },
                            answer);
    if (result == kOk) *registered = answer.SelectSingleNode(L"returnval");
    return result;
}

// The key, then label, summary, company and version; the other texts and the
// number are not part of what the server keeps for an extension.
int Served::vmcRegisterEventExtension(void *session, const char *key, const char *label, const char *summary,
                                      const char *company, const char *version, const char *, const char *,
                                      const char *, const char *, const char *, const char *, const char *,
                                      const char *, int64_t) {
    Session *s = SessionOf(session, "vmcRegisterEventExtension");
    if (!s) return kBadSession;
    if (!key || !*key) return Fail(kBadArgument, "vmcRegisterEventExtension: no key");
    CXmlReader answer;
    return Call(*s, L"RegisterExtension",
                [&](CXmlBuilder &b) {
                    MoRef(b, L"_this", "ExtensionManager", s->content.extensionManager);
                    b.StartElement(L"extension");
                    b.StartElement(L"description");
                    Element(b, L"label", Text(label));
                    Element(b, L"summary", Text(summary));
                    b.EndElement();
                    Element(b, L"key", key);
                    if (company && *company) Element(b, L"company", company);
                    Element(b, L"version", Text(version));
                    Element(b, L"lastHeartbeatTime", UtcNow());
                    b.EndElement();
                },
                answer);
}

int Served::vmcUnregisterEventExtension(void *session, const char *key) {
    Session *s = SessionOf(session, "vmcUnregisterEventExtension");
    if (!s) return kBadSession;
    if (!key || !*key) return Fail(kBadArgument, "vmcUnregisterEventExtension: no key");
    CXmlReader answer;
    return Call(*s, L"UnregisterExtension",
                [&](CXmlBuilder &b) {
                    MoRef(b, L"_this", "ExtensionManager", s->content.extensionManager);
                    Element(b, L"extensionKey", key);
                },
                answer);
}

}  // namespace ravelkit_live
