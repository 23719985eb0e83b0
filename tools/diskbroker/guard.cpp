#include "guard.h"

#include <string.h>

#include <skclass_mini/handles.h>

#include "console.h"
#include "errors.h"
#include "files.h"

namespace dbtool {
namespace {

// Deeper chains than this are not made by VMware; a loop of hints ends here.
constexpr int kMaxChainDepth = 64;
// A descriptor, embedded or not, is a few KiB; reading more only costs time.
constexpr size_t kMaxDescriptorBytes = 1u << 20;

struct FileIdentity {
    DWORD volume = 0, high = 0, low = 0;
    bool operator==(const FileIdentity &o) const { return volume == o.volume && high == o.high && low == o.low; }
};

bool IdentityOf(const std::wstring &path, FileIdentity *id) {
    // No access rights asked: identity only, and it works on files others hold open.
    skclass::UniqueFile file(CreateFileW(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                         nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    BY_HANDLE_FILE_INFORMATION info{};
    if (!file || !GetFileInformationByHandle(file.get(), &info)) return false;
    *id = {info.dwVolumeSerialNumber, info.nFileIndexHigh, info.nFileIndexLow};
    return true;
}

std::string ReadPrefix(const std::wstring &path, uint64_t offset, size_t length) {
    skclass::UniqueFile file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                         OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    std::string bytes(length, '\0');
    OVERLAPPED where{};
    where.Offset = static_cast<DWORD>(offset);
    where.OffsetHigh = static_cast<DWORD>(offset >> 32);
    DWORD read = 0;
    if (!file || !ReadFile(file.get(), &bytes[0], static_cast<DWORD>(length), &read, &where)) return std::string();
    bytes.resize(read);
    return bytes;
}

uint64_t Le64(const std::string &bytes, size_t at) {
    uint64_t value = 0;
    for (size_t i = 0; i < 8; ++i) value |= static_cast<uint64_t>(static_cast<uint8_t>(bytes[at + i])) << (8 * i);
    return value;
}

// The descriptor text of a .vmdk: the file itself, or the one embedded in a
// hosted sparse file (whose header gives its place in sectors).
std::string DescriptorText(const std::wstring &path) {
    const std::string head = ReadPrefix(path, 0, 4096);
    if (head.size() >= 44 && head.compare(0, 4, "KDMV") == 0) {
        const uint64_t offset = Le64(head, 28), size = Le64(head, 36);
        if (offset == 0 || size == 0 || size > kMaxDescriptorBytes / 512) return std::string();
        return ReadPrefix(path, offset * 512, static_cast<size_t>(size * 512));
    }
    if (head.find("DescriptorFile") == std::string::npos && head.find("createType") == std::string::npos)
        return std::string();
    return ReadPrefix(path, 0, kMaxDescriptorBytes);
}

std::wstring Beside(const std::wstring &descriptor, const std::string &name) {
    const std::wstring wide = Wide(name);
    const bool absolute = wide.size() > 1 && (wide[1] == L':' || wide[0] == L'\\' || wide[0] == L'/');
    return absolute ? wide : descriptor.substr(0, descriptor.find_last_of(L"\\/") + 1) + wide;
}

// The first quoted text of a line, or "" when there is none.
std::string Quoted(const std::string &line, size_t from) {
    const size_t open = line.find('"', from);
    const size_t close = open == std::string::npos ? open : line.find('"', open + 1);
    return close == std::string::npos ? std::string() : line.substr(open + 1, close - open - 1);
}

void Collect(const std::wstring &path, int depth, std::vector<std::wstring> &files) {
    files.push_back(path);
    if (depth >= kMaxChainDepth) return;
    const std::string text = DescriptorText(path);
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find_first_of("\r\n", start);
        if (end == std::string::npos) end = text.size();
        const std::string line = text.substr(start, end - start);
        start = end + 1;
        if (line.compare(0, 3, "RW ") == 0 || line.compare(0, 7, "RDONLY ") == 0 || line.compare(0, 9, "NOACCESS ") == 0) {
            const std::string name = Quoted(line, 0);
            if (!name.empty()) files.push_back(Beside(path, name));
        } else if (line.compare(0, 18, "parentFileNameHint") == 0) {
            const std::string parent = Quoted(line, 18);
            if (!parent.empty()) Collect(Beside(path, parent), depth + 1, files);
        }
    }
}

}  // namespace

std::vector<std::wstring> DiskFiles(const std::wstring &diskPath) {
    std::vector<std::wstring> files;
    if (!IsUrlPath(diskPath)) Collect(diskPath, 0, files);
    return files;
}

bool SameFile(const std::wstring &a, const std::wstring &b) {
    FileIdentity first, second;
    return IdentityOf(a, &first) && IdentityOf(b, &second) && first == second;
}

void ProtectedFiles::Add(const std::wstring &path, const std::wstring &role) {
    if (!path.empty() && !IsUrlPath(path)) inputs_.push_back({path, role});
}

void ProtectedFiles::AddDisk(const std::wstring &diskPath, const std::wstring &role) {
    for (const std::wstring &file : DiskFiles(diskPath)) Add(file, role);
}

void ProtectedFiles::CheckOutput(const std::wstring &output) const {
    FileIdentity out;
    if (IsUrlPath(output) || !IdentityOf(output, &out)) return;  // a new file cannot be an input
    for (const Input &input : inputs_) {
        FileIdentity in;
        if (IdentityOf(input.path, &in) && in == out)
            throw Failure(L"refusing to write '" + output + L"': it is " + input.role + L" '" + input.path +
                          L"' (the same file); nothing was deleted or written");
    }
}

}  // namespace dbtool
