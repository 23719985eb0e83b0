// Reading a DiskChangeInfo list into sector runs, writing an answer list.
#include "sector_changelist.h"

#include <string.h>

#include <charconv>
#include <memory>
#include <new>
#include <string>

#include <skclass_mini/handles.h>
#include <skstdutl/sklog.h>
#include <skxml/xmlreader.h>

#include "sector_listscan.h"

namespace sectormgr {

namespace {

constexpr uint64_t kSectorBytes = 512;

// The extent under the cursor, or false (logged) when it is not usable.
bool TakeExtent(const CXmlReader &reader, const std::wstring &path, uint64_t index, SectorRuns &asked) {
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
    asked.push_back(SectorRun{first, first + count - 1});
    return true;
}

// Text handed to a file in large pieces: an answer of millions of extents
// costs a few dozen WriteFile calls. The first failure sticks.
class BufferedWriter {
public:
    explicit BufferedWriter(HANDLE file) : file_(file), buffer_(new char[kBytes]) {}

    void Put(const char *text, size_t length) {
        if (used_ + length > kBytes) Flush();
        memcpy(buffer_.get() + used_, text, length);  // every piece is far shorter than the buffer
        used_ += length;
    }
    template <size_t N>
    void Put(const char (&text)[N]) {
        Put(text, N - 1);
    }
    void PutNumber(uint64_t value) {
        char digits[24];
        Put(digits, static_cast<size_t>(std::to_chars(digits, digits + sizeof digits, value).ptr - digits));
    }
    // False when any write failed.
    bool Flush() {
        DWORD written = 0;
        if (ok_ && used_ > 0)
            ok_ = WriteFile(file_, buffer_.get(), static_cast<DWORD>(used_), &written, nullptr) && written == used_;
        used_ = 0;
        return ok_;
    }

private:
    static constexpr size_t kBytes = 1 << 20;
    HANDLE file_;
    std::unique_ptr<char[]> buffer_;
    size_t used_ = 0;
    bool ok_ = true;
};

// loaded, logged when false: the reader says why (cannot open, or where the XML breaks).
bool Loaded(bool loaded, const std::wstring &path, const CXmlReader &reader) {
    if (!loaded)
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"DataSetSectorManager: cannot load the change list '%s': %s", path.c_str(),
                     reader.ErrorText().c_str());
    return loaded;
}

void PutRuns(BufferedWriter &out, const SectorRuns &runs) {
    // No blanks between elements: every child the read cache visits is an element.
    out.Put("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<DiskChangeInfo>");
    if (!runs.empty()) {
        const uint64_t start = runs.front().first * kSectorBytes;
        out.Put("<area startoffset=\"");
        out.PutNumber(start);
        out.Put("\" startlength=\"");
        out.PutNumber((runs.back().last + 1) * kSectorBytes - start);
        out.Put("\">");
    }
    for (const SectorRun &run : runs) {
        out.Put("<extent offset=\"");
        out.PutNumber(run.first * kSectorBytes);
        out.Put("\" length=\"");
        out.PutNumber((run.last - run.first + 1) * kSectorBytes);
        out.Put("\"/>");
    }
    if (!runs.empty()) out.Put("</area>");
    out.Put("</DiskChangeInfo>\r\n");
}

}  // namespace

bool LoadChangeList(const std::wstring &path, CXmlReader &reader) {
    return Loaded(reader.LoadFile(path.c_str()), path, reader);
}

bool ChangeListRuns(CXmlReader &reader, const std::wstring &path, SectorRuns &asked, uint64_t &extents) {
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

bool ScanChangeListFile(void *file, SectorRuns &asked, uint64_t &extents) {
    LARGE_INTEGER size = {};
    // Past this size XmlLite's own limits (32-bit offsets into its text) may
    // refuse what the scan would take; it decides alone there.
    if (GetFileType(file) != FILE_TYPE_DISK || !GetFileSizeEx(file, &size) || size.QuadPart < 0 ||
        static_cast<uint64_t>(size.QuadPart) > kPlainListBytes)
        return false;
    const size_t bytes = static_cast<size_t>(size.QuadPart);
    std::unique_ptr<char[]> text(new (std::nothrow) char[bytes + 1]);
    size_t got = 0;
    DWORD read = 0;
    // One byte more than the size asked for: a file that grew meanwhile is not taken whole.
    while (text && got <= bytes &&
           ReadFile(file, text.get() + got, static_cast<DWORD>(bytes + 1 - got), &read, nullptr) && read > 0)
        got += read;
    if (text && got == bytes && ScanPlainChangeList(text.get(), text.get() + bytes, asked, extents)) return true;
    const LARGE_INTEGER start = {};
    SetFilePointerEx(file, start, nullptr, FILE_BEGIN);  // never fails on a disk file
    return false;
}

bool ReadChangeList(const std::wstring &path, SectorRunSet &asked, uint64_t &extents) {
    SectorRuns runs;
    CXmlReader reader;
    skclass::UniqueFile file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                         FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    const bool scanned = file && ScanChangeListFile(file.get(), runs, extents);
    // Not open: XmlLite's path tries again and says why it cannot.
    if (!scanned && (!Loaded(file ? reader.LoadOpenFile(file.get()) : reader.LoadFile(path.c_str()), path, reader) ||
                     !ChangeListRuns(reader, path, runs, extents)))
        return false;
    asked.Add(std::move(runs));
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
    BufferedWriter out(file.get());
    PutRuns(out, runs);
    if (!out.Flush()) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"DataSetSectorManager: cannot write the answer '%s', error %u", path.c_str(),
                     static_cast<unsigned>(GetLastError()));
        file.reset();
        DeleteFileW(path.c_str());  // half an answer must not be taken for one
        return false;
    }
    return true;
}

}  // namespace sectormgr
