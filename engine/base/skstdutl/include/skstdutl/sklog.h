// The product's debug log. SK_Zprintf_2 formats with the Windows C runtime's
// wide printf rules (%s is a wide string in a wide format, %ls, %d, %u, %X, %p,
// %I64u, %I64d), writes one timestamped line per call to the log file and hands
// the same line to every registered capture sink. Thread-safe; never throws.
#pragma once
#include <stdarg.h>
#include <stdint.h>
#include <skclass_mini/win.h>

#if defined(SKSTDUTL_BUILD)
#define SKSTDUTL_API __declspec(dllexport)
#else
#define SKSTDUTL_API __declspec(dllimport)
#endif

// Longest message text kept, in characters; a longer one is cut, not lost.
#define SK_LOG_MAX_TEXT 4096

SKSTDUTL_API void SK_Zprintf_2(const wchar_t *sourceFile, unsigned short flags,
                               const wchar_t *format, ...);
SKSTDUTL_API void SK_Vzprintf_2(const wchar_t *sourceFile, unsigned short flags,
                                const wchar_t *format, va_list args);

// What a sink receives for each line.
struct SK_LogRecord {
    const wchar_t *text;        // the formatted message alone (what tests assert)
    const wchar_t *sourceFile;  // file name part of the caller's source path
    DWORD threadId;
    const wchar_t *line;        // the full line as written to the file, without its line end
};
typedef void (*SK_LogSink)(void *context, const SK_LogRecord *record);

// Registers a sink; returns an id for SK_RemoveLogSink (0 on failure). Sinks are
// called on the logging thread, outside the file lock, in registration order;
// the record's pointers are valid only during the call. Once SK_RemoveLogSink
// returns, the sink is not running and is never called again, so its context
// may be freed. A sink must not add or remove sinks; a line it logs itself goes
// to the file only.
SKSTDUTL_API int SK_AddLogSink(SK_LogSink sink, void *context);
SKSTDUTL_API void SK_RemoveLogSink(int id);

// The log file: "<Data Path>\Logs\diskBroker.log" (Data Path from the product's
// "Misc" key, default "C:"), rotated to diskBroker.log.1 at 10 MB. An explicit
// path (or an empty one to write no file) can be set, e.g. by tests; a null
// path returns to the registry's. The registry is read once, on first use.
// The file stays open; each line is written through at once (no buffering in
// the process), so nothing is lost when the process ends.
SKSTDUTL_API void SK_GetLogFilePath(wchar_t *buffer, size_t bufferChars);
SKSTDUTL_API void SK_SetLogFilePath(const wchar_t *path);

// The wide name of the calling source file, for SK_Zprintf_2's first argument.
#define SK_WIDEN2(x) L##x
#define SK_WIDEN(x) SK_WIDEN2(x)
#define SK_SOURCE_FILE SK_WIDEN(__FILE__)
