// The machine the program runs against with the VDDK stand-in: a registry of
// its own standing for HKEY_LOCAL_MACHINE, so the stand-in is registered the
// production way while the machine's registry never changes. It is a
// persistent key, HKCU\Software\diskBroker\StandinMachine, made on first use
// from a copy of the products' keys in the machine's HKLM and kept across
// runs: what the library records there (the orphan-snapshot list, the agent's
// settings) outlives a killed run, so the next run can act on it. HKLM is
// redirected onto it (RegOverridePredefKey, for the whole process) while an
// object of this class lives; a killed run leaves the real HKLM as it was.
#pragma once
#include <string>

#include <skclass_mini/handles.h>

namespace dbtool {

class StandinMachine {
public:
    // machine: what HKLM stands for, copied from on first use and redirected
    // back to at the end; null for the machine's own. (Windows cannot tell a
    // process where HKLM points, so a caller that redirected it already, as
    // tests do, says; such a machine keeps its stand-in machine inside itself,
    // under the same path, and takes it along when it goes.)
    // Made while another StandinMachine of this process lives, it uses that
    // one's key and leads HKLM back to it. Set up and torn down on one thread,
    // innermost first, as scopes nest.
    // Throws Failure when it cannot be set up; HKLM is then as it was.
    explicit StandinMachine(HKEY machine = nullptr);
    // Redirects HKLM back to where it pointed before; the key stays.
    ~StandinMachine();
    StandinMachine(const StandinMachine &) = delete;
    StandinMachine &operator=(const StandinMachine &) = delete;

    // Writes a string value under HKLM\<keyPath> as this process sees it.
    void SetString(const std::wstring &keyPath, const std::wstring &name, const std::wstring &value);

    // Where the stand-in machine lives, under HKCU (or the caller's machine).
    static const wchar_t kKeyPath[];

private:
    StandinMachine *outer_;  // the one HKLM pointed at before, if any
    HKEY previous_;          // not owned: where HKLM pointed before (null: the machine's own)
    skclass::UniqueHkey root_;
};

}  // namespace dbtool
