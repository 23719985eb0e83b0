#include "file_io.h"

#include "descriptor.h"

#include <algorithm>
#include <vector>

namespace vddksim {

std::wstring Widen(const std::string &utf8) {
    if (utf8.empty()) return std::wstring();
    int n = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), int(utf8.size()), nullptr, 0);
    std::wstring out(size_t(n), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, utf8.data(), int(utf8.size()), &out[0], n);
    return out;
}

std::string Narrow(const std::wstring &wide) {
    if (wide.empty()) return std::string();
    int n = WideCharToMultiByte(CP_UTF8, 0, wide.data(), int(wide.size()), nullptr, 0, nullptr, nullptr);
    std::string out(size_t(n), '\0');
    WideCharToMultiByte(CP_UTF8, 0, wide.data(), int(wide.size()), &out[0], n, nullptr, nullptr);
    return out;
}

std::string FolderOf(const std::string &path) {
    size_t pos = path.find_last_of("\\/");
    return pos == std::string::npos ? std::string() : path.substr(0, pos + 1);
}

std::string FileNameOf(const std::string &path) {
    size_t pos = path.find_last_of("\\/");
    return pos == std::string::npos ? path : path.substr(pos + 1);
}

bool IsAbsolutePath(const std::string &path) {
    if (path.size() >= 2 && path[1] == ':') return true;
    return !path.empty() && (path[0] == '\\' || path[0] == '/');
}

bool FileExists(const std::string &path) {
    DWORD attrs = GetFileAttributesW(Widen(path).c_str());
    return attrs != INVALID_FILE_ATTRIBUTES && !(attrs & FILE_ATTRIBUTE_DIRECTORY);
}

std::string FullPath(const std::string &path) {
    wchar_t buf[MAX_PATH * 2];
    DWORD n = GetFullPathNameW(Widen(path).c_str(), MAX_PATH * 2, buf, nullptr);
    if (n == 0 || n >= MAX_PATH * 2) return path;
    return Narrow(std::wstring(buf, n));
}

bool File::Open(const std::string &path, bool writable) {
    const DWORD access = GENERIC_READ | (writable ? GENERIC_WRITE : 0);
    handle_.reset(CreateFileW(Widen(path).c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                              nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    return bool(handle_);
}

bool File::Create(const std::string &path, bool overwrite) {
    handle_.reset(CreateFileW(Widen(path).c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                              overwrite ? CREATE_ALWAYS : CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    return bool(handle_);
}

bool File::ReadAt(uint64_t offset, void *buf, size_t len) const {
    auto *p = static_cast<char *>(buf);
    while (len > 0) {
        OVERLAPPED ov = {};
        ov.Offset = DWORD(offset);
        ov.OffsetHigh = DWORD(offset >> 32);
        DWORD chunk = DWORD(std::min<size_t>(len, 1u << 30)), got = 0;
        if (!ReadFile(handle_.get(), p, chunk, &got, &ov) || got != chunk) return false;
        p += got;
        offset += got;
        len -= got;
    }
    return true;
}

bool File::WriteAt(uint64_t offset, const void *buf, size_t len) const {
    auto *p = static_cast<const char *>(buf);
    while (len > 0) {
        OVERLAPPED ov = {};
        ov.Offset = DWORD(offset);
        ov.OffsetHigh = DWORD(offset >> 32);
        DWORD chunk = DWORD(std::min<size_t>(len, 1u << 30)), put = 0;
        if (!WriteFile(handle_.get(), p, chunk, &put, &ov) || put != chunk) return false;
        p += put;
        offset += put;
        len -= put;
    }
    return true;
}

uint64_t File::Size() const {
    LARGE_INTEGER size;
    return GetFileSizeEx(handle_.get(), &size) ? uint64_t(size.QuadPart) : 0;
}

bool File::SetSize(uint64_t size) const {
    LARGE_INTEGER pos;
    pos.QuadPart = int64_t(size);
    return SetFilePointerEx(handle_.get(), pos, nullptr, FILE_BEGIN) && SetEndOfFile(handle_.get());
}

bool ReadTextFile(const std::string &path, std::string *text) {
    File f;
    if (!f.Open(path, false)) return false;
    const uint64_t size = f.Size();
    if (size > (16u << 20)) return false;
    std::vector<char> buf(size_t(size) + 1, '\0');
    if (size && !f.ReadAt(0, buf.data(), size_t(size))) return false;
    text->assign(buf.data());  // descriptors end at the first NUL
    return true;
}

uint32_t NewCid() {
    LARGE_INTEGER now;
    QueryPerformanceCounter(&now);
    uint64_t x = uint64_t(now.QuadPart) * 0x9E3779B97F4A7C15ull ^ GetCurrentThreadId();
    x ^= x >> 29;
    uint32_t cid = uint32_t(x ^ (x >> 32));
    return (cid == 0xffffffffu || cid == 0xfffffffeu) ? 0x12345678u : cid;
}

}  // namespace vddksim
