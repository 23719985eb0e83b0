// Snapshots by name: created and removed through tasks that are waited for,
// and the VM's snapshot tree.
#include "live_props.h"
#include "live_served.h"

namespace ravelkit_live {

namespace {

// One VirtualMachineSnapshotTree element (the cursor) and its children.
void ReadNode(CXmlReader &node, _vmc::VmSnapshotInfo &out) {
    if (!node.SelectFirstChild()) return;
    do {
        const std::wstring name = LocalName(node);
        if (name == L"name") out.name = TextOf(node);
        else if (name == L"snapshot") out.moRef = TextOf(node);
        else if (name == L"description") out.description = TextOf(node);
        else if (name == L"childSnapshotList") {
            out.children.emplace_back();
            ReadNode(node, out.children.back());
        }
    } while (node.SelectNextSibling());
    node.SelectParent();
}

// The tree under a root without a snapshot of its own: its children are the
// VM's root snapshots.
int ReadTree(Session &s, const std::string &vm, _vmc::VmSnapshotInfo &tree) {
    tree = _vmc::VmSnapshotInfo();
    return ReadProperties(s, "VirtualMachine", vm, {"snapshot.rootSnapshotList"},
                          [&](const std::string &, CXmlReader &val) {
                              if (!val.SelectFirstChild()) return;
                              do {
                                  tree.children.emplace_back();
                                  ReadNode(val, tree.children.back());
                              } while (val.SelectNextSibling());
                              val.SelectParent();
                          });
}

const _vmc::VmSnapshotInfo *FindSnapshot(const _vmc::VmSnapshotInfo &tree, const std::string &name) {
    for (const _vmc::VmSnapshotInfo &child : tree.children) {
        if (child.name == name) return &child;
        if (const _vmc::VmSnapshotInfo *found = FindSnapshot(child, name)) return found;
    }
    return nullptr;
}

int RunTask(Session &s, const wchar_t *method, const Arguments &arguments) {
    CXmlReader answer;
    const int result = Call(s, method, arguments, answer);
    if (result != kOk) return result;
    if (!answer.SelectSingleNode(L"returnval"))
        return Fail(kServerFault, Utf8(method) + ": the server returned no task", kOtherFaultNumber);
    return WaitForTask(s, TextOf(answer));
}

int VmByName(Session &s, const char *vm, std::string &ref) {
    if (!vm || !*vm) return Fail(kBadArgument, "no VM name");
    return FindByName(s, "VirtualMachine", vm, ref);
}

}  // namespace

int Served::vmcCreateSnapshot(void *session, const char *name, const char *description, const char *vm, bool memory,
                              bool quiesce) {
    Session *s = SessionOf(session, "vmcCreateSnapshot");
    if (!s) return kBadSession;
    if (!name || !*name) return Fail(kBadArgument, "vmcCreateSnapshot: no snapshot name");
    std::string ref;
    int result = VmByName(*s, vm, ref);
    if (result != kOk) return result;
    result = RunTask(*s, L"CreateSnapshot_Task", [&](CXmlBuilder &b) {
        MoRef(b, L"_this", "VirtualMachine", ref);
        Element(b, L"name", name);
        if (description && *description) Element(b, L"description", description);
        Element(b, L"memory", memory ? "true" : "false");
        Element(b, L"quiesce", quiesce ? "true" : "false");
    });
    if (result == kOk) Log(std::string("snapshot '") + name + "' of " + vm + " created");
    return result;
}

int Served::vmcRemoveSnapshot(void *session, const char *name, const char *vm, bool removeChildren, bool consolidate) {
    Session *s = SessionOf(session, "vmcRemoveSnapshot");
    if (!s) return kBadSession;
    std::string ref;
    int result = VmByName(*s, vm, ref);
    if (result != kOk) return result;
    _vmc::VmSnapshotInfo tree;
    if ((result = ReadTree(*s, ref, tree)) != kOk) return result;
    const _vmc::VmSnapshotInfo *found = FindSnapshot(tree, name ? name : "");
    if (!found)
        return Fail(kSnapshotNotFound, std::string("snapshot '") + (name ? name : "") + "' of " + vm + " not found",
                    kObjectNotFoundNumber);
    const std::string snapshot = found->moRef;
    result = RunTask(*s, L"RemoveSnapshot_Task", [&](CXmlBuilder &b) {
        MoRef(b, L"_this", "VirtualMachineSnapshot", snapshot);
        Element(b, L"removeChildren", removeChildren ? "true" : "false");
        Element(b, L"consolidate", consolidate ? "true" : "false");
    });
    if (result == kOk) Log(std::string("snapshot '") + name + "' of " + vm + " removed");
    return result;
}

int Served::vmcGetVmSnapshotTree(void *session, const char *vm, _vmc::VmSnapshotInfo &tree) {
    Session *s = SessionOf(session, "vmcGetVmSnapshotTree");
    if (!s) return kBadSession;
    std::string ref;
    const int result = VmByName(*s, vm, ref);
    if (result != kOk) return result;
    _vmc::VmSnapshotInfo read;
    const int got = ReadTree(*s, ref, read);
    if (got == kOk) {
        read.moRef = ref;
        read.name = vm;
        tree = read;
    }
    return got;
}

}  // namespace ravelkit_live
