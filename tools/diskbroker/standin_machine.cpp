#include "standin_machine.h"

#include "errors.h"

namespace dbtool {
namespace {

// The subtrees the library and its settings live in, for both host products.
const wchar_t *const kCopiedKeys[] = {L"SOFTWARE\\Halvorn", L"SOFTWARE\\Tarrow"};
// Set once the copy is whole: a run killed while copying leaves it unset, and
// the next run copies again.
const wchar_t kCopiedMark[] = L"CopiedFromMachine";
// Runs started together make the key one at a time, so none sees half a copy.
const wchar_t kSetUpMutex[] = L"Local\\diskBroker-StandinMachine";
constexpr DWORD kSetUpWaitMs = 60000;

// The innermost live stand-in machine of this process (see the class).
StandinMachine *g_innermost = nullptr;

void Check(LSTATUS status, const std::wstring &what) {
    if (status != ERROR_SUCCESS) throw Failure(Win32Message(what, static_cast<unsigned long>(status)));
}

HKEY CreateKey(HKEY parent, const std::wstring &path) {
    HKEY key = nullptr;
    Check(RegCreateKeyExW(parent, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS, nullptr, &key,
                          nullptr),
          L"cannot create the stand-in machine's registry key '" + path + L"'");
    return key;
}

void CopyMachineKeys(HKEY from, HKEY root) {
    for (const wchar_t *path : kCopiedKeys) {
        skclass::UniqueHkey source;
        if (RegOpenKeyExW(from, path, 0, KEY_READ, source.put()) != ERROR_SUCCESS) continue;
        skclass::UniqueHkey copy(CreateKey(root, path));
        Check(RegCopyTreeW(source.get(), nullptr, copy.get()),
              L"cannot copy HKLM\\" + std::wstring(path) + L" into the stand-in machine");
    }
    const DWORD one = 1;
    Check(RegSetValueExW(root, kCopiedMark, 0, REG_DWORD, reinterpret_cast<const BYTE *>(&one), sizeof one),
          L"cannot mark the stand-in machine's registry as copied");
}

class SetUpLock {
public:
    SetUpLock() : mutex_(CreateMutexW(nullptr, FALSE, kSetUpMutex)) {
        if (!mutex_) ThrowLastError(L"cannot create the stand-in machine's set-up lock");
        const DWORD waited = WaitForSingleObject(mutex_.get(), kSetUpWaitMs);
        // Abandoned: its owner was killed; the copy mark tells what it finished.
        if (waited != WAIT_OBJECT_0 && waited != WAIT_ABANDONED)
            throw Failure(L"another run of the program has been setting up the stand-in machine for over a minute");
    }
    ~SetUpLock() { ReleaseMutex(mutex_.get()); }
    SetUpLock(const SetUpLock &) = delete;
    SetUpLock &operator=(const SetUpLock &) = delete;

private:
    skclass::UniqueHandle mutex_;
};

// The stand-in machine under `home`, made from `from` unless a whole copy is there.
HKEY OpenOrMake(HKEY home, HKEY from) {
    SetUpLock lock;
    skclass::UniqueHkey root(CreateKey(home, StandinMachine::kKeyPath));
    DWORD mark = 0, bytes = sizeof mark;
    if (RegGetValueW(root.get(), nullptr, kCopiedMark, RRF_RT_REG_DWORD, nullptr, &mark, &bytes) != ERROR_SUCCESS)
        CopyMachineKeys(from, root.get());
    return root.release();
}

}  // namespace

const wchar_t StandinMachine::kKeyPath[] = L"Software\\diskBroker\\StandinMachine";

StandinMachine::StandinMachine(HKEY machine) : outer_(g_innermost) {
    if (outer_) {
        previous_ = outer_->root_.get();
        Check(RegOpenKeyExW(previous_, nullptr, 0, KEY_ALL_ACCESS, root_.put()),
              L"cannot open the stand-in machine's registry");
    } else {
        previous_ = machine;
        root_.reset(OpenOrMake(machine ? machine : HKEY_CURRENT_USER, machine ? machine : HKEY_LOCAL_MACHINE));
    }
    Check(RegOverridePredefKey(HKEY_LOCAL_MACHINE, root_.get()), L"cannot redirect HKEY_LOCAL_MACHINE");
    g_innermost = this;
}

StandinMachine::~StandinMachine() {
    RegOverridePredefKey(HKEY_LOCAL_MACHINE, previous_);
    g_innermost = outer_;
}

void StandinMachine::SetString(const std::wstring &keyPath, const std::wstring &name, const std::wstring &value) {
    skclass::UniqueHkey key(CreateKey(root_.get(), keyPath));
    Check(RegSetValueExW(key.get(), name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE *>(value.c_str()),
                         static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t))),
          L"cannot write the stand-in machine's registry value '" + name + L"'");
}

}  // namespace dbtool
