// Captures the messages SK_Zprintf_2 logs while the object lives, from every
// thread, so tests can assert exact texts (the formatted message without the
// time/thread/file prefix).
#pragma once
#include <string>
#include <vector>
#include <gtest/gtest.h>
#include <skstdutl/sklog.h>

namespace dbtest {

class LogCapture {
public:
    LogCapture();   // registers the sink
    ~LogCapture();  // removes it; no call reaches this object afterwards
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    std::vector<std::wstring> Lines() const;  // in the order they were logged
    // Success when some captured message equals line exactly; the failure
    // message lists every captured message.
    ::testing::AssertionResult Contains(const std::wstring &line) const;
    size_t Count(const std::wstring &line) const;
    size_t CountStartingWith(const std::wstring &prefix) const;
    void Clear();
    // Waits until a message equal to line has been captured (also one captured
    // before the call), at most timeoutMs. For lines logged by other threads.
    ::testing::AssertionResult WaitFor(const std::wstring &line, DWORD timeoutMs) const;

private:
    static void OnRecord(void *context, const SK_LogRecord *record);
    bool ContainsLocked(const std::wstring &line) const;
    std::string DescribeLocked() const;

    mutable CRITICAL_SECTION lock_;
    mutable CONDITION_VARIABLE added_;   // signalled on every captured line
    std::vector<std::wstring> lines_;    // guarded by lock_
    int sinkId_ = 0;
};

}  // namespace dbtest
