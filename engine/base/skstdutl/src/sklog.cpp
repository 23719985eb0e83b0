// SK_Zprintf_2: formats with the Windows C runtime's wide printf, builds the
// timestamped line, writes it to the log file and hands it to the sinks.
#include <skstdutl/sklog.h>

#include <stdio.h>
#include <string.h>
#include <wchar.h>

#include "logfile.h"
#include "logsinks.h"

namespace {

const size_t kMaxFileNameChars = 128;
// Time, thread id, file name, separators and the line end around the text.
const size_t kLineChars = SK_LOG_MAX_TEXT + kMaxFileNameChars + 64;
// Worst case UTF-8: three bytes per UTF-16 unit.
const size_t kLineBytes = kLineChars * 3;

const wchar_t *FileNamePart(const wchar_t *path) {
    if (path == nullptr) return L"";
    const wchar_t *name = path;
    for (const wchar_t *p = path; *p != L'\0'; ++p) {
        if (*p == L'\\' || *p == L'/') name = p + 1;
    }
    return name;
}

// msvcrt's _vsnwprintf: %s is the wide string, %I64u is understood, a null
// %s prints "(null)". A text longer than the buffer comes back as -1 with the
// first SK_LOG_MAX_TEXT characters in place: keep those.
void FormatText(wchar_t (&text)[SK_LOG_MAX_TEXT + 1], const wchar_t *format, va_list args) {
    if (format == nullptr) format = L"(null format)";
    text[SK_LOG_MAX_TEXT] = L'\0';
    int length = _vsnwprintf(text, SK_LOG_MAX_TEXT, format, args);
    if (length < 0 || length >= SK_LOG_MAX_TEXT) {
        length = SK_LOG_MAX_TEXT;
        // Do not leave half a surrogate pair at the cut.
        if (text[length - 1] >= 0xD800 && text[length - 1] <= 0xDBFF) --length;
    }
    text[length] = L'\0';
}

// "2024-05-01 13:45:06.123 [  4242] file.cpp: text"; returns its length.
size_t BuildLine(wchar_t (&line)[kLineChars], const wchar_t *fileName, DWORD threadId,
                 const wchar_t *text) {
    SYSTEMTIME now;
    GetLocalTime(&now);
    int prefix = _snwprintf(line, kLineChars, L"%04u-%02u-%02u %02u:%02u:%02u.%03u [%6lu] ",
                            now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond,
                            now.wMilliseconds, static_cast<unsigned long>(threadId));
    size_t length = prefix > 0 ? static_cast<size_t>(prefix) : 0;
    size_t nameChars = wcslen(fileName);
    if (nameChars > kMaxFileNameChars) nameChars = kMaxFileNameChars;
    wmemcpy(line + length, fileName, nameChars);
    length += nameChars;
    line[length++] = L':';
    line[length++] = L' ';
    size_t textChars = wcslen(text);
    wmemcpy(line + length, text, textChars);
    length += textChars;
    line[length] = L'\0';
    return length;
}

void WriteToFile(const wchar_t *line, size_t length) {
    static_assert(kLineBytes < 0x7FFFFFFF, "line fits an int");
    char bytes[kLineBytes + 2];
    int count = WideCharToMultiByte(CP_UTF8, 0, line, static_cast<int>(length), bytes,
                                    static_cast<int>(kLineBytes), nullptr, nullptr);
    if (count <= 0 && length > 0) return;
    bytes[count++] = '\r';
    bytes[count++] = '\n';
    sklog::TheLogFile().Append(bytes, static_cast<size_t>(count));
}

}  // namespace

void SK_Vzprintf_2(const wchar_t *sourceFile, unsigned short /*flags*/, const wchar_t *format,
                   va_list args) {
    try {
        DWORD savedError = GetLastError();  // callers log and then report the error
        wchar_t text[SK_LOG_MAX_TEXT + 1];
        FormatText(text, format, args);
        wchar_t line[kLineChars];
        const wchar_t *fileName = FileNamePart(sourceFile);
        DWORD threadId = GetCurrentThreadId();
        size_t length = BuildLine(line, fileName, threadId, text);
        WriteToFile(line, length);
        SK_LogRecord record = {text, fileName, threadId, line};
        sklog::DeliverToSinks(record);
        SetLastError(savedError);
    } catch (...) {
        // Logging never throws into its caller.
    }
}

void SK_Zprintf_2(const wchar_t *sourceFile, unsigned short flags, const wchar_t *format, ...) {
    va_list args;
    va_start(args, format);
    SK_Vzprintf_2(sourceFile, flags, format, args);
    va_end(args);
}

void SK_GetLogFilePath(wchar_t *buffer, size_t bufferChars) {
    if (buffer == nullptr || bufferChars == 0) return;
    std::wstring path = sklog::TheLogFile().Path();
    size_t count = path.size() < bufferChars ? path.size() : bufferChars - 1;
    wmemcpy(buffer, path.c_str(), count);
    buffer[count] = L'\0';
}

void SK_SetLogFilePath(const wchar_t *path) { sklog::TheLogFile().SetPath(path); }
