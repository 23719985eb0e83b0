// The program's commands. Each takes the words after its name, prints its
// own --help, and returns the exit code (failures are thrown as ToolError).
#pragma once
#include <string>
#include <vector>

namespace dbtool {

using Words = std::vector<std::wstring>;

int RunBackup(const Words &words);
int RunRestore(const Words &words);
int RunChecksum(const Words &words);
int RunInfo(const Words &words);
int RunTransports(const Words &words);
int RunLog(const Words &words);
int RunDemo(const Words &words);
int RunMount(const Words &words);
int RunVmBackup(const Words &words);
int RunVmInfo(const Words &words);
int RunSnapshots(const Words &words);
int RunHosts(const Words &words);

}  // namespace dbtool
