// Remote parent mapping, device side: when an open fails on a disk whose share
// VDDK cannot reach, the share gets a local DOS device name ("1:" ... "9:"), the
// path is rewritten onto it and the caller retries once. Each handle or disk
// set opened that way holds one reference on the device; Disconnect removes
// devices nobody holds any more.
//
// Device names: one digit, so "1:" to "9:" are tried in order; when all nine
// are taken by other targets the mapping fails (logged) and the caller gets
// its first error back without a retry.
#include <algorithm>

#include <diskbroker.h>
#include <skstdutl/sklog.h>

#include "diskbroker_dosdevice.h"
#include "diskbroker_private.h"

using diskbroker_detail::DosDeviceDefinition;

namespace {

constexpr DWORD kDeviceBufferChars = 1040;
constexpr wchar_t kFirstDevice = L'1';
constexpr wchar_t kLastDevice = L'9';
const wchar_t kLanmanPrefix[] = L"\\Device\\LanmanRedirector\\";
const wchar_t kDfsPrefix[] = L"\\Device\\Mup\\DfsClient\\";

bool IsSharePath(const wcstring &path) { return path.size() > 2 && path[0] == L'\\' && path[1] == L'\\'; }

wcstring WithoutTrailingBackslashes(wcstring text) {
    while (!text.empty() && text.back() == L'\\') text.pop_back();
    return text;
}

// The first target of a DOS device name; false when the name is not defined.
bool QueryDevice(const wcstring &name, wcstring &target) {
    wchar_t buffer[kDeviceBufferChars] = {};
    if (!QueryDosDeviceW(name.c_str(), buffer, kDeviceBufferChars)) return false;
    target = buffer;
    return true;
}

}  // namespace

bool diskBroker::MapRemoteParent(VixError error, const char *path, cstring &mappedPath, wcstring &localDevice) {
    wcstring share;
    wcstring rewritten;
    mappedPath.clear();
    if (!CheckRemoteParentFailure(error, path, share, localDevice, rewritten)) return false;
    mappedPath = cstring::ToUtf8(rewritten);
    return true;
}

bool diskBroker::CheckRemoteParentFailure(VixError error, const char *path, wcstring &share, wcstring &localDevice,
                                          wcstring &rewrittenPath) {
    share.clear();
    localDevice.clear();
    rewrittenPath.clear();
    if (!path) return false;
    // Only a "file too big" failure (VDDK's answer for a parent it cannot
    // reach) or a share path can be due to a parent disk on a network share.
    if (VIX_ERROR_CODE(error) != VIX_E_FILE_TOO_BIG && !(path[0] == '\\' && path[1] == '\\')) return false;
    wcstring text;
    GetErrorText(error, text);
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"Error Text: '%s' Error: '%I64d'", text.c_str(), static_cast<long long>(error));
    wcstring lastFolder;
    wcstring fileName;
    if (MapShareToDevice(wcstring::FromUtf8(path), share, localDevice, lastFolder, fileName) != ERROR_SUCCESS)
        return false;
    rewrittenPath = localDevice + lastFolder + L"\\" + fileName;
    if (!MapRemoteParentDiskPathToLocal(rewrittenPath))
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"diskBroker: MapRemoteParentDiskPathToLocal failed for %s!!",
                     rewrittenPath.c_str());
    return true;
}

DWORD diskBroker::MapShareToDevice(const wcstring &path, wcstring &share, wcstring &localDevice, wcstring &lastFolder,
                                   wcstring &fileName) {
    // A local path has no share: mapping its first characters as one would
    // only define a device to nowhere.
    const size_t fileAt = path.rfind(L'\\');
    const size_t folderAt = fileAt == wcstring::npos || fileAt < 2 ? wcstring::npos : path.rfind(L'\\', fileAt - 1);
    if (!IsSharePath(path) || folderAt == wcstring::npos || folderAt < 3) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"diskBroker: '%s' is not a path on a network share, nothing to map",
                     path.c_str());
        return ERROR_BAD_NETPATH;
    }
    fileName = path.substr(fileAt + 1);
    lastFolder = path.substr(folderAt + 1, fileAt - folderAt - 1);
    share = path.substr(2, folderAt - 1);  // server\share\, the backslash kept
    if (!deviceMappingLock) return ERROR_INVALID_STATE;
    skclass::CsLock hold(*deviceMappingLock);
    for (diskBrokerDeviceMapping &mapping : deviceMappings) {
        if (mapping.remoteShare != share) continue;
        ++mapping.referenceCount;
        localDevice = mapping.localDevice;
        return ERROR_SUCCESS;
    }
    const DWORD result = DefineShareDevice(share, localDevice);
    if (result != ERROR_SUCCESS) return result;
    diskBrokerDeviceMapping mapping;
    mapping.remoteShare = share;
    mapping.localDevice = localDevice;
    mapping.referenceCount = 1;
    deviceMappings.push_back(mapping);
    return ERROR_SUCCESS;
}

DWORD diskBroker::DefineShareDevice(const wcstring &share, wcstring &localDevice) {
    const wcstring lanman = kLanmanPrefix + share;
    const wcstring dfs = kDfsPrefix + share;
    for (wchar_t digit = kFirstDevice; digit <= kLastDevice; ++digit) {
        const wcstring name = wcstring(1, digit) + L":";
        wcstring target;
        if (QueryDevice(name, target)) {
            if (comparei(target, lanman) != 0 && comparei(target, dfs) != 0) continue;
            localDevice = name + L"\\";
            return ERROR_SUCCESS;
        }
        DosDeviceDefinition definition;
        if (definition.Define(name, lanman) && GetFileAttributesW((name + L"\\").c_str()) != INVALID_FILE_ATTRIBUTES) {
            definition.Release();  // the table owns it now; Disconnect removes it
            localDevice = name + L"\\";
            return ERROR_SUCCESS;
        }
        // Not reachable through the redirector: a DFS share. The first
        // definition goes first, or it would stay beneath the second one.
        definition.Remove();
        if (definition.Define(name, dfs)) {
            definition.Release();
            localDevice = name + L"\\";
            return ERROR_SUCCESS;
        }
    }
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"diskBroker: no free device name (1: to 9:) for the share %s", share.c_str());
    return ERROR_NO_MORE_ITEMS;
}

void diskBroker::AddHandleMappingUse(const wcstring &localDevice, VixDiskLibHandle vixHandle) {
    if (!deviceMappingLock) return;
    // The reference itself was counted when the device was mapped.
    skclass::CsLock hold(*deviceMappingLock);
    diskBrokerMappingUse<VixDiskLibHandle> use;
    use.localDevice = localDevice;
    use.handle = vixHandle;
    handleMappings.push_back(use);
}

void diskBroker::ReleaseHandleMapping(VixDiskLibHandle vixHandle) {
    if (!deviceMappingLock) return;
    skclass::CsLock hold(*deviceMappingLock);
    auto use = std::find_if(handleMappings.begin(), handleMappings.end(),
                            [&](const diskBrokerMappingUse<VixDiskLibHandle> &u) { return u.handle == vixHandle; });
    if (use == handleMappings.end()) return;
    DecrementDeviceReference(use->localDevice);
    handleMappings.erase(use);
}

void diskBroker::ReleaseDeviceReference(const wcstring &localDevice) {
    if (!deviceMappingLock || localDevice.empty()) return;
    skclass::CsLock hold(*deviceMappingLock);
    DecrementDeviceReference(localDevice);
}

void diskBroker::DecrementDeviceReference(const wcstring &localDevice) {
    for (diskBrokerDeviceMapping &mapping : deviceMappings) {
        if (mapping.localDevice != localDevice) continue;
        if (mapping.referenceCount > 0) --mapping.referenceCount;
        return;
    }
}

void diskBroker::UndoDriveMapping(const diskBrokerDeviceMapping &mapping) {
    RevertLocalParentDiskPathToRemote(mapping.localDevice);
    const wcstring device = WithoutTrailingBackslashes(mapping.localDevice);
    wcstring target;
    if (!QueryDevice(device, target)) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"QueryDosDevice(%s) failed. Last Error: %d. Will not try to unmap the device",
                     device.c_str(), static_cast<int>(GetLastError()));
        return;
    }
    if (!DefineDosDeviceW(DDD_RAW_TARGET_PATH | DDD_REMOVE_DEFINITION | DDD_EXACT_MATCH_ON_REMOVE, device.c_str(),
                          target.c_str()))
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"Could not remove the mapping for '(%s):(%s)' %d", device.c_str(),
                     target.c_str(), static_cast<int>(GetLastError()));
}

std::vector<diskBrokerDeviceMapping> diskBroker::DeviceMappings() {
    if (!deviceMappingLock) return {};
    skclass::CsLock hold(*deviceMappingLock);
    return deviceMappings;
}
