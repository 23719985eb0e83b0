#include "registry_view.h"

#include <wchar.h>

#include <vector>

#include "errors.h"

namespace dbtool {
namespace {

// The subtrees the library and its settings live in, for both host products.
const wchar_t *const kCopiedKeys[] = {L"SOFTWARE\\Halvorn", L"SOFTWARE\\Tarrow"};
// Deeper than any product key; a cycle cannot exist, this only bounds work.
constexpr int kMaxDepth = 32;

void Check(LSTATUS status, const std::wstring &what) {
    if (status != ERROR_SUCCESS) throw Failure(Win32Message(what, static_cast<unsigned long>(status)));
}

HKEY CreateVolatile(HKEY parent, const std::wstring &path) {
    HKEY key = nullptr;
    Check(RegCreateKeyExW(parent, path.c_str(), 0, nullptr, REG_OPTION_VOLATILE, KEY_ALL_ACCESS, nullptr, &key,
                          nullptr),
          L"cannot create the private registry key '" + path + L"'");
    return key;
}

void CopyValues(HKEY from, HKEY to, DWORD nameChars, DWORD dataBytes) {
    std::vector<wchar_t> name(nameChars + 1);
    std::vector<BYTE> data(dataBytes + 2);
    for (DWORD index = 0;; ++index) {
        DWORD nameLength = nameChars + 1, dataLength = dataBytes + 2, type = 0;
        const LSTATUS status =
            RegEnumValueW(from, index, name.data(), &nameLength, nullptr, &type, data.data(), &dataLength);
        if (status == ERROR_NO_MORE_ITEMS) return;
        Check(status, L"cannot read a registry value to copy");
        Check(RegSetValueExW(to, name.data(), 0, type, data.data(), dataLength), L"cannot copy a registry value");
    }
}

// RegCopyTree makes non-volatile keys, which a volatile parent refuses.
void CopyTree(HKEY from, HKEY to, int depth) {
    DWORD subkeys = 0, subkeyChars = 0, valueChars = 0, dataBytes = 0;
    Check(RegQueryInfoKeyW(from, nullptr, nullptr, nullptr, &subkeys, &subkeyChars, nullptr, nullptr, &valueChars,
                           &dataBytes, nullptr, nullptr),
          L"cannot read a registry key to copy");
    CopyValues(from, to, valueChars, dataBytes);
    if (depth >= kMaxDepth) return;
    std::vector<wchar_t> name(subkeyChars + 1);
    for (DWORD index = 0; index < subkeys; ++index) {
        DWORD length = subkeyChars + 1;
        if (RegEnumKeyExW(from, index, name.data(), &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
            continue;
        skclass::UniqueHkey source, copy(CreateVolatile(to, name.data()));
        if (RegOpenKeyExW(from, name.data(), 0, KEY_READ, source.put()) == ERROR_SUCCESS)
            CopyTree(source.get(), copy.get(), depth + 1);
    }
}

uint64_t CreationTime(HANDLE process) {
    FILETIME created{}, exited{}, kernel{}, user{};
    if (!GetProcessTimes(process, &created, &exited, &kernel, &user)) return 0;
    return (static_cast<uint64_t>(created.dwHighDateTime) << 32) | created.dwLowDateTime;
}

// "<pid>-<process creation time>": a reused process id does not keep a view alive.
std::wstring ViewName(DWORD pid, uint64_t created) { return std::to_wstring(pid) + L"-" + std::to_wstring(created); }

bool OwnerIsRunning(const std::wstring &name) {
    const DWORD pid = static_cast<DWORD>(wcstoul(name.c_str(), nullptr, 10));
    skclass::UniqueHandle process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, pid));
    if (!process) return GetLastError() == ERROR_ACCESS_DENIED;  // someone else's, alive
    DWORD code = 0;
    if (GetExitCodeProcess(process.get(), &code) && code != STILL_ACTIVE) return false;
    return ViewName(pid, CreationTime(process.get())) == name;
}

}  // namespace

const wchar_t PrivateRegistryView::kParentKey[] = L"Software\\diskbroker-private-views";

PrivateRegistryView::PrivateRegistryView(HKEY machine) : machine_(machine) {
    DeleteStaleRegistryViews();
    skclass::UniqueHkey parent(CreateVolatile(HKEY_CURRENT_USER, kParentKey));
    rootName_ = ViewName(GetCurrentProcessId(), CreationTime(GetCurrentProcess()));
    RegDeleteTreeW(parent.get(), rootName_.c_str());
    root_.reset(CreateVolatile(parent.get(), rootName_));
    auto undo = skclass::MakeScopeExit([&] {
        root_.reset();
        RegDeleteTreeW(parent.get(), rootName_.c_str());
        RegDeleteKeyW(parent.get(), rootName_.c_str());
    });
    for (const wchar_t *path : kCopiedKeys) {
        skclass::UniqueHkey source;
        HKEY from = machine_ ? machine_ : HKEY_LOCAL_MACHINE;
        if (RegOpenKeyExW(from, path, 0, KEY_READ, source.put()) != ERROR_SUCCESS) continue;
        skclass::UniqueHkey copy(CreateVolatile(root_.get(), path));
        CopyTree(source.get(), copy.get(), 0);
    }
    Check(RegOverridePredefKey(HKEY_LOCAL_MACHINE, root_.get()), L"cannot redirect HKEY_LOCAL_MACHINE");
    undo.Dismiss();
}

PrivateRegistryView::~PrivateRegistryView() {
    RegOverridePredefKey(HKEY_LOCAL_MACHINE, machine_);
    root_.reset();
    skclass::UniqueHkey parent;
    if (RegOpenKeyExW(HKEY_CURRENT_USER, kParentKey, 0, KEY_ALL_ACCESS, parent.put()) != ERROR_SUCCESS) return;
    RegDeleteTreeW(parent.get(), rootName_.c_str());
    RegDeleteKeyW(parent.get(), rootName_.c_str());
}

void PrivateRegistryView::SetString(const std::wstring &keyPath, const std::wstring &name, const std::wstring &value) {
    skclass::UniqueHkey key(CreateVolatile(root_.get(), keyPath));
    Check(RegSetValueExW(key.get(), name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE *>(value.c_str()),
                         static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t))),
          L"cannot write the private registry value '" + name + L"'");
}

void DeleteStaleRegistryViews() {
    skclass::UniqueHkey parent;
    if (RegOpenKeyExW(HKEY_CURRENT_USER, PrivateRegistryView::kParentKey, 0, KEY_ALL_ACCESS, parent.put()) !=
        ERROR_SUCCESS)
        return;
    std::vector<std::wstring> stale;
    wchar_t name[256];
    for (DWORD index = 0;; ++index) {
        DWORD length = 256;
        if (RegEnumKeyExW(parent.get(), index, name, &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
            break;
        if (!OwnerIsRunning(name)) stale.push_back(name);
    }
    for (const std::wstring &view : stale) {
        RegDeleteTreeW(parent.get(), view.c_str());
        RegDeleteKeyW(parent.get(), view.c_str());
    }
}

}  // namespace dbtool
