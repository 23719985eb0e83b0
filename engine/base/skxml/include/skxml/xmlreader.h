// XML reader over the Windows XmlLite parser. The document is parsed once into a
// compact node table (no heap object per node), then navigated with a cursor.
#pragma once
#include <stdint.h>
#include <memory>
#include <string>

#if defined(SKXML_BUILD)
#define SKXML_API __declspec(dllexport)
#else
#define SKXML_API __declspec(dllimport)
#endif

class SKXML_API CXmlReader {
public:
    CXmlReader();
    ~CXmlReader();
    CXmlReader(const CXmlReader &) = delete;
    CXmlReader &operator=(const CXmlReader &) = delete;

    // Parses a whole document. False on a parse error (see ErrorText); the
    // previous document is discarded either way.
    bool LoadXML(const std::wstring &text);
    bool LoadXML(const wchar_t *text, size_t length);
    bool LoadUtf8(const char *text, size_t length);
    bool LoadFile(const wchar_t *path);  // encoding from the document (BOM / declaration)
    // The same from a file (or pipe) the caller has open (a HANDLE), read from
    // its current position; the handle stays the caller's.
    bool LoadOpenFile(void *file);
    // "line L, column C: <XmlLite error>" of the last failed load; empty after success.
    const std::wstring &ErrorText() const;

    // Cursor moves. Each returns false and leaves the cursor where it was when
    // there is no such node.
    bool SelectSingleNode(const wchar_t *name);  // first element with that name, document order
    bool SelectFirstChild();                     // first child element of the cursor
    bool SelectNextSibling();                    // next sibling element of the cursor
    bool SelectParent();

    // Of the cursor's element.
    bool GetNodeName(std::wstring &name) const;
    bool GetAttribute(const wchar_t *name, std::wstring &value) const;
    // The element's own text (not its children's), entities resolved; empty if none.
    bool GetText(std::wstring &text) const;
    // Unsigned 64-bit decimal ("%I64u"); false when missing or not a number.
    bool GetAttributeUInt64(const wchar_t *name, uint64_t &value) const;

private:
    struct Document;
    std::unique_ptr<Document> doc_;
};
