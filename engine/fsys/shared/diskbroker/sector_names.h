// Where the sector bookkeeping keeps its files, and how names become file names.
#pragma once
#include <string>

namespace sectormgr {

// Longest escaped name accepted, so that a path stays inside MAX_PATH with
// the data directory in front.
constexpr size_t kMaxEscapedName = 120;

// A file-name form of any text: a-z, 0-9, '-' and '_' stay; an upper-case
// letter becomes '^' and the letter in lower case; every other UTF-16 unit
// becomes '%' and four lower-case hex digits. The result is all lower case, so
// two names differ in it even to a case-blind file system. A result that is a
// device name (con, nul, com1...) or "master" has its first character escaped
// too. False for an empty name or one whose form is longer than kMaxEscapedName.
[[nodiscard]] bool EscapeName(const std::wstring &name, std::wstring &escaped);
// The inverse; false for a text EscapeName never produces.
[[nodiscard]] bool UnescapeName(const std::wstring &escaped, std::wstring &name);

// The data directory without trailing backslashes: the process's override, or
// the registry's "Data Path" ("C:" when it is not set).
std::wstring DataDirectory();
void SetDataDirectoryOverride(const wchar_t *path);

}  // namespace sectormgr
