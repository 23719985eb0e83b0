#include "target_mark.h"

#include <algorithm>

#include "console.h"

namespace dbtool {

const char kRestoreMarkKey[] = "diskbroker.restore";

namespace {

// "<state> <created|existing> <sha256>"
std::string Text(const TargetMark &mark) {
    const char *state = mark.state == TargetMark::State::Complete ? "complete" : "incomplete";
    return std::string(state) + (mark.created ? " created " : " existing ") + Utf8(mark.streamSha256);
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

}  // namespace dbtool
