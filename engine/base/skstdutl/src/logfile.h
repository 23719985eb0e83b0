// The log file behind SK_Zprintf_2: one process-wide appender, opened on first
// use and kept open, rotated by size.
#pragma once
#include <string>
#include <skclass_mini/handles.h>

namespace sklog {

class LogFile {
public:
    static const unsigned long long kRotateBytes = 10ull * 1024 * 1024;

    // Appends one complete line (UTF-8, line end included). Each line is one
    // WriteFile on an unbuffered handle: once Append returns, the line is in the
    // system's file cache and survives the process ending or crashing, with no
    // flush per line and nothing to flush at exit. Never throws.
    void Append(const char *utf8, size_t bytes) noexcept;

    // Copies the effective path ("" when no file is written), resolving it from
    // the registry on first use.
    std::wstring Path() noexcept;
    // path == nullptr: back to the registry's path; "" : no file.
    void SetPath(const wchar_t *path) noexcept;

private:
    void ResolvePathLocked() noexcept;
    bool OpenLocked() noexcept;
    void RotateLocked() noexcept;

    skclass::CriticalSection lock_;
    // Guarded by lock_:
    skclass::UniqueFile file_;
    std::wstring path_;
    bool pathKnown_ = false;      // path_ resolved or set explicitly
    bool openFailed_ = false;     // do not retry a failed open on every line
    unsigned long long size_ = 0; // bytes in the current file
};

// The process's log file. Created on first use and never destroyed, so that
// logging from other modules' detach code and from threads still running at
// process exit finds it alive; the module pins itself for the same reason.
LogFile &TheLogFile() noexcept;

// "<Data Path>\Logs\diskBroker.log" of the installed product (default "C:").
std::wstring DefaultLogPath();

}  // namespace sklog
