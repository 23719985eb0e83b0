// Which VDDK the library will load. The library finds VDDK only through the
// product's registry install value, so using the stand-in means laying it out
// like an install and pointing that value at it, the production way, in a
// registry view private to this process: the machine's registry never changes.
#pragma once
#include <memory>
#include <string>

#include "registry_view.h"

namespace dbtool {

enum class VddkChoice {
    Auto,       // the registered VDDK when it is really there, else the stand-in
    Standin,    // the stand-in beside this program, even if a VDDK is registered
    Installed,  // the registered VDDK only; an error when there is none
};

VddkChoice ParseVddkChoice(const std::wstring &text);

// Prepares the registry for the choice: a registered VDDK is used as it is;
// the stand-in is registered only in a private view of HKLM that ends with
// this object (and with the process, should it be killed).
class VddkSetup {
public:
    // machine: see PrivateRegistryView (null: the machine's own HKLM).
    explicit VddkSetup(VddkChoice choice, HKEY machine = nullptr);
    ~VddkSetup();
    VddkSetup(const VddkSetup &) = delete;
    VddkSetup &operator=(const VddkSetup &) = delete;

    // "VDDK stand-in (C:\...)" or "VDDK at C:\..." for the narrative.
    const std::wstring &Description() const { return description_; }
    bool UsesStandin() const { return standin_; }

private:
    void InstallStandin();

    std::wstring description_;
    bool standin_ = false;
    std::unique_ptr<PrivateRegistryView> view_;
};

}  // namespace dbtool
