#include <dbtest/install_files.h>

#include <windows.h>

namespace dbtest {

std::wstring ExeFolder() {
    wchar_t path[MAX_PATH * 2];
    DWORD n = GetModuleFileNameW(nullptr, path, MAX_PATH * 2);
    std::wstring s(path, n);
    return s.substr(0, s.find_last_of(L"\\/") + 1);
}

bool CreateFolders(const std::wstring &folder) {
    for (size_t pos = folder.find_first_of(L"\\/", 3);; pos = folder.find_first_of(L"\\/", pos + 1)) {
        const std::wstring part = folder.substr(0, pos);
        if (!CreateDirectoryW(part.c_str(), nullptr) && GetLastError() != ERROR_ALREADY_EXISTS) return false;
        if (pos == std::wstring::npos) return true;
    }
}

bool Fail(std::string *error, const std::string &what) {
    if (error) *error = what + " (error " + std::to_string(GetLastError()) + ")";
    return false;
}

}  // namespace dbtest
