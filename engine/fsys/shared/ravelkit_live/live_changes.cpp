// Changed disk areas (QueryChangedDiskAreas) of a VM's disk, at a snapshot or
// at the VM's current state, since a change id ("*": every area in use).
#include <stdlib.h>
#include "live_props.h"
#include "live_served.h"

namespace ravelkit_live {

namespace {

// A snapshot by name or by reference, anywhere in the tree.
const _vmc::VmSnapshotInfo *FindSnapshot(const _vmc::VmSnapshotInfo &tree, const std::string &wanted) {
    for (const _vmc::VmSnapshotInfo &child : tree.children) {
        if (child.name == wanted || child.moRef == wanted) return &child;
        if (const _vmc::VmSnapshotInfo *found = FindSnapshot(child, wanted)) return found;
    }
    return nullptr;
}

int64_t Number(CXmlReader &reader, const wchar_t *child) {
    std::string text;
    return ChildText(reader, child, text) ? _atoi64(text.c_str()) : 0;
}

// <returnval>: startOffset, length and the changedArea elements.
_vmc::_DiskChangeInfo ReadChanges(CXmlReader &info) {
    _vmc::_DiskChangeInfo out;
    out.startOffset = Number(info, L"startOffset");
    out.length = Number(info, L"length");
    if (!info.SelectFirstChild()) return out;
    do {
        if (LocalName(info) == L"changedArea") out.changedAreas.emplace_back(Number(info, L"start"), Number(info, L"length"));
    } while (info.SelectNextSibling());
    info.SelectParent();
    return out;
}

}  // namespace

int Served::vmcGetChangedDiskAreas(void *session, int diskKey, int64_t startOffset, const char *vm,
                                   const char *snapshot, const char *changeId, _vmc::_DiskChangeInfo *changes) {
    Session *s = SessionOf(session, "vmcGetChangedDiskAreas");
    if (!s) return kBadSession;
    if (!changes || !vm || !*vm || !changeId || !*changeId || startOffset < 0)
        return Fail(kBadArgument, "vmcGetChangedDiskAreas: a VM, a change id, an offset and a result are needed");
    _vmc::VmSnapshotInfo tree;
    int result = vmcGetVmSnapshotTree(session, vm, tree);
    if (result != kOk) return result;
    std::string snapshotRef;
    if (snapshot && *snapshot) {
        const _vmc::VmSnapshotInfo *found = FindSnapshot(tree, snapshot);
        if (!found)
            return Fail(kSnapshotNotFound, std::string("snapshot '") + snapshot + "' of " + vm + " not found",
                        kObjectNotFoundNumber);
        snapshotRef = found->moRef;
    }
    CXmlReader answer;
    result = Call(*s, L"QueryChangedDiskAreas",
                  [&](CXmlBuilder &b) {
                      MoRef(b, L"_this", "VirtualMachine", tree.moRef);
                      if (!snapshotRef.empty()) MoRef(b, L"snapshot", "VirtualMachineSnapshot", snapshotRef);
                      Element(b, L"deviceKey", std::to_string(diskKey));
                      Element(b, L"startOffset", std::to_string(startOffset));
                      Element(b, L"changeId", changeId);
                  },
                  answer);
    if (result != kOk) return result;
    if (!answer.SelectSingleNode(L"returnval"))
        return Fail(kServerFault, "vmcGetChangedDiskAreas: the server returned no areas", kOtherFaultNumber);
    *changes = ReadChanges(answer);
    return kOk;
}

}  // namespace ravelkit_live
