// Plain files of the program: the raw image (positioned reads and writes,
// sparse where nothing is written), small text files, and path helpers.
#pragma once
#include <stdint.h>

#include <string>

#include <skclass_mini/handles.h>

namespace dbtool {

class File {
public:
    // A new file; an existing one is an error unless overwrite is set.
    static File Create(const std::wstring &path, bool overwrite);
    static File OpenRead(const std::wstring &path);
    static File OpenReadWrite(const std::wstring &path);

    // Asks the file system to keep unwritten ranges as holes; where it cannot
    // (FAT, some hosts) the file is still correct, only larger on disk.
    void TryMakeSparse();
    // Sets the end of file, so the image has the disk's size even when its
    // tail was never written.
    void SetSize(uint64_t size);
    uint64_t Size() const;
    void WriteAt(uint64_t offset, const void *data, size_t length);
    // Reads exactly length bytes; a short file is a Failure.
    void ReadAt(uint64_t offset, void *data, size_t length);
    // Flushes the written data to the disk, reporting a failure.
    void Flush();
    // Flushes and closes, reporting a failure (the destructor closes silently).
    void Close();

    const std::wstring &Path() const { return path_; }

private:
    File(std::wstring path, HANDLE handle) : path_(std::move(path)), handle_(handle) {}
    std::wstring path_;
    skclass::UniqueFile handle_;
};

std::string ReadWholeFile(const std::wstring &path);
void WriteWholeFile(const std::wstring &path, const std::string &bytes);

// A file name in the user's temporary folder, unique to this process, deleted
// (if it was created) on destruction.
class TempPath {
public:
    explicit TempPath(const std::wstring &suffix);
    ~TempPath();
    TempPath(const TempPath &) = delete;
    TempPath &operator=(const TempPath &) = delete;
    const std::wstring &Path() const { return path_; }

private:
    std::wstring path_;
};

// True when every byte is zero (true for an empty range). Compares the range
// with itself shifted by one, which runs at memcmp's speed, not a byte loop's.
bool AllZero(const uint8_t *data, size_t length);

bool PathExists(const std::wstring &path);
void DeleteIfExists(const std::wstring &path);
void CreateFolders(const std::wstring &folder);
// Copies the library from to `to` unless a copy that looks the same (size and
// time) is there already: another run of the program may have it loaded, and
// a loaded DLL cannot be replaced. A different file that cannot be replaced is
// a Failure, never loaded in the copy's place.
void CopyLibraryIfChanged(const std::wstring &from, const std::wstring &to);
// Deletes a folder and everything under it; a missing folder is fine.
void DeleteTree(const std::wstring &folder);
std::wstring FullPath(const std::wstring &path);
// The folder of the running program, with a trailing backslash.
std::wstring ExeFolder();
// True for "memdisk://..." and other URL-like disk names, which are not files.
bool IsUrlPath(const std::wstring &path);

}  // namespace dbtool
