// The files a command reads, so that no output of the command is one of them.
// Paths are compared by file identity (volume serial and file index), which
// sees through other spellings, hard links and short (8.3) names.
#pragma once
#include <string>
#include <vector>

namespace dbtool {

// A disk's own files: the .vmdk named, every extent file its descriptor lists
// (a -flat.vmdk, the -s001.vmdk of a split disk) and, through the parent
// hints, the same for every disk below it in the chain. Files that cannot be
// read are listed but not followed; a URL-like disk name has no files.
std::vector<std::wstring> DiskFiles(const std::wstring &diskPath);

// True when both paths exist and name the same file.
bool SameFile(const std::wstring &a, const std::wstring &b);

class ProtectedFiles {
public:
    // `role` names the input in a refusal: "the source disk", "the change list".
    void Add(const std::wstring &path, const std::wstring &role);
    void AddDisk(const std::wstring &diskPath, const std::wstring &role);
    // Throws Failure naming both files when `output` is one of the inputs;
    // called before anything is deleted or written.
    void CheckOutput(const std::wstring &output) const;

private:
    struct Input {
        std::wstring path, role;
    };
    std::vector<Input> inputs_;
};

}  // namespace dbtool
