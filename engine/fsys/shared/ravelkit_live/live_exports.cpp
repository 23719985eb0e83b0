// The 64 exports, generated from the interface's X-macro list so that they
// cannot drift from it: an entry Served has calls it, the others answer "not
// supported". No exception leaves an export.
#include <new>
#include <type_traits>
#include "live_served.h"
#include "live_session.h"

namespace ravelkit_live {
namespace {

const int kInternalFailure = 6;

template <typename R>
R Refused() {
    if constexpr (std::is_same<R, int>::value) return kInternalFailure;
    else if constexpr (!std::is_void<R>::value) return R();
}

template <typename R>
R NotServed(const char *entry) {
    Fail(kNotSupported, std::string(entry) + " is not supported by this client");
    if constexpr (std::is_same<R, int>::value) return kNotSupported;
    else if constexpr (!std::is_void<R>::value) return R();
}

template <typename R, typename F>
R Guarded(const char *entry, F &&body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc &) {
        SetLastError(std::string(entry) + ": out of memory", 0);
    } catch (...) {
        SetLastError(std::string(entry) + ": internal failure", 0);
    }
    return Refused<R>();
}

template <typename T>
struct Tag {
    using type = T;
};

}  // namespace
}  // namespace ravelkit_live

#define RAVELKIT_LIVE_EXPORT(name, ret, params, args)                                                        \
    namespace ravelkit_live {                                                                                 \
    template <typename S, typename = void>                                                                   \
    struct Serves_##name : std::false_type {};                                                                \
    template <typename S>                                                                                    \
    struct Serves_##name<S, std::void_t<decltype(&S::name)>> : std::true_type {};                             \
    }                                                                                                         \
    extern "C" ret name params {                                                                              \
        return ravelkit_live::Guarded<ret>(#name, [&]() -> ret {                                              \
            return [&](auto tag) -> ret {                                                                     \
                using S = typename decltype(tag)::type;                                                       \
                if constexpr (ravelkit_live::Serves_##name<S>::value) return S::name args;                    \
                else return ravelkit_live::NotServed<ret>(#name);                                             \
            }(ravelkit_live::Tag<ravelkit_live::Served>());                                                   \
        });                                                                                                   \
    }

RAVELKIT_ENTRY_POINTS(RAVELKIT_LIVE_EXPORT)
#undef RAVELKIT_LIVE_EXPORT
