// "--ancestors <folder>...": the folders a disk's parents were copied to, taken
// out of a command's words before the ordinary option parsing (which knows
// only one value per option).
#pragma once
#include <string>
#include <vector>

namespace dbtool {

// Removes every "--ancestors" and the words after it up to the next word that
// begins with "--" (or "--ancestors=<folder>") from words; returns the folders
// in order, absolute and without a trailing backslash. UsageError for an
// "--ancestors" with no folder after it.
std::vector<std::wstring> TakeAncestors(std::vector<std::wstring> &words);

}  // namespace dbtool
