#include "xmllite_support.h"

#include <stdio.h>

namespace skxml {
namespace {

HRESULT QuerySequential(ISequentialStream *self, REFIID iid, void **object) {
    if (object == nullptr) return E_POINTER;
    if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_ISequentialStream)) {
        *object = self;
        self->AddRef();
        return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

struct NamedError {
    HRESULT hr;
    const wchar_t *text;
};
// The XmlLite failures a hand-edited or truncated extent list produces.
const NamedError kXmlErrors[] = {
    {static_cast<HRESULT>(MX_E_INPUTEND), L"unexpected end of input"},
    {static_cast<HRESULT>(MX_E_ENCODING), L"unrecognized encoding"},
    {static_cast<HRESULT>(MX_E_ENCODINGSWITCH), L"unable to switch the encoding"},
    {static_cast<HRESULT>(MX_E_ENCODINGSIGNATURE), L"unrecognized input signature"},
    {static_cast<HRESULT>(WC_E_WHITESPACE), L"whitespace expected"},
    {static_cast<HRESULT>(WC_E_SEMICOLON), L"semicolon expected"},
    {static_cast<HRESULT>(WC_E_GREATERTHAN), L"'>' expected"},
    {static_cast<HRESULT>(WC_E_QUOTE), L"quote expected"},
    {static_cast<HRESULT>(WC_E_EQUAL), L"equal expected"},
    {static_cast<HRESULT>(WC_E_LESSTHAN), L"'<' not allowed in attribute value"},
    {static_cast<HRESULT>(WC_E_XMLCHARACTER), L"invalid character"},
    {static_cast<HRESULT>(WC_E_NAMECHARACTER), L"invalid character in name"},
    {static_cast<HRESULT>(WC_E_SYNTAX), L"syntax error"},
    {static_cast<HRESULT>(WC_E_ELEMENTMATCH), L"end tag does not match start tag"},
    {static_cast<HRESULT>(WC_E_DTDPROHIBITED), L"DTD is prohibited"},
    {static_cast<HRESULT>(WC_E_MOREDATA), L"data after the root element"},
    {static_cast<HRESULT>(WC_E_ENTITYCONTENT), L"entity content not well formed"},
    {static_cast<HRESULT>(WC_E_ROOTELEMENT), L"missing root element"},
    {static_cast<HRESULT>(NC_E_UNDECLAREDPREFIX), L"undeclared namespace prefix"},
};

}  // namespace

HRESULT MemoryStream::QueryInterface(REFIID iid, void **object) { return QuerySequential(this, iid, object); }

HRESULT MemoryStream::Read(void *buffer, ULONG wanted, ULONG *got) {
    size_t left = size_ - position_;
    ULONG count = left < wanted ? static_cast<ULONG>(left) : wanted;
    if (count > 0) memcpy(buffer, bytes_ + position_, count);
    position_ += count;
    if (got != nullptr) *got = count;
    return count == wanted ? S_OK : S_FALSE;
}

HRESULT FileStream::QueryInterface(REFIID iid, void **object) { return QuerySequential(this, iid, object); }

HRESULT FileStream::Read(void *buffer, ULONG wanted, ULONG *got) {
    DWORD count = 0;
    if (!ReadFile(file_, buffer, wanted, &count, nullptr)) {
        if (got != nullptr) *got = 0;
        return HRESULT_FROM_WIN32(GetLastError());
    }
    if (got != nullptr) *got = count;
    return count == wanted ? S_OK : S_FALSE;
}

std::wstring DescribeXmlError(HRESULT hr) {
    wchar_t code[16];
    swprintf(code, 16, L"0x%08lX", static_cast<unsigned long>(hr));
    for (const NamedError &known : kXmlErrors) {
        if (known.hr == hr) return std::wstring(known.text) + L" (" + code + L")";
    }
    return std::wstring(L"XmlLite error ") + code;
}

}  // namespace skxml
