// XmlLite bound at run time (mingw ships xmllite.h but no import library), a
// small COM pointer, and the byte streams the parser reads from.
#pragma once
#include <skclass_mini/win.h>
#include <objidl.h>
#include <xmllite.h>

#include <string>
#include <skclass_mini/handles.h>

namespace skxml {

// Entry points of xmllite.dll, resolved once per process; the library stays
// loaded for the life of the process (never freed from a static destructor).
struct XmlLiteApi {
    HRESULT(WINAPI *createReader)(REFIID riid, void **reader, IMalloc *malloc);
    HRESULT(WINAPI *createInputWithEncodingName)(IUnknown *stream, IMalloc *malloc,
                                                 LPCWSTR encoding, BOOL hint, LPCWSTR baseUri,
                                                 IXmlReaderInput **input);
};
// Null when xmllite.dll or one of its entry points is missing; loadError then
// says which (and the Windows error).
const XmlLiteApi *XmlLite(std::wstring &loadError);

template <typename T>
class ComPtr {
public:
    ComPtr() = default;
    ~ComPtr() { reset(); }
    ComPtr(const ComPtr &) = delete;
    ComPtr &operator=(const ComPtr &) = delete;
    T *get() const { return p_; }
    T *operator->() const { return p_; }
    T **put() { reset(); return &p_; }
    void **put_void() { return reinterpret_cast<void **>(put()); }
    void reset() {
        if (p_ != nullptr) p_->Release();
        p_ = nullptr;
    }

private:
    T *p_ = nullptr;
};

// Reads bytes that the caller keeps alive for the stream's use. Lives on the
// caller's stack: reference counting is kept but never deletes.
class MemoryStream : public ISequentialStream {
public:
    MemoryStream(const void *bytes, size_t size) : bytes_(static_cast<const BYTE *>(bytes)), size_(size) {}
    virtual ~MemoryStream() = default;
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void **object) override;
    ULONG STDMETHODCALLTYPE AddRef() override { return ++refs_; }
    ULONG STDMETHODCALLTYPE Release() override { return --refs_; }
    HRESULT STDMETHODCALLTYPE Read(void *buffer, ULONG wanted, ULONG *got) override;
    HRESULT STDMETHODCALLTYPE Write(const void *, ULONG, ULONG *) override { return STG_E_ACCESSDENIED; }

private:
    const BYTE *bytes_;
    size_t size_;
    size_t position_ = 0;
    ULONG refs_ = 1;
};

// Reads an open file from its current position; same lifetime rule.
class FileStream : public ISequentialStream {
public:
    explicit FileStream(HANDLE file) : file_(file) {}
    virtual ~FileStream() = default;
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void **object) override;
    ULONG STDMETHODCALLTYPE AddRef() override { return ++refs_; }
    ULONG STDMETHODCALLTYPE Release() override { return --refs_; }
    HRESULT STDMETHODCALLTYPE Read(void *buffer, ULONG wanted, ULONG *got) override;
    HRESULT STDMETHODCALLTYPE Write(const void *, ULONG, ULONG *) override { return STG_E_ACCESSDENIED; }

private:
    HANDLE file_;
    ULONG refs_ = 1;
};

// "<name> (0x...)" of an XmlLite or Windows failure.
std::wstring DescribeXmlError(HRESULT hr);

}  // namespace skxml
