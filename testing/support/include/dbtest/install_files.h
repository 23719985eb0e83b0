// File helpers shared by the stand-ins' installers.
#pragma once
#include <string>

namespace dbtest {

// The running program's folder, with its trailing backslash.
std::wstring ExeFolder();
// Creates folder and every missing folder above it; false on the first failure.
bool CreateFolders(const std::wstring &folder);
// Sets *error (when given) to what, with GetLastError(), and returns false.
bool Fail(std::string *error, const std::string &what);

}  // namespace dbtest
