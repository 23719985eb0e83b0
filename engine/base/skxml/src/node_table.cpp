#include "node_table.h"

#include <string.h>
#include <wchar.h>
#include "xmllite_support.h"

namespace skxml {
namespace {

// Where the reader stands: line and column of the node it reports.
struct Position {
    UINT line = 0;
    UINT column = 0;
    bool operator==(const Position &other) const { return line == other.line && column == other.column; }
};

// Builds the table while XmlLite reads. Element and attribute names repeat
// (a million "extent"s): a few recent names are kept and reused from the pool.
class TableBuilder {
public:
    explicit TableBuilder(NodeTable &table) : table_(table) { open_.push_back({0, kNoNode, Position()}); }
    HRESULT AddElement(IXmlReader *reader, Position at);
    HRESULT AddText(IXmlReader *reader);
    // False when the end tag was not in the text: Wine's reader makes one up,
    // at the element's own start, for a root that input ended inside.
    bool EndElement(Position at) {
        if (open_.size() <= 1) return true;
        if (open_.back().start == at) return false;
        open_.pop_back();
        return true;
    }
    // Whether every element that was opened has been closed.
    bool AllClosed() const { return open_.size() == 1; }

private:
    struct OpenElement {
        uint32_t node;
        uint32_t lastChild;
        Position start;
    };
    bool Append(const wchar_t *text, UINT length, TextRef &ref);
    bool AppendName(const wchar_t *text, UINT length, TextRef &ref);
    HRESULT AddAttributes(IXmlReader *reader, NodeEntry &node);

    static const size_t kNameCache = 8;
    NodeTable &table_;
    std::vector<OpenElement> open_;
    TextRef names_[kNameCache] = {};
    size_t nameCount_ = 0;
    size_t nextNameSlot_ = 0;
};

bool TableBuilder::Append(const wchar_t *text, UINT length, TextRef &ref) {
    size_t offset = table_.pool.size();
    if (offset + length >= kNoNode) return false;  // offsets are 32-bit
    table_.pool.insert(table_.pool.end(), text, text + length);
    ref = {static_cast<uint32_t>(offset), length};
    return true;
}

bool TableBuilder::AppendName(const wchar_t *text, UINT length, TextRef &ref) {
    for (size_t i = 0; i < nameCount_; ++i) {
        if (table_.NameIs(names_[i], text, length)) {
            ref = names_[i];
            return true;
        }
    }
    if (!Append(text, length, ref)) return false;
    names_[nextNameSlot_] = ref;
    nextNameSlot_ = (nextNameSlot_ + 1) % kNameCache;
    if (nameCount_ < kNameCache) ++nameCount_;
    return true;
}

HRESULT TableBuilder::AddAttributes(IXmlReader *reader, NodeEntry &node) {
    node.firstAttribute = static_cast<uint32_t>(table_.attributes.size());
    node.attributeCount = 0;
    HRESULT hr = reader->MoveToFirstAttribute();
    while (hr == S_OK) {
        const wchar_t *name = nullptr;
        const wchar_t *value = nullptr;
        UINT nameLength = 0;
        UINT valueLength = 0;
        if (FAILED(hr = reader->GetQualifiedName(&name, &nameLength))) return hr;
        if (FAILED(hr = reader->GetValue(&value, &valueLength))) return hr;
        AttributeEntry entry;
        if (!AppendName(name, nameLength, entry.name) || !Append(value, valueLength, entry.value))
            return E_OUTOFMEMORY;
        table_.attributes.push_back(entry);
        ++node.attributeCount;
        hr = reader->MoveToNextAttribute();
    }
    return FAILED(hr) ? hr : S_OK;
}

// Text of the open element. Its pieces usually arrive together, so the first
// lands at the end of the pool and the next ones extend it in place.
HRESULT TableBuilder::AddText(IXmlReader *reader) {
    const wchar_t *value = nullptr;
    UINT length = 0;
    HRESULT hr = reader->GetValue(&value, &length);
    if (FAILED(hr) || length == 0 || open_.size() < 2) return FAILED(hr) ? hr : S_OK;
    TextRef &text = table_.nodes[open_.back().node].text;
    if (text.length != 0 && text.offset + text.length != table_.pool.size()) {
        const std::wstring earlier = table_.Text(text);  // moved to the end, then extended
        if (!Append(earlier.c_str(), static_cast<UINT>(earlier.size()), text)) return E_OUTOFMEMORY;
    }
    TextRef piece;
    if (!Append(value, length, piece)) return E_OUTOFMEMORY;
    if (text.length == 0) text = piece;
    else text.length += length;
    return S_OK;
}

HRESULT TableBuilder::AddElement(IXmlReader *reader, Position at) {
    const bool isEmpty = reader->IsEmptyElement() != FALSE;  // before moving to attributes
    const wchar_t *name = nullptr;
    UINT nameLength = 0;
    HRESULT hr = reader->GetQualifiedName(&name, &nameLength);
    if (FAILED(hr)) return hr;
    if (table_.nodes.size() >= kNoNode - 1) return E_OUTOFMEMORY;
    const uint32_t index = static_cast<uint32_t>(table_.nodes.size());
    OpenElement &parent = open_.back();
    NodeEntry node = {{0, 0}, parent.node, kNoNode, kNoNode, 0, 0, {0, 0}};
    if (!AppendName(name, nameLength, node.name)) return E_OUTOFMEMORY;
    if (FAILED(hr = AddAttributes(reader, node))) return hr;
    table_.nodes.push_back(node);
    if (parent.lastChild == kNoNode)
        table_.nodes[parent.node].firstChild = index;
    else
        table_.nodes[parent.lastChild].nextSibling = index;
    parent.lastChild = index;
    if (!isEmpty) open_.push_back({index, kNoNode, at});
    return S_OK;
}

Position PositionOf(IXmlReader *reader) {
    Position at;
    reader->GetLineNumber(&at.line);
    reader->GetLinePosition(&at.column);
    return at;
}

// Every failure of XmlLite ends the load, and so does an end of input with an
// element still open. Wine's reader does not report that end: it hands out
// the last node again, at the same place, for ever, or it makes up the root's
// end tag; either would pass a truncated list off as complete, or never
// return. Two nodes of one kind never start at one place in real text.
HRESULT ReadAll(IXmlReader *reader, NodeTable &table) {
    const HRESULT truncated = static_cast<HRESULT>(MX_E_INPUTEND);
    TableBuilder builder(table);
    XmlNodeType type = XmlNodeType_None, previousType = XmlNodeType_None;
    Position previous;
    HRESULT hr;
    while ((hr = reader->Read(&type)) == S_OK) {
        const Position at = PositionOf(reader);
        if (type == XmlNodeType_None || (type == previousType && at == previous)) return truncated;
        previous = at;
        previousType = type;
        if (type == XmlNodeType_Element) {
            if (FAILED(hr = builder.AddElement(reader, at))) return hr;
        } else if (type == XmlNodeType_EndElement) {
            if (!builder.EndElement(at)) return truncated;
        } else if (type == XmlNodeType_Text || type == XmlNodeType_CDATA) {
            if (FAILED(hr = builder.AddText(reader))) return hr;
        }
    }
    if (FAILED(hr)) return hr;
    return hr == S_FALSE && builder.AllClosed() ? S_OK : truncated;
}

std::wstring PositionedError(IXmlReader *reader, HRESULT hr) {
    UINT line = 0;
    UINT column = 0;
    reader->GetLineNumber(&line);
    reader->GetLinePosition(&column);
    return L"line " + std::to_wstring(line) + L", column " + std::to_wstring(column) + L": " +
           DescribeXmlError(hr);
}

// Room for a document of about this many characters, so that a large extent
// list (~45 characters, one element and two short values per extent) does not
// copy its tables over and over while growing. Only a hint.
void ReserveFor(NodeTable &table, unsigned long long characters) {
    if (characters < 4096 || characters > (1ull << 31)) return;
    const size_t size = static_cast<size_t>(characters);
    table.nodes.reserve(size / 40);
    table.attributes.reserve(size / 20);
    table.pool.reserve(size / 3);
}

bool Parse(ISequentialStream *stream, const wchar_t *encoding, NodeTable &table, std::wstring &error) {
    const XmlLiteApi *api = XmlLite(error);
    if (api == nullptr) return false;
    ComPtr<IXmlReader> reader;
    ComPtr<IUnknown> input;
    HRESULT hr = api->createReader(__uuidof(IXmlReader), reader.put_void(), nullptr);
    // Not a hint: the caller knows the encoding of the bytes, whatever a
    // declaration inside claims (a wide string saying encoding="UTF-8").
    if (SUCCEEDED(hr) && encoding != nullptr)
        hr = api->createInputWithEncodingName(stream, nullptr, encoding, FALSE, nullptr, input.put());
    if (SUCCEEDED(hr)) hr = reader->SetInput(encoding != nullptr ? input.get() : stream);
    if (FAILED(hr)) {
        error = L"XmlLite could not start: " + DescribeXmlError(hr);
        return false;
    }
    hr = ReadAll(reader.get(), table);
    // Some XmlLite builds (Wine's) accept text without any element.
    if (SUCCEEDED(hr) && table.nodes.size() < 2) hr = static_cast<HRESULT>(WC_E_ROOTELEMENT);
    if (FAILED(hr)) {
        error = PositionedError(reader.get(), hr);
        table = NodeTable();  // give back the memory of a large failed load
        table.Reset();
        return false;
    }
    error.clear();
    return true;
}

}  // namespace

void NodeTable::Reset() {
    nodes.clear();
    nodes.push_back(NodeEntry{{0, 0}, kNoNode, kNoNode, kNoNode, 0, 0, {0, 0}});
    attributes.clear();
    pool.clear();
}

bool NodeTable::NameIs(TextRef ref, const wchar_t *text, size_t length) const {
    return ref.length == length && wmemcmp(pool.data() + ref.offset, text, length) == 0;
}

bool ParseIntoTable(const void *bytes, size_t size, const wchar_t *encoding, NodeTable &table,
                    std::wstring &error) {
    MemoryStream stream(bytes, size);
    table.Reset();
    ReserveFor(table, size);
    return Parse(&stream, encoding, table, error);
}

bool ParseFileIntoTable(void *fileHandle, NodeTable &table, std::wstring &error) {
    FileStream stream(static_cast<HANDLE>(fileHandle));
    table.Reset();
    LARGE_INTEGER size = {};
    if (GetFileSizeEx(static_cast<HANDLE>(fileHandle), &size)) ReserveFor(table, size.QuadPart);
    return Parse(&stream, nullptr, table, error);
}

}  // namespace skxml
