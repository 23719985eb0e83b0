// Text output of the program: UTF-8 to pipes and files, wide text to a console,
// and the small formatting helpers every command shares.
#pragma once
#include <stdint.h>

#include <string>

namespace dbtool {

// stdout / stderr. Each call writes the whole text at once.
void Out(const std::wstring &text);
void Err(const std::wstring &text);
inline void OutLine(const std::wstring &text) { Out(text + L"\n"); }
inline void ErrLine(const std::wstring &text) { Err(text + L"\n"); }

// True when stdout is a character device (a console or a terminal), where a
// progress bar may redraw its line.
bool StdoutIsTerminal();

// "64.0 MiB", "512 B".
std::wstring FormatBytes(uint64_t bytes);
// "1:05" / "12s" for a number of seconds.
std::wstring FormatDuration(double seconds);
// "0xE0009578".
std::wstring Hex32(uint32_t value);

std::string Utf8(const std::wstring &wide);
std::wstring Wide(const std::string &utf8);

}  // namespace dbtool
