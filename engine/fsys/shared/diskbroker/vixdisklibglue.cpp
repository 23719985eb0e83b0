// vixDiskLibGlue: binding, forwarding and the statistics hooks of vixDiskLib.dll.
#include <vixdisklibglue.h>

#include <skclass_mini/configuration.h>
#include <skclass_mini/product.h>
#include <skstdutl/sklog.h>

#include "vixbinding.h"
#include "vixdisklibglue_trace.h"
#include "vixreadwritestats_internal.h"

namespace {

const vixbinding::LibraryDescription kDiskLib = {L"vixDiskLibGlue", L"vixDiskLib.dll",
                                                 vixDiskLibGlue::kInstallPathNotFound,
                                                 vixDiskLibGlue::kLibraryNotLoaded};
const wchar_t kUnresolvedFormat[] = L"vixDiskLibGlue: Uninitialized function pointer for: %s. ";

// The agent's settings key of the product (sibling product only for value 1).
const wchar_t *AgentKeyPath() {
    return CMS_GetProd() == 1 ? L"Software\\Tarrow\\Vaultry\\ORMZ\\Engine\\VMware Agent"
                              : L"Software\\Halvorn\\Stowline For Windows\\Stowline\\Engine\\VMware Agent";
}

}  // namespace

vixDiskLibGlue::vixDiskLibGlue() {
    Reset();
    Initialize();  // the outcome shows through OK() and each method's result
}

vixDiskLibGlue::~vixDiskLibGlue() {
    if (moduleHandle && OK() && exitLibraryOnDestroy) VixDiskLib_Exit();
    moduleHandle.reset();
    Reset();
}

skclass::shared_ptr<vixDiskLibGlue> vixDiskLibGlue::GetInstance() {
    wcstring error;
    auto instance = skclass::GetSingleton<vixDiskLibGlue>("vixDiskLibGlue", &error);
    if (!instance) SK_Zprintf_2(SK_SOURCE_FILE, 0, L"vixDiskLibGlue::GetInstance: %s", error.c_str());
    return instance;
}

void vixDiskLibGlue::Reset() {
    installDir.clear();
    moduleHandle.release();  // Reset only forgets; the destructor frees
    functions = FunctionTable();
    ReloadDebugLogLevel();
}

void vixDiskLibGlue::ReloadDebugLogLevel() {
    Configuration agent;
    unsigned long level = 0;
    if (agent.Open(Configuration::OpenExisting, AgentKeyPath(), wcstring(), Configuration::ReadWrite))
        agent.LoadDWORD(L"VMware Agent debug log level", level);
    debugLogLevel = static_cast<uint32_t>(level);
}

uint32_t vixDiskLibGlue::Initialize() {
    moduleHandle.reset();
    Reset();
    const uint32_t result = vixbinding::LocateAndLoad(kDiskLib, installDir, moduleHandle);
    if (result != 0) return result;
#define VIXDISKLIBGLUE_BIND(name, ret, params, args) \
    functions.name = vixbinding::BindByName<name##_fn>(moduleHandle.get(), #name);
    VDDK_DISKLIB_ENTRY_POINTS(VIXDISKLIBGLUE_BIND)
#undef VIXDISKLIBGLUE_BIND
    return 0;
}

bool vixDiskLibGlue::OK() const {
#define VIXDISKLIBGLUE_BOUND(name, ret, params, args) &&functions.name != nullptr
    return moduleHandle.get() != nullptr VDDK_DISKLIB_ENTRY_POINTS(VIXDISKLIBGLUE_BOUND);
#undef VIXDISKLIBGLUE_BOUND
}

void vixDiskLibGlue::AddPathToEnv(const wcstring &directory) { vixbinding::AddPathToEnv(kDiskLib.className, directory); }

#define VIXDISKLIBGLUE_FORWARD(name, ret, params, args)                                                  \
    ret vixDiskLibGlue::name params {                                                                   \
        return vixbinding::Forwarder<vixdisklibtrace::Trace<vixApi::name>, vixDiskLibGlue, name##_fn>(  \
            *this, functions.name, kUnresolvedFormat, vixApiName(vixApi::name)) args;                   \
    }
VDDK_DISKLIB_ENTRY_POINTS(VIXDISKLIBGLUE_FORWARD)
#undef VIXDISKLIBGLUE_FORWARD

VixError vixDiskLibGlue::VixDiskLib_Read(VixDiskLibHandle diskHandle, VixDiskLibSectorType startSector,
                                         VixDiskLibSectorType numSectors, uint8 *readBuffer,
                                         _vixReadWriteStats *stats) {
    if (stats && functions.VixDiskLib_Read) vixstats::RecordRequest(*stats, startSector, numSectors);
    return VixDiskLib_Read(diskHandle, startSector, numSectors, readBuffer);
}

VixError vixDiskLibGlue::VixDiskLib_Write(VixDiskLibHandle diskHandle, VixDiskLibSectorType startSector,
                                          VixDiskLibSectorType numSectors, const uint8 *writeBuffer,
                                          _vixReadWriteStats *stats) {
    if (stats && functions.VixDiskLib_Write) vixstats::RecordRequest(*stats, startSector, numSectors);
    return VixDiskLib_Write(diskHandle, startSector, numSectors, writeBuffer);
}

VixError vixDiskLibGlue::VixDiskLib_Close(VixDiskLibHandle diskHandle, _vixReadWriteStats *stats) {
    if (stats && functions.VixDiskLib_Close) vixstats::FinishAtClose(*stats);
    return VixDiskLib_Close(diskHandle);
}
