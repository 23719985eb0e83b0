#include <dbtest/token_user.h>

#include <sddl.h>

#include <skclass_mini/handles.h>

namespace dbtest {

std::string TokenUserText(HANDLE token) {
    alignas(8) unsigned char buffer[512];
    DWORD size = 0;
    if (!GetTokenInformation(token, TokenUser, buffer, sizeof buffer, &size)) return std::string();
    const PSID sid = reinterpret_cast<TOKEN_USER *>(buffer)->User.Sid;
    char name[256], domain[256];
    DWORD nameLength = sizeof name, domainLength = sizeof domain;
    SID_NAME_USE use;
    if (LookupAccountSidA(nullptr, sid, name, &nameLength, domain, &domainLength, &use))
        return std::string(domain) + "\\" + name;
    char *sidText = nullptr;
    if (!ConvertSidToStringSidA(sid, &sidText)) return std::string();
    const std::string text = sidText;
    LocalFree(sidText);
    return text;
}

std::string ProcessUserText() {
    skclass::UniqueHandle token;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.put())) return std::string();
    return TokenUserText(token.get());
}

std::string ThreadUserText() {
    skclass::UniqueHandle token;
    if (!OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, token.put())) return std::string();
    return TokenUserText(token.get());
}

}  // namespace dbtest
