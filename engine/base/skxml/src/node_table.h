// The parsed document: flat tables, no heap object per node. Element and
// attribute texts live in one character pool; nodes and attributes refer to
// it by offset. Node 0 is the document itself; elements follow in document
// order (pre-order), so a scan of the table is a document-order walk.
#pragma once
#include <stdint.h>
#include <string>
#include <vector>

namespace skxml {

const uint32_t kNoNode = 0xFFFFFFFFu;

struct TextRef {
    uint32_t offset;  // into NodeTable::pool
    uint32_t length;
};

struct NodeEntry {
    TextRef name;
    uint32_t parent;
    uint32_t firstChild;      // first child element, kNoNode if none
    uint32_t nextSibling;     // next sibling element, kNoNode if none
    uint32_t firstAttribute;  // into NodeTable::attributes
    uint32_t attributeCount;
    TextRef text;  // the element's own character data (text and CDATA), concatenated
};

struct AttributeEntry {
    TextRef name;
    TextRef value;
};

struct NodeTable {
    std::vector<NodeEntry> nodes;
    std::vector<AttributeEntry> attributes;
    std::vector<wchar_t> pool;

    void Reset();  // back to an empty document (node 0 only)
    bool NameIs(TextRef ref, const wchar_t *text, size_t length) const;
    std::wstring Text(TextRef ref) const { return std::wstring(pool.data() + ref.offset, ref.length); }
};

// Parses bytes with XmlLite into table. encoding: null to detect it from the
// document (BOM, declaration, else UTF-8), or the encoding the bytes are in.
// On failure the table is empty and error holds "line L, column C: <what>".
bool ParseIntoTable(const void *bytes, size_t size, const wchar_t *encoding, NodeTable &table,
                    std::wstring &error);
// Same for an open file, read from its current position.
bool ParseFileIntoTable(void *fileHandle, NodeTable &table, std::wstring &error);

}  // namespace skxml
