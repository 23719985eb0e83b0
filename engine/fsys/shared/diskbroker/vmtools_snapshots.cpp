// Part of the vSphere layer: backup snapshots, created under the VM lock and
// removed with a delay and retries, with the registry list through which a
// snapshot left by an earlier run under the same owner key is found again.
#include <limits.h>

#include <vector>

#include <skclass_mini/configuration.h>
#include <skclass_mini/dawdle.h>

#include "vmtools_internal.h"

using namespace vmtools;

namespace {

const wchar_t kRemoveLabel[] = L"vddkRemoveSnapshot()";
const wchar_t kCreateLabel[] = L"vddkCreateVMWareSnapshot()";  // differs from the function's name, as it always has
const wchar_t kSeparator[] = L"[:]";

// Library results that carry a vSphere fault worth reading, and "already gone".
constexpr int kFaultResult1 = 36;
constexpr int kFaultResult2 = 6;
constexpr int kSnapshotGone = 53;

struct SnapshotSettings {
    unsigned long delaySeconds = 1;
    unsigned long retryCount = 0;
    unsigned long autoOrphanRemoval = 0;
};

SnapshotSettings ReadSnapshotSettings() {
    SnapshotSettings s;
    Configuration agent;
    if (agent.Open(Configuration::OpenExisting, AgentKeyPath(), wcstring(), Configuration::ReadWrite)) {
        agent.LoadDWORD(L"RemoveSnapshotDelay", s.delaySeconds);
        agent.LoadDWORD(L"RemoveSnapshotRetryCount", s.retryCount);
        agent.LoadDWORD(L"AutoOrphanSnapshotRemoval", s.autoOrphanRemoval);
    }
    return s;
}

// The list's key path; the list is also stored under a value of this very
// name, which lists already written depend on.
wcstring SnapshotListPath(const wcstring &serverName, const wcstring &vmName) {
    return wcstring(AgentKeyPath()) + L"\\VmSnapshots" + L"\\" + serverName + L"\\" + vmName;
}

// After a failed library call: the translated vSphere fault for results 36
// and 6 (logged with its text), else fixedCode.
uint32_t FaultResult(int libraryResult, uint32_t fixedCode, const wchar_t *label, const wchar_t *reportFormat,
                     soapVmToolsWrapper *wrapper, void *session) {
    if (libraryResult != kFaultResult1 && libraryResult != kFaultResult2) return fixedCode;
    wcstring text;
    int code = 0;
    (void)vddkGetLastVIErr(text, &code, wrapper, session);  // the pair was checked on entry
    const uint32_t result = code != 0 ? vddkConvertVIErrorToEngResult(code, fixedCode) : fixedCode;
    SK_Zprintf_2(SK_SOURCE_FILE, 0, reportFormat, label, text.c_str(), code);
    return result;
}

uint32_t RemoveAttempts(const wcstring &snapshotName, const wcstring &vmName, bool removeChildren,
                        unsigned long retryCount, soapVmToolsWrapper *wrapper, void *session) {
    const cstring name = Utf8(snapshotName), vm = Utf8(vmName);
    uint32_t result = dbresult::kSnapshotRemoveFailed;
    unsigned long attempt = 0;
    do {
        if (attempt != 0)
            SK_Zprintf_2(SK_SOURCE_FILE, 0, L"%s: vmcRemoveSnapshot retry attempt number %d", kRemoveLabel,
                         static_cast<int>(attempt));
        const int removed = wrapper->vmcRemoveSnapshot(session, name.c_str(), vm.c_str(), removeChildren, false);
        if (removed == 0) return dbresult::kOk;
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"%s: vmcRemoveSnapshot failed, result = 0X%X", kRemoveLabel, removed);
        result = FaultResult(removed, dbresult::kSnapshotRemoveFailed, kRemoveLabel,
                             L"%s: vmcRemoveSnapshot reported: %s, <0X%X>", wrapper, session);
        if (removed == kSnapshotGone) return dbresult::kOk;  // already gone
        ++attempt;
    } while (attempt < retryCount);
    return result;
}

// Erases the first list entry equal to entry, if the list key opens.
void ForgetListed(const wcstring &listPath, const wcstring &entry) {
    Configuration list;
    if (!list.Open(Configuration::OpenExisting, listPath, wcstring(), Configuration::ReadWrite)) return;
    std::vector<wcstring> entries;
    list.LoadMultiString(listPath, entries);
    for (auto it = entries.begin(); it != entries.end(); ++it) {
        if (*it == entry) {
            entries.erase(it);
            break;
        }
    }
    list.SaveMultiString(listPath, entries);
}

uint32_t Remove(const wcstring &snapshotName, const wcstring &vmName, const wcstring &serverName,
                const wcstring &userName, const wcstring &password, uint32_t port, bool removeChildren,
                soapVmToolsWrapper *wrapper, void *session, const wcstring &ownerKey) {
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"%s: removing the snapshot '%s' for the VM '%s'", kRemoveLabel,
                 snapshotName.c_str(), vmName.c_str());
    if (!wrapper || !session) return dbresult::kNullArgument;
    const int reloaded = wrapper->vmcSetVmPowerOrConfigState(session, Utf8(vmName).c_str(), "reload");
    if (reloaded != 0)
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"%s: reload VM failed, result = 0X%X", kRemoveLabel, reloaded);
    const SnapshotSettings settings = ReadSnapshotSettings();
    if (settings.delaySeconds != 0) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"%s: Waiting %d seconds before deleting the snapshot", kRemoveLabel,
                     static_cast<int>(settings.delaySeconds));
        const unsigned long cap = ULONG_MAX / 1000;  // a delay beyond 49 days is capped, not wrapped
        skclass::Dawdle((settings.delaySeconds < cap ? settings.delaySeconds : cap) * 1000);
    }
    const uint32_t result = RemoveAttempts(snapshotName, vmName, removeChildren, settings.retryCount, wrapper, session);
    if (!ownerKey.empty() && settings.autoOrphanRemoval != 0 && result == dbresult::kOk)
        ForgetListed(SnapshotListPath(serverName, vmName), snapshotName + kSeparator + ownerKey);
    wcstring unusedLog;
    (void)vddkSetupVMAccessControl(false, snapshotName, vmName, serverName, userName, password, port, wrapper, session,
                             unusedLog);  // released whatever the result
    return result;
}

// Removes the owner's orphans of the VM from entries (and from the server).
void RemoveOrphans(std::vector<wcstring> &entries, const wcstring &vmName, const wcstring &serverName,
                   const wcstring &userName, const wcstring &password, uint32_t port, soapVmToolsWrapper *wrapper,
                   void *session, const wcstring &ownerKey) {
    bool anyOrphan = false, lastRemoved = false;
    for (size_t i = 0; i < entries.size();) {
        const size_t separator = entries[i].find(kSeparator);
        if (separator == wcstring::npos) {
            SK_Zprintf_2(SK_SOURCE_FILE, 0, L"%s: WARNING - malformed snapshot key string %s for VM %s", kCreateLabel,
                         entries[i].c_str(), vmName.c_str());
            ++i;
            continue;
        }
        const wcstring orphan = entries[i].substr(0, separator);
        if (entries[i].substr(separator + 3) != ownerKey) {
            ++i;
            continue;
        }
        anyOrphan = true;
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"%s: found orphaned snapshots for VM %s", kCreateLabel, vmName.c_str());
        lastRemoved = vddkRemoveSnapshot(orphan, vmName, serverName, userName, password, port, false, wrapper,
                                         session, ownerKey) == dbresult::kOk;
        if (lastRemoved) {
            entries.erase(entries.begin() + static_cast<std::ptrdiff_t>(i));
            continue;  // the next entry took its place
        }
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"%s: failed to remove orphaned snapshot with key %s for VM %s", kCreateLabel,
                     entries[i].c_str(), vmName.c_str());
        ++i;
    }
    // Only the last orphan's outcome decides this message, as it always has.
    if (anyOrphan && lastRemoved)
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"%s: successfully removed all orphaned snapshots for VM %s", kCreateLabel,
                     vmName.c_str());
}

uint32_t TakeSnapshot(const wcstring &vmName, const wcstring &snapshotName, const wcstring &description, bool flag1,
                      bool flag2, soapVmToolsWrapper *wrapper, void *session) {
    const int created = wrapper->vmcCreateSnapshot(session, Utf8(snapshotName).c_str(), Utf8(description).c_str(),
                                                   Utf8(vmName).c_str(), flag1, flag2);
    if (created == 0) return dbresult::kOk;
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"%s: vmcCreateSnapshot failed, result = 0X%X", kCreateLabel, created);
    return FaultResult(created, dbresult::kSnapshotCreateFailed, kCreateLabel,
                       L"%s: vmcCreateSnapshot reported: %s, <0X%X>", wrapper, session);
}

uint32_t Create(const wcstring &vmName, const wcstring &snapshotName, const wcstring &description,
                const wcstring &serverName, const wcstring &userName, const wcstring &password, uint32_t port,
                bool flag1, bool flag2, soapVmToolsWrapper *wrapper, void *session, const wcstring &ownerKey,
                wcstring &vddkLogOut) {
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"%s creating a snapshot '%s' for the VM '%s'", kCreateLabel, snapshotName.c_str(),
                 vmName.c_str());
    if (!wrapper || !session) return dbresult::kNullArgument;
    const bool listKept = !ownerKey.empty() && ReadSnapshotSettings().autoOrphanRemoval != 0;
    const wcstring listPath = SnapshotListPath(serverName, vmName);
    std::vector<wcstring> entries;
    if (listKept) {
        Configuration list;
        if (list.Open(Configuration::OpenExisting, listPath, wcstring(), Configuration::Read)) {
            list.LoadMultiString(listPath, entries);
            list.Close();
        }
        RemoveOrphans(entries, vmName, serverName, userName, password, port, wrapper, session, ownerKey);
    }
    uint32_t result = vddkSetupVMAccessControl(true, snapshotName, vmName, serverName, userName, password, port,
                                               wrapper, session, vddkLogOut);
    if (result != dbresult::kOk) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0,
                     L"%s Failed to lock the VM: '%s'. Snapshot name: '%s'. skipping the snapshot creation",
                     kCreateLabel, vmName.c_str(), snapshotName.c_str());
    } else {
        result = TakeSnapshot(vmName, snapshotName, description, flag1, flag2, wrapper, session);
    }
    if (listKept && result == dbresult::kOk) {
        // Created here when missing: the first snapshot under an owner key starts the list.
        Configuration list;
        if (list.Open(Configuration::OpenOrCreate, listPath, wcstring(), Configuration::ReadWrite)) {
            entries.push_back(snapshotName + kSeparator + ownerKey);
            list.SaveMultiString(listPath, entries);
        }
    }
    return result;
}

}  // namespace

extern "C" {

uint32_t vddkRemoveSnapshot(const wcstring &snapshotName, const wcstring &vmName, const wcstring &serverName,
                            const wcstring &userName, const wcstring &password, uint32_t port, bool removeChildren,
                            soapVmToolsWrapper *wrapper, void *session, const wcstring &ownerKey) {
    return Guarded(L"vddkRemoveSnapshot", [&] {
        return Remove(snapshotName, vmName, serverName, userName, password, port, removeChildren, wrapper, session,
                      ownerKey);
    });
}

uint32_t vddkCreateSnapshot(const wcstring &vmName, const wcstring &snapshotName, const wcstring &description,
                            const wcstring &serverName, const wcstring &userName, const wcstring &password,
                            uint32_t port, bool flag1, bool flag2, soapVmToolsWrapper *wrapper, void *session,
                            const wcstring &ownerKey, wcstring &vddkLogOut) {
    return Guarded(L"vddkCreateSnapshot", [&] {
        return Create(vmName, snapshotName, description, serverName, userName, password, port, flag1, flag2, wrapper,
                      session, ownerKey, vddkLogOut);
    });
}

}  // extern "C"
