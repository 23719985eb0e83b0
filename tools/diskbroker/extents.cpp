#include "extents.h"

#include <algorithm>

#include <skxml/xmlreader.h>

#include "console.h"
#include "errors.h"
#include "files.h"

namespace dbtool {
namespace {

uint64_t Attribute(const CXmlReader &reader, const wchar_t *name, const std::wstring &path, size_t index) {
    uint64_t value = 0;
    if (!reader.GetAttributeUInt64(name, value))
        throw Failure(L"change list '" + path + L"': extent " + std::to_wstring(index + 1) +
                      L" has no decimal \"" + name + L"\" attribute");
    return value;
}

// Reads the extents (the children) of the area under the cursor and leaves
// the cursor on the area again.
void ReadArea(CXmlReader &reader, const std::wstring &path, ExtentList &out, size_t &index) {
    if (!reader.SelectFirstChild()) return;
    do {
        const uint64_t offset = Attribute(reader, L"offset", path, index);
        const uint64_t length = Attribute(reader, L"length", path, index);
        ++index;
        if (length == 0) continue;
        // Outward to whole sectors: the library drops a partial sector, and
        // every byte the list names must reach the image.
        const uint64_t end = offset + length;
        if (end < offset || end > UINT64_MAX - kSectorSize)
            throw Failure(L"change list '" + path + L"': extent " + std::to_wstring(index) + L" ends past 2^64");
        const uint64_t first = offset / kSectorSize * kSectorSize;
        out.push_back({first, (end + kSectorSize - 1) / kSectorSize * kSectorSize - first});
    } while (reader.SelectNextSibling());
    reader.SelectParent();
}

}  // namespace

ExtentList LoadChangeList(const std::wstring &path) {
    if (!PathExists(path)) throw Failure(L"change list '" + path + L"' does not exist");
    CXmlReader reader;
    if (!reader.LoadFile(path.c_str()))
        throw Failure(L"change list '" + path + L"' is not readable XML: " + reader.ErrorText());
    if (!reader.SelectSingleNode(L"DiskChangeInfo"))
        throw Failure(L"change list '" + path + L"' has no DiskChangeInfo element");
    ExtentList extents;
    size_t index = 0;
    if (!reader.SelectFirstChild()) return extents;
    do {
        ReadArea(reader, path, extents, index);
    } while (reader.SelectNextSibling());
    return extents;
}

void SaveChangeList(const std::wstring &path, const ExtentList &extents, uint64_t capacityBytes) {
    std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<DiskChangeInfo><area startoffset=\"0\" startlength=\"" +
                      std::to_string(capacityBytes) + "\">";
    for (const Extent &e : extents)
        xml += "<extent offset=\"" + std::to_string(e.offset) + "\" length=\"" + std::to_string(e.length) + "\"/>";
    xml += "</area></DiskChangeInfo>\n";
    WriteWholeFile(path, xml);
}

ExtentList Normalized(ExtentList extents) {
    extents.erase(std::remove_if(extents.begin(), extents.end(), [](const Extent &e) { return e.length == 0; }),
                  extents.end());
    std::sort(extents.begin(), extents.end(), [](const Extent &a, const Extent &b) { return a.offset < b.offset; });
    ExtentList merged;
    for (const Extent &e : extents) {
        if (!merged.empty() && e.offset <= merged.back().End()) {
            merged.back().length = std::max(merged.back().End(), e.End()) - merged.back().offset;
        } else {
            merged.push_back(e);
        }
    }
    return merged;
}

uint64_t TotalBytes(const ExtentList &extents) {
    uint64_t total = 0;
    for (const Extent &e : extents) total += e.length;
    return total;
}

ExtentList Intersection(const Extent &range, const ExtentList &selection) {
    ExtentList parts;
    for (const Extent &s : selection) {
        if (s.offset >= range.End()) break;
        const uint64_t begin = std::max(s.offset, range.offset);
        const uint64_t end = std::min(s.End(), range.End());
        if (begin < end) parts.push_back({begin, end - begin});
    }
    return parts;
}

bool FirstUncovered(const ExtentList &cover, const ExtentList &wanted, Extent *gap) {
    for (const Extent &w : wanted) {
        uint64_t position = w.offset;
        for (const Extent &c : cover) {
            if (c.offset > position) break;
            if (c.End() > position) position = c.End();
        }
        if (position < w.End()) {
            if (gap) *gap = {position, w.End() - position};
            return true;
        }
    }
    return false;
}

void CheckWithinDisk(const ExtentList &extents, uint64_t capacityBytes, const std::wstring &what) {
    for (const Extent &e : extents) {
        if (e.End() > capacityBytes || e.End() < e.offset)
            throw Failure(what + L": extent at offset " + std::to_wstring(e.offset) + L" (" +
                          std::to_wstring(e.length) + L" bytes) reaches past the end of the disk (" +
                          std::to_wstring(capacityBytes) + L" bytes)");
    }
}

}  // namespace dbtool
