// vSphere SOAP calls: the request written with CXmlBuilder, the answer read with
// CXmlReader, a SOAP fault turned into the last error.
#pragma once
#include <functional>
#include <string>
#include <skxml/xmlbuilder.h>
#include <skxml/xmlreader.h>
#include "live_session.h"

namespace ravelkit_live {

// Writes the method's arguments inside <method xmlns="urn:vim25">.
using Arguments = std::function<void(CXmlBuilder &)>;

// One call. kOk with the answer loaded in `answer`; otherwise the result and
// the last error set (kCannotConnect: no HTTP answer; kServerFault: a fault).
int Call(Session &session, const wchar_t *method, const Arguments &arguments, CXmlReader &answer);

// Argument helpers: <name type="T">value</name> and <name>value</name>.
void MoRef(CXmlBuilder &b, const wchar_t *name, const char *type, const std::string &value);
void Element(CXmlBuilder &b, const wchar_t *name, const std::string &value);

std::wstring Wide(const std::string &utf8);
std::string Utf8(const std::wstring &wide);

// Text of the cursor's element, UTF-8; of its first child named `child` when given.
std::string TextOf(const CXmlReader &reader);
bool ChildText(CXmlReader &reader, const wchar_t *child, std::string &text);
// The cursor's name without its namespace prefix.
std::wstring LocalName(const CXmlReader &reader);
// The xsi:type of the cursor's element, without prefix.
std::string XsiType(const CXmlReader &reader);

}  // namespace ravelkit_live
