// CXmlReader: loads through XmlLite into a NodeTable, then moves a cursor over
// it. The cursor starts on the document node, whose first child is the root.
#include <skxml/xmlreader.h>

#include <wchar.h>
#include <skclass_mini/handles.h>
#include "node_table.h"
#include "number_text.h"

struct CXmlReader::Document {
    skxml::NodeTable table;
    uint32_t cursor = 0;
    std::wstring error;

    Document() { table.Reset(); }
    bool OnElement() const { return cursor != 0 && cursor < table.nodes.size(); }
    const skxml::NodeEntry &Current() const { return table.nodes[cursor]; }
    const skxml::AttributeEntry *FindAttribute(const wchar_t *name) const;
    bool Loaded(bool ok) {
        cursor = 0;
        if (!ok) table.Reset();
        return ok;
    }
};

const skxml::AttributeEntry *CXmlReader::Document::FindAttribute(const wchar_t *name) const {
    if (!OnElement() || name == nullptr) return nullptr;
    const skxml::NodeEntry &node = Current();
    const size_t length = wcslen(name);
    for (uint32_t i = 0; i < node.attributeCount; ++i) {
        const skxml::AttributeEntry &attribute = table.attributes[node.firstAttribute + i];
        if (table.NameIs(attribute.name, name, length)) return &attribute;
    }
    return nullptr;
}

namespace {

// A document handed over as a wide string may start with a BOM: U+FEFF, or a
// UTF-8 BOM whose bytes were widened one by one when the file was read into
// the string. Neither can start a document, so they are skipped.
size_t LeadingBomChars(const wchar_t *text, size_t length) {
    if (length >= 1 && text[0] == 0xFEFF) return 1;
    if (length >= 3 && text[0] == 0xEF && text[1] == 0xBB && text[2] == 0xBF) return 3;
    return 0;
}

}  // namespace

CXmlReader::CXmlReader() : doc_(new Document) {}
CXmlReader::~CXmlReader() = default;

bool CXmlReader::LoadXML(const std::wstring &text) { return LoadXML(text.c_str(), text.size()); }

bool CXmlReader::LoadXML(const wchar_t *text, size_t length) {
    if (text == nullptr) length = 0;
    const size_t skip = LeadingBomChars(text, length);
    const wchar_t *start = text == nullptr ? L"" : text + skip;
    return doc_->Loaded(skxml::ParseIntoTable(start, (length - skip) * sizeof(wchar_t), L"UTF-16",
                                              doc_->table, doc_->error));
}

bool CXmlReader::LoadUtf8(const char *text, size_t length) {
    if (text == nullptr) length = 0;
    return doc_->Loaded(skxml::ParseIntoTable(text == nullptr ? "" : text, length, L"UTF-8",
                                              doc_->table, doc_->error));
}

bool CXmlReader::LoadFile(const wchar_t *path) {
    skclass::UniqueFile file(CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                         FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    if (!file) {
        DWORD error = GetLastError();
        doc_->error = L"cannot open '" + std::wstring(path == nullptr ? L"" : path) +
                      L"': Windows error " + std::to_wstring(error);
        bool loaded = doc_->Loaded(false);
        SetLastError(error);
        return loaded;
    }
    return doc_->Loaded(skxml::ParseFileIntoTable(file.get(), doc_->table, doc_->error));
}

bool CXmlReader::LoadOpenFile(void *file) {
    return doc_->Loaded(skxml::ParseFileIntoTable(file, doc_->table, doc_->error));
}

const std::wstring &CXmlReader::ErrorText() const { return doc_->error; }

bool CXmlReader::SelectSingleNode(const wchar_t *name) {
    if (name == nullptr) return false;
    const size_t length = wcslen(name);
    const auto &nodes = doc_->table.nodes;
    for (size_t i = 1; i < nodes.size(); ++i) {
        if (doc_->table.NameIs(nodes[i].name, name, length)) {
            doc_->cursor = static_cast<uint32_t>(i);
            return true;
        }
    }
    return false;
}

bool CXmlReader::SelectFirstChild() {
    const uint32_t child = doc_->Current().firstChild;
    if (child == skxml::kNoNode) return false;
    doc_->cursor = child;
    return true;
}

bool CXmlReader::SelectNextSibling() {
    if (!doc_->OnElement()) return false;
    const uint32_t sibling = doc_->Current().nextSibling;
    if (sibling == skxml::kNoNode) return false;
    doc_->cursor = sibling;
    return true;
}

bool CXmlReader::SelectParent() {
    if (!doc_->OnElement()) return false;
    const uint32_t parent = doc_->Current().parent;
    if (parent == 0 || parent == skxml::kNoNode) return false;  // the document is not an element
    doc_->cursor = parent;
    return true;
}

bool CXmlReader::GetNodeName(std::wstring &name) const {
    if (!doc_->OnElement()) return false;
    name = doc_->table.Text(doc_->Current().name);
    return true;
}

bool CXmlReader::GetText(std::wstring &text) const {
    if (!doc_->OnElement()) return false;
    text = doc_->table.Text(doc_->Current().text);
    return true;
}

bool CXmlReader::GetAttribute(const wchar_t *name, std::wstring &value) const {
    const skxml::AttributeEntry *attribute = doc_->FindAttribute(name);
    if (attribute == nullptr) return false;
    value = doc_->table.Text(attribute->value);
    return true;
}

bool CXmlReader::GetAttributeUInt64(const wchar_t *name, uint64_t &value) const {
    const skxml::AttributeEntry *attribute = doc_->FindAttribute(name);
    if (attribute == nullptr) return false;
    return skxml::ParseUInt64(doc_->table.pool.data() + attribute->value.offset, attribute->value.length, value);
}
