// Process-wide singletons kept in this library's static storage, so one object
// exists per process even when several DLLs ask for it.
//
// Lifetime: the storage is never destroyed by the C++ runtime. Objects still held
// at process exit are left alone (no destructor runs under the loader lock, so no
// thread is joined and no library freed there). Shut a singleton down explicitly
// with ReleaseSingleton before process exit or before FreeLibrary of its DLL.
#pragma once
#include <memory>
#include <skclass_mini/export.h>
#include <skclass_mini/strings.h>

namespace skclass {

template <typename T>
using shared_ptr = std::shared_ptr<T>;

// The text of the refusal of a recursive creation (misspelling kept: it is the
// product's own message).
SKCLASS_API extern const wchar_t kSingletonRecursionError[];

using SingletonFactory = std::shared_ptr<void> (*)();

// Returns the object stored under key, creating it with factory on first use.
// Concurrent first callers wait for one construction. A creation re-entered on
// the thread that is constructing the same key returns null and, if error is
// given, stores kSingletonRecursionError in it. A factory that throws or returns
// null leaves the key empty (a later call tries again); the exception's text, if
// any, is stored in error.
SKCLASS_API std::shared_ptr<void> GetOrCreateSingleton(const char *key, SingletonFactory factory,
                                                       wcstring *error = nullptr);

// Drops the storage's reference; the object dies when its last holder lets go.
// Returns the reference that was stored (null if none) so the caller can control
// where the destructor runs.
SKCLASS_API std::shared_ptr<void> ReleaseSingleton(const char *key);

// Typed front end: key = a stable name chosen by T (its class name).
template <typename T>
shared_ptr<T> GetSingleton(const char *key, wcstring *error = nullptr) {
    struct Make {
        static std::shared_ptr<void> Create() { return std::make_shared<T>(); }
    };
    return std::static_pointer_cast<T>(GetOrCreateSingleton(key, &Make::Create, error));
}

}  // namespace skclass
