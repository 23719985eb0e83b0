// One identifier per VDDK entry point (disk library first, then mount library),
// in the order of vmware/vddk_api.h, so per-call rules can be written as small
// specialisations keyed by the call instead of one hand-written copy per call.
#pragma once
#include <vmware/vddk_api.h>

enum class vixApi : int {
#define VIXAPI_ENUMERATE(name, ret, params, args) name,
    VDDK_DISKLIB_ENTRY_POINTS(VIXAPI_ENUMERATE) VDDK_MNTAPI_ENTRY_POINTS(VIXAPI_ENUMERATE)
#undef VIXAPI_ENUMERATE
};

#define VIXAPI_WIDEN2(text) L##text
#define VIXAPI_WIDEN(text) VIXAPI_WIDEN2(text)

// The entry point's export name as wide text, for log lines.
inline const wchar_t *vixApiName(vixApi id) {
    static const wchar_t *const names[] = {
#define VIXAPI_WIDE_NAME(name, ret, params, args) VIXAPI_WIDEN(#name),
        VDDK_DISKLIB_ENTRY_POINTS(VIXAPI_WIDE_NAME) VDDK_MNTAPI_ENTRY_POINTS(VIXAPI_WIDE_NAME)
#undef VIXAPI_WIDE_NAME
    };
    static_assert(sizeof names / sizeof names[0] == vddk::kDiskLibEntryPointCount + vddk::kMntapiEntryPointCount,
                  "one name per entry point");
    return names[static_cast<int>(id)];
}

// The library function's pointer type, keyed by identifier.
template <vixApi Id>
struct vixApiFunction;
#define VIXAPI_FUNCTION_TYPE(name, ret, params, args)     \
    template <>                                          \
    struct vixApiFunction<vixApi::name> {                \
        using type = name##_fn;                          \
    };
VDDK_DISKLIB_ENTRY_POINTS(VIXAPI_FUNCTION_TYPE)
VDDK_MNTAPI_ENTRY_POINTS(VIXAPI_FUNCTION_TYPE)
#undef VIXAPI_FUNCTION_TYPE

// What a binding answers for an entry point it could not resolve: the 32-bit
// 0xE000FE4E sign-extended to a VixError; null for texts.
constexpr VixError kVixUnresolvedEntryPoint = 0xFFFFFFFFE000FE4Eull;
