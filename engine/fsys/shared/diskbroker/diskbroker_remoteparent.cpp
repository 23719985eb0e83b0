// Remote parent mapping, chain side: a child whose parents lie on a network
// share is relinked to them through a connected drive, and put back later.
//
// Connections (m_shareDriveLetterMap) are counted per rewritten link: a link
// relinked through a share's drive takes one reference, putting the link back
// releases it, and the last release cancels the connection. Links are put back
// when the device the child was reached through is removed (Disconnect, for a
// child path that begins with that device), and every link and connection
// still held goes when the service ends, so none lasts for the process's life.
#include <io.h>

#include <diskbroker.h>
#include <skstdutl/sklog.h>

#include "diskbroker_private.h"

using diskbroker_detail::Guarded;
using diskbroker_detail::GuardedVoid;

namespace {

// The connection's drive comes back in a buffer of this size ("Z:" and more).
constexpr DWORD kAccessNameChars = 32;
constexpr size_t kMaxRemoteNameChars = 260;
// A chain deeper than this is a loop of parent links, not a disk.
constexpr int kMaxChainDepth = 64;

bool IsSharePath(const wcstring &path) { return path.size() > 1 && path[0] == L'\\' && path[1] == L'\\'; }

wcstring WithoutTrailingBackslashes(wcstring text) {
    while (!text.empty() && text.back() == L'\\') text.pop_back();
    return text;
}

// The last two components of a path ("IMG0001\disk.vmdk").
wcstring LastTwoComponents(const wcstring &path) {
    const size_t file = path.rfind(L'\\');
    if (file == wcstring::npos || file == 0) return path;
    const size_t folder = path.rfind(L'\\', file - 1);
    return folder == wcstring::npos ? path : wcstring(path.substr(folder + 1));
}

bool StartsWithNoCase(const wcstring &text, const wcstring &prefix) {
    return text.size() >= prefix.size() && comparei(text.substr(0, prefix.size()), prefix) == 0;
}

}  // namespace

bool diskBroker::MapRemoteParentDiskPathToLocal(const wcstring &childDisk) {
    return Guarded(L"MapRemoteParentDiskPathToLocal", false, [&] {
        if (_waccess(childDisk.c_str(), 0) != 0) return true;  // nothing there to relink
        if (!childParentLinkLock) return false;
        // Held for the whole walk: two opens of one child must not relink it twice.
        skclass::CsLock hold(*childParentLinkLock);
        if (m_childParentLinkMap.count(childDisk)) return true;
        DiskInfoList links;
        bool ok = true;
        wcstring current = childDisk;
        for (int depth = 0;; ++depth) {
            const wcstring parent = GetParentDiskPath(current);
            if (parent.empty()) {
                SK_Zprintf_2(SK_SOURCE_FILE, 0, L"diskBroker::MapRemoteParentDiskPathToLocal: No parent found for %s",
                             current.c_str());
                break;
            }
            if (depth >= kMaxChainDepth) {
                SK_Zprintf_2(SK_SOURCE_FILE, 0,
                             L"diskBroker::MapRemoteParentDiskPathToLocal: parent links of %s form a loop", childDisk.c_str());
                ok = false;
                break;
            }
            if (!IsSharePath(parent)) {
                current = parent;
                continue;
            }
            wcstring localParent;
            if (!RelinkToShareDrive(current, parent, links, localParent)) {
                ok = false;
                break;
            }
            current = localParent;
        }
        // Whatever was relinked is recorded, so that it is put back later.
        if (!m_childParentLinkMap.emplace(childDisk, links).second) {
            SK_Zprintf_2(SK_SOURCE_FILE, 0, L"diskBroker::MapRemoteParentDiskPathToLocal: m_childParentLinkMap.insert failed for %s!!",
                         childDisk.c_str());
            return false;
        }
        return ok;
    });
}

bool diskBroker::AcquireShareDrive(const wcstring &share, wcstring &drive) {
    {
        skclass::CsLock hold(*shareDriveLetterLock);
        auto known = m_shareDriveLetterMap.find(share);
        if (known != m_shareDriveLetterMap.end()) {
            ++known->second.referenceCount;
            drive = known->second.drive;
            return true;
        }
    }
    // Connected outside the lock: the network may take its time.
    drive = MapNetworkShareToLocalDrive(share);
    if (drive.empty()) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0,
                     L"diskBroker::MapRemoteParentDiskPathToLocal: MapNetworkSharetoLocalDrive failed for %s",
                     share.c_str());
        return false;
    }
    skclass::CsLock hold(*shareDriveLetterLock);
    diskBrokerShareDrive entry;
    entry.drive = drive;
    if (!m_shareDriveLetterMap.emplace(share, entry).second) {
        CancelNetworkShareConnection(drive);
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"diskBroker::MapRemoteParentDiskPathToLocal:  m_shareDriveLetterMap.insert failed for %s!!",
                     share.c_str());
        return false;
    }
    return true;
}

bool diskBroker::RelinkToShareDrive(const wcstring &current, const wcstring &parent, DiskInfoList &links,
                                    wcstring &localParent) {
    const size_t img = parent.find(L"IMG");
    const wcstring share = img == wcstring::npos ? parent : wcstring(parent.substr(0, img));
    wcstring drive;
    if (!AcquireShareDrive(share, drive)) return false;
    localParent = drive + LastTwoComponents(parent);
    if (!UpdateParentDiskLink(current, localParent)) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"diskBroker::MapRemoteParentDiskPathToLocal: UpdateParentDiskLink failed for %s",
                     current.c_str());
        skclass::CsLock hold(*shareDriveLetterLock);
        ReleaseShareDrive(share);
        return false;
    }
    diskBrokerParentLink link;
    link.descriptorPath = current;
    link.originalParent = parent;
    link.localParent = localParent;
    link.share = share;
    links.push_back(link);
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"diskBroker::MapRemoteParentDiskPathToLocal: UpdateParentDiskLink successful for %s",
                 current.c_str());
    return true;
}

wcstring diskBroker::MapNetworkShareToLocalDrive(wcstring share) {
    return Guarded(L"MapNetworkShareToLocalDrive", wcstring(), [&] {
        const wcstring remote(WithoutTrailingBackslashes(share).substr(0, kMaxRemoteNameChars));
        NETRESOURCEW resource = {};
        resource.dwScope = RESOURCE_GLOBALNET;
        resource.dwType = RESOURCETYPE_DISK;
        resource.dwDisplayType = RESOURCEDISPLAYTYPE_SHARE;
        resource.dwUsage = RESOURCEUSAGE_CONNECTABLE;
        resource.lpRemoteName = const_cast<wchar_t *>(remote.c_str());
        wchar_t accessName[kAccessNameChars] = {};
        DWORD accessNameChars = kAccessNameChars;
        DWORD connectResult = 0;
        // No local name: Windows picks the drive letter and names it in accessName.
        const DWORD result = networkCalls.useConnection(nullptr, &resource, nullptr, nullptr, CONNECT_REDIRECT,
                                                        accessName, &accessNameChars, &connectResult);
        if (result != NO_ERROR) {
            SK_Zprintf_2(SK_SOURCE_FILE, 0,
                         L"diskBroker::MapNetworkShareToLocalDrive: WNetUseConnection failed. UNC path = %s ; win_error = %u",
                         remote.c_str(), static_cast<unsigned>(result));
            return wcstring();
        }
        accessName[kAccessNameChars - 1] = L'\0';
        return wcstring(wcstring(accessName) + L"\\");
    });
}

bool diskBroker::CancelNetworkShareConnection(wcstring drive) {
    return Guarded(L"CancelNetworkShareConnection", false, [&] {
        const wcstring name = WithoutTrailingBackslashes(drive);
        DWORD result = networkCalls.cancelConnection(name.c_str(), CONNECT_UPDATE_PROFILE, FALSE);
        if (result != NO_ERROR) {
            SK_Zprintf_2(SK_SOURCE_FILE, 0,
                         L"diskBroker::CancelNetworkShareConnection: WNetCancelConnection2( %s ) failed. win_error = %u",
                         name.c_str(), static_cast<unsigned>(result));
            result = networkCalls.cancelConnection(name.c_str(), CONNECT_UPDATE_PROFILE, TRUE);
            if (result != NO_ERROR) {
                SK_Zprintf_2(SK_SOURCE_FILE, 0,
                             L"diskBroker::CancelNetworkShareConnection: WNetCancelConnection2( %s ) failed. win_error = %u",
                             name.c_str(), static_cast<unsigned>(result));
                return false;
            }
        }
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"diskBroker::CancelNetworkShareConnection: WNetCancelConnection2( %s ) successful",
                     name.c_str());
        return true;
    });
}

void diskBroker::RevertLocalParentDiskPathToRemote(const wcstring &localDevice) {
    if (!childParentLinkLock) return;
    skclass::CsLock hold(*childParentLinkLock);
    for (auto entry = m_childParentLinkMap.begin(); entry != m_childParentLinkMap.end();) {
        if (!StartsWithNoCase(entry->first, localDevice)) {
            ++entry;
            continue;
        }
        RevertLinks(entry->second);
        entry = m_childParentLinkMap.erase(entry);
    }
}

void diskBroker::RevertLinks(const DiskInfoList &links) {
    for (const diskBrokerParentLink &link : links) {
        if (UpdateParentDiskLink(link.descriptorPath, link.originalParent))
            SK_Zprintf_2(SK_SOURCE_FILE, 0, L"diskBroker: RevertLocalParentDiskPathToRemote: UpdateParentDiskLink successsful for %s.",
                         link.descriptorPath.c_str());
        else
            SK_Zprintf_2(SK_SOURCE_FILE, 0, L"diskBroker: RevertLocalParentDiskPathToRemote: UpdateParentDiskLink failed for %s!!",
                         link.descriptorPath.c_str());
        skclass::CsLock hold(*shareDriveLetterLock);
        ReleaseShareDrive(link.share);
    }
}

void diskBroker::ReleaseShareDrive(const wcstring &share) {
    auto entry = m_shareDriveLetterMap.find(share);
    if (entry == m_shareDriveLetterMap.end()) return;
    if (entry->second.referenceCount > 1) {
        --entry->second.referenceCount;
        return;
    }
    CancelNetworkShareConnection(entry->second.drive);
    m_shareDriveLetterMap.erase(entry);
}

void diskBroker::ReleaseAllRemoteParentMappings() {
    GuardedVoid(L"ReleaseAllRemoteParentMappings", [&] {
        if (!deviceMappingLock || !childParentLinkLock || !shareDriveLetterLock) return;
        skclass::CsLock hold(*deviceMappingLock);
        for (const diskBrokerDeviceMapping &mapping : deviceMappings) UndoDriveMapping(mapping);
        deviceMappings.clear();
        handleMappings.clear();
        diskSetMappings.clear();
        skclass::CsLock holdLinks(*childParentLinkLock);
        for (const auto &entry : m_childParentLinkMap) RevertLinks(entry.second);
        m_childParentLinkMap.clear();
        skclass::CsLock holdDrives(*shareDriveLetterLock);
        // Links that could not be put back leave their connections: cancel them too.
        for (const auto &entry : m_shareDriveLetterMap) CancelNetworkShareConnection(entry.second.drive);
        m_shareDriveLetterMap.clear();
    });
}

std::map<wcstring, diskBrokerShareDrive, diskBrokerLessNoCase> diskBroker::ShareDrives() {
    if (!shareDriveLetterLock) return {};
    skclass::CsLock hold(*shareDriveLetterLock);
    return m_shareDriveLetterMap;
}
