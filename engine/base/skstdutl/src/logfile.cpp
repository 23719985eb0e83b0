#include "logfile.h"

#include <skclass_mini/configuration.h>
#include <skclass_mini/product.h>

namespace sklog {
namespace {

const wchar_t kMainMiscKey[] = L"Software\\Halvorn\\Stowline For Windows\\Stowline\\Engine\\Misc";
const wchar_t kSiblingMiscKey[] = L"Software\\Tarrow\\Vaultry\\ORMZ\\Engine\\Misc";

// Creates every missing folder on the way to the file (the data path itself
// may not exist yet on a fresh machine). Failures show up when the file opens.
void CreateFoldersFor(const std::wstring &filePath) {
    size_t last = filePath.find_last_of(L'\\');
    if (last == std::wstring::npos || last == 0) return;
    // Skip a leading "\\server\share" or "X:" part, which cannot be created.
    size_t start = 0;
    if (filePath.compare(0, 2, L"\\\\") == 0) {
        start = filePath.find(L'\\', 2);
        start = start == std::wstring::npos ? last : filePath.find(L'\\', start + 1);
    }
    for (size_t pos = filePath.find(L'\\', start + 1); pos != std::wstring::npos && pos <= last;
         pos = filePath.find(L'\\', pos + 1)) {
        std::wstring folder = filePath.substr(0, pos);
        if (folder.size() == 2 && folder[1] == L':') continue;
        CreateDirectoryW(folder.c_str(), nullptr);
    }
}

}  // namespace

std::wstring DefaultLogPath() {
    std::wstring dataPath;
    Configuration misc;
    const wchar_t *key = CMS_GetProd() == 1 ? kSiblingMiscKey : kMainMiscKey;
    if (misc.Open(Configuration::OpenExisting, key, L"", Configuration::Read)) {
        wcstring value;
        if (misc.Load(L"Data Path", value)) dataPath = value;
    }
    while (!dataPath.empty() && dataPath.back() == L'\\') dataPath.pop_back();
    if (dataPath.empty()) dataPath = L"C:";
    return dataPath + L"\\Logs\\diskBroker.log";
}

LogFile &TheLogFile() noexcept {
    static LogFile *file = [] {
        // Pin the module: the never-destroyed file object lives in its image.
        HMODULE self = nullptr;
        GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                           reinterpret_cast<LPCWSTR>(&TheLogFile), &self);
        return new LogFile;
    }();
    return *file;
}

void LogFile::ResolvePathLocked() noexcept {
    if (pathKnown_) return;
    try {
        path_ = DefaultLogPath();
    } catch (...) {
        path_.clear();
    }
    pathKnown_ = true;
}

bool LogFile::OpenLocked() noexcept {
    if (file_) return true;
    ResolvePathLocked();
    if (path_.empty() || openFailed_) return false;
    try {
        CreateFoldersFor(path_);
    } catch (...) {
    }
    // Appending handle shared with readers, other writers and renames, so a
    // viewer or a second process never blocks logging nor rotation.
    file_.reset(CreateFileW(path_.c_str(), FILE_APPEND_DATA | FILE_READ_ATTRIBUTES,
                            FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                            OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file_) {
        openFailed_ = true;
        return false;
    }
    LARGE_INTEGER size = {};
    size_ = GetFileSizeEx(file_.get(), &size) ? static_cast<unsigned long long>(size.QuadPart) : 0;
    return true;
}

void LogFile::RotateLocked() noexcept {
    file_.reset();
    try {
        std::wstring older = path_ + L".1";
        MoveFileExW(path_.c_str(), older.c_str(), MOVEFILE_REPLACE_EXISTING);
    } catch (...) {
    }
    if (OpenLocked() && size_ >= kRotateBytes) {
        // The rename failed (e.g. another process holds the file without
        // delete sharing): keep appending and try again after another 10 MB.
        size_ = 0;
    }
}

void LogFile::Append(const char *utf8, size_t bytes) noexcept {
    skclass::CsLock hold(lock_);
    if (!OpenLocked()) return;
    if (size_ > 0 && size_ + bytes > kRotateBytes) {
        RotateLocked();
        if (!file_) return;
    }
    DWORD written = 0;
    if (WriteFile(file_.get(), utf8, static_cast<DWORD>(bytes), &written, nullptr)) size_ += written;
}

std::wstring LogFile::Path() noexcept {
    skclass::CsLock hold(lock_);
    ResolvePathLocked();
    try {
        return path_;
    } catch (...) {
        return std::wstring();
    }
}

void LogFile::SetPath(const wchar_t *path) noexcept {
    skclass::CsLock hold(lock_);
    file_.reset();
    openFailed_ = false;
    size_ = 0;
    try {
        pathKnown_ = path != nullptr;
        path_ = path != nullptr ? path : L"";
    } catch (...) {
        pathKnown_ = true;
        path_.clear();
    }
}

}  // namespace sklog
