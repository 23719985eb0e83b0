// Mounting disk sets: the mount library initialised with the service's own
// configuration file and log callbacks, disk sets opened (once more through a
// mapped device when a share stood in the way), and the volume calls routed.
#include <string>
#include <vector>

#include <diskbroker.h>
#include <skstdutl/sklog.h>
#include <vixmntapiglue.h>
#include <vixworkerthread.h>

#include "diskbroker_private.h"

using diskbroker_detail::Guarded;
using diskbroker_detail::GuardedVoid;

namespace {

constexpr VixError kExceptionResult = VIX_E_FAIL;

// Every occurrence of from in text replaced by to.
wcstring ReplaceAll(wcstring text, const wcstring &from, const wcstring &to) {
    if (from.empty()) return text;
    for (size_t at = text.find(from); at != wcstring::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}

}  // namespace

template <typename Result, typename Call>
Result diskBroker::RouteMount(Call call) {
    if (threadingModel == kWorkerThreadModel) return workerThread ? call(*workerThread) : MissingBinding<Result>();
    if (threadingModel == kNoThreadingModel) return mntapiGlue ? call(*mntapiGlue) : MissingBinding<Result>();
    return Result();
}

VixError diskBroker::VixMntapi_Init(uint32 majorVersion, uint32 minorVersion, VixDiskLibGenericLogFunc *,
                                    VixDiskLibGenericLogFunc *, VixDiskLibGenericLogFunc *, const char *,
                                    const char *) {
    return Guarded(L"VixMntapi_Init", kExceptionResult, [&] {
        wcstring iniPath;
        const bool haveIniFile = createVDDkIniFile(iniPath);
        const cstring configFile = haveIniFile ? cstring::ToUtf8(iniPath) : cstring();
        wcstring directory;
        if (threadingModel == kWorkerThreadModel && workerThread && workerThread->diskLibGlue)
            directory = workerThread->diskLibGlue->installDir;
        else if (threadingModel == kNoThreadingModel && mntapiGlue)
            directory = mntapiGlue->installDir;
        const cstring libDir = cstring::ToUtf8(directory);
        const VixError result = RouteMount<VixError>([&](auto &binding) {
            return binding.VixMntapi_Init(majorVersion, minorVersion, &VddkLogCallback, &VddkWarningCallback,
                                          &VddkPanicCallback, libDir.c_str(), haveIniFile ? configFile.c_str() : nullptr);
        });
        // The file holds nothing the library needs after initialisation.
        if (haveIniFile && !preserveIniFile) DeleteIniFile(iniPath);
        return result;
    });
}

void diskBroker::VixMntapi_Exit() {
    GuardedVoid(L"VixMntapi_Exit", [&] { RouteMount<void>([](auto &binding) { binding.VixMntapi_Exit(); }); });
}

VixError diskBroker::VixMntapi_OpenDisks(VixDiskLibConnection connection, const char **diskNames,
                                         size_t numberOfDisks, uint32 openFlags, VixDiskSetHandle *diskSet) {
    return Guarded(L"VixMntapi_OpenDisks", kExceptionResult, [&] {
        const VixError result = RouteMount<VixError>([&](auto &binding) {
            return binding.VixMntapi_OpenDisks(connection, diskNames, numberOfDisks, openFlags, diskSet);
        });
        if (result == VIX_OK || !diskNames || numberOfDisks == 0) return result;
        return RetryOpenDisksOnShare(result, connection, diskNames, numberOfDisks, openFlags, diskSet);
    });
}

VixError diskBroker::RetryOpenDisksOnShare(VixError error, VixDiskLibConnection connection, const char **diskNames,
                                           size_t numberOfDisks, uint32 openFlags, VixDiskSetHandle *diskSet) {
    wcstring share;
    wcstring localDevice;
    wcstring rewritten;
    // The share is found from the first name only; the others are taken to
    // lie on the same share.
    if (!CheckRemoteParentFailure(error, diskNames[0], share, localDevice, rewritten)) return error;
    const wcstring sharePrefix = L"\\\\" + share;
    std::vector<cstring> names;
    std::vector<const char *> namePointers;
    for (size_t i = 0; i < numberOfDisks; ++i) {
        const wcstring name = ReplaceAll(wcstring::FromUtf8(diskNames[i]), sharePrefix, localDevice);
        names.push_back(cstring::ToUtf8(name));
        if (!MapRemoteParentDiskPathToLocal(name))
            SK_Zprintf_2(SK_SOURCE_FILE, 0, L"diskBroker: MapRemoteParentDiskPathToLocal failed for %s!!", name.c_str());
    }
    for (const cstring &name : names) namePointers.push_back(name.c_str());
    // Routed like every other call: in the no-threading model there is no
    // worker to carry the retry.
    const VixError result = RouteMount<VixError>([&](auto &binding) {
        return binding.VixMntapi_OpenDisks(connection, namePointers.data(), numberOfDisks, openFlags, diskSet);
    });
    if (result != VIX_OK || !diskSet || !deviceMappingLock) {
        ReleaseDeviceReference(localDevice);  // no set keeps it
        return result;
    }
    skclass::CsLock hold(*deviceMappingLock);
    diskBrokerMappingUse<VixDiskSetHandle> use;
    use.localDevice = localDevice;
    use.handle = *diskSet;
    diskSetMappings.push_back(use);
    return result;
}

VixError diskBroker::VixMntapi_CloseDiskSet(VixDiskSetHandle diskSet) {
    return Guarded(L"VixMntapi_CloseDiskSet", kExceptionResult, [&] {
        if (deviceMappingLock) {
            skclass::CsLock hold(*deviceMappingLock);
            for (auto use = diskSetMappings.begin(); use != diskSetMappings.end(); ++use) {
                if (use->handle != diskSet) continue;
                DecrementDeviceReference(use->localDevice);
                diskSetMappings.erase(use);
                break;
            }
        }
        return RouteMount<VixError>([&](auto &binding) { return binding.VixMntapi_CloseDiskSet(diskSet); });
    });
}

VixError diskBroker::VixMntapi_GetVolumeHandles(VixDiskSetHandle diskSet, size_t *numberOfVolumes,
                                                VixVolumeHandle **volumeHandles) {
    return RouteMount<VixError>([&](auto &binding) {
        return binding.VixMntapi_GetVolumeHandles(diskSet, numberOfVolumes, volumeHandles);
    });
}

void diskBroker::VixMntapi_FreeVolumeHandles(VixVolumeHandle *volumeHandles) {
    RouteMount<void>([&](auto &binding) { binding.VixMntapi_FreeVolumeHandles(volumeHandles); });
}

VixError diskBroker::VixMntapi_MountVolume(VixVolumeHandle volumeHandle, Bool readOnly) {
    return RouteMount<VixError>([&](auto &binding) { return binding.VixMntapi_MountVolume(volumeHandle, readOnly); });
}

VixError diskBroker::VixMntapi_DismountVolume(VixVolumeHandle volumeHandle, Bool force) {
    return RouteMount<VixError>([&](auto &binding) { return binding.VixMntapi_DismountVolume(volumeHandle, force); });
}

VixError diskBroker::VixMntapi_GetVolumeInfo(VixVolumeHandle volumeHandle, VixVolumeInfo **info) {
    return RouteMount<VixError>([&](auto &binding) { return binding.VixMntapi_GetVolumeInfo(volumeHandle, info); });
}

void diskBroker::VixMntapi_FreeVolumeInfo(VixVolumeInfo *info) {
    RouteMount<void>([&](auto &binding) { binding.VixMntapi_FreeVolumeInfo(info); });
}
