// The worker's call records, one type per library function
// (SKWT_<function>Call): the arguments of the binding method of the same name,
// the extras some carry (Read/Write/Close: the handle's statistics;
// Create/Open: the impersonation flag, always stored false because the token
// was taken on the caller's side) and a result slot.
#pragma once
#include <tuple>
#include <type_traits>

#include <vixworkerthread.h>

#include "vixbinding.h"

// Per-function rules of the worker; the default carries no extras.
template <vixApi Id>
struct vixWorkerPolicy {
    using Extras = std::tuple<>;
    static Extras DefaultExtras() { return {}; }
    static constexpr const wchar_t *kImpersonatingRecord = nullptr;
};

struct vixWorkerStatsPolicy {
    using Extras = std::tuple<_vixReadWriteStats *>;
    static Extras DefaultExtras() { return Extras(nullptr); }
    static constexpr const wchar_t *kImpersonatingRecord = nullptr;
};
template <> struct vixWorkerPolicy<vixApi::VixDiskLib_Read> : vixWorkerStatsPolicy {};
template <> struct vixWorkerPolicy<vixApi::VixDiskLib_Write> : vixWorkerStatsPolicy {};
template <> struct vixWorkerPolicy<vixApi::VixDiskLib_Close> : vixWorkerStatsPolicy {};

struct vixWorkerImpersonationPolicy {
    using Extras = std::tuple<bool>;
    static Extras DefaultExtras() { return Extras(false); }
};
template <>
struct vixWorkerPolicy<vixApi::VixDiskLib_Create> : vixWorkerImpersonationPolicy {
    static constexpr const wchar_t *kImpersonatingRecord = L"SKWT_VixDiskLib_Create";
};
template <>
struct vixWorkerPolicy<vixApi::VixDiskLib_Open> : vixWorkerImpersonationPolicy {
    static constexpr const wchar_t *kImpersonatingRecord = L"SKWT_VixDiskLib_Open";
};

template <typename Fn>
struct vixFunctionParts;
template <typename Ret, typename... Params>
struct vixFunctionParts<Ret (*)(Params...)> {
    using Result = Ret;
    using Parameters = std::tuple<Params...>;
};

template <vixApi Id>
struct vixWorkerCallTypes {
    using Parts = vixFunctionParts<typename vixApiFunction<Id>::type>;
    using Result = typename Parts::Result;
    using Arguments = decltype(std::tuple_cat(std::declval<typename Parts::Parameters>(),
                                              std::declval<typename vixWorkerPolicy<Id>::Extras>()));
};

// The result slot; none for functions without a result. It starts as the
// unresolved-entry-point answer, which is what a refused call returns.
template <typename Result>
struct vixWorkerResultSlot {
    Result result = vixbinding::UnresolvedResult<Result>();
};
template <>
struct vixWorkerResultSlot<void> {};

template <vixApi Id>
class vixWorkerCall : public SyncCall, public vixWorkerResultSlot<typename vixWorkerCallTypes<Id>::Result> {
public:
    using Result = typename vixWorkerCallTypes<Id>::Result;
    using Arguments = typename vixWorkerCallTypes<Id>::Arguments;

    vixWorkerCall(vixWorkerThread *owner, Arguments callArguments)
        : SyncCall(owner), arguments(std::move(callArguments)) {
        callerThreadId = GetCurrentThreadId();
    }

    // On the worker thread: the worker's method again, which now calls the binding.
    void Execute() override {
        auto *owner = static_cast<vixWorkerThread *>(worker);
        if constexpr (std::is_void_v<Result>)
            owner->Dispatch<Id>(arguments);
        else
            this->result = owner->Dispatch<Id>(arguments);
    }

    Arguments arguments;
};

#define VIXWORKER_RECORD_NAME(name, ret, params, args) using SKWT_##name##Call = vixWorkerCall<vixApi::name>;
VDDK_DISKLIB_ENTRY_POINTS(VIXWORKER_RECORD_NAME)
VDDK_MNTAPI_ENTRY_POINTS(VIXWORKER_RECORD_NAME)
#undef VIXWORKER_RECORD_NAME
