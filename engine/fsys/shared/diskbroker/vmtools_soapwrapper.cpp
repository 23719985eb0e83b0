// Part of the vSphere layer: finding and binding the web-services library, the
// wrapper's forwarding methods, and the library's log callback.
#include <stdio.h>
#include <string.h>

#include <memory>
#include <stdexcept>
#include <string>

#include <skclass_mini/configuration.h>
#include <skclass_mini/product.h>

#include "vmtools_internal.h"

namespace {

const wchar_t kMainInstallKey[] = L"Software\\Halvorn\\Stowline For Windows\\Stowline\\14.1\\Install";
const wchar_t kSiblingInstallKey[] = L"Software\\Tarrow\\Vaultry\\CurrentVersion";

// Thrown with the name of an entry point the library lacks.
struct MissingEntryPoint : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The library's file: found through the product's install value, or left to
// the system's search when the key or the value is missing.
wcstring RavelkitLibraryPath() {
    const bool siblingFile = CMS_GetProd() == 1;
    wcstring name = siblingFile ? L"vyravelkit.dll" : L"ravelkit.dll";
    // The key is chosen by a second look at the product, as the library's
    // installers place it; product 2 reads the sibling's key but the main file name.
    const bool mainKey = CMS_GetProd() == 0;
    Configuration install;
    if (install.Open(Configuration::OpenExisting, mainKey ? kMainInstallKey : kSiblingInstallKey, wcstring(),
                     Configuration::ReadWrite)) {
        wcstring folder;
        if (install.Load(mainKey ? L"Path" : L"INSTALLDIR", folder)) {
            while (!folder.empty() && folder.back() == L'\\') folder.pop_back();
            name = folder + L"\\" + (siblingFile ? L"vaultry\\bin\\vyravelkit.dll" : L"ravelkit.dll");
        }
        install.Close();
    }
    return name;
}

template <typename Fn>
Fn BindEntry(HMODULE module, const char *name) {
    // Through void(*)(): the conversion both GCC and MSVC accept without warning.
    Fn entry = reinterpret_cast<Fn>(reinterpret_cast<void (*)()>(GetProcAddress(module, name)));
    if (!entry) throw MissingEntryPoint(name);
    return entry;
}

void BindAll(HMODULE module, ravelkit::EntryTable &entries) {
#define VMTOOLS_BIND(name, ret, params, args) entries.name = BindEntry<name##_fn>(module, #name);
    RAVELKIT_ENTRY_POINTS(VMTOOLS_BIND)
#undef VMTOOLS_BIND
}

}  // namespace

HMODULE DynLoadRavelkitLib(vmToolsLoader &loader) {
    const wcstring path = RavelkitLibraryPath();
    skclass::UniqueModule module(LoadLibraryW(path.c_str()));
    if (!module) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"DynLoadRavelkitLib: could not load: %s", path.c_str());
        return nullptr;
    }
    try {
        BindAll(module.get(), loader.entries);
    } catch (const MissingEntryPoint &missing) {
        const wcstring entry = wcstring::FromUtf8(missing.what());
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"Error while dynamically loading : %s", entry.c_str());
        return nullptr;  // module frees the library
    }
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"DynLoadRavelkitLib: loaded OK");
    loader.moduleHandle = std::move(module);
    return loader.moduleHandle.get();
}

vmToolsLoader::vmToolsLoader() {
    if (!DynLoadRavelkitLib(*this)) throw static_cast<uint32_t>(dbresult::kRavelkitNotLoaded);
}

skclass::shared_ptr<vmToolsLoader> vmToolsLoader::GetInstance() {
    return skclass::GetSingleton<vmToolsLoader>("vmToolsLoader");
}

soapVmToolsWrapper::soapVmToolsWrapper() : loader(vmToolsLoader::GetInstance()) {
    if (!loader) throw static_cast<uint32_t>(dbresult::kRavelkitNotLoaded);
}

soapVmToolsWrapper::~soapVmToolsWrapper() = default;

#define VMTOOLS_FORWARD(name, ret, params, args) \
    ret soapVmToolsWrapper::name params { return loader->entries.name args; }
RAVELKIT_ENTRY_POINTS(VMTOOLS_FORWARD)
#undef VMTOOLS_FORWARD

int soapVmToolsWrapper::vmcGetVmFolderHierarchy(void *session, const char *outputFile) {
    return vmcGetObjectInfo(session, "root", "vm_3", nullptr, outputFile);
}

int soapVmToolsWrapper::vmcGetHostFolderHierarchy(void *session, const char *outputFile) {
    return vmcGetObjectInfo(session, "root", "host", nullptr, outputFile);
}

// The library hands its va_list as a char pointer (what va_list is on Windows).
static_assert(sizeof(va_list) == sizeof(char *), "va_list is a pointer on Windows");

namespace {

void LogLibraryLine(const char *format, char *arguments) {
    va_list measure;
    memcpy(&measure, &arguments, sizeof measure);
    const int length = vsnprintf(nullptr, 0, format, measure);
    if (length <= 0) return;
    std::unique_ptr<char[]> text(new (std::nothrow) char[static_cast<size_t>(length) + 1]());
    if (!text) return;
    va_list format2;
    memcpy(&format2, &arguments, sizeof format2);
    if (vsnprintf(text.get(), static_cast<size_t>(length) + 1, format, format2) <= 0) return;
    const wcstring wide = wcstring::FromUtf8(text.get());
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"RavelKit: %ls", wide.c_str());
}

}  // namespace

// Runs inside the library's own calls, on any thread: nothing may escape into it.
void vmcLogCallback(const char *format, char *arguments) {
    if (!format) return;
    try {
        LogLibraryLine(format, arguments);
    } catch (...) {
        // A line that cannot be converted is dropped: the library's log is advisory.
    }
}

namespace vmtools {

const wchar_t *AgentKeyPath() {
    return CMS_GetProd() == 1 ? L"Software\\Tarrow\\Vaultry\\ORMZ\\Engine\\VMware Agent"
                              : L"Software\\Halvorn\\Stowline For Windows\\Stowline\\Engine\\VMware Agent";
}

}  // namespace vmtools
