// Calls every forwarding method of a binding once with zero and null
// arguments, in table order, and tells what each gave back, so tests can
// check the refusal of unresolved entry points and what reached the library.
#pragma once

#include <stdio.h>

#include <string>
#include <type_traits>
#include <vector>

#include <vixdisklibglue.h>
#include <vixmntapiglue.h>

namespace bindingtest {

struct SweepResult {
    const char *name;
    std::string result;  // "void", "null", "text" or the VixError in hex
};

template <typename Glue, typename Ret, typename... Params>
std::string CallWithNothing(Glue &glue, Ret (Glue::*method)(Params...)) {
    if constexpr (std::is_void_v<Ret>) {
        (glue.*method)(Params()...);
        return "void";
    } else if constexpr (std::is_pointer_v<Ret>) {
        return (glue.*method)(Params()...) == nullptr ? "null" : "text";
    } else {
        char hex[32];
        snprintf(hex, sizeof hex, "0x%016llX", static_cast<unsigned long long>((glue.*method)(Params()...)));
        return hex;
    }
}

inline std::vector<SweepResult> SweepDiskLib(vixDiskLibGlue &glue) {
    std::vector<SweepResult> results;
#define BINDINGTEST_SWEEP(name, ret, params, args)                                            \
    results.push_back({#name, CallWithNothing<vixDiskLibGlue>(                                \
                                  glue, static_cast<ret(vixDiskLibGlue::*) params>(&vixDiskLibGlue::name))});
    VDDK_DISKLIB_ENTRY_POINTS(BINDINGTEST_SWEEP)
#undef BINDINGTEST_SWEEP
    return results;
}

inline std::vector<SweepResult> SweepMntapi(vixMntapiGlue &glue) {
    std::vector<SweepResult> results;
#define BINDINGTEST_SWEEP(name, ret, params, args) \
    results.push_back({#name, CallWithNothing<vixMntapiGlue>(glue, &vixMntapiGlue::name)});
    VDDK_MNTAPI_ENTRY_POINTS(BINDINGTEST_SWEEP)
#undef BINDINGTEST_SWEEP
    return results;
}

// What a refused call gives for a method of this shape.
inline std::string RefusedResult(const std::string &given) {
    if (given == "void") return "void";
    if (given == "null" || given == "text") return "null";
    return "0xFFFFFFFFE000FE4E";
}

}  // namespace bindingtest
