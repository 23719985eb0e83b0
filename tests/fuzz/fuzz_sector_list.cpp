// libFuzzer target: the plain DiskChangeInfo scan. The input is the file.
// - The scan must take exactly what a reference takes that first cuts the
//   text into tags and whitespace and then checks the tags' sequence, and
//   give the same runs and extent count; what it refuses leaves its outputs
//   as they were.
#include <string>
#include <utility>
#include <vector>

#include "fuzz_target.h"
#include "sector_listscan.h"

namespace {

using fuzzref::SameRuns;
using sectormgr::SectorRun;
using sectormgr::SectorRuns;

struct Tag {
    bool end = false, empty = false;
    std::string name;
    std::vector<std::pair<std::string, std::string>> attributes;
};

bool Space(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

bool Letters(const std::string &text) {
    if (text.empty()) return false;
    for (char c : text)
        if (!((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'))) return false;
    return true;
}

// " name = 'value'" pairs, each after at least one blank; blanks may end it.
bool Attributes(const std::string &text, size_t i, Tag &tag) {
    for (;;) {
        const size_t blanks = i;
        while (i < text.size() && Space(text[i])) ++i;
        if (i == text.size()) return true;
        if (i == blanks) return false;
        const size_t eq = text.find('=', i);
        if (eq == std::string::npos) return false;
        size_t nameEnd = eq;
        while (nameEnd > i && Space(text[nameEnd - 1])) --nameEnd;
        size_t q = eq + 1;
        while (q < text.size() && Space(text[q])) ++q;
        if (q == text.size() || (text[q] != '"' && text[q] != '\'')) return false;
        const size_t close = text.find(text[q], q + 1);
        if (close == std::string::npos || !Letters(text.substr(i, nameEnd - i))) return false;
        tag.attributes.push_back({text.substr(i, nameEnd - i), text.substr(q + 1, close - q - 1)});
        i = close + 1;
    }
}

// The inside of "<...>".
bool ParseTag(std::string inner, Tag &tag) {
    tag.end = !inner.empty() && inner[0] == '/';
    tag.empty = !tag.end && !inner.empty() && inner.back() == '/';
    if (tag.end) inner.erase(0, 1);
    if (tag.empty) inner.pop_back();
    size_t i = 0;
    while (i < inner.size() && !Space(inner[i])) ++i;
    tag.name = inner.substr(0, i);
    if (!Letters(tag.name)) return false;
    if (tag.end) return inner.find_first_not_of(" \t\r\n", i) == std::string::npos;
    return Attributes(inner, i, tag);
}

bool Number(const std::string &text, uint64_t &value) {
    size_t i = 0;
    return fuzzref::Decimal(text, i, value) && i == text.size();
}

std::string Lower(std::string text) {
    for (char &c : text)
        if (c >= 'A' && c <= 'Z') c = char(c - 'A' + 'a');
    return text;
}

bool Declaration(const std::string &inner) {
    Tag decl;
    if (!Attributes(inner, 0, decl) || decl.attributes.empty()) return false;
    const auto &a = decl.attributes;
    size_t i = 0;
    auto take = [&](const char *name) { return i < a.size() && a[i].first == name ? &a[i++].second : nullptr; };
    const std::string *version = take("version"), *encoding = take("encoding"), *standalone = take("standalone");
    return i == a.size() && version && *version == "1.0" && (!encoding || Lower(*encoding) == "utf-8") &&
           (!standalone || *standalone == "yes" || *standalone == "no");
}

// Each of names once at most, all decimal; with all: every one of them.
bool Numbers(const Tag &tag, const std::vector<std::string> &names, bool all, std::vector<uint64_t> &values) {
    values.assign(names.size(), 0);
    std::vector<bool> seen(names.size());
    for (const auto &attribute : tag.attributes) {
        size_t n = 0;
        while (n < names.size() && names[n] != attribute.first) ++n;
        if (n == names.size() || seen[n] || !Number(attribute.second, values[n])) return false;
        seen[n] = true;
    }
    for (bool s : seen)
        if (all && !s) return false;
    return true;
}

bool Reference(std::string text, SectorRuns &runs, uint64_t &extents) {
    if (text.compare(0, 3, "\xEF\xBB\xBF") == 0) text.erase(0, 3);
    size_t i = 0;
    if (text.compare(0, 5, "<?xml") == 0) {
        const size_t close = text.find("?>");
        if (close == std::string::npos || !Declaration(text.substr(5, close - 5))) return false;
        i = close + 2;
    } else if (!text.empty() && Space(text[0])) {
        return false;  // Wine's XmlLite finds no root after them
    }
    std::vector<Tag> tags;
    for (;;) {
        while (i < text.size() && Space(text[i])) ++i;
        if (i == text.size()) break;
        const size_t close = text.find('>', i);
        Tag tag;
        if (text[i] != '<' || close == std::string::npos || !ParseTag(text.substr(i + 1, close - i - 1), tag))
            return false;
        tags.push_back(tag);
        i = close + 1;
    }
    // The sequence: root, areas (empty, or extents and an end), root's end.
    size_t t = 0;
    auto is = [&](const char *name, bool end) {
        return t < tags.size() && tags[t].name == name && tags[t].end == end;
    };
    if (!is("DiskChangeInfo", false) || !tags[t].attributes.empty()) return false;
    std::vector<uint64_t> values;
    if (!tags[t++].empty) {
        for (; is("area", false); ++t) {
            if (!Numbers(tags[t], {"startoffset", "startlength"}, false, values)) return false;
            if (tags[t].empty) continue;
            for (++t; is("extent", false); ++t) {
                if (!tags[t].empty || !Numbers(tags[t], {"offset", "length"}, true, values)) return false;
                ++extents;
                const unsigned __int128 first = values[0] / 512, count = values[1] / 512;
                if (count == 0) continue;
                if ((first + count) * 512 > UINT64_MAX) return false;  // the end itself must be a 64-bit number
                runs.push_back({uint64_t(first), uint64_t(first + count - 1)});
            }
            if (!is("area", true)) return false;
        }
        if (!is("DiskChangeInfo", true)) return false;
        ++t;
    }
    return t == tags.size();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    SectorRuns expected;
    uint64_t expectedExtents = 0;
    const bool plain = Reference(text, expected, expectedExtents);

    // Outputs that hold something already: kept on refusal, appended to otherwise.
    SectorRuns runs = {{7, 9}};
    uint64_t extents = 12345;
    const bool taken = sectormgr::ScanPlainChangeList(text.data(), text.data() + text.size(), runs, extents);
    if (taken != plain) abort();
    if (!taken) {
        if (!SameRuns(runs, {{7, 9}}) || extents != 12345) abort();
        return 0;
    }
    expected.insert(expected.begin(), SectorRun{7, 9});
    if (!SameRuns(runs, expected) || extents != expectedExtents) abort();
    return 0;
}
