// The trace line of each disk library call: a masked "<name>()" line before
// the call unless a specialisation below says otherwise (text, always, after).
#pragma once
#include <stdint.h>

#include <skstdutl/sklog.h>
#include <vixdisklibglue.h>

#include "vixbinding.h"

namespace vixdisklibtrace {

enum class When { Masked, Always };

inline bool ShouldTrace(const vixDiskLibGlue &glue, When when) {
    return when == When::Always || glue.TraceEnabled();
}

inline uint64_t AsNumber(const void *pointer) { return static_cast<uint64_t>(reinterpret_cast<uintptr_t>(pointer)); }

// The server a call addresses: decided on vmxSpec, not on serverName.
inline wcstring ServerText(const VixDiskLibConnectParams *params) {
    if (!params || !params->vmxSpec) return L"Local Server";
    return wcstring::FromUtf8(params->serverName);
}

// "Calling the vixdiskLib api: <name>()" plus an optional trailing blank.
template <vixApi Id, When when, bool trailingBlank>
struct NamedLine : vixbinding::NoTrace {
    template <typename... Args>
    static void Before(vixDiskLibGlue &glue, Args...) {
        if (ShouldTrace(glue, when))
            SK_Zprintf_2(SK_SOURCE_FILE, 0, trailingBlank ? L"Calling the vixdiskLib api: %s() "
                                                          : L"Calling the vixdiskLib api: %s()",
                         vixApiName(Id));
    }
};

template <vixApi Id>
struct Trace : NamedLine<Id, When::Masked, false> {};

template <> struct Trace<vixApi::VixDiskLib_Exit> : NamedLine<vixApi::VixDiskLib_Exit, When::Masked, true> {};
template <> struct Trace<vixApi::VixDiskLib_ListTransportModes>
    : NamedLine<vixApi::VixDiskLib_ListTransportModes, When::Masked, true> {};
template <> struct Trace<vixApi::VixDiskLib_Cleanup> : NamedLine<vixApi::VixDiskLib_Cleanup, When::Masked, true> {};
template <> struct Trace<vixApi::VixDiskLib_Create> : NamedLine<vixApi::VixDiskLib_Create, When::Masked, true> {};
template <> struct Trace<vixApi::VixDiskLib_CreateChild>
    : NamedLine<vixApi::VixDiskLib_CreateChild, When::Masked, true> {};
template <> struct Trace<vixApi::VixDiskLib_Attach> : NamedLine<vixApi::VixDiskLib_Attach, When::Always, false> {};

// Connect and ConnectEx pick up a changed log mask without a restart.
template <>
struct Trace<vixApi::VixDiskLib_Connect> : vixbinding::NoTrace {
    template <typename... Args>
    static void Before(vixDiskLibGlue &glue, Args... args) {
        glue.ReloadDebugLogLevel();
        NamedLine<vixApi::VixDiskLib_Connect, When::Masked, true>::Before(glue, args...);
    }
};

template <>
struct Trace<vixApi::VixDiskLib_ConnectEx> : vixbinding::NoTrace {
    static void Before(vixDiskLibGlue &glue, const VixDiskLibConnectParams *, Bool, const char *, const char *,
                       VixDiskLibConnection *) {
        glue.ReloadDebugLogLevel();
    }
    static void After(vixDiskLibGlue &, const VixDiskLibConnectParams *params, Bool, const char *, const char *,
                      VixDiskLibConnection *connection) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"Calling the vixdiskLib api: VixDiskLib_ConnectEx('%s'- '0x%08I64u' ) ",
                     ServerText(params).c_str(), AsNumber(connection ? *connection : nullptr));
    }
};

// InitEx and Init: versions and libDir.
template <vixApi Id>
struct InitLine : vixbinding::NoTrace {
    template <typename... Rest>
    static void Before(vixDiskLibGlue &glue, uint32 major, uint32 minor, VixDiskLibGenericLogFunc *,
                       VixDiskLibGenericLogFunc *, VixDiskLibGenericLogFunc *, const char *libDir, Rest...) {
        if (glue.TraceEnabled())
            SK_Zprintf_2(SK_SOURCE_FILE, 0, L"Calling the vixdiskLib api: %s( %d, %d, %s ) ", vixApiName(Id),
                         static_cast<int>(major), static_cast<int>(minor), wcstring::FromUtf8(libDir).c_str());
    }
};
template <> struct Trace<vixApi::VixDiskLib_InitEx> : InitLine<vixApi::VixDiskLib_InitEx> {};
template <> struct Trace<vixApi::VixDiskLib_Init> : InitLine<vixApi::VixDiskLib_Init> {};

template <>
struct Trace<vixApi::VixDiskLib_Disconnect> : vixbinding::NoTrace {
    static void Before(vixDiskLibGlue &, VixDiskLibConnection connection) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"Calling the vixdiskLib api: VixDiskLib_Disconnect('0x%08I64u') ",
                     AsNumber(connection));
    }
};

template <vixApi Id>
struct AccessLine : vixbinding::NoTrace {
    static void Before(vixDiskLibGlue &, const VixDiskLibConnectParams *params, const char *) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"Calling the vixdiskLib api: %s('%s') ", vixApiName(Id),
                     ServerText(params).c_str());
    }
};
template <> struct Trace<vixApi::VixDiskLib_PrepareForAccess> : AccessLine<vixApi::VixDiskLib_PrepareForAccess> {};
template <> struct Trace<vixApi::VixDiskLib_EndAccess> : AccessLine<vixApi::VixDiskLib_EndAccess> {};

template <>
struct Trace<vixApi::VixDiskLib_Open> : vixbinding::NoTrace {
    static void After(vixDiskLibGlue &, VixDiskLibConnection, const char *path, uint32 flags,
                      VixDiskLibHandle *diskHandle) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"Calling the vixdiskLib api: VixDiskLib_Open(%s, %d (0x%08I64u) ) ",
                     wcstring::FromUtf8(path).c_str(), static_cast<int>(flags),
                     AsNumber(diskHandle ? *diskHandle : nullptr));
    }
};

template <>
struct Trace<vixApi::VixDiskLib_Close> : vixbinding::NoTrace {
    static void Before(vixDiskLibGlue &, VixDiskLibHandle diskHandle) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"Calling the vixdiskLib api: VixDiskLib_Close(0x%08I64u)", AsNumber(diskHandle));
    }
};

// The read line prints decimal numbers after "0x"; the write line has no "0x".
template <>
struct Trace<vixApi::VixDiskLib_Read> : vixbinding::NoTrace {
    static void Before(vixDiskLibGlue &glue, VixDiskLibHandle, VixDiskLibSectorType start, VixDiskLibSectorType count,
                       uint8 *) {
        if (glue.TraceEnabled())
            SK_Zprintf_2(SK_SOURCE_FILE, 0, L"Calling the vixdiskLib api: VixDiskLib_Read((0x%08I64u), (0x%08I64u))",
                         start, count);
    }
};
template <>
struct Trace<vixApi::VixDiskLib_Write> : vixbinding::NoTrace {
    static void Before(vixDiskLibGlue &glue, VixDiskLibHandle, VixDiskLibSectorType start, VixDiskLibSectorType count,
                       const uint8 *) {
        if (glue.TraceEnabled())
            SK_Zprintf_2(SK_SOURCE_FILE, 0, L"Calling the vixdiskLib api: VixDiskLib_Write((%08I64u), (%08I64u))",
                         start, count);
    }
};

}  // namespace vixdisklibtrace
