// A private HKEY_LOCAL_MACHINE for one test.
//
// The sandbox creates a throw-away key HKCU\Software\diskBrokerTests-sandbox-<unique>
// and redirects HKEY_LOCAL_MACHINE onto it with RegOverridePredefKey, so code
// under test that reads HKLM\SOFTWARE\... reads (and writes) the sandbox. On
// destruction the override is removed and the key deleted with everything
// under it.
//
// RegOverridePredefKey acts on the whole process: run one sandbox at a time
// (construct it in the test or fixture, never two alive together), and do not
// let threads started by the test outlive it if they touch HKLM.
#pragma once
#include <string>
#include <vector>
#include <windows.h>

namespace dbtest {

class RegistrySandbox {
public:
    RegistrySandbox();   // check Ok() before relying on it
    ~RegistrySandbox();  // restores the real HKLM and deletes the key
    RegistrySandbox(const RegistrySandbox &) = delete;
    RegistrySandbox &operator=(const RegistrySandbox &) = delete;

    // True when the key exists and HKLM is redirected onto it.
    bool Ok() const { return overridden_; }
    // Why Ok() is false: the failing call, the key and the Windows error; empty when Ok().
    const std::string &Error() const { return error_; }
    // The sandbox key's path under HKEY_CURRENT_USER.
    const std::wstring &RootPath() const { return rootPath_; }

    // Write values under HKLM\<keyPath> (inside the sandbox), creating the key.
    // Each returns the Win32 status (ERROR_SUCCESS on success).
    LSTATUS SetString(const std::wstring &keyPath, const std::wstring &name, const std::wstring &value);
    LSTATUS SetDword(const std::wstring &keyPath, const std::wstring &name, DWORD value);
    LSTATUS SetMultiString(const std::wstring &keyPath, const std::wstring &name,
                           const std::vector<std::wstring> &values);
    // Any type and bytes, e.g. a value of the wrong type or a malformed one.
    LSTATUS SetRaw(const std::wstring &keyPath, const std::wstring &name, DWORD type, const void *data,
                   DWORD bytes);
    LSTATUS CreateKey(const std::wstring &keyPath);
    LSTATUS DeleteValue(const std::wstring &keyPath, const std::wstring &name);

private:
    std::wstring rootPath_;
    std::string error_;
    HKEY root_ = nullptr;
    bool overridden_ = false;
};

// The REG_SZ value name of root\\key, as stored; L"<none>" when it cannot be read.
std::wstring ReadRegistryString(HKEY root, const std::wstring &key, const wchar_t *name);

}  // namespace dbtest
