// Small owners for Win32 resources: non-copyable, movable, get/release/reset;
// closing preserves GetLastError() so error paths can close before reporting.
#pragma once
#include <utility>
#include <skclass_mini/win.h>

namespace skclass {

template <typename Traits>
class UniqueResource {
public:
    using value_type = typename Traits::type;
    UniqueResource() noexcept : value_(Traits::invalid()) {}
    explicit UniqueResource(value_type v) noexcept : value_(v) {}
    ~UniqueResource() { reset(); }
    UniqueResource(const UniqueResource &) = delete;
    UniqueResource &operator=(const UniqueResource &) = delete;
    UniqueResource(UniqueResource &&o) noexcept : value_(o.release()) {}
    UniqueResource &operator=(UniqueResource &&o) noexcept {
        if (this != &o) reset(o.release());
        return *this;
    }
    value_type get() const noexcept { return value_; }
    explicit operator bool() const noexcept { return value_ != Traits::invalid(); }
    value_type release() noexcept { return std::exchange(value_, Traits::invalid()); }
    void reset(value_type v = Traits::invalid()) noexcept {
        value_type old = std::exchange(value_, v);
        if (old != Traits::invalid()) {
            DWORD saved = GetLastError();
            Traits::close(old);
            SetLastError(saved);
        }
    }
    // For APIs that return the resource through an out-parameter.
    value_type *put() noexcept { reset(); return &value_; }

private:
    value_type value_;
};

struct NullHandleTraits {  // events, threads, tokens, semaphores, mutexes
    using type = HANDLE;
    static type invalid() { return nullptr; }
    static void close(type h) { CloseHandle(h); }
};
struct FileHandleTraits {  // CreateFileW
    using type = HANDLE;
    static type invalid() { return INVALID_HANDLE_VALUE; }
    static void close(type h) { CloseHandle(h); }
};
struct FindHandleTraits {
    using type = HANDLE;
    static type invalid() { return INVALID_HANDLE_VALUE; }
    static void close(type h) { FindClose(h); }
};
struct RegKeyTraits {
    using type = HKEY;
    static type invalid() { return nullptr; }
    static void close(type h) { RegCloseKey(h); }
};
struct ModuleTraits {
    using type = HMODULE;
    static type invalid() { return nullptr; }
    static void close(type h) { FreeLibrary(h); }
};

using UniqueHandle = UniqueResource<NullHandleTraits>;
using UniqueFile = UniqueResource<FileHandleTraits>;
using UniqueFind = UniqueResource<FindHandleTraits>;
using UniqueHkey = UniqueResource<RegKeyTraits>;
using UniqueModule = UniqueResource<ModuleTraits>;

class CriticalSection {
public:
    CriticalSection() noexcept { InitializeCriticalSection(&cs_); }
    ~CriticalSection() { DeleteCriticalSection(&cs_); }
    CriticalSection(const CriticalSection &) = delete;
    CriticalSection &operator=(const CriticalSection &) = delete;
    void Enter() noexcept { EnterCriticalSection(&cs_); }
    void Leave() noexcept { LeaveCriticalSection(&cs_); }
    CRITICAL_SECTION *native() noexcept { return &cs_; }

private:
    CRITICAL_SECTION cs_;
};

// Holds a CRITICAL_SECTION (ours or a caller-owned one) for a scope.
class CsLock {
public:
    explicit CsLock(CRITICAL_SECTION *cs) noexcept : cs_(cs) { EnterCriticalSection(cs_); }
    explicit CsLock(CriticalSection &cs) noexcept : CsLock(cs.native()) {}
    ~CsLock() { LeaveCriticalSection(cs_); }
    CsLock(const CsLock &) = delete;
    CsLock &operator=(const CsLock &) = delete;

private:
    CRITICAL_SECTION *cs_;
};

// Runs an undo action at scope exit unless dismissed.
template <typename F>
class ScopeExit {
public:
    explicit ScopeExit(F f) : f_(std::move(f)) {}
    ~ScopeExit() { if (active_) f_(); }
    ScopeExit(const ScopeExit &) = delete;
    ScopeExit &operator=(const ScopeExit &) = delete;
    void Dismiss() noexcept { active_ = false; }

private:
    F f_;
    bool active_ = true;
};
template <typename F>
ScopeExit<F> MakeScopeExit(F f) { return ScopeExit<F>(std::move(f)); }

}  // namespace skclass
