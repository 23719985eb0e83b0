// What a command throws when it cannot go on. main() turns each kind into a
// message on stderr and its own exit code, so scripts can tell a mistyped
// command from a failed disk operation from data that did not verify.
#pragma once
#include <stdexcept>
#include <string>

namespace dbtool {

enum ExitCode : int {
    kExitOk = 0,
    kExitFailed = 1,    // an operation failed (disk, file, VDDK, cache)
    kExitUsage = 2,     // the command line was wrong
    kExitMismatch = 3,  // data did not match its checksum
    kExitCrashed = 70,  // an unhandled exception ended the program (its code and address on stderr)
};

class ToolError : public std::exception {
public:
    ToolError(ExitCode code, std::wstring message) : code_(code), message_(std::move(message)) {}
    ExitCode Code() const noexcept { return code_; }
    const std::wstring &Message() const noexcept { return message_; }
    const char *what() const noexcept override { return "diskbroker tool error"; }

private:
    ExitCode code_;
    std::wstring message_;
};

struct UsageError : ToolError {
    explicit UsageError(std::wstring message) : ToolError(kExitUsage, std::move(message)) {}
};
struct Failure : ToolError {
    explicit Failure(std::wstring message) : ToolError(kExitFailed, std::move(message)) {}
};
struct MismatchError : ToolError {
    explicit MismatchError(std::wstring message) : ToolError(kExitMismatch, std::move(message)) {}
};

// "what: <system message> (error N)" for a Win32 error code.
std::wstring Win32Message(const std::wstring &what, unsigned long error);
// Throws Failure with Win32Message(what, GetLastError()).
[[noreturn]] void ThrowLastError(const std::wstring &what);

}  // namespace dbtool
