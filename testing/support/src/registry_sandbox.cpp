#include <dbtest/registry_sandbox.h>

#include <dbtest/temp_dir.h>
#include <skclass_mini/strings.h>

namespace dbtest {
namespace {

// Each sandbox is a key of its own directly under HKCU\Software. A shared parent
// key that the last sandbox deleted raced with another test process creating
// its sandbox under it (Wine creates a path one key at a time, so the creation
// met a deleted parent: ERROR_KEY_DELETED).
const wchar_t kSoftwarePath[] = L"Software\\";

std::string Failure(const char *call, const std::wstring &path, LSTATUS status) {
    return std::string(call) + " HKCU\\" + cstring::ToUtf8(path) + " failed: Windows error " + std::to_string(status);
}

}  // namespace

RegistrySandbox::RegistrySandbox() : rootPath_(kSoftwarePath + UniqueName(L"diskBrokerTests-sandbox-")) {
    LSTATUS status = RegCreateKeyExW(HKEY_CURRENT_USER, rootPath_.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                     KEY_ALL_ACCESS, nullptr, &root_, nullptr);
    if (status != ERROR_SUCCESS) {
        root_ = nullptr;
        error_ = Failure("RegCreateKeyExW", rootPath_, status);
        return;
    }
    status = RegOverridePredefKey(HKEY_LOCAL_MACHINE, root_);
    overridden_ = status == ERROR_SUCCESS;
    if (!overridden_) error_ = Failure("RegOverridePredefKey onto", rootPath_, status);
}

RegistrySandbox::~RegistrySandbox() {
    if (overridden_) RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
    if (root_ != nullptr) {
        RegCloseKey(root_);
        RegDeleteTreeW(HKEY_CURRENT_USER, rootPath_.c_str());
        RegDeleteKeyW(HKEY_CURRENT_USER, rootPath_.c_str());
    }
}

LSTATUS RegistrySandbox::CreateKey(const std::wstring &keyPath) {
    HKEY key = nullptr;
    LSTATUS status = RegCreateKeyExW(HKEY_LOCAL_MACHINE, keyPath.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                     KEY_ALL_ACCESS, nullptr, &key, nullptr);
    if (status == ERROR_SUCCESS) RegCloseKey(key);
    return status;
}

LSTATUS RegistrySandbox::SetRaw(const std::wstring &keyPath, const std::wstring &name, DWORD type,
                                const void *data, DWORD bytes) {
    HKEY key = nullptr;
    LSTATUS status = RegCreateKeyExW(HKEY_LOCAL_MACHINE, keyPath.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                     KEY_ALL_ACCESS, nullptr, &key, nullptr);
    if (status != ERROR_SUCCESS) return status;
    status = RegSetValueExW(key, name.c_str(), 0, type, static_cast<const BYTE *>(data), bytes);
    RegCloseKey(key);
    return status;
}

LSTATUS RegistrySandbox::SetString(const std::wstring &keyPath, const std::wstring &name,
                                   const std::wstring &value) {
    return SetRaw(keyPath, name, REG_SZ, value.c_str(), static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
}

LSTATUS RegistrySandbox::SetDword(const std::wstring &keyPath, const std::wstring &name, DWORD value) {
    return SetRaw(keyPath, name, REG_DWORD, &value, sizeof(value));
}

LSTATUS RegistrySandbox::SetMultiString(const std::wstring &keyPath, const std::wstring &name,
                                        const std::vector<std::wstring> &values) {
    std::wstring data;
    for (const std::wstring &value : values) {
        data += value;
        data.push_back(L'\0');
    }
    data.push_back(L'\0');
    return SetRaw(keyPath, name, REG_MULTI_SZ, data.data(), static_cast<DWORD>(data.size() * sizeof(wchar_t)));
}

LSTATUS RegistrySandbox::DeleteValue(const std::wstring &keyPath, const std::wstring &name) {
    HKEY key = nullptr;
    LSTATUS status = RegOpenKeyExW(HKEY_LOCAL_MACHINE, keyPath.c_str(), 0, KEY_SET_VALUE, &key);
    if (status != ERROR_SUCCESS) return status;
    status = RegDeleteValueW(key, name.c_str());
    RegCloseKey(key);
    return status;
}

std::wstring ReadRegistryString(HKEY root, const std::wstring &key, const wchar_t *name) {
    DWORD bytes = 0;
    if (RegGetValueW(root, key.c_str(), name, RRF_RT_REG_SZ, nullptr, nullptr, &bytes) != ERROR_SUCCESS)
        return L"<none>";
    std::wstring text(bytes / sizeof(wchar_t) + 1, L'\0');
    if (RegGetValueW(root, key.c_str(), name, RRF_RT_REG_SZ, nullptr, &text[0], &bytes) != ERROR_SUCCESS)
        return L"<none>";
    text.resize(wcsnlen(text.c_str(), text.size()));
    return text;
}

}  // namespace dbtest
