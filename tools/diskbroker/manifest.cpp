#include "manifest.h"

#include <sstream>

#include "console.h"
#include "errors.h"
#include "files.h"

namespace dbtool {
namespace {

constexpr char kMagic[] = "diskbroker-manifest";
constexpr int kVersion = 1;

bool IsDigest(const std::string &text) {
    if (text.size() != 64) return false;
    for (char c : text)
        if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'))) return false;
    return true;
}

bool ParseNumber(const std::string &text, uint64_t &value) {
    if (text.empty() || text.size() > 20) return false;
    value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return false;
        const uint64_t next = value * 10 + static_cast<uint64_t>(c - '0');
        if (next / 10 != value) return false;
        value = next;
    }
    return true;
}

class LineParser {
public:
    LineParser(const std::wstring &origin) : origin_(origin) {}
    [[noreturn]] void Fail(size_t line, const std::wstring &why) const {
        throw Failure(L"manifest '" + origin_ + L"' line " + std::to_wstring(line) + L": " + why);
    }
    uint64_t Number(size_t line, const std::string &text, const wchar_t *what) const {
        uint64_t value = 0;
        if (!ParseNumber(text, value)) Fail(line, std::wstring(L"bad ") + what + L" '" + Wide(text) + L"'");
        return value;
    }
    std::wstring Digest(size_t line, const std::string &text) const {
        if (!IsDigest(text)) Fail(line, L"bad SHA-256 '" + Wide(text) + L"'");
        return Wide(text);
    }

private:
    std::wstring origin_;
};

void CheckExtents(const Manifest &m, const LineParser &p, size_t lastLine) {
    for (size_t i = 0; i < m.extents.size(); ++i) {
        const Extent &e = m.extents[i].range;
        if (e.offset % kSectorSize || e.length % kSectorSize || e.length == 0)
            p.Fail(lastLine, L"extent " + std::to_wstring(i + 1) + L" is not a non-empty run of whole sectors");
        if (e.End() > m.capacity || e.End() < e.offset)
            p.Fail(lastLine, L"extent " + std::to_wstring(i + 1) + L" reaches past the capacity");
    }
    if (Normalized(m.Ranges()).size() != m.extents.size() || TotalBytes(Normalized(m.Ranges())) != m.StreamBytes())
        p.Fail(lastLine, L"extents overlap or touch: a backup writes them merged");
}

}  // namespace

ExtentList Manifest::Ranges() const {
    ExtentList ranges;
    for (const ManifestExtent &e : extents) ranges.push_back(e.range);
    return ranges;
}

std::string Manifest::Serialize() const {
    std::string text = std::string(kMagic) + " " + std::to_string(kVersion) + "\n";
    text += "source " + Utf8(source) + "\n";
    text += "capacity " + std::to_string(capacity) + "\n";
    text += "metadata " + Utf8(metadataFile) + "\n";
    for (const ManifestExtent &e : extents)
        text += "extent " + std::to_string(e.range.offset) + " " + std::to_string(e.range.length) + " " +
                Utf8(e.sha256) + "\n";
    text += "stream " + Utf8(streamSha256) + "\n";
    return text;
}

Manifest Manifest::Parse(const std::string &text, const std::wstring &origin) {
    LineParser p(origin);
    Manifest m;
    std::istringstream in(text);
    std::string line;
    size_t number = 0;
    bool sawMagic = false, sawCapacity = false, sawStream = false;
    while (std::getline(in, line)) {
        ++number;
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.empty()) continue;
        const size_t space = line.find(' ');
        const std::string key = line.substr(0, space);
        const std::string rest = space == std::string::npos ? std::string() : line.substr(space + 1);
        if (!sawMagic) {
            if (key != kMagic) p.Fail(number, L"not a diskbroker manifest");
            if (rest != std::to_string(kVersion)) p.Fail(number, L"unsupported version '" + Wide(rest) + L"'");
            sawMagic = true;
        } else if (key == "source") {
            m.source = Wide(rest);
        } else if (key == "capacity") {
            m.capacity = p.Number(number, rest, L"capacity");
            sawCapacity = true;
        } else if (key == "metadata") {
            // A name beside the image, as backup writes it; a path would make
            // restore copy any file's contents into the target's metadata.
            if (rest.empty() || rest.find_first_of("\\/:") != std::string::npos || rest == "." || rest == "..")
                p.Fail(number, L"the metadata export must be a file name beside the image, not '" + Wide(rest) + L"'");
            m.metadataFile = Wide(rest);
        } else if (key == "extent") {
            std::istringstream fields(rest);
            std::string offset, length, digest, extra;
            fields >> offset >> length >> digest >> extra;
            if (!extra.empty()) p.Fail(number, L"extent line has extra fields");
            m.extents.push_back({{p.Number(number, offset, L"offset"), p.Number(number, length, L"length")},
                                 p.Digest(number, digest)});
        } else if (key == "stream") {
            m.streamSha256 = p.Digest(number, rest);
            sawStream = true;
        } else {
            p.Fail(number, L"unknown key '" + Wide(key) + L"'");
        }
    }
    if (!sawMagic) p.Fail(number, L"empty file");
    if (!sawCapacity) p.Fail(number, L"no capacity line");
    if (!sawStream) p.Fail(number, L"no stream line (was the backup interrupted?)");
    CheckExtents(m, p, number);
    return m;
}

void Manifest::Save(const std::wstring &path) const {
    // Whole or not at all: a run killed while writing must not leave a
    // manifest that a restore could take for a complete backup's.
    const std::wstring partial = path + L".partial";
    WriteWholeFile(partial, Serialize());
    if (!MoveFileExW(partial.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
        ThrowLastError(L"cannot put the manifest in place as '" + path + L"'");
}

Manifest Manifest::Load(const std::wstring &path) {
    if (!PathExists(path)) throw Failure(L"manifest '" + path + L"' does not exist (a backup writes it last, so an interrupted one has none)");
    return Parse(ReadWholeFile(path), path);
}

std::wstring ManifestPathFor(const std::wstring &imagePath) { return imagePath + L".manifest"; }
std::wstring MetadataPathFor(const std::wstring &imagePath) { return imagePath + L".meta"; }
std::wstring ExtentListPathFor(const std::wstring &imagePath) { return imagePath + L".extents.xml"; }

}  // namespace dbtool
