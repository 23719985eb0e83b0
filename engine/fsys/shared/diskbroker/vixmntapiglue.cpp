// vixMntapiGlue: binding and forwarding of vixMntapi.dll.
#include <vixmntapiglue.h>

#include <skstdutl/sklog.h>

#include "vixbinding.h"

namespace {

const vixbinding::LibraryDescription kMntapi = {L"vixMntapiGlue", L"vixMntapi.dll",
                                                static_cast<uint32_t>(vixMntapiGlue::kInstallPathNotFound),
                                                static_cast<uint32_t>(vixMntapiGlue::kLibraryNotLoaded)};
const wchar_t kUnresolvedFormat[] = L"vixMntapiGlue: Uninitialized function pointer for: %s. ";

// The name an unresolved entry point is reported under: its own, except two
// printed with an "m_" prefix, which log watchers match on.
const wchar_t *PrintedName(vixApi id) {
    switch (id) {
    case vixApi::VixMntapi_OpenDisks: return L"m_VixMntapi_OpenDisks";
    case vixApi::VixMntapi_GetDiskSetInfo: return L"m_VixMntapi_GetDiskSetInfo";
    default: return vixApiName(id);
    }
}

// Only CloseDiskSet is traced, always, with the disk library's wording.
template <vixApi Id>
struct Trace : vixbinding::NoTrace {};

template <>
struct Trace<vixApi::VixMntapi_CloseDiskSet> : vixbinding::NoTrace {
    static void Before(vixMntapiGlue &, VixDiskSetHandle) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"Calling the vixdiskLib api: VixMntapi_CloseDiskSet() ");
    }
};

}  // namespace

vixMntapiGlue::vixMntapiGlue() { Initialize(); }

vixMntapiGlue::~vixMntapiGlue() {
    if (moduleHandle && OK() && exitLibraryOnDestroy) VixMntapi_Exit();
    moduleHandle.reset();
}

skclass::shared_ptr<vixMntapiGlue> vixMntapiGlue::GetInstance() {
    wcstring error;
    auto instance = skclass::GetSingleton<vixMntapiGlue>("vixMntapiGlue", &error);
    if (!instance) SK_Zprintf_2(SK_SOURCE_FILE, 0, L"vixMntapiGlue::GetInstance: %s", error.c_str());
    return instance;
}

int32_t vixMntapiGlue::Initialize() {
    moduleHandle.reset();
    installDir.clear();
    functions = FunctionTable();
    initializeResult = static_cast<int32_t>(vixbinding::LocateAndLoad(kMntapi, installDir, moduleHandle));
    if (initializeResult != 0) return initializeResult;
#define VIXMNTAPIGLUE_BIND(name, ret, params, args) \
    functions.name = vixbinding::BindByName<name##_fn>(moduleHandle.get(), #name);
    VDDK_MNTAPI_ENTRY_POINTS(VIXMNTAPIGLUE_BIND)
#undef VIXMNTAPIGLUE_BIND
    return 0;
}

bool vixMntapiGlue::OK() const {
#define VIXMNTAPIGLUE_BOUND(name, ret, params, args) &&functions.name != nullptr
    return moduleHandle.get() != nullptr VDDK_MNTAPI_ENTRY_POINTS(VIXMNTAPIGLUE_BOUND);
#undef VIXMNTAPIGLUE_BOUND
}

void vixMntapiGlue::AddPathToEnv(const wcstring &directory) { vixbinding::AddPathToEnv(kMntapi.className, directory); }

#define VIXMNTAPIGLUE_FORWARD(name, ret, params, args)                                        \
    ret vixMntapiGlue::name params {                                                         \
        return vixbinding::Forwarder<Trace<vixApi::name>, vixMntapiGlue, name##_fn>(         \
            *this, functions.name, kUnresolvedFormat, PrintedName(vixApi::name)) args;       \
    }
VDDK_MNTAPI_ENTRY_POINTS(VIXMNTAPIGLUE_FORWARD)
#undef VIXMNTAPIGLUE_FORWARD
