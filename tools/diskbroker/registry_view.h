// A view of HKEY_LOCAL_MACHINE private to this process, so the program can
// point the library at the VDDK stand-in without changing the machine's
// registry. The products' keys are copied into a volatile key under
// HKEY_CURRENT_USER and HKLM is redirected onto it (RegOverridePredefKey, for
// the whole process). Volatile keys never reach the disk, and a view left by
// a killed run is deleted by the next one, so nothing outlives the process.
#pragma once
#include <string>

#include <skclass_mini/handles.h>

namespace dbtool {

class PrivateRegistryView {
public:
    // machine: what HKLM stands for, copied from and redirected back to at the
    // end; null for the machine's own. (Windows cannot tell a process where
    // HKLM points, so a caller that redirected it already, as tests do, says.)
    // Throws Failure when the view cannot be made; HKLM is then untouched.
    explicit PrivateRegistryView(HKEY machine = nullptr);
    // Redirects HKLM back to `machine` and deletes the view.
    ~PrivateRegistryView();
    PrivateRegistryView(const PrivateRegistryView &) = delete;
    PrivateRegistryView &operator=(const PrivateRegistryView &) = delete;

    // Writes a string value under HKLM\<keyPath> as this process sees it.
    void SetString(const std::wstring &keyPath, const std::wstring &name, const std::wstring &value);

    // Where views live under HKEY_CURRENT_USER; one subkey per live process.
    static const wchar_t kParentKey[];

private:
    HKEY machine_;  // not owned
    skclass::UniqueHkey root_;
    std::wstring rootName_;
};

// Deletes the views of processes that are no longer running.
void DeleteStaleRegistryViews();

}  // namespace dbtool
