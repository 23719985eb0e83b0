#include "files.h"

#include <string.h>
#include <winioctl.h>

#include <vector>

#include "errors.h"

namespace dbtool {
namespace {

// WriteFile/ReadFile take 32-bit lengths; big transfers go in steps.
constexpr size_t kMaxIo = 64u << 20;

OVERLAPPED At(uint64_t offset) {
    OVERLAPPED where{};
    where.Offset = static_cast<DWORD>(offset);
    where.OffsetHigh = static_cast<DWORD>(offset >> 32);
    return where;
}

}  // namespace

File File::Create(const std::wstring &path, bool overwrite) {
    HANDLE handle = CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                overwrite ? CREATE_ALWAYS : CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE) ThrowLastError(L"cannot create '" + path + L"'");
    return File(path, handle);
}

File File::OpenRead(const std::wstring &path) {
    HANDLE handle = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE) ThrowLastError(L"cannot open '" + path + L"'");
    return File(path, handle);
}

File File::OpenReadWrite(const std::wstring &path) {
    HANDLE handle = CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE) ThrowLastError(L"cannot open '" + path + L"' for writing");
    return File(path, handle);
}

void File::TryMakeSparse() {
    DWORD returned = 0;
    DeviceIoControl(handle_.get(), FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, &returned, nullptr);
}

void File::SetSize(uint64_t size) {
    LARGE_INTEGER position;
    position.QuadPart = static_cast<LONGLONG>(size);
    if (!SetFilePointerEx(handle_.get(), position, nullptr, FILE_BEGIN) || !SetEndOfFile(handle_.get()))
        ThrowLastError(L"cannot set the size of '" + path_ + L"'");
}

uint64_t File::Size() const {
    LARGE_INTEGER size;
    if (!GetFileSizeEx(handle_.get(), &size)) ThrowLastError(L"cannot read the size of '" + path_ + L"'");
    return static_cast<uint64_t>(size.QuadPart);
}

void File::WriteAt(uint64_t offset, const void *data, size_t length) {
    const char *bytes = static_cast<const char *>(data);
    while (length > 0) {
        const DWORD step = static_cast<DWORD>(length < kMaxIo ? length : kMaxIo);
        OVERLAPPED where = At(offset);
        DWORD written = 0;
        if (!WriteFile(handle_.get(), bytes, step, &written, &where))
            ThrowLastError(L"cannot write to '" + path_ + L"'");
        // A short write (Wine passes on the host's, as the disk fills) is
        // retried for the rest, which then reports the real error.
        if (written == 0)
            throw Failure(L"cannot write to '" + path_ + L"': nothing was written at offset " + std::to_wstring(offset));
        bytes += written, offset += written, length -= written;
    }
}

void File::ReadAt(uint64_t offset, void *data, size_t length) {
    char *bytes = static_cast<char *>(data);
    while (length > 0) {
        const DWORD step = static_cast<DWORD>(length < kMaxIo ? length : kMaxIo);
        OVERLAPPED where = At(offset);
        DWORD read = 0;
        if (!ReadFile(handle_.get(), bytes, step, &read, &where) && GetLastError() != ERROR_HANDLE_EOF)
            ThrowLastError(L"cannot read '" + path_ + L"'");
        if (read != step)
            throw Failure(L"'" + path_ + L"' ends before offset " + std::to_wstring(offset + step) +
                          L": the image is shorter than its manifest says");
        bytes += step, offset += step, length -= step;
    }
}

void File::Flush() {
    if (!FlushFileBuffers(handle_.get())) ThrowLastError(L"cannot flush '" + path_ + L"'");
}

void File::Close() {
    if (!handle_) return;
    if (!FlushFileBuffers(handle_.get())) ThrowLastError(L"cannot flush '" + path_ + L"'");
    if (!CloseHandle(handle_.release())) ThrowLastError(L"cannot close '" + path_ + L"'");
}

std::string ReadWholeFile(const std::wstring &path) {
    File file = File::OpenRead(path);
    const uint64_t size = file.Size();
    if (size > (256u << 20)) throw Failure(L"'" + path + L"' is too large for a list or manifest");
    std::string bytes(static_cast<size_t>(size), '\0');
    if (size) file.ReadAt(0, &bytes[0], bytes.size());
    return bytes;
}

void WriteWholeFile(const std::wstring &path, const std::string &bytes) {
    File file = File::Create(path, true);
    if (!bytes.empty()) file.WriteAt(0, bytes.data(), bytes.size());
    file.Close();
}

TempPath::TempPath(const std::wstring &suffix) {
    static unsigned counter = 0;
    wchar_t folder[MAX_PATH + 1];
    const DWORD length = GetTempPathW(MAX_PATH + 1, folder);
    if (length == 0 || length > MAX_PATH) ThrowLastError(L"cannot find the temporary folder");
    path_ = std::wstring(folder) + L"diskbroker-" + std::to_wstring(GetCurrentProcessId()) + L"-" +
            std::to_wstring(++counter) + suffix;
}

TempPath::~TempPath() { DeleteFileW(path_.c_str()); }

bool AllZero(const uint8_t *data, size_t length) {
    return length == 0 || (data[0] == 0 && memcmp(data, data + 1, length - 1) == 0);
}

bool PathExists(const std::wstring &path) { return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

void DeleteIfExists(const std::wstring &path) {
    if (!DeleteFileW(path.c_str()) && GetLastError() != ERROR_FILE_NOT_FOUND)
        ThrowLastError(L"cannot delete '" + path + L"'");
}

namespace {

bool LooksTheSame(const WIN32_FILE_ATTRIBUTE_DATA &source, const std::wstring &to) {
    WIN32_FILE_ATTRIBUTE_DATA target{};
    return GetFileAttributesExW(to.c_str(), GetFileExInfoStandard, &target) &&
           source.nFileSizeLow == target.nFileSizeLow && source.nFileSizeHigh == target.nFileSizeHigh &&
           CompareFileTime(&source.ftLastWriteTime, &target.ftLastWriteTime) == 0;
}

}  // namespace

void CopyLibraryIfChanged(const std::wstring &from, const std::wstring &to) {
    WIN32_FILE_ATTRIBUTE_DATA source{};
    if (!GetFileAttributesExW(from.c_str(), GetFileExInfoStandard, &source))
        ThrowLastError(L"cannot read '" + from + L"'");
    if (LooksTheSame(source, to) || CopyFileW(from.c_str(), to.c_str(), FALSE)) return;
    const DWORD error = GetLastError();
    // A run started at the same moment may have copied it first.
    if (LooksTheSame(source, to)) return;
    throw Failure(Win32Message(L"cannot replace '" + to + L"' with '" + from +
                                   L"' (another run of diskbroker may have a different library loaded from there; "
                                   L"run this one when it has ended)",
                               error));
}

void CreateFolders(const std::wstring &folder) {
    for (size_t pos = folder.find_first_of(L"\\/", 3);; pos = folder.find_first_of(L"\\/", pos + 1)) {
        const std::wstring part = folder.substr(0, pos);
        if (!part.empty() && !CreateDirectoryW(part.c_str(), nullptr) && GetLastError() != ERROR_ALREADY_EXISTS)
            ThrowLastError(L"cannot create the folder '" + part + L"'");
        if (pos == std::wstring::npos) return;
    }
}

void DeleteTree(const std::wstring &folder) {
    WIN32_FIND_DATAW entry;
    skclass::UniqueFind find(FindFirstFileW((folder + L"\\*").c_str(), &entry));
    if (!find) return;
    do {
        const std::wstring name = entry.cFileName;
        if (name == L"." || name == L"..") continue;
        const std::wstring path = folder + L"\\" + name;
        if (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)
            DeleteTree(path);
        else
            DeleteIfExists(path);
    } while (FindNextFileW(find.get(), &entry));
    find.reset();
    if (!RemoveDirectoryW(folder.c_str())) ThrowLastError(L"cannot remove the folder '" + folder + L"'");
}

std::wstring FullPath(const std::wstring &path) {
    if (IsUrlPath(path)) return path;
    const DWORD needed = GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
    if (needed == 0) ThrowLastError(L"bad path '" + path + L"'");
    std::vector<wchar_t> buffer(needed);
    const DWORD length = GetFullPathNameW(path.c_str(), needed, buffer.data(), nullptr);
    if (length == 0 || length >= needed) ThrowLastError(L"bad path '" + path + L"'");
    return std::wstring(buffer.data(), length);
}

std::wstring ExeFolder() {
    std::vector<wchar_t> buffer(MAX_PATH);
    for (;;) {
        const DWORD length = GetModuleFileNameW(nullptr, buffer.data(), static_cast<DWORD>(buffer.size()));
        if (length == 0) ThrowLastError(L"cannot find the program's own folder");
        if (length < buffer.size()) {
            const std::wstring path(buffer.data(), length);
            return path.substr(0, path.find_last_of(L"\\/") + 1);
        }
        buffer.resize(buffer.size() * 2);
    }
}

bool IsUrlPath(const std::wstring &path) { return path.find(L"://") != std::wstring::npos; }

}  // namespace dbtool
