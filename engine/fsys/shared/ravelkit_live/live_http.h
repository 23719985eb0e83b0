// One HTTPS channel to a vSphere SDK endpoint over WinHTTP: a session and a
// connection handle kept for keep-alive, the server's session cookie kept here
// (never logged), time-outs and the certificate policy applied to every request.
#pragma once
#include <memory>
#include <string>
#include <skclass_mini/win.h>
#include <wincrypt.h>
#include <winhttp.h>
#include <skclass_mini/handles.h>

namespace ravelkit_live {

struct InternetTraits {
    using type = HINTERNET;
    static type invalid() { return nullptr; }
    static void close(type h) { WinHttpCloseHandle(h); }
};
using InternetHandle = skclass::UniqueResource<InternetTraits>;

struct CertificateTraits {
    using type = PCCERT_CONTEXT;
    static type invalid() { return nullptr; }
    static void close(type c) { CertFreeCertificateContext(c); }
};
struct ChainTraits {
    using type = PCCERT_CHAIN_CONTEXT;
    static type invalid() { return nullptr; }
    static void close(type c) { CertFreeCertificateChain(c); }
};

struct HttpReply {
    DWORD status = 0;
    std::string body;
};

class HttpChannel {
public:
    // Parses the URL (WinHttpCrackUrl) and opens session and connection; no
    // traffic yet. False with a description in error.
    bool Open(const std::string &url, bool acceptAnyCertificate, int timeoutMs, std::string &error);
    void SetTimeout(int timeoutMs);
    // POSTs a SOAP body. False when no HTTP answer came within the time-out
    // (refused, certificate refused, silent server), with a description in error.
    bool Post(const std::string &soapAction, const std::string &body, HttpReply &reply, std::string &error);
    void ForgetCookie() { cookie_.clear(); }

    struct Exchange;

private:
    InternetHandle session_;
    InternetHandle connection_;
    std::wstring host_;
    std::wstring path_;
    bool secure_ = true;
    bool acceptAnyCertificate_ = false;
    int timeoutMs_ = 60000;
    std::wstring cookie_;  // "name=value" of the server's session cookie
};

// "WinHTTP error 12002 (the operation timed out)" and the like.
std::string DescribeWinHttpError(DWORD error);

}  // namespace ravelkit_live
