// Whole files as bytes, for tests that write inputs and check outputs.
#pragma once
#include <string>

namespace dbtest {

// The whole file, opened with every share mode (the product may still hold it,
// or be writing to it); ifUnreadable when it cannot be opened, so a test can tell
// a missing file from an empty one.
std::string ReadWholeFile(const std::wstring &path, const std::string &ifUnreadable = std::string());
// Creates or truncates path and writes bytes; false (GetLastError() set) on failure.
bool WriteWholeFile(const std::wstring &path, const std::string &bytes);

}  // namespace dbtest
