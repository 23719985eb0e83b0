#include "console.h"

#include <stdio.h>

#include <skclass_mini/strings.h>
#include <skclass_mini/win.h>

#include "errors.h"

namespace dbtool {
namespace {

void WriteTo(DWORD which, const std::wstring &text) {
    if (text.empty()) return;
    HANDLE handle = GetStdHandle(which);
    if (handle == nullptr || handle == INVALID_HANDLE_VALUE) return;
    DWORD mode = 0;
    DWORD written = 0;
    // A real console takes wide text as it is; anything else gets UTF-8 bytes.
    if (GetConsoleMode(handle, &mode)) {
        WriteConsoleW(handle, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
        return;
    }
    const std::string bytes = Utf8(text);
    WriteFile(handle, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
}

}  // namespace

void Out(const std::wstring &text) { WriteTo(STD_OUTPUT_HANDLE, text); }
void Err(const std::wstring &text) { WriteTo(STD_ERROR_HANDLE, text); }

bool StdoutIsTerminal() {
    HANDLE handle = GetStdHandle(STD_OUTPUT_HANDLE);
    if (handle == nullptr || handle == INVALID_HANDLE_VALUE) return false;
    DWORD mode = 0;
    return GetConsoleMode(handle, &mode) || GetFileType(handle) == FILE_TYPE_CHAR;
}

std::wstring FormatBytes(uint64_t bytes) {
    static const wchar_t *const units[] = {L"KiB", L"MiB", L"GiB", L"TiB"};
    if (bytes < 1024) return std::to_wstring(bytes) + L" B";
    double value = static_cast<double>(bytes) / 1024.0;
    size_t unit = 0;
    while (value >= 1024.0 && unit + 1 < sizeof units / sizeof units[0]) {
        value /= 1024.0;
        ++unit;
    }
    wchar_t text[32];
    swprintf(text, 32, L"%.1f %ls", value, units[unit]);
    return text;
}

std::wstring FormatDuration(double seconds) {
    if (seconds < 0) seconds = 0;
    const unsigned long long whole = static_cast<unsigned long long>(seconds + 0.5);
    wchar_t text[32];
    if (whole < 60)
        swprintf(text, 32, L"%llus", whole);
    else if (whole < 3600)
        swprintf(text, 32, L"%llu:%02llu", whole / 60, whole % 60);
    else
        swprintf(text, 32, L"%llu:%02llu:%02llu", whole / 3600, whole / 60 % 60, whole % 60);
    return text;
}

std::wstring Hex32(uint32_t value) {
    wchar_t text[16];
    swprintf(text, 16, L"0x%08X", value);
    return text;
}

std::string Utf8(const std::wstring &wide) { return cstring::ToUtf8(wide); }
std::wstring Wide(const std::string &utf8) { return wcstring::FromUtf8(utf8.c_str(), utf8.size()); }

std::wstring Win32Message(const std::wstring &what, unsigned long error) {
    wchar_t *buffer = nullptr;
    const DWORD length =
        FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                       nullptr, error, 0, reinterpret_cast<wchar_t *>(&buffer), 0, nullptr);
    std::wstring system = length ? std::wstring(buffer, length) : std::wstring();
    if (buffer) LocalFree(buffer);
    while (!system.empty() && (system.back() == L'\n' || system.back() == L'\r' || system.back() == L' '))
        system.pop_back();
    std::wstring message = what;
    if (!system.empty()) message += L": " + system;
    return message + L" (error " + std::to_wstring(error) + L")";
}

void ThrowLastError(const std::wstring &what) { throw Failure(Win32Message(what, GetLastError())); }

}  // namespace dbtool
