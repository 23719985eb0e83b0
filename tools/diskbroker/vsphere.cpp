#include "vsphere.h"

#include <vector>

#include <diskbroker_results.h>
#include <skclass_mini/product.h>

#include "console.h"
#include "errors.h"
#include "files.h"

namespace dbtool {
namespace {

// The VDDK set-up's stand-in root (vddk_setup.cpp): the product's install
// value points here, so the library finds the web-services stand-in here too.
std::wstring StandinRoot() { return ExeFolder() + L"vddk-standin-install"; }

std::wstring LibraryPath(const std::wstring &root) {
    return root + (CMS_GetProd() == 1 ? L"\\vaultry\\bin\\vyravelkit.dll" : L"\\ravelkit.dll");
}

template <typename Fn>
Fn Control(HMODULE module, const char *name) {
    return reinterpret_cast<Fn>(reinterpret_cast<void (*)()>(GetProcAddress(module, name)));
}

void ReadPassword(const std::wstring &variable, wcstring &password) {
    const DWORD needed = GetEnvironmentVariableW(variable.c_str(), nullptr, 0);
    if (needed == 0)
        throw Failure(L"a server connection needs a password in the environment variable " + variable +
                      L" (it is never taken from the command line)");
    password.assign(needed, L'\0');
    const DWORD length = GetEnvironmentVariableW(variable.c_str(), &password[0], needed);
    password.resize(length < needed ? length : 0);
}

}  // namespace

VsphereLibrary::VsphereLibrary(const VsphereOptions &options) {
    if (!options.standin && !options.live) {
        description_ = L"the registered web-services library";
        return;
    }
    const std::wstring root = StandinRoot();
    const std::wstring target = LibraryPath(root);
    CreateFolders(target.substr(0, target.find_last_of(L'\\')));
    const std::wstring from = ExeFolder() + (options.live ? L"ravelkit-live" : L"ravelkit-standin") + L"\\ravelkit.dll";
    if (!PathExists(from))
        throw Failure(L"the web-services library is missing: '" + from + L"' (build target " +
                      (options.live ? L"ravelkit_live" : L"ravelkit_standin") + L")");
    // The stand-in and the live client go to the same place, where the
    // library looks: a run of the other kind may hold its copy loaded there.
    CopyLibraryIfChanged(from, target);
    if (CMS_GetProd() != 0) {
        // The sibling product finds the library through its install value:
        // written in the stand-in machine, never in the machine's registry.
        machine_ = std::make_unique<StandinMachine>();
        machine_->SetString(L"Software\\Tarrow\\Vaultry\\CurrentVersion", L"INSTALLDIR", root);
    }
    if (options.live) {
        description_ = L"the web-services client '" + target + L"'";
        return;
    }
    standin_.reset(LoadLibraryW(target.c_str()));
    if (!standin_) ThrowLastError(L"cannot load the vSphere stand-in '" + target + L"'");
    const std::wstring state = options.inventory.empty() ? root + L"\\vsphere-standin-inventory.xml"
                                                         : FullPath(options.inventory);
    auto setStateFile = Control<int (*)(const wchar_t *)>(standin_.get(), "RavelSim_SetStateFile");
    if (!setStateFile || setStateFile(state.c_str()) != 0)
        throw Failure(L"the vSphere stand-in cannot use the inventory file '" + state +
                      L"' (not a readable <inventory> document, or not writable)");
    description_ = L"vSphere stand-in (inventory " + state + L")";
}

VsphereSession::VsphereSession(const VsphereOptions &options) {
    if (options.server.empty()) throw UsageError(L"--server is required");
    ReadPassword(options.passwordVariable, password_);
    const uint32_t result = vddkConnectToVMWareServer(options.server.c_str(), options.user.c_str(),
                                                      password_.c_str(), &wrapper_, &session_);
    if (result == dbresult::kOk) return;
    // Without a session the library is not asked for its last error.
    std::wstring why;
    if (result == dbresult::kLoginFailed) why = L"the server refused the user name or password of " + options.user;
    else if (result == dbresult::kConnectFailed) why = L"the server cannot be reached at https://" + options.server + L"/sdk";
    else if (result == dbresult::kRavelkitNotLoaded) why = L"the web-services library could not be loaded (see the log)";
    else why = L"the session could not be set up";
    if (wrapper_) (void)vddkDisconnectFromVCServer(wrapper_, session_);  // frees the wrapper
    wrapper_ = nullptr;
    SecureZeroMemory(&password_[0], password_.size() * sizeof(wchar_t));
    throw Failure(L"vSphere connect to " + options.server + L" failed (" + Hex32(result) + L"): " + why);
}

VsphereSession::~VsphereSession() {
    if (wrapper_) (void)vddkDisconnectFromVCServer(wrapper_, session_);  // a failed logout still disconnects
    if (!password_.empty()) SecureZeroMemory(&password_[0], password_.size() * sizeof(wchar_t));
}

std::wstring VsphereSession::LastError() {
    wcstring text;
    int code = 0;
    if (vddkGetLastVIErr(text, &code, wrapper_, session_) != dbresult::kOk) return L"no further detail";
    return text.empty() ? std::wstring(L"no further detail") : text;
}

void VsphereSession::Check(uint32_t result, const std::wstring &what) {
    if (result != dbresult::kOk) throw Failure(what + L" failed (" + Hex32(result) + L"): " + LastError());
}

}  // namespace dbtool
