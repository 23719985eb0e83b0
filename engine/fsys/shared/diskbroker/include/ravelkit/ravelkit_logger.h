// Calling the log callback of vmcSetLogger from a library that implements the
// interface: the callback takes a printf format and its argument list, which
// on Windows is a char pointer.
#pragma once
#include <stdarg.h>
#include <string.h>

#include <ravelkit/ravelkit_api.h>

namespace ravelkit {

inline void CallLogger(vmcLoggerCallback logger, const char *format, ...) {
    va_list args;
    va_start(args, format);
    char *arguments;
    static_assert(sizeof arguments == sizeof args, "va_list is a pointer on Windows");
    memcpy(&arguments, &args, sizeof arguments);
    logger(format, arguments);
    va_end(args);
}

}  // namespace ravelkit
