#include <skclass_mini/impersonator.h>

#include <vector>
#include <skclass_mini/handles.h>

namespace {

skclass::UniqueHandle OpenCallerToken() {
    skclass::UniqueHandle token;
    if (!OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, token.put())) {
        // No impersonation token (ERROR_NO_TOKEN): the thread runs as the process.
        OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.put());
    }
    return token;
}

}  // namespace

wcstring Impersonator::WhoAmI() {
    try {
        skclass::UniqueHandle token = OpenCallerToken();
        if (!token) return wcstring();
        DWORD size = 0;
        GetTokenInformation(token.get(), TokenUser, nullptr, 0, &size);
        if (size == 0) return wcstring();
        std::vector<BYTE> buffer(size);
        if (!GetTokenInformation(token.get(), TokenUser, buffer.data(), size, &size)) return wcstring();
        PSID sid = reinterpret_cast<TOKEN_USER *>(buffer.data())->User.Sid;
        wchar_t user[256];
        wchar_t domain[256];
        DWORD userChars = 256, domainChars = 256;
        SID_NAME_USE use;
        if (!LookupAccountSidW(nullptr, sid, user, &userChars, domain, &domainChars, &use)) return wcstring();
        wcstring name = domain;
        name += L"\\";
        name += user;
        return name;
    } catch (...) {
        return wcstring();
    }
}
