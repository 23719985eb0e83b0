// Connections, access preparation and error texts: the VDDK calls of a backup's
// start and end, with the agent's clean-up, retry and masking rules.
#include <algorithm>

#include <diskbroker.h>
#include <skclass_mini/dawdle.h>
#include <skclass_mini/handles.h>
#include <skstdutl/sklog.h>
#include <vixdisklibglue.h>
#include <vixworkerthread.h>

#include "diskbroker_private.h"

using diskbroker_detail::Guarded;

namespace {

constexpr unsigned kMaxAccessAttempts = 10;
constexpr unsigned long kAccessRetryDelayMs = 1000;
// The result of a failed call when an exception ended it inside the library.
constexpr VixError kExceptionResult = VIX_E_FAIL;

// "Not supported on a remote object" and "insufficient permissions": retrying
// cannot help, and a backup goes on without access preparation.
bool IsMaskableAccessCode(VixError result) {
    const VixError code = VIX_ERROR_CODE(result);
    return code == VIX_E_NOT_SUPPORTED_ON_REMOTE_OBJECT || code == VIX_E_HOST_USER_PERMISSIONS;
}

}  // namespace

VixError diskBroker::VixDiskLib_ConnectEx(const VixDiskLibConnectParams *params, char readOnly,
                                          const char *snapshotRef, const char *transportModes,
                                          VixDiskLibConnection *connection) {
    return Guarded(L"VixDiskLib_ConnectEx", kExceptionResult, [&] {
        // Leftovers of an earlier session with the same parameters would hold
        // server resources; the clean-up's own outcome does not matter.
        uint32 numCleanedUp = 0;
        uint32 numRemaining = 0;
        VixDiskLib_Cleanup(params, &numCleanedUp, &numRemaining);
        return Route<VixError>(
            [&](vixWorkerThread &worker) {
                return worker.VixDiskLib_ConnectEx(params, readOnly, snapshotRef, transportModes, connection);
            },
            [&](vixDiskLibGlue &glue) {
                return glue.VixDiskLib_ConnectEx(params, readOnly, snapshotRef, transportModes, connection);
            });
    });
}

VixError diskBroker::VixDiskLib_Disconnect(VixDiskLibConnection connection, const VixDiskLibConnectParams *) {
    return Guarded(L"VixDiskLib_Disconnect", kExceptionResult, [&] {
        ReleaseUnusedDriveMappings();
        return Route<VixError>([&](vixWorkerThread &worker) { return worker.VixDiskLib_Disconnect(connection); },
                               [&](vixDiskLibGlue &glue) { return glue.VixDiskLib_Disconnect(connection); });
    });
}

VixError diskBroker::VixDiskLib_Cleanup(const VixDiskLibConnectParams *params, uint32 *numCleanedUp,
                                        uint32 *numRemaining) {
    return Route<VixError>(
        [&](vixWorkerThread &worker) { return worker.VixDiskLib_Cleanup(params, numCleanedUp, numRemaining); },
        [&](vixDiskLibGlue &glue) { return glue.VixDiskLib_Cleanup(params, numCleanedUp, numRemaining); });
}

char *diskBroker::VixDiskLib_GetErrorText(VixError error, const char *locale) {
    return Route<char *>([&](vixWorkerThread &worker) { return worker.VixDiskLib_GetErrorText(error, locale); },
                         [&](vixDiskLibGlue &glue) { return glue.VixDiskLib_GetErrorText(error, locale); });
}

VixError diskBroker::VixDiskLib_PrepareForAccess(const VixDiskLibConnectParams *params, const char *identity) {
    return Guarded(L"VixDiskLib_PrepareForAccess", kExceptionResult, [&]() -> VixError {
        if (!params || !params->vmxSpec) return VIX_OK;
        auto prepare = [&] {
            return Route<VixError>(
                [&](vixWorkerThread &worker) { return worker.VixDiskLib_PrepareForAccess(params, identity); },
                [&](vixDiskLibGlue &glue) { return glue.VixDiskLib_PrepareForAccess(params, identity); });
        };
        VixError result = VIX_OK;
        unsigned attempts = 0;
        do {
            result = prepare();
            if (IsMaskableAccessCode(result)) break;
            if (result == VIX_OK) return VIX_OK;
            ++attempts;
            SK_Zprintf_2(SK_SOURCE_FILE, 0,
                         L"diskBroker::VixDiskLib_PrepareForAccess() failed, vixResult = %d, retrying attempt %d...",
                         static_cast<int>(result), static_cast<int>(attempts));
            skclass::Dawdle(kAccessRetryDelayMs);
            // Undo a half-done preparation before trying again. When the
            // attempts run out it is this EndAccess's result that stands, so a
            // clean end reports success: the backup proceeds unprepared.
            result = RouteEndAccess(params, identity);
        } while (attempts < kMaxAccessAttempts);
        if (result == VIX_OK) return VIX_OK;
        KeepLastError(result);
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"VixDiskLib_PrepareForAccess() failed. Error code %I64d. Error Msg: %s",
                     static_cast<long long>(lastError), lastErrorText.c_str());
        if (!IsMaskableAccessCode(result)) return result;
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"Masking the last error from VixDiskLib_PrepareForAccess().");
        ClearLastError();
        return VIX_OK;
    });
}

VixError diskBroker::VixDiskLib_EndAccess(const VixDiskLibConnectParams *params, const char *identity) {
    return Guarded(L"VixDiskLib_EndAccess", kExceptionResult, [&]() -> VixError {
        if (!params || !params->vmxSpec) return VIX_OK;
        VixError result = VIX_OK;
        unsigned attempts = 0;
        do {
            result = RouteEndAccess(params, identity);
            if (IsMaskableAccessCode(result)) break;
            if (result == VIX_OK) return VIX_OK;
            ++attempts;
            SK_Zprintf_2(SK_SOURCE_FILE, 0,
                         L"diskBroker::VixDiskLib_EndAccess() failed, vixResult = %d, retrying attempt %d...",
                         static_cast<int>(result), static_cast<int>(attempts));
            skclass::Dawdle(kAccessRetryDelayMs);
        } while (attempts < kMaxAccessAttempts);
        KeepLastError(result);
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"VixDiskLib_EndAccess() failed. Error code %I64d. Error Msg: %s",
                     static_cast<long long>(lastError), lastErrorText.c_str());
        // Whatever went wrong, the backup itself is done: a failed release of
        // the machine must not fail it.
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"Masking the last error from VixDiskLib_EndAccess().");
        ClearLastError();
        return VIX_OK;
    });
}

VixError diskBroker::RouteEndAccess(const VixDiskLibConnectParams *params, const char *identity) {
    return Route<VixError>([&](vixWorkerThread &worker) { return worker.VixDiskLib_EndAccess(params, identity); },
                           [&](vixDiskLibGlue &glue) { return glue.VixDiskLib_EndAccess(params, identity); });
}

void diskBroker::KeepLastError(VixError error) {
    lastError = error;
    lastErrorText.clear();
    GetErrorText(error, lastErrorText);
}

void diskBroker::ClearLastError() {
    lastError = VIX_OK;
    lastErrorText.clear();
}

void diskBroker::ReleaseUnusedDriveMappings() {
    if (!deviceMappingLock) return;
    skclass::CsLock hold(*deviceMappingLock);
    for (;;) {
        auto unused = std::find_if(deviceMappings.begin(), deviceMappings.end(),
                                   [](const diskBrokerDeviceMapping &m) { return m.referenceCount == 0; });
        if (unused == deviceMappings.end()) break;
        UndoDriveMapping(*unused);
        deviceMappings.erase(unused);
    }
}
