#include "live_http.h"

#include <memory>
#include <vector>

namespace ravelkit_live {

namespace {

std::wstring Widen(const std::string &text) {
    if (text.empty()) return std::wstring();
    const int n = MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    std::wstring out(n > 0 ? n : 0, L'\0');
    if (n > 0) MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), &out[0], n);
    return out;
}

// Far more than any answer the client asks for; a server sending more is broken.
const size_t kLargestAnswer = 256u << 20;

const DWORD kIgnoredCertificateErrors = SECURITY_FLAG_IGNORE_UNKNOWN_CA | SECURITY_FLAG_IGNORE_CERT_CN_INVALID |
                                        SECURITY_FLAG_IGNORE_CERT_DATE_INVALID |
                                        SECURITY_FLAG_IGNORE_CERT_WRONG_USAGE;

}  // namespace

std::string DescribeWinHttpError(DWORD error) {
    const char *what = "";
    switch (error) {
    case ERROR_WINHTTP_TIMEOUT: what = " (the server did not answer in time)"; break;
    case ERROR_WINHTTP_CANNOT_CONNECT: what = " (cannot connect to the server)"; break;
    case ERROR_WINHTTP_SECURE_FAILURE: what = " (the server's certificate is not trusted)"; break;
    case ERROR_WINHTTP_NAME_NOT_RESOLVED: what = " (the server name does not resolve)"; break;
    case ERROR_WINHTTP_CONNECTION_ERROR: what = " (the connection was reset)"; break;
    case ERROR_WINHTTP_INVALID_SERVER_RESPONSE: what = " (the server's answer is malformed or too large)"; break;
    case ERROR_WINHTTP_INVALID_URL: case ERROR_WINHTTP_UNRECOGNIZED_SCHEME: what = " (malformed URL)"; break;
    default: break;
    }
    return "WinHTTP error " + std::to_string(error) + what;
}

bool HttpChannel::Open(const std::string &url, bool acceptAnyCertificate, int timeoutMs, std::string &error) {
    const std::wstring wide = Widen(url);
    URL_COMPONENTS parts = {};
    parts.dwStructSize = sizeof(parts);
    parts.dwHostNameLength = parts.dwUrlPathLength = parts.dwSchemeLength = static_cast<DWORD>(-1);
    if (wide.empty() || !WinHttpCrackUrl(wide.c_str(), static_cast<DWORD>(wide.size()), 0, &parts) ||
        parts.dwHostNameLength == 0) {
        error = "malformed URL '" + url + "'";
        return false;
    }
    secure_ = parts.nScheme == INTERNET_SCHEME_HTTPS;
    path_.assign(parts.lpszUrlPath, parts.dwUrlPathLength);
    if (path_.empty()) path_ = L"/sdk";
    host_.assign(parts.lpszHostName, parts.dwHostNameLength);
    const std::wstring &host = host_;
    acceptAnyCertificate_ = acceptAnyCertificate;
    session_.reset(WinHttpOpen(L"ravelkit/1.0", WINHTTP_ACCESS_TYPE_NO_PROXY, WINHTTP_NO_PROXY_NAME,
                               WINHTTP_NO_PROXY_BYPASS, 0));
    if (session_) connection_.reset(WinHttpConnect(session_.get(), host.c_str(), parts.nPort, 0));
    if (!session_ || !connection_) {
        error = DescribeWinHttpError(GetLastError());
        return false;
    }
    SetTimeout(timeoutMs);
    return true;
}

void HttpChannel::SetTimeout(int timeoutMs) {
    timeoutMs_ = timeoutMs > 0 ? timeoutMs : 60000;
    if (session_) WinHttpSetTimeouts(session_.get(), timeoutMs_, timeoutMs_, timeoutMs_, timeoutMs_);
}

// One request, done on a thread of its own so that the caller's wait is
// bounded even where WinHTTP's own time-outs do not cover a step (a TLS
// handshake with a server that never answers). The caller and the thread
// share it; the one that finishes last frees it.
struct HttpChannel::Exchange {
    HINTERNET connection = nullptr;
    std::wstring host, path, headers;
    std::string body;
    bool secure = true, acceptAnyCertificate = false;
    HttpReply reply;
    std::wstring setCookie;
    DWORD failure = 0;
    skclass::UniqueHandle done{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
};

namespace {

using Exchange = HttpChannel::Exchange;

// The server's certificate against the machine's trusted roots, as WinHTTP
// would check it; done here too because not every WinHTTP (Wine's) refuses.
bool CertificateTrusted(HINTERNET request, const std::wstring &host) {
    skclass::UniqueResource<CertificateTraits> certificate;
    DWORD size = sizeof(PCCERT_CONTEXT);
    if (!WinHttpQueryOption(request, WINHTTP_OPTION_SERVER_CERT_CONTEXT, certificate.put(), &size)) return false;
    CERT_CHAIN_PARA chainPara = {};
    chainPara.cbSize = sizeof(chainPara);
    skclass::UniqueResource<ChainTraits> chain;
    if (!CertGetCertificateChain(nullptr, certificate.get(), nullptr, certificate.get()->hCertStore, &chainPara, 0,
                                 nullptr, chain.put()))
        return false;
    SSL_EXTRA_CERT_CHAIN_POLICY_PARA ssl = {};
    ssl.cbSize = sizeof(ssl);
    ssl.dwAuthType = AUTHTYPE_SERVER;
    ssl.pwszServerName = const_cast<wchar_t *>(host.c_str());
    CERT_CHAIN_POLICY_PARA policyPara = {};
    policyPara.cbSize = sizeof(policyPara);
    policyPara.pvExtraPolicyPara = &ssl;
    CERT_CHAIN_POLICY_STATUS status = {};
    status.cbSize = sizeof(status);
    return CertVerifyCertificateChainPolicy(CERT_CHAIN_POLICY_SSL, chain.get(), &policyPara, &status) &&
           status.dwError == 0;
}

std::wstring SetCookieOf(HINTERNET request) {
    DWORD size = 0;
    WinHttpQueryHeaders(request, WINHTTP_QUERY_SET_COOKIE, WINHTTP_HEADER_NAME_BY_INDEX, nullptr, &size,
                        WINHTTP_NO_HEADER_INDEX);
    if (size == 0 || GetLastError() != ERROR_INSUFFICIENT_BUFFER) return std::wstring();
    std::vector<wchar_t> value(size / sizeof(wchar_t) + 1, L'\0');
    if (!WinHttpQueryHeaders(request, WINHTTP_QUERY_SET_COOKIE, WINHTTP_HEADER_NAME_BY_INDEX, value.data(), &size,
                             WINHTTP_NO_HEADER_INDEX))
        return std::wstring();
    return std::wstring(value.data());
}

bool Exchange1(Exchange &x, DWORD &failure) {
    InternetHandle request(WinHttpOpenRequest(x.connection, L"POST", x.path.c_str(), nullptr, WINHTTP_NO_REFERER,
                                              WINHTTP_DEFAULT_ACCEPT_TYPES, x.secure ? WINHTTP_FLAG_SECURE : 0));
    if (!request) return (failure = GetLastError()), false;
    DWORD noCookies = WINHTTP_DISABLE_COOKIES;  // the channel keeps the one cookie that matters
    WinHttpSetOption(request.get(), WINHTTP_OPTION_DISABLE_FEATURE, &noCookies, sizeof(noCookies));
    if (x.secure && x.acceptAnyCertificate) {
        DWORD flags = kIgnoredCertificateErrors;
        WinHttpSetOption(request.get(), WINHTTP_OPTION_SECURITY_FLAGS, &flags, sizeof(flags));
    }
    if (!WinHttpSendRequest(request.get(), x.headers.c_str(), static_cast<DWORD>(x.headers.size()),
                            const_cast<char *>(x.body.data()), static_cast<DWORD>(x.body.size()),
                            static_cast<DWORD>(x.body.size()), 0))
        return (failure = GetLastError()), false;
    if (x.secure && !x.acceptAnyCertificate && !CertificateTrusted(request.get(), x.host))
        return (failure = ERROR_WINHTTP_SECURE_FAILURE), false;
    if (!WinHttpReceiveResponse(request.get(), nullptr)) return (failure = GetLastError()), false;
    DWORD size = sizeof(x.reply.status);
    WinHttpQueryHeaders(request.get(), WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER,
                        WINHTTP_HEADER_NAME_BY_INDEX, &x.reply.status, &size, WINHTTP_NO_HEADER_INDEX);
    x.setCookie = SetCookieOf(request.get());
    for (;;) {
        char buffer[16384];
        DWORD got = 0;
        if (!WinHttpReadData(request.get(), buffer, sizeof(buffer), &got)) return (failure = GetLastError()), false;
        if (got == 0) return true;
        if (x.reply.body.size() + got > kLargestAnswer) return (failure = ERROR_WINHTTP_INVALID_SERVER_RESPONSE), false;
        x.reply.body.append(buffer, got);
    }
}

// The thread keeps the library loaded until it has left the library's code.
DWORD WINAPI ExchangeThread(void *parameter) {
    std::unique_ptr<std::shared_ptr<Exchange>> shared(static_cast<std::shared_ptr<Exchange> *>(parameter));
    Exchange &x = **shared;
    DWORD failure = 0;
    if (!Exchange1(x, failure)) x.failure = failure ? failure : ERROR_WINHTTP_INTERNAL_ERROR;
    SetEvent(x.done.get());
    // The reference to give back is the one Post took for this thread; taking
    // another here would keep the library loaded for good.
    HMODULE self = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<const wchar_t *>(&ExchangeThread), &self);
    shared.reset();
    FreeLibraryAndExitThread(self, 0);
}

}  // namespace

bool HttpChannel::Post(const std::string &soapAction, const std::string &body, HttpReply &reply, std::string &error) {
    if (!connection_) {
        error = "not connected";
        return false;
    }
    auto x = std::make_shared<Exchange>();
    x->connection = connection_.get();
    x->host = host_;
    x->path = path_;
    x->secure = secure_;
    x->acceptAnyCertificate = acceptAnyCertificate_;
    x->body = body;
    x->headers = L"Content-Type: text/xml; charset=utf-8\r\nSOAPAction: \"" + Widen(soapAction) + L"\"\r\n";
    if (!cookie_.empty()) x->headers += L"Cookie: " + cookie_ + L"\r\n";
    HMODULE pin = nullptr;  // released by the thread as it ends
    if (!x->done || !GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                                        reinterpret_cast<const wchar_t *>(&ExchangeThread), &pin)) {
        error = DescribeWinHttpError(GetLastError());
        return false;
    }
    auto *parameter = new std::shared_ptr<Exchange>(x);
    skclass::UniqueHandle thread(CreateThread(nullptr, 0, ExchangeThread, parameter, 0, nullptr));
    if (!thread) {
        const DWORD failure = GetLastError();
        delete parameter;
        FreeLibrary(pin);
        error = DescribeWinHttpError(failure);
        return false;
    }
    // A little beyond the time-out, so that WinHTTP's own time-out, when it
    // works, is the one reported.
    if (WaitForSingleObject(x->done.get(), static_cast<DWORD>(timeoutMs_) + 250) != WAIT_OBJECT_0) {
        error = DescribeWinHttpError(ERROR_WINHTTP_TIMEOUT);
        return false;  // the thread ends by itself when WinHTTP gives up
    }
    if (x->failure != 0) {
        error = DescribeWinHttpError(x->failure);
        return false;
    }
    // Only the cookie itself goes back, not its attributes (path, expiry, ...).
    const std::wstring cookie = x->setCookie.substr(0, x->setCookie.find(L';'));
    if (!cookie.empty()) cookie_ = cookie;
    reply = std::move(x->reply);
    return true;
}

}  // namespace ravelkit_live
