// Registry settings on HKEY_LOCAL_MACHINE.
//
// REG_MULTI_SZ: a list is stored as its strings, each NUL-terminated, followed
// by one more NUL; an empty list is stored as two NULs. An empty string cannot
// be an element (it would end the list for every reader), so SaveMultiString
// refuses a list containing one, and LoadMultiString stops at the first empty
// string, as every REG_MULTI_SZ reader does. Strings are returned as stored:
// REG_EXPAND_SZ is not expanded.
#include <skclass_mini/configuration.h>

#include <string.h>

namespace {

REGSAM SamFor(unsigned access) {
    REGSAM sam = 0;
    if (access & Configuration::Read) sam |= KEY_READ;
    if (access & Configuration::Write) sam |= KEY_WRITE;
    return sam != 0 ? sam : KEY_READ;
}

LSTATUS OpenKey(int openMode, const wcstring &path, REGSAM sam, HKEY *key) {
    if (openMode == Configuration::OpenOrCreate) {
        return RegCreateKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, sam,
                               nullptr, key, nullptr);
    }
    return RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, sam, key);
}

// Reads a value's raw bytes if its type is one of the accepted ones.
bool QueryValue(HKEY key, const wcstring &name, DWORD acceptedType, DWORD otherAcceptedType,
                std::vector<BYTE> &data) {
    if (key == nullptr) return false;
    for (int attempt = 0; attempt < 4; ++attempt) {  // the value may grow between calls
        DWORD type = 0;
        DWORD size = 0;
        LSTATUS status = RegQueryValueExW(key, name.c_str(), nullptr, &type, nullptr, &size);
        if (status != ERROR_SUCCESS) return false;
        if (type != acceptedType && type != otherAcceptedType) return false;
        data.resize(size + sizeof(wchar_t));  // room for a terminator the value may lack
        DWORD got = size + sizeof(wchar_t);
        status = RegQueryValueExW(key, name.c_str(), nullptr, &type, data.data(), &got);
        if (status == ERROR_MORE_DATA) continue;
        if (status != ERROR_SUCCESS) return false;
        if (type != acceptedType && type != otherAcceptedType) return false;
        data.resize(got);
        return true;
    }
    return false;
}

// The wide characters of a string value without its trailing NULs.
wcstring WideText(const std::vector<BYTE> &data) {
    size_t chars = data.size() / sizeof(wchar_t);
    const wchar_t *text = reinterpret_cast<const wchar_t *>(data.data());
    while (chars > 0 && text[chars - 1] == L'\0') --chars;
    return wcstring(text, chars);
}

}  // namespace

bool Configuration::Open(int openMode, const wcstring &key, const wcstring &secondName, unsigned access) {
    Close();
    wcstring path = key;
    if (!secondName.empty()) path += L"\\" + secondName;
    HKEY opened = nullptr;
    LSTATUS status = OpenKey(openMode, path, SamFor(access), &opened);
    if (status == ERROR_ACCESS_DENIED && (access & Write) && (access & Read)) {
        status = OpenKey(OpenExisting, path, KEY_READ, &opened);
    }
    if (status != ERROR_SUCCESS) {
        SetLastError(static_cast<DWORD>(status));
        return false;
    }
    key_.reset(opened);
    return true;
}

bool Configuration::Load(const wcstring &name, wcstring &value) const {
    std::vector<BYTE> data;
    if (!QueryValue(key_.get(), name, REG_SZ, REG_EXPAND_SZ, data)) return false;
    value = WideText(data);
    return true;
}

bool Configuration::LoadDWORD(const wcstring &name, unsigned long &value) const {
    std::vector<BYTE> data;
    if (!QueryValue(key_.get(), name, REG_DWORD, REG_DWORD, data)) return false;
    if (data.size() != sizeof(DWORD)) return false;
    DWORD number = 0;
    memcpy(&number, data.data(), sizeof(number));
    value = number;
    return true;
}

bool Configuration::LoadMultiString(const wcstring &name, std::vector<wcstring> &values) const {
    std::vector<BYTE> data;
    if (!QueryValue(key_.get(), name, REG_MULTI_SZ, REG_MULTI_SZ, data)) return false;
    const wchar_t *text = reinterpret_cast<const wchar_t *>(data.data());
    const size_t chars = data.size() / sizeof(wchar_t);
    std::vector<wcstring> parsed;
    size_t start = 0;
    for (size_t at = 0; at <= chars; ++at) {
        if (at < chars && text[at] != L'\0') continue;
        if (at == start) break;  // empty string: end of the list
        parsed.emplace_back(text + start, at - start);
        start = at + 1;
    }
    values = std::move(parsed);
    return true;
}

wcstring Configuration::Load(const wcstring &name, const wcstring &defaultValue) const {
    wcstring value;
    return Load(name, value) ? value : defaultValue;
}

unsigned long Configuration::LoadDWORD(const wcstring &name, const unsigned long &defaultValue) const {
    unsigned long value = 0;
    return LoadDWORD(name, value) ? value : defaultValue;
}

bool Configuration::Save(const wcstring &name, const wcstring &value) {
    if (!key_) {
        SetLastError(ERROR_INVALID_HANDLE);
        return false;
    }
    const DWORD bytes = static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t));
    LSTATUS status = RegSetValueExW(key_.get(), name.c_str(), 0, REG_SZ,
                                    reinterpret_cast<const BYTE *>(value.c_str()), bytes);
    if (status != ERROR_SUCCESS) SetLastError(static_cast<DWORD>(status));
    return status == ERROR_SUCCESS;
}

bool Configuration::SaveDWORD(const wcstring &name, unsigned long value) {
    if (!key_) {
        SetLastError(ERROR_INVALID_HANDLE);
        return false;
    }
    const DWORD number = static_cast<DWORD>(value);
    LSTATUS status = RegSetValueExW(key_.get(), name.c_str(), 0, REG_DWORD,
                                    reinterpret_cast<const BYTE *>(&number), sizeof(number));
    if (status != ERROR_SUCCESS) SetLastError(static_cast<DWORD>(status));
    return status == ERROR_SUCCESS;
}

bool Configuration::SaveMultiString(const wcstring &name, const std::vector<wcstring> &values) {
    if (!key_) {
        SetLastError(ERROR_INVALID_HANDLE);
        return false;
    }
    std::wstring data;
    for (const wcstring &value : values) {
        if (value.empty() || value.find(L'\0') != std::wstring::npos) {
            SetLastError(ERROR_INVALID_PARAMETER);  // would cut the list short
            return false;
        }
        data += value;
        data.push_back(L'\0');
    }
    data.push_back(L'\0');
    if (values.empty()) data.push_back(L'\0');
    LSTATUS status = RegSetValueExW(key_.get(), name.c_str(), 0, REG_MULTI_SZ,
                                    reinterpret_cast<const BYTE *>(data.data()),
                                    static_cast<DWORD>(data.size() * sizeof(wchar_t)));
    if (status != ERROR_SUCCESS) SetLastError(static_cast<DWORD>(status));
    return status == ERROR_SUCCESS;
}

bool Configuration::Delete(const wcstring &name) {
    if (!key_) {
        SetLastError(ERROR_INVALID_HANDLE);
        return false;
    }
    LSTATUS status = RegDeleteValueW(key_.get(), name.c_str());
    if (status != ERROR_SUCCESS) SetLastError(static_cast<DWORD>(status));
    return status == ERROR_SUCCESS;
}
