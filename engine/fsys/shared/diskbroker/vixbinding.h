// What the two VMware library bindings share: finding the VDDK folder,
// extending PATH, binding by name, and the forwarding call with its
// unresolved-pointer refusal and trace hooks.
#pragma once
#include <stdint.h>

#include <type_traits>

#include <skclass_mini/handles.h>
#include <skclass_mini/strings.h>
#include <skstdutl/sklog.h>
#include <vixapi.h>

namespace vixbinding {

// Names and results that differ between the disk and the mount library.
struct LibraryDescription {
    const wchar_t *className;  // "vixDiskLibGlue": log prefixes
    const wchar_t *dllName;    // "vixDiskLib.dll"
    uint32_t installPathNotFound;
    uint32_t libraryNotLoaded;
};

// Locates the VDDK folder from the product's install value, puts it and its
// bin folder on PATH (bin first) and loads dllName from the bin folder.
// Returns 0 or one of description's failures (logged); installDir receives
// the folder with a trailing backslash once found.
uint32_t LocateAndLoad(const LibraryDescription &description, wcstring &installDir,
                       skclass::UniqueModule &module);

// Puts directory in front of PATH unless PATH begins with it.
void AddPathToEnv(const wchar_t *className, const wcstring &directory);

// GetProcAddress typed as the entry point's pointer (null when missing).
template <typename Fn>
Fn BindByName(HMODULE module, const char *name) {
    // Through void(*)(): the conversion both GCC and MSVC accept without warning.
    return reinterpret_cast<Fn>(reinterpret_cast<void (*)()>(GetProcAddress(module, name)));
}

template <typename Ret>
Ret UnresolvedResult() {
    if constexpr (std::is_same_v<Ret, VixError>)
        return kVixUnresolvedEntryPoint;
    else if constexpr (!std::is_void_v<Ret>)
        return Ret();
}

// One forwarded call: refuses an unresolved entry point with the binding's
// message, otherwise Trace::Before, the call with the arguments unchanged,
// Trace::After (which may read what the call wrote through its out-pointers).
// Written as a call object so a binding method reads `Forwarder(...) args`
// with the argument list straight from the entry point list.
template <typename Trace, typename Glue, typename Fn>
class Forwarder;

template <typename Trace, typename Glue, typename Ret, typename... Params>
class Forwarder<Trace, Glue, Ret (*)(Params...)> {
public:
    // unresolvedFormat takes the printed name (%s).
    Forwarder(Glue &glue, Ret (*function)(Params...), const wchar_t *unresolvedFormat, const wchar_t *printedName)
        : glue_(glue), function_(function), unresolvedFormat_(unresolvedFormat), printedName_(printedName) {}

    Ret operator()(Params... args) const {
        if (!function_) {
            SK_Zprintf_2(SK_SOURCE_FILE, 0, unresolvedFormat_, printedName_);
            return UnresolvedResult<Ret>();
        }
        Trace::Before(glue_, args...);
        if constexpr (std::is_void_v<Ret>) {
            function_(args...);
            Trace::After(glue_, args...);
        } else {
            Ret result = function_(args...);
            Trace::After(glue_, args...);
            return result;
        }
    }

private:
    Glue &glue_;
    Ret (*function_)(Params...);
    const wchar_t *unresolvedFormat_;
    const wchar_t *printedName_;
};

// The untraced call.
struct NoTrace {
    template <typename Glue, typename... Args>
    static void Before(Glue &, Args...) {}
    template <typename Glue, typename... Args>
    static void After(Glue &, Args...) {}
};

}  // namespace vixbinding
