// What the files of the vSphere layer share: the loader, the agent's registry
// key, UTF-8 conversions, and the guard that keeps exceptions inside exports.
#pragma once

#include <stdint.h>

#include <exception>
#include <new>

#include <diskbroker_results.h>
#include <ravelkit/ravelkit_api.h>
#include <skclass_mini/handles.h>
#include <skclass_mini/strings.h>
#include <skstdutl/sklog.h>
#include <vmtools_soapwrapper.h>

// Loads and binds the web-services library; one per process (singleton
// storage). No object exists without a bound library: the constructor throws
// dbresult::kRavelkitNotLoaded (an uint32_t) instead.
class vmToolsLoader {
public:
    vmToolsLoader();
    vmToolsLoader(const vmToolsLoader &) = delete;
    vmToolsLoader &operator=(const vmToolsLoader &) = delete;

    // The process-wide loader, created on first use; null when the library
    // could not be loaded (logged), so the next call tries again.
    static skclass::shared_ptr<vmToolsLoader> GetInstance();

    // Written only by DynLoadRavelkitLib, during construction.
    ravelkit::EntryTable entries;
    skclass::UniqueModule moduleHandle;
};

// Finds, loads and binds the library into loader; returns the module or null
// (logged). On success the loader owns the module.
HMODULE DynLoadRavelkitLib(vmToolsLoader &loader);

// The log callback installed with vmcSetLogger.
void vmcLogCallback(const char *format, char *arguments);

namespace vmtools {

// The agent's settings key: the sibling product's for product 1, else the main one's.
const wchar_t *AgentKeyPath();

inline cstring Utf8(const wcstring &wide) { return cstring::ToUtf8(wide); }
inline wcstring Wide(const std::string &utf8) { return wcstring::FromUtf8(utf8.c_str(), utf8.size()); }

// Runs body; an exception that escapes it is logged with the function's name
// and becomes kOutOfResources, so none leaves an exported function.
template <typename Body>
uint32_t Guarded(const wchar_t *function, Body body) noexcept {
    try {
        return body();
    } catch (const std::exception &e) {
        const wcstring what = wcstring::FromAnsi(e.what());
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"Exception in %s %s", function, what.c_str());
    } catch (...) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"Exception (unknown) in %s", function);
    }
    return dbresult::kOutOfResources;
}

}  // namespace vmtools
