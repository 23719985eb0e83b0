// Helpers shared by the diskBroker sources: registry keys, the exception edge.
#pragma once

#include <exception>

#include <skclass_mini/configuration.h>
#include <skclass_mini/product.h>
#include <skclass_mini/strings.h>
#include <skstdutl/sklog.h>
#include <vmware/vddk_api.h>

namespace diskbroker_detail {

// The agent's settings tree: the sibling product's when CMS_GetProd() is 1,
// the main product's for every other value (the VDDK install key follows a
// different test, in the binding).
inline const wchar_t *AgentKeyPath() {
    return CMS_GetProd() == 1 ? L"Software\\Tarrow\\Vaultry\\ORMZ\\Engine\\VMware Agent"
                              : L"Software\\Halvorn\\Stowline For Windows\\Stowline\\Engine\\VMware Agent";
}
inline const wchar_t *MiscKeyPath() {
    return CMS_GetProd() == 1 ? L"Software\\Tarrow\\Vaultry\\ORMZ\\Engine\\Misc"
                              : L"Software\\Halvorn\\Stowline For Windows\\Stowline\\Engine\\Misc";
}

// Opens HKLM\keyPath the way the product's settings code does (existing key,
// read-write access that falls back to read).
inline bool OpenSettingsKey(Configuration &config, const wchar_t *keyPath) {
    return config.Open(Configuration::OpenExisting, keyPath, wcstring(), Configuration::ReadWrite);
}

// Runs operation and keeps any exception inside the library: logs
// "Exception in diskBroker::<name> <text>" or "Exception (unknown) in
// diskBroker::<name>" and returns onException.
template <typename Result, typename Operation>
Result Guarded(const wchar_t *name, Result onException, Operation operation) noexcept {
    try {
        return operation();
    } catch (const std::exception &e) {
        // %hs: the narrow text as it is, so logging the failure allocates nothing.
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"Exception in diskBroker::%s %hs", name, e.what());
    } catch (...) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"Exception (unknown) in diskBroker::%s", name);
    }
    return onException;
}

template <typename Operation>
void GuardedVoid(const wchar_t *name, Operation operation) noexcept {
    Guarded<int>(name, 0, [&] {
        operation();
        return 0;
    });
}

}  // namespace diskbroker_detail
