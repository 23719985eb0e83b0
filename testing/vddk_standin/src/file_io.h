// Positioned file I/O on UTF-8 paths, and path helpers.
#pragma once

#include <stdint.h>

#include <string>

#include <skclass_mini/handles.h>

namespace vddksim {

std::wstring Widen(const std::string &utf8);
std::string Narrow(const std::wstring &wide);

// Folder part of a path including its trailing separator ("" when there is none).
std::string FolderOf(const std::string &path);
std::string FileNameOf(const std::string &path);
bool IsAbsolutePath(const std::string &path);
bool FileExists(const std::string &path);
std::string FullPath(const std::string &path);

class File {
public:
    // Opens an existing file (writable: read+write access), or creates a new one.
    bool Open(const std::string &path, bool writable);
    bool Create(const std::string &path, bool overwrite);
    bool ReadAt(uint64_t offset, void *buf, size_t len) const;  // short read = false
    bool WriteAt(uint64_t offset, const void *buf, size_t len) const;
    uint64_t Size() const;
    bool SetSize(uint64_t size) const;
    bool IsOpen() const { return bool(handle_); }
    void Close() { handle_.reset(); }

private:
    skclass::UniqueFile handle_;
};

// Whole-file text (stops at the first NUL), "" on failure.
bool ReadTextFile(const std::string &path, std::string *text);

}  // namespace vddksim
