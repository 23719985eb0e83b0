// A temporary folder for one test: created unique under %TEMP%, deleted with
// everything in it when the object goes away.
#pragma once
#include <string>

namespace dbtest {

class TempDir {
public:
    TempDir();   // Path() is empty if the folder could not be created
    ~TempDir();  // removes the folder recursively
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;

    // Full path without a trailing backslash.
    const std::wstring &Path() const { return path_; }
    // Path() + L"\\" + name.
    std::wstring File(const std::wstring &name) const { return path_ + L"\\" + name; }

private:
    std::wstring path_;
};

// Deletes a folder and everything under it; true if it is gone afterwards.
bool RemoveTree(const std::wstring &path);

// A name unique in this machine's run: process id, tick count and a counter.
std::wstring UniqueName(const wchar_t *prefix);

}  // namespace dbtest
