// The stand-in's exported VDDK prototypes, generated from the interface lists so a
// signature that drifts from vddk_api.h fails to compile.
#pragma once

#include <vmware/vddk_api.h>

#define VDDKSIM_EXPORT_PROTOTYPE(name, ret, params, args) extern "C" __declspec(dllexport) ret name params;
VDDK_DISKLIB_ENTRY_POINTS(VDDKSIM_EXPORT_PROTOTYPE)
VDDK_MNTAPI_ENTRY_POINTS(VDDKSIM_EXPORT_PROTOTYPE)
#undef VDDKSIM_EXPORT_PROTOTYPE

// First statement of every export: counts, delays, holds, or returns a scripted result.
#define VDDKSIM_GATE(target)                                            \
    do {                                                                \
        VixError scriptedResult_ = VIX_OK;                              \
        if (::vddksim::EnterCall(__func__, (target), &scriptedResult_)) \
            return scriptedResult_;                                     \
    } while (0)
