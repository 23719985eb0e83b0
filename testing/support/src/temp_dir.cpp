#include <dbtest/temp_dir.h>

#include <atomic>
#include <windows.h>

namespace dbtest {

std::wstring UniqueName(const wchar_t *prefix) {
    static std::atomic<unsigned> counter{0};
    return std::wstring(prefix) + std::to_wstring(GetCurrentProcessId()) + L"-" +
           std::to_wstring(GetTickCount64()) + L"-" + std::to_wstring(counter.fetch_add(1));
}

bool RemoveTree(const std::wstring &path) {
    WIN32_FIND_DATAW entry;
    HANDLE find = FindFirstFileW((path + L"\\*").c_str(), &entry);
    if (find != INVALID_HANDLE_VALUE) {
        do {
            const std::wstring name = entry.cFileName;
            if (name == L"." || name == L"..") continue;
            const std::wstring child = path + L"\\" + name;
            if (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
                RemoveTree(child);
            } else {
                SetFileAttributesW(child.c_str(), FILE_ATTRIBUTE_NORMAL);  // read-only files too
                DeleteFileW(child.c_str());
            }
        } while (FindNextFileW(find, &entry));
        FindClose(find);
    }
    RemoveDirectoryW(path.c_str());
    return GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES;
}

TempDir::TempDir() {
    wchar_t temp[MAX_PATH + 1];
    const DWORD length = GetTempPathW(MAX_PATH + 1, temp);
    if (length == 0 || length > MAX_PATH) return;
    std::wstring base(temp, length);
    if (!base.empty() && base.back() == L'\\') base.pop_back();
    for (int attempt = 0; attempt < 16; ++attempt) {
        const std::wstring candidate = base + L"\\" + UniqueName(L"dbtest-");
        if (CreateDirectoryW(candidate.c_str(), nullptr)) {
            path_ = candidate;
            return;
        }
    }
}

TempDir::~TempDir() {
    if (!path_.empty()) RemoveTree(path_);
}

}  // namespace dbtest
