#include <dbtest/files.h>

#include <skclass_mini/handles.h>

namespace dbtest {

std::string ReadWholeFile(const std::wstring &path, const std::string &ifUnreadable) {
    skclass::UniqueFile file(CreateFileW(path.c_str(), GENERIC_READ,
                                         FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                         OPEN_EXISTING, 0, nullptr));
    if (!file) return ifUnreadable;
    std::string bytes;
    char chunk[65536];
    DWORD got = 0;
    while (ReadFile(file.get(), chunk, sizeof chunk, &got, nullptr) && got > 0) bytes.append(chunk, got);
    return bytes;
}

bool WriteWholeFile(const std::wstring &path, const std::string &bytes) {
    skclass::UniqueFile file(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
    if (!file) return false;
    DWORD written = 0;
    return WriteFile(file.get(), bytes.data(), DWORD(bytes.size()), &written, nullptr) && written == bytes.size();
}

}  // namespace dbtest
