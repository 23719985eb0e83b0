// A program from the test's own folder, started by a test: its output on a pipe
// the test reads (when asked), a bounded wait for its end, and a kill.
#pragma once
#include <stdint.h>

#include <string>

#include <skclass_mini/handles.h>

namespace dbtest {

class ChildProcess {
public:
    // Starts "<ExeFolder()><program>" <arguments> (quote them as needed). With
    // captureOutput, its stdout and stderr go to a pipe that ReadUntilLine and
    // Finish read; otherwise it shares the test's.
    ChildProcess(const std::wstring &program, const std::wstring &arguments, bool captureOutput = false);
    // Kills a child still running, so a failed test leaves none behind.
    ~ChildProcess();
    ChildProcess(ChildProcess &&) = default;
    ChildProcess &operator=(ChildProcess &&) = default;

    bool Started() const { return static_cast<bool>(process_); }
    // GetLastError() of a start that failed.
    DWORD StartError() const { return startError_; }
    HANDLE Process() const { return process_.get(); }
    // Reads output until a line contains marker; false at the end of the output.
    bool ReadUntilLine(const std::string &marker);
    // Waits up to timeoutMs for the end, reading the rest of the output: the
    // exit code; -1 when it did not end (it is killed then), -2 when it never started.
    int64_t Finish(DWORD timeoutMs);
    // Stops the child where it is (so it cannot end by itself meanwhile), kills it
    // and waits up to timeoutMs for it to be gone. False if it had ended already.
    bool Kill(DWORD timeoutMs);
    // Everything read from the pipe so far.
    const std::string &Output() const { return output_; }

private:
    skclass::UniqueHandle process_, thread_, out_;
    std::string output_;
    DWORD startError_ = 0;
};

}  // namespace dbtest
