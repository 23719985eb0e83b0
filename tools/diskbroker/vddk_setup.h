// Which VDDK the library will load. The library finds VDDK only through the
// product's registry install value, so using the stand-in means laying it out
// like an install and pointing that value at it, the production way, in the
// stand-in machine's registry: the machine's own registry never changes.
#pragma once
#include <memory>
#include <string>

#include "standin_machine.h"

namespace dbtool {

enum class VddkChoice {
    Auto,       // the registered VDDK when it is really there, else the stand-in
    Standin,    // the stand-in beside this program, even if a VDDK is registered
    Installed,  // the registered VDDK only; an error when there is none
};

VddkChoice ParseVddkChoice(const std::wstring &text);

// Prepares the registry for the choice: a registered VDDK is used as it is;
// the stand-in is registered only in the stand-in machine, which HKLM stands
// for while this object lives (its "Path" or "InstallDir64" set each run).
class VddkSetup {
public:
    // machine: see StandinMachine (null: the machine's own HKLM).
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
    std::unique_ptr<StandinMachine> machine_;
};

}  // namespace dbtool
