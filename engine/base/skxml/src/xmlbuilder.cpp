// CXmlBuilder: refuses what would make the document ill-formed (bad names,
// characters XML 1.0 cannot carry, misplaced attributes, a second root)
// instead of writing it; escapes everything else.
#include <skxml/xmlbuilder.h>

#include <vector>
#include <skclass_mini/handles.h>

namespace {

bool IsHighSurrogate(wchar_t c) { return c >= 0xD800 && c <= 0xDBFF; }
bool IsLowSurrogate(wchar_t c) { return c >= 0xDC00 && c <= 0xDFFF; }

bool IsNameStartChar(wchar_t c) {
    return (c >= L'A' && c <= L'Z') || (c >= L'a' && c <= L'z') || c == L'_' || c == L':' ||
           (c >= 0xC0 && c <= 0xD6) || (c >= 0xD8 && c <= 0xF6) || (c >= 0xF8 && c <= 0x2FF) ||
           (c >= 0x370 && c <= 0x37D) || (c >= 0x37F && c <= 0x1FFF) || c == 0x200C || c == 0x200D ||
           (c >= 0x2070 && c <= 0x218F) || (c >= 0x2C00 && c <= 0x2FEF) || (c >= 0x3001 && c <= 0xD7FF) ||
           (c >= 0xF900 && c <= 0xFDCF) || (c >= 0xFDF0 && c <= 0xFFFD);
}

bool IsNameChar(wchar_t c) {
    return IsNameStartChar(c) || c == L'-' || c == L'.' || (c >= L'0' && c <= L'9') || c == 0xB7 ||
           (c >= 0x300 && c <= 0x36F) || c == 0x203F || c == 0x2040;
}

// An XML 1.0 Name; a surrogate pair (planes 1-14) counts as a name character.
bool IsValidName(const wchar_t *name) {
    if (name == nullptr || name[0] == L'\0') return false;
    for (size_t i = 0; name[i] != L'\0'; ++i) {
        wchar_t c = name[i];
        if (IsHighSurrogate(c) && IsLowSurrogate(name[i + 1])) {
            ++i;
            continue;
        }
        if (i == 0 ? !IsNameStartChar(c) : !IsNameChar(c)) return false;
    }
    return true;
}

// XML 1.0 Char: control characters other than tab, LF and CR cannot be written
// at all (not even as references), nor can unpaired surrogates, U+FFFE, U+FFFF.
bool HasOnlyXmlChars(const std::wstring &text) {
    for (size_t i = 0; i < text.size(); ++i) {
        wchar_t c = text[i];
        if (c < 0x20 && c != L'\t' && c != L'\n' && c != L'\r') return false;
        if (c == 0xFFFE || c == 0xFFFF || IsLowSurrogate(c)) return false;
        if (IsHighSurrogate(c)) {
            if (i + 1 >= text.size() || !IsLowSurrogate(text[i + 1])) return false;
            ++i;
        }
    }
    return true;
}

// Tab, LF and CR are written as references in attributes (a parser would
// otherwise normalise them to blanks) and CR in text (line-end normalisation).
void AppendEscaped(std::wstring &out, const std::wstring &text, bool inAttribute) {
    for (wchar_t c : text) {
        switch (c) {
        case L'&': out += L"&amp;"; break;
        case L'<': out += L"&lt;"; break;
        case L'>': out += L"&gt;"; break;
        case L'"': out += inAttribute ? L"&quot;" : L"\""; break;
        case L'\'': out += inAttribute ? L"&apos;" : L"'"; break;
        case L'\r': out += L"&#13;"; break;
        case L'\n': out += inAttribute ? L"&#10;" : L"\n"; break;
        case L'\t': out += inAttribute ? L"&#9;" : L"\t"; break;
        default: out += c;
        }
    }
}

}  // namespace

struct CXmlBuilder::State {
    std::wstring out;
    std::vector<std::wstring> open;             // names of open elements, outermost first
    std::vector<std::wstring> tagAttributes;    // attribute names of the open start tag
    bool inStartTag = false;                    // "<name ..." written, '>' not yet
    bool rootClosed = false;

    void CloseStartTag() {
        if (inStartTag) out += L'>';
        inStartTag = false;
        tagAttributes.clear();
    }
};

CXmlBuilder::CXmlBuilder() : state_(new State) {}
CXmlBuilder::~CXmlBuilder() = default;

bool CXmlBuilder::StartElement(const wchar_t *name) {
    if (!IsValidName(name) || state_->rootClosed) return false;
    state_->CloseStartTag();
    state_->out += L'<';
    state_->out += name;
    state_->open.emplace_back(name);
    state_->inStartTag = true;
    return true;
}

bool CXmlBuilder::AddAttribute(const wchar_t *name, const std::wstring &value) {
    if (!state_->inStartTag || !IsValidName(name) || !HasOnlyXmlChars(value)) return false;
    for (const std::wstring &existing : state_->tagAttributes) {
        if (existing == name) return false;  // duplicate attributes are ill-formed
    }
    state_->tagAttributes.emplace_back(name);
    state_->out += L' ';
    state_->out += name;
    state_->out += L"=\"";
    AppendEscaped(state_->out, value, true);
    state_->out += L'"';
    return true;
}

bool CXmlBuilder::AddAttributeUInt64(const wchar_t *name, uint64_t value) {
    return AddAttribute(name, std::to_wstring(value));
}

bool CXmlBuilder::AddText(const std::wstring &text) {
    if (state_->open.empty() || !HasOnlyXmlChars(text)) return false;
    state_->CloseStartTag();
    AppendEscaped(state_->out, text, false);
    return true;
}

bool CXmlBuilder::EndElement() {
    if (state_->open.empty()) return false;
    if (state_->inStartTag) {
        state_->out += L"/>";
        state_->inStartTag = false;
        state_->tagAttributes.clear();
    } else {
        state_->out += L"</" + state_->open.back() + L'>';
    }
    state_->open.pop_back();
    if (state_->open.empty()) state_->rootClosed = true;
    return true;
}

std::wstring CXmlBuilder::GetXML() const {
    std::wstring xml = state_->out;
    bool startTagOpen = state_->inStartTag;
    for (auto it = state_->open.rbegin(); it != state_->open.rend(); ++it) {
        xml += startTagOpen ? std::wstring(L"/>") : L"</" + *it + L'>';
        startTagOpen = false;
    }
    return xml;
}

bool CXmlBuilder::SaveUtf8(const wchar_t *path) const {
    std::wstring xml = L"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n" + GetXML();
    int bytes = WideCharToMultiByte(CP_UTF8, 0, xml.c_str(), static_cast<int>(xml.size()), nullptr, 0,
                                    nullptr, nullptr);
    if (bytes <= 0) return false;
    std::string utf8(static_cast<size_t>(bytes), '\0');
    WideCharToMultiByte(CP_UTF8, 0, xml.c_str(), static_cast<int>(xml.size()), &utf8[0], bytes, nullptr,
                        nullptr);
    skclass::UniqueFile file(
        CreateFileW(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return false;
    DWORD written = 0;
    return WriteFile(file.get(), utf8.data(), static_cast<DWORD>(utf8.size()), &written, nullptr) &&
           written == utf8.size();
}
