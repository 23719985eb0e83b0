#include "live_soap.h"

namespace ravelkit_live {

namespace {

const char kSoapAction[] = "urn:vim25/6.5";

std::string Envelope(const wchar_t *method, const Arguments &arguments) {
    CXmlBuilder b;
    b.StartElement(L"soapenv:Envelope");
    b.AddAttribute(L"xmlns:soapenv", L"http://schemas.xmlsoap.org/soap/envelope/");
    b.AddAttribute(L"xmlns:xsd", L"http://www.w3.org/2001/XMLSchema");
    b.AddAttribute(L"xmlns:xsi", L"http://www.w3.org/2001/XMLSchema-instance");
    b.StartElement(L"soapenv:Body");
    b.StartElement(method);
    b.AddAttribute(L"xmlns", L"urn:vim25");
    if (arguments) arguments(b);
    return Utf8(b.GetXML());
}

// The vSphere error number of a fault, from the type of its detail.
int FaultNumber(const std::string &type) {
    if (type == "InvalidLogin" || type == "InvalidLoginFault") return kInvalidLoginNumber;
    if (type == "ManagedObjectNotFound" || type == "ManagedObjectNotFoundFault") return kObjectNotFoundNumber;
    return kOtherFaultNumber;
}

int ReadFault(CXmlReader &answer, const std::wstring &method) {
    std::string text = "the server failed " + Utf8(method);
    std::string type;
    if (answer.SelectSingleNode(L"faultstring")) text = TextOf(answer);
    if (answer.SelectSingleNode(L"detail") && answer.SelectFirstChild()) {
        type = XsiType(answer);
        if (type.empty()) type = Utf8(LocalName(answer));
    }
    return Fail(kServerFault, Utf8(method) + ": " + text + (type.empty() ? "" : " (" + type + ")"),
                FaultNumber(type));
}

}  // namespace

std::wstring Wide(const std::string &text) {
    if (text.empty()) return std::wstring();
    const int n = MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    std::wstring out(n > 0 ? n : 0, L'\0');
    if (n > 0) MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), &out[0], n);
    return out;
}

std::string Utf8(const std::wstring &text) {
    if (text.empty()) return std::string();
    const int n = WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0,
                                      nullptr, nullptr);
    std::string out(n > 0 ? n : 0, '\0');
    if (n > 0)
        WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), &out[0], n, nullptr, nullptr);
    return out;
}

void MoRef(CXmlBuilder &b, const wchar_t *name, const char *type, const std::string &value) {
    b.StartElement(name);
    b.AddAttribute(L"type", Wide(type));
    b.AddText(Wide(value));
    b.EndElement();
}

void Element(CXmlBuilder &b, const wchar_t *name, const std::string &value) {
    b.StartElement(name);
    b.AddText(Wide(value));
    b.EndElement();
}

std::string TextOf(const CXmlReader &reader) {
    std::wstring text;
    reader.GetText(text);
    return Utf8(text);
}

bool ChildText(CXmlReader &reader, const wchar_t *child, std::string &text) {
    if (!reader.SelectFirstChild()) return false;
    do {
        if (LocalName(reader) == child) {
            text = TextOf(reader);
            reader.SelectParent();
            return true;
        }
    } while (reader.SelectNextSibling());
    reader.SelectParent();
    return false;
}

std::wstring LocalName(const CXmlReader &reader) {
    std::wstring name;
    reader.GetNodeName(name);
    const size_t colon = name.find(L':');
    return colon == std::wstring::npos ? name : name.substr(colon + 1);
}

// The reader does not resolve prefixes; the schema-instance namespace comes
// with one of these: "xsi" from vCenter and ESX, "XMLSchema-instance" from
// Go's encoder (govmomi's simulator).
std::string XsiType(const CXmlReader &reader) {
    std::wstring type;
    if (!reader.GetAttribute(L"xsi:type", type) && !reader.GetAttribute(L"XMLSchema-instance:type", type))
        return std::string();
    const size_t colon = type.find(L':');
    return Utf8(colon == std::wstring::npos ? type : type.substr(colon + 1));
}

int Call(Session &session, const wchar_t *method, const Arguments &arguments, CXmlReader &answer) {
    HttpReply reply;
    std::string error;
    if (!session.channel.Post(kSoapAction, Envelope(method, arguments), reply, error))
        return Fail(kCannotConnect, Utf8(method) + ": " + error);
    if (!answer.LoadUtf8(reply.body.data(), reply.body.size()))
        return Fail(kCannotConnect, Utf8(method) + ": HTTP " + std::to_string(reply.status) +
                                        ", the answer is not XML: " + Utf8(answer.ErrorText()));
    if (answer.SelectSingleNode(L"soapenv:Fault") || answer.SelectSingleNode(L"soap:Fault") ||
        answer.SelectSingleNode(L"faultstring"))
        return ReadFault(answer, method);
    if (reply.status != 200)
        return Fail(kCannotConnect, Utf8(method) + ": HTTP status " + std::to_string(reply.status));
    return kOk;
}

}  // namespace ravelkit_live
