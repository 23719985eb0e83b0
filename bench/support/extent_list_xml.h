// What the extent-list benches share: a large DiskChangeInfo file, and the
// bare XmlLite pass over it that the library's load and walk is measured
// against. Link uuid (for IID_ISequentialStream).
#pragma once
#include <objidl.h>
#include <windows.h>
#include <xmllite.h>

#include <stdint.h>
#include <stdio.h>

#include <string>

namespace benchsupport {

// areas x perArea extents of extentLength bytes, 128 KiB apart from
// firstOffset on; written in pieces, so a million extents need no 70 MB string.
inline bool WriteExtentList(const std::wstring &path, unsigned areas, unsigned perArea, uint64_t extentLength,
                            uint64_t firstOffset = 0) {
    HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    bool ok = true;
    auto flush = [&](std::string &text) {
        DWORD written = 0;
        ok = ok && WriteFile(file, text.data(), DWORD(text.size()), &written, nullptr) && written == text.size();
        text.clear();
    };
    std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<DiskChangeInfo>\r\n";
    unsigned long long offset = firstOffset;
    char line[160];
    for (unsigned a = 0; a < areas; ++a) {
        snprintf(line, sizeof line, " <area startoffset=\"%llu\" startlength=\"%llu\">\r\n", offset,
                 static_cast<unsigned long long>(perArea) * 131072);
        xml += line;
        for (unsigned e = 0; e < perArea; ++e, offset += 131072) {
            snprintf(line, sizeof line, "  <extent offset=\"%llu\" length=\"%llu\"/>\r\n", offset,
                     static_cast<unsigned long long>(extentLength));
            xml += line;
        }
        xml += " </area>\r\n";
        if (xml.size() > (1u << 20)) flush(xml);
    }
    xml += "</DiskChangeInfo>\r\n";
    flush(xml);
    CloseHandle(file);
    return ok;
}

// An ISequentialStream over a file handle, for XmlLite.
class FileStream : public ISequentialStream {
public:
    explicit FileStream(HANDLE file) : file_(file) {}
    virtual ~FileStream() = default;
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void **object) override {
        *object = (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_ISequentialStream)) ? this : nullptr;
        return *object ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE Read(void *buffer, ULONG wanted, ULONG *got) override {
        DWORD count = 0;
        if (!ReadFile(file_, buffer, wanted, &count, nullptr)) return E_FAIL;
        if (got) *got = count;
        return count == wanted ? S_OK : S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE Write(const void *, ULONG, ULONG *) override { return E_NOTIMPL; }

private:
    HANDLE file_;
};

// Every element's name and every attribute's name and value, the least a
// consumer of the parser must fetch; nothing kept. Returns the elements seen.
inline unsigned long long BareXmlLitePass(const std::wstring &path) {
    using CreateFn = HRESULT(WINAPI *)(REFIID, void **, IMalloc *);
    static const CreateFn create = reinterpret_cast<CreateFn>(
        reinterpret_cast<void (*)()>(GetProcAddress(LoadLibraryW(L"xmllite.dll"), "CreateXmlReader")));
    HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                              FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
    if (!create || file == INVALID_HANDLE_VALUE) return 0;
    FileStream stream(file);
    IXmlReader *reader = nullptr;
    unsigned long long elements = 0;
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
            }
        }
        reader->Release();
    }
    CloseHandle(file);
    return elements;
}

}  // namespace benchsupport
