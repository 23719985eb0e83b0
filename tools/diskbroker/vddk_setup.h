// Which VDDK the library will load. The library finds VDDK only through the
// product's registry install value, so using the stand-in means laying it out
// like an install and pointing that value at it, the production way.
#pragma once
#include <memory>
#include <string>

namespace dbtool {

enum class VddkChoice {
    Auto,       // the registered VDDK when it is really there, else the stand-in
    Standin,    // the stand-in beside this program, even if a VDDK is registered
    Installed,  // the registered VDDK only; an error when there is none
};

VddkChoice ParseVddkChoice(const std::wstring &text);

// Prepares the registry for the choice. When it had to replace a registered
// value (Standin over a real install) it puts the old value back on
// destruction; a value it added where none was stays, so later runs agree.
class VddkSetup {
public:
    explicit VddkSetup(VddkChoice choice);
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
    bool restoreOld_ = false;
    std::wstring oldValue_;
};

}  // namespace dbtool
