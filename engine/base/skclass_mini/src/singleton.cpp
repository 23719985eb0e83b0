// The process-wide singleton storage.
#include <skclass_mini/singleton.h>

#include <exception>
#include <map>
#include <string>
#include <skclass_mini/win.h>

namespace skclass {

const wchar_t kSingletonRecursionError[] =
    L"singleton creation and/or destuction code can not be recursively called.";

namespace {

struct Slot {
    std::shared_ptr<void> object;
    DWORD builderThreadId = 0;  // non-zero while a factory runs for this key
};

// SRW lock and condition variable need no destructor, and the map is allocated
// once and never freed: the storage must outlive every DLL's static destructors
// and must never run an object's destructor under the loader lock at process
// exit (that destructor may join a worker thread). Leaking it is deliberate.
SRWLOCK g_lock = SRWLOCK_INIT;
CONDITION_VARIABLE g_constructed = CONDITION_VARIABLE_INIT;
std::map<std::string, Slot> *g_slots = nullptr;  // guarded by g_lock

std::map<std::string, Slot> &Slots() {
    if (g_slots == nullptr) g_slots = new std::map<std::string, Slot>();
    return *g_slots;
}

class ExclusiveLock {
public:
    ExclusiveLock() { AcquireSRWLockExclusive(&g_lock); }
    ~ExclusiveLock() { ReleaseSRWLockExclusive(&g_lock); }
    ExclusiveLock(const ExclusiveLock &) = delete;
    ExclusiveLock &operator=(const ExclusiveLock &) = delete;
};

void SetError(wcstring *error, const wcstring &text) {
    if (error != nullptr) *error = text;
}

// Runs factory outside the lock; never lets an exception escape.
std::shared_ptr<void> RunFactory(SingletonFactory factory, wcstring *error) {
    try {
        return factory();
    } catch (const std::exception &e) {
        SetError(error, wcstring::FromUtf8(e.what()));
    } catch (...) {
        SetError(error, L"unknown exception in singleton creation");
    }
    return nullptr;
}

}  // namespace

std::shared_ptr<void> GetOrCreateSingleton(const char *key, SingletonFactory factory, wcstring *error) {
    if (key == nullptr || factory == nullptr) return nullptr;
    try {
        const std::string name(key);
        const DWORD self = GetCurrentThreadId();
        {
            ExclusiveLock lock;
            for (;;) {
                Slot &slot = Slots()[name];
                if (slot.object) return slot.object;
                if (slot.builderThreadId == self) {
                    SetError(error, kSingletonRecursionError);
                    return nullptr;
                }
                if (slot.builderThreadId == 0) {
                    slot.builderThreadId = self;
                    break;
                }
                SleepConditionVariableSRW(&g_constructed, &g_lock, INFINITE, 0);
            }
        }
        std::shared_ptr<void> created = RunFactory(factory, error);
        ExclusiveLock lock;
        Slot &slot = Slots()[name];
        slot.builderThreadId = 0;
        slot.object = created;
        WakeAllConditionVariable(&g_constructed);
        return created;
    } catch (...) {  // allocation failure of the key or the map
        SetError(error, L"out of memory in singleton storage");
        return nullptr;
    }
}

std::shared_ptr<void> ReleaseSingleton(const char *key) {
    if (key == nullptr) return nullptr;
    try {
        ExclusiveLock lock;
        auto found = Slots().find(key);
        if (found == Slots().end()) return nullptr;
        std::shared_ptr<void> object = std::move(found->second.object);
        if (found->second.builderThreadId == 0) Slots().erase(found);
        return object;
    } catch (...) {
        return nullptr;
    }
}

}  // namespace skclass
