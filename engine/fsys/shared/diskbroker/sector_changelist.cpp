// Reading a DiskChangeInfo list into sector runs, writing an answer list.
#include "sector_changelist.h"

#include <charconv>
#include <string>

#include <skclass_mini/handles.h>
#include <skstdutl/sklog.h>
#include <skxml/xmlreader.h>

namespace sectormgr {

namespace {

constexpr uint64_t kSectorBytes = 512;
constexpr size_t kWriteChunkBytes = 1 << 20;

// The extent under the cursor, or false (logged) when it is not usable.
bool TakeExtent(const CXmlReader &reader, const std::wstring &path, uint64_t index, SectorRunSet &asked) {
    uint64_t offset = 0, length = 0;
    if (!reader.GetAttributeUInt64(L"offset", offset) || !reader.GetAttributeUInt64(L"length", length)) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0,
                     L"DataSetSectorManager: extent %I64u of '%s' has no decimal \"offset\" and \"length\"", index,
                     path.c_str());
        return false;
    }
    const uint64_t first = offset / kSectorBytes, count = length / kSectorBytes;
    if (count == 0) return true;  // less than a sector: the read cache reads nothing either
    if (count * kSectorBytes > UINT64_MAX - first * kSectorBytes) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"DataSetSectorManager: extent %I64u of '%s' ends past 2^64 bytes", index,
                     path.c_str());
        return false;
    }
    asked.Add(SectorRun{first, first + count - 1});
    return true;
}

void AppendNumber(std::string &text, uint64_t value) {
    char buffer[24];
    text.append(buffer, static_cast<size_t>(std::to_chars(buffer, buffer + sizeof buffer, value).ptr - buffer));
}

bool WriteText(HANDLE file, std::string &text) {
    DWORD written = 0;
    const bool ok = WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr) &&
                    written == text.size();
    text.clear();
    return ok;
}

}  // namespace

bool ReadChangeList(const std::wstring &path, SectorRunSet &asked, uint64_t &extents) {
    CXmlReader reader;
    if (!reader.LoadFile(path.c_str())) {  // says why: cannot open, or where the XML breaks
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"DataSetSectorManager: cannot load the change list '%s': %s", path.c_str(),
                     reader.ErrorText().c_str());
        return false;
    }
    if (!reader.SelectSingleNode(L"DiskChangeInfo")) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"DataSetSectorManager: the change list '%s' has no DiskChangeInfo element",
                     path.c_str());
        return false;
    }
    extents = 0;
    if (!reader.SelectFirstChild()) return true;
    do {  // each area; its children are the extents
        if (!reader.SelectFirstChild()) continue;
        do {
            if (!TakeExtent(reader, path, ++extents, asked)) return false;
        } while (reader.SelectNextSibling());
        reader.SelectParent();
    } while (reader.SelectNextSibling());
    return true;
}

bool WriteChangeList(const std::wstring &path, const SectorRuns &runs) {
    skclass::UniqueFile file(
        CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"DataSetSectorManager: cannot create the answer '%s', error %u", path.c_str(),
                     static_cast<unsigned>(GetLastError()));
        return false;
    }
    // No blanks between elements: every child the read cache visits is an element.
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<DiskChangeInfo>";
    bool ok = true;
    if (!runs.empty()) {
        const uint64_t start = runs.front().first * kSectorBytes;
        text += "<area startoffset=\"";
        AppendNumber(text, start);
        text += "\" startlength=\"";
        AppendNumber(text, (runs.back().last + 1) * kSectorBytes - start);
        text += "\">";
    }
    for (const SectorRun &run : runs) {
        text += "<extent offset=\"";
        AppendNumber(text, run.first * kSectorBytes);
        text += "\" length=\"";
        AppendNumber(text, (run.last - run.first + 1) * kSectorBytes);
        text += "\"/>";
        if (text.size() >= kWriteChunkBytes) ok = ok && WriteText(file.get(), text);
    }
    if (!runs.empty()) text += "</area>";
    text += "</DiskChangeInfo>\r\n";
    if (!ok || !WriteText(file.get(), text)) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"DataSetSectorManager: cannot write the answer '%s', error %u", path.c_str(),
                     static_cast<unsigned>(GetLastError()));
        file.reset();
        DeleteFileW(path.c_str());  // half an answer must not be taken for one
        return false;
    }
    return true;
}

}  // namespace sectormgr
