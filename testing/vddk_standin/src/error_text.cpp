// VixDiskLib_GetErrorText / FreeErrorText with VDDK's English texts.
#include <stdio.h>

#include "disklib_state.h"
#include "exports.h"
#include "sim_control.h"

namespace {

struct ErrorText {
    VixError code;
    const char *text;
};

const ErrorText kTexts[] = {
    {0, "The operation was successful"},
    {1, "Unknown error"},
    {2, "Memory allocation failed. Out of memory."},
    {3, "One of the parameters was invalid"},
    {4, "A file was not found"},
    {5, "This function cannot be performed because the handle is executing another function"},
    {6, "The operation is not supported"},
    {7, "A file access error occurred on the host or guest operating system"},
    {8, "An error occurred while writing a file; the disk is full. Data has not been saved. Free some space and try again"},
    {11, "The file is write-protected"},
    {12, "The file already exists"},
    {13, "You do not have access rights to this file"},
    {15, "The file is already in use"},
    {20, "The command is not supported on remote objects"},
    {21, "The file is too big for the filesystem"},
    {22, "The file name is not valid"},
    {24, "Buffer is too small"},
    {1000, "The handle is not a valid VIX object"},
    {3014, "Insufficient permissions in host operating system"},
    {16000, "The virtual disk is invalid"},
    {16001, "The disk library has not been initialized"},
    {16006, "The specified virtual disk needs repair"},
    {16007, "Sector range out of bounds"},
    {16008, "The parent of this virtual disk could not be opened: content ID mismatch"},
    {16012, "The parent virtual disk could not be opened"},
    {16013, "The specified feature is not supported by this version"},
    {16030, "Invalid disk chain: cannot mix hosted and managed style disks in the same chain"},
    {16052, "The metadata key is not found"},
    {16063, "The file specified is not a virtual disk"},
    {16069, "Both parent and child are root links"},
    {18000, "Cannot connect to the host"},
};

}  // namespace

char *VixDiskLib_GetErrorText(VixError err, const char *locale) {
    VixError ignored;
    // A scripted call gives no text, as VDDK does when it cannot make one.
    if (vddksim::EnterCall(__func__, vddksim::CallTarget(), &ignored)) return nullptr;
    (void)locale;
    try {
        const VixError code = VIX_ERROR_CODE(err);
        for (const auto &entry : kTexts)
            if (entry.code == code) return vddksim::DupString(entry.text);
        char buf[64];
        snprintf(buf, sizeof buf, "Unknown error %llu", static_cast<unsigned long long>(code));
        return vddksim::DupString(buf);
    } catch (...) {
        return nullptr;
    }
}

void VixDiskLib_FreeErrorText(char *errMsg) {
    VixError ignored;
    vddksim::EnterCall(__func__, vddksim::CallTarget(), &ignored);
    delete[] errMsg;
}
