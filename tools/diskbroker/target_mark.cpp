#include "target_mark.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "console.h"
#include "errors.h"
#include "files.h"

namespace dbtool {

const char kRestoreMarkKey[] = "diskbroker.restore";

namespace {

// "<state> <created|existing> <sha256>"
std::string Text(const TargetMark &mark) {
    const char *state = mark.state == TargetMark::State::Complete ? "complete" : "incomplete";
    return std::string(state) + (mark.created ? " created " : " existing ") + Utf8(mark.streamSha256);
}

// The metadata export: key, NUL, value, NUL, ... as the read cache writes it.
std::vector<std::pair<std::string, std::string>> ParseMetadata(const std::string &bytes) {
    std::vector<std::string> parts;
    size_t start = 0;
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (bytes[i] != '\0') continue;
        parts.push_back(bytes.substr(start, i - start));
        start = i + 1;
    }
    std::vector<std::pair<std::string, std::string>> pairs;
    for (size_t i = 0; i + 1 < parts.size(); i += 2) pairs.emplace_back(parts[i], parts[i + 1]);
    return pairs;
}

}  // namespace

TargetMark TargetMark::Read(Disk &disk) {
    TargetMark mark;
    const std::vector<std::string> keys = disk.MetadataKeys();
    if (std::find(keys.begin(), keys.end(), kRestoreMarkKey) == keys.end()) return mark;
    const std::string text = disk.ReadMetadata(kRestoreMarkKey);
    const size_t first = text.find(' '), second = first == std::string::npos ? first : text.find(' ', first + 1);
    const std::string state = text.substr(0, first);
    // Anything but a clean "complete" counts as incomplete: a mangled mark
    // must not make a disk look good.
    mark.state = state == "complete" ? State::Complete : State::Incomplete;
    if (second != std::string::npos) {
        mark.created = text.compare(first + 1, second - first - 1, "created") == 0;
        mark.streamSha256 = Wide(text.substr(second + 1));
    }
    return mark;
}

void TargetMark::Write(Disk &disk) const { disk.WriteMetadata(kRestoreMarkKey, Text(*this)); }

std::wstring TargetMark::Describe() const {
    switch (state) {
    case State::None: return std::wstring();
    case State::Complete: return L"complete";
    default: return L"INCOMPLETE: a restore into this disk did not finish; do not use it";
    }
}

TargetMark MarkIncomplete(Disk &disk, const std::wstring &streamSha256, bool created) {
    const TargetMark earlier = TargetMark::Read(disk);
    TargetMark mark;
    mark.created = created || (earlier.state == TargetMark::State::Incomplete && earlier.created &&
                               earlier.streamSha256 == streamSha256);
    mark.state = TargetMark::State::Incomplete;
    mark.streamSha256 = streamSha256;
    mark.Write(disk);
    return mark;
}

void RestoreMetadata(Disk &disk, const std::wstring &metadataPath) {
    if (!PathExists(metadataPath))
        throw Failure(L"the metadata export '" + metadataPath + L"' is missing (or use --no-metadata)");
    for (const auto &entry : ParseMetadata(ReadWholeFile(metadataPath)))
        if (entry.first != kRestoreMarkKey) disk.WriteMetadata(entry.first, entry.second);
}

void MarkComplete(Job &job, const std::wstring &target, TargetMark mark) {
    Disk disk(job.Broker(), job.Link(), target, Disk::Mode::Write);
    mark.state = TargetMark::State::Complete;
    mark.Write(disk);
    disk.Close();
}

}  // namespace dbtool
