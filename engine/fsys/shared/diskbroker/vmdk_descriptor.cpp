#include "vmdk_descriptor.h"

#include <string.h>

namespace vmdkdesc {
namespace {

uint64_t LittleEndian64(const uint8_t *bytes) {
    uint64_t value = 0;
    for (int i = 7; i >= 0; --i) value = (value << 8) | bytes[i];
    return value;
}

bool Contains(const std::string &line, const char *key) { return line.find(key) != std::string::npos; }

}  // namespace

Area AreaFromHeader(const uint8_t (&header)[kHeaderSize]) {
    Area area;
    area.offsetSectors = LittleEndian64(header + 28);
    area.sizeSectors = LittleEndian64(header + 36);
    return area;
}

bool AreaInFile(const Area &area, uint64_t fileSize, uint64_t &offset, size_t &size, std::string &error) {
    const uint64_t maxSectors = fileSize / kSectorSize;
    // Compared in sectors first, so that no product below can overflow.
    if (area.offsetSectors > maxSectors || area.sizeSectors > maxSectors - area.offsetSectors) {
        error = "descriptor area lies outside the file";
        return false;
    }
    if (area.sizeSectors == 0) {
        error = "descriptor area is empty";
        return false;
    }
    if (area.sizeSectors > kMaxAreaBytes / kSectorSize) {
        error = "descriptor area larger than 64 MiB";
        return false;
    }
    offset = area.offsetSectors * kSectorSize;
    size = static_cast<size_t>(area.sizeSectors * kSectorSize);
    return true;
}

LineReader::Step LineReader::Next(std::string &line, std::string &error) {
    line.clear();
    if (at_ >= size_) {
        error = "descriptor has no terminating NUL";
        return Step::Error;
    }
    if (data_[at_] == '\0') return Step::End;
    const size_t start = at_;
    while (at_ < size_ && data_[at_] != '\n' && data_[at_] != '\0') {
        if (at_ - start + 1 >= kLineLimit) {
            error = "descriptor line of 1024 bytes or more";
            return Step::Error;
        }
        ++at_;
    }
    if (at_ >= size_) {
        error = "descriptor has no terminating NUL";
        return Step::Error;
    }
    line.assign(data_ + start, at_ - start);
    if (data_[at_] == '\n') ++at_;  // a NUL stays: it ends the text
    return Step::Line;
}

bool IsNoCid(const std::string &value) {
    if (value.size() < 8) return false;
    for (size_t i = 0; i < 8; ++i) {
        const char c = value[i];
        if (c != 'f' && c != 'F') return false;
    }
    return true;
}

std::string CidValue(const std::string &line) {
    const size_t equals = line.find('=');
    return equals == std::string::npos ? std::string() : line.substr(equals + 1, 8);
}

bool ReadParentHint(const char *data, size_t size, std::string &hint, std::string &error) {
    hint.clear();
    LineReader reader(data, size);
    std::string line;
    for (;;) {
        const LineReader::Step step = reader.Next(line, error);
        if (step == LineReader::Step::Error) return false;
        if (step == LineReader::Step::End) return true;
        if (Contains(line, "parentFileNameHint")) break;
        if (Contains(line, "parentCID") && IsNoCid(CidValue(line))) return true;
    }
    const size_t equals = line.find('=');
    std::string value = line.substr(equals + 1);
    if (!value.empty() && value.front() == '"') value.erase(0, 1);
    const size_t lineEnd = value.find_first_of("\r\n");
    if (lineEnd != std::string::npos) value.erase(lineEnd);
    if (!value.empty() && value.back() == '"') value.pop_back();
    hint = value;
    return true;
}

bool ReadCid(const char *data, size_t size, std::string &cid, std::string &error) {
    cid = kNoCid;
    LineReader reader(data, size);
    std::string line;
    for (;;) {
        const LineReader::Step step = reader.Next(line, error);
        if (step == LineReader::Step::Error) return false;
        if (step == LineReader::Step::End) return true;
        // "CID" comes before "parentCID" in every descriptor, so the first hit is
        // the disk's own.
        if (Contains(line, "CID")) {
            cid = CidValue(line);
            return true;
        }
    }
}

bool RewriteParentLink(const char *data, size_t size, const std::string &cid, const std::string &parentPath,
                       std::vector<char> &out, std::string &error) {
    const std::string hintLine = "parentFileNameHint=\"" + parentPath + "\"\n";
    std::string text;
    LineReader reader(data, size);
    std::string line;
    for (;;) {
        const LineReader::Step step = reader.Next(line, error);
        if (step == LineReader::Step::Error) return false;
        if (step == LineReader::Step::End) break;
        if (Contains(line, "parentCID")) {
            text += "parentCID=" + cid + "\n" + hintLine;
        } else if (!Contains(line, "parentFileNameHint")) {
            text += line + "\n";
        }
    }
    if (text.size() >= size) {
        error = "rewritten descriptor does not fit in its area";
        return false;
    }
    std::vector<char> rewritten(size, '\0');
    memcpy(rewritten.data(), text.data(), text.size());
    out.swap(rewritten);
    return true;
}

std::wstring DiskBaseName(const std::wstring &path) {
    const size_t slash = path.rfind(L'\\');
    std::wstring name = slash == std::wstring::npos ? path : path.substr(slash + 1);
    const size_t dot = name.rfind(L'.');
    if (dot != std::wstring::npos) name.erase(dot);
    const size_t dash = name.rfind(L'-');
    if (dash != std::wstring::npos && name.size() - dash == 7) name.erase(dash);
    return name;
}

}  // namespace vmdkdesc
