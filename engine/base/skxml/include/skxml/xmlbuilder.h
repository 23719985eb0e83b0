// Writes well-formed XML: names checked, text and attribute values escaped.
#pragma once
#include <stdint.h>
#include <memory>
#include <string>
#include <skxml/xmlreader.h>

class SKXML_API CXmlBuilder {
public:
    CXmlBuilder();
    ~CXmlBuilder();
    CXmlBuilder(const CXmlBuilder &) = delete;
    CXmlBuilder &operator=(const CXmlBuilder &) = delete;

    // False (and the builder unchanged) for an invalid name, or for an attribute
    // after content or with no open element.
    bool StartElement(const wchar_t *name);
    bool AddAttribute(const wchar_t *name, const std::wstring &value);
    bool AddAttributeUInt64(const wchar_t *name, uint64_t value);
    bool AddText(const std::wstring &text);
    bool EndElement();

    // The document so far, all open elements closed in the copy.
    std::wstring GetXML() const;
    bool SaveUtf8(const wchar_t *path) const;

private:
    struct State;
    std::unique_ptr<State> state_;
};
