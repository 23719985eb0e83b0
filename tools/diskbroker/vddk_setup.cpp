#include "vddk_setup.h"

#include <vector>

#include <skclass_mini/handles.h>
#include <skclass_mini/product.h>

#include "console.h"
#include "errors.h"
#include "files.h"

namespace dbtool {
namespace {

const wchar_t *const kStandinDlls[] = {L"vixDiskLib.dll", L"vixMntapi.dll"};

// Where the library looks, per host product (0: main product, else the
// mapping services' layout), and where the DLLs sit under the value.
struct InstallLayout {
    const wchar_t *key;
    const wchar_t *value;
    const wchar_t *binUnderRoot;
};

InstallLayout Layout() {
    if (CMS_GetProd() == 0)
        return {L"Software\\Halvorn\\Stowline For Windows\\Stowline\\14.1\\Install", L"Path", L"\\VMware\\VixDiskLib\\bin\\"};
    return {L"SOFTWARE\\Tarrow\\Mappix", L"InstallDir64", L"\\Shared\\VDDK\\"};
}

bool ReadValue(const InstallLayout &layout, std::wstring &value) {
    skclass::UniqueHkey key;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, layout.key, 0, KEY_QUERY_VALUE, key.put()) != ERROR_SUCCESS) return false;
    DWORD type = 0, bytes = 0;
    if (RegQueryValueExW(key.get(), layout.value, nullptr, &type, nullptr, &bytes) != ERROR_SUCCESS) return false;
    if (type != REG_SZ && type != REG_EXPAND_SZ) return false;
    std::vector<wchar_t> buffer(bytes / sizeof(wchar_t) + 1, L'\0');
    if (RegQueryValueExW(key.get(), layout.value, nullptr, &type, reinterpret_cast<BYTE *>(buffer.data()), &bytes) !=
        ERROR_SUCCESS)
        return false;
    value = buffer.data();
    return true;
}

std::wstring Trimmed(std::wstring root) {
    while (!root.empty() && root.back() == L'\\') root.pop_back();
    return root;
}

bool HasDiskLib(const InstallLayout &layout, const std::wstring &root) {
    return !root.empty() && PathExists(Trimmed(root) + layout.binUnderRoot + L"vixDiskLib.dll");
}

std::wstring StandinRoot() { return ExeFolder() + L"vddk-standin-install"; }

}  // namespace

VddkChoice ParseVddkChoice(const std::wstring &text) {
    if (text == L"auto") return VddkChoice::Auto;
    if (text == L"standin") return VddkChoice::Standin;
    if (text == L"installed") return VddkChoice::Installed;
    throw UsageError(L"option '--vddk' must be one of auto, standin, installed, not '" + text + L"'");
}

VddkSetup::VddkSetup(VddkChoice choice, HKEY machine) {
    const InstallLayout layout = Layout();
    std::wstring registered;
    const bool hasValue = ReadValue(layout, registered);
    const bool usable = hasValue && HasDiskLib(layout, registered);
    const bool registeredIsStandin = usable && _wcsicmp(Trimmed(registered).c_str(), StandinRoot().c_str()) == 0;
    if (choice == VddkChoice::Installed || (choice == VddkChoice::Auto && usable && !registeredIsStandin)) {
        // Earlier versions of this program registered the stand-in for good;
        // taking it for an install would test nothing real.
        if (registeredIsStandin)
            throw Failure(L"the registered VDDK (HKLM\\" + std::wstring(layout.key) + L" \"" + layout.value +
                          L"\") is this program's stand-in, not an install (use --vddk standin for it)");
        if (!usable)
            throw Failure(L"no VDDK is registered: HKLM\\" + std::wstring(layout.key) + L" \"" + layout.value +
                          L"\" " + (hasValue ? L"points at '" + registered + L"', which holds no vixDiskLib.dll"
                                             : std::wstring(L"is not set")) +
                          L" (use --vddk standin for the built-in stand-in)");
        description_ = L"VDDK at " + Trimmed(registered);
        return;
    }
    InstallStandin();
    machine_ = std::make_unique<StandinMachine>(machine);
    machine_->SetString(layout.key, layout.value, StandinRoot());
}

void VddkSetup::InstallStandin() {
    const InstallLayout layout = Layout();
    const std::wstring bin = StandinRoot() + layout.binUnderRoot;
    CreateFolders(bin.substr(0, bin.size() - 1));
    for (const wchar_t *dll : kStandinDlls) {
        const std::wstring from = ExeFolder() + L"vddk-standin\\" + dll;
        if (!PathExists(from)) throw Failure(L"the VDDK stand-in is missing: '" + from + L"' (build target vddk_standin)");
        CopyLibraryIfChanged(from, bin + dll);
    }
    standin_ = true;
    description_ = L"VDDK stand-in (" + StandinRoot() + L")";
}

VddkSetup::~VddkSetup() = default;

}  // namespace dbtool
