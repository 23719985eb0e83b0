// Loads and walks a 1,000,000-extent DiskChangeInfo file with CXmlReader, and
// makes a bare XmlLite pass over the same file (every element and attribute
// value fetched, nothing kept), then prints both times and their ratio.
// Usage: bench_xml_extents [areas [extents-per-area]]
#include <objidl.h>
#include <windows.h>
#include <xmllite.h>

#include <stdio.h>
#include <stdlib.h>
#include <string>
#include <skxml/xmlreader.h>

namespace {

double Seconds() {
    LARGE_INTEGER now, frequency;
    QueryPerformanceCounter(&now);
    QueryPerformanceFrequency(&frequency);
    return static_cast<double>(now.QuadPart) / static_cast<double>(frequency.QuadPart);
}

bool WriteExtentList(const std::wstring &path, unsigned areas, unsigned extentsPerArea) {
    HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<DiskChangeInfo>\r\n";
    unsigned long long offset = 1048576;
    DWORD written = 0;
    for (unsigned a = 0; a < areas; ++a) {
        char line[160];
        snprintf(line, sizeof line, " <area startoffset=\"%llu\" startlength=\"%llu\">\r\n", offset,
                 static_cast<unsigned long long>(extentsPerArea) * 131072);
        out += line;
        for (unsigned e = 0; e < extentsPerArea; ++e, offset += 131072) {
            snprintf(line, sizeof line, "  <extent offset=\"%llu\" length=\"65536\"/>\r\n", offset);
            out += line;
        }
        out += " </area>\r\n";
        if (out.size() > (1u << 20)) {
            WriteFile(file, out.data(), static_cast<DWORD>(out.size()), &written, nullptr);
            out.clear();
        }
    }
    out += "</DiskChangeInfo>\r\n";
    WriteFile(file, out.data(), static_cast<DWORD>(out.size()), &written, nullptr);
    CloseHandle(file);
    return true;
}

// The read cache's walk: first area, its extents, then the next area.
unsigned long long LoadAndWalk(const std::wstring &path, unsigned long long &sum) {
    CXmlReader reader;
    if (!reader.LoadFile(path.c_str())) {
        fwprintf(stderr, L"load failed: %ls\n", reader.ErrorText().c_str());
        return 0;
    }
    unsigned long long extents = 0;
    if (!reader.SelectSingleNode(L"DiskChangeInfo") || !reader.SelectFirstChild()) return 0;
    do {
        uint64_t start = 0, length = 0;
        reader.GetAttributeUInt64(L"startoffset", start);
        reader.GetAttributeUInt64(L"startlength", length);
        if (!reader.SelectFirstChild()) continue;
        do {
            uint64_t offset = 0;
            reader.GetAttributeUInt64(L"offset", offset);
            reader.GetAttributeUInt64(L"length", length);
            sum += offset / 512 + length / 512;
            ++extents;
        } while (reader.SelectNextSibling());
        reader.SelectParent();
    } while (reader.SelectNextSibling());
    return extents;
}

class FileStream : public ISequentialStream {
public:
    explicit FileStream(HANDLE file) : file_(file) {}
    virtual ~FileStream() = default;
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void **object) override {
        if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_ISequentialStream)) {
            *object = this;
            return S_OK;
        }
        *object = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE Read(void *buffer, ULONG wanted, ULONG *got) override {
        DWORD count = 0;
        if (!ReadFile(file_, buffer, wanted, &count, nullptr)) return E_FAIL;
        if (got != nullptr) *got = count;
        return count == wanted ? S_OK : S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE Write(const void *, ULONG, ULONG *) override { return E_NOTIMPL; }

private:
    HANDLE file_;
};

// Every element's name and every attribute's name and value, as a parser
// consumer must at least fetch them.
unsigned long long BareXmlLitePass(const std::wstring &path) {
    using CreateFn = HRESULT(WINAPI *)(REFIID, void **, IMalloc *);
    static CreateFn create = reinterpret_cast<CreateFn>(reinterpret_cast<void (*)()>(
        GetProcAddress(LoadLibraryW(L"xmllite.dll"), "CreateXmlReader")));
    HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                              FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
    if (create == nullptr || file == INVALID_HANDLE_VALUE) return 0;
    FileStream stream(file);
    IXmlReader *reader = nullptr;
    unsigned long long elements = 0, characters = 0;
    if (SUCCEEDED(create(__uuidof(IXmlReader), reinterpret_cast<void **>(&reader), nullptr)) &&
        SUCCEEDED(reader->SetInput(&stream))) {
        XmlNodeType type;
        const wchar_t *text;
        UINT length;
        while (reader->Read(&type) == S_OK) {
            if (type != XmlNodeType_Element) continue;
            ++elements;
            reader->GetQualifiedName(&text, &length);
            for (HRESULT hr = reader->MoveToFirstAttribute(); hr == S_OK; hr = reader->MoveToNextAttribute()) {
                reader->GetQualifiedName(&text, &length);
                reader->GetValue(&text, &length);
                characters += length;
            }
        }
        reader->Release();
    }
    CloseHandle(file);
    return elements + characters;
}

}  // namespace

int main(int argc, char **argv) {
    unsigned areas = argc > 1 ? static_cast<unsigned>(atoi(argv[1])) : 1000;
    unsigned perArea = argc > 2 ? static_cast<unsigned>(atoi(argv[2])) : 1000;
    wchar_t temp[MAX_PATH];
    GetTempPathW(MAX_PATH, temp);
    std::wstring path = std::wstring(temp) + L"bench_xml_extents.xml";
    if (!WriteExtentList(path, areas, perArea)) return 1;
    WIN32_FILE_ATTRIBUTE_DATA info;
    GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &info);
    printf("extent list: %u areas x %u extents, %.1f MB\n", areas, perArea,
           static_cast<double>(info.nFileSizeLow + (static_cast<unsigned long long>(info.nFileSizeHigh) << 32)) / 1048576.0);
    double bestReader = 1e9, bestBare = 1e9;
    unsigned long long extents = 0, sum = 0;
    for (int round = 0; round < 3; ++round) {  // alternate, keep the best of each
        double t0 = Seconds();
        BareXmlLitePass(path);
        double t1 = Seconds();
        extents = LoadAndWalk(path, sum);
        double t2 = Seconds();
        if (t1 - t0 < bestBare) bestBare = t1 - t0;
        if (t2 - t1 < bestReader) bestReader = t2 - t1;
    }
    DeleteFileW(path.c_str());
    printf("extents walked: %llu (checksum %llu)\n", extents, sum);
    printf("bare XmlLite pass:      %.3f s\n", bestBare);
    printf("CXmlReader load + walk: %.3f s\n", bestReader);
    printf("ratio: %.2f (goal <= 1.5)\n", bestReader / bestBare);
    return extents == static_cast<unsigned long long>(areas) * perArea ? 0 : 2;
}
