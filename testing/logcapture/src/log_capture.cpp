#include <dbtest/log_capture.h>

#include <algorithm>

namespace dbtest {
namespace {

std::string Narrow(const std::wstring &text) {
    if (text.empty()) return std::string();
    int bytes = WideCharToMultiByte(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()), nullptr,
                                    0, nullptr, nullptr);
    std::string out(static_cast<size_t>(bytes > 0 ? bytes : 0), '\0');
    if (bytes > 0) {
        WideCharToMultiByte(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()), &out[0], bytes,
                            nullptr, nullptr);
    }
    return out;
}

}  // namespace

LogCapture::LogCapture() {
    InitializeCriticalSection(&lock_);
    InitializeConditionVariable(&added_);
    sinkId_ = SK_AddLogSink(&LogCapture::OnRecord, this);
}

LogCapture::~LogCapture() {
    SK_RemoveLogSink(sinkId_);
    DeleteCriticalSection(&lock_);
}

void LogCapture::OnRecord(void *context, const SK_LogRecord *record) {
    auto *self = static_cast<LogCapture *>(context);
    EnterCriticalSection(&self->lock_);
    try {
        self->lines_.emplace_back(record->text);
    } catch (...) {
    }
    LeaveCriticalSection(&self->lock_);
    WakeAllConditionVariable(&self->added_);
}

std::vector<std::wstring> LogCapture::Lines() const {
    EnterCriticalSection(&lock_);
    std::vector<std::wstring> copy = lines_;
    LeaveCriticalSection(&lock_);
    return copy;
}

bool LogCapture::ContainsLocked(const std::wstring &line) const {
    return std::find(lines_.begin(), lines_.end(), line) != lines_.end();
}

std::string LogCapture::DescribeLocked() const {
    std::string out = std::to_string(lines_.size()) + " captured line(s):";
    for (const std::wstring &line : lines_) out += "\n  [" + Narrow(line) + "]";
    return out;
}

::testing::AssertionResult LogCapture::Contains(const std::wstring &line) const {
    EnterCriticalSection(&lock_);
    bool found = ContainsLocked(line);
    std::string described = found ? std::string() : DescribeLocked();
    LeaveCriticalSection(&lock_);
    if (found) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "no captured line equals [" << Narrow(line) << "]; "
                                         << described;
}

size_t LogCapture::Count(const std::wstring &line) const {
    EnterCriticalSection(&lock_);
    size_t count = static_cast<size_t>(std::count(lines_.begin(), lines_.end(), line));
    LeaveCriticalSection(&lock_);
    return count;
}

size_t LogCapture::CountStartingWith(const std::wstring &prefix) const {
    EnterCriticalSection(&lock_);
    size_t count = 0;
    for (const std::wstring &line : lines_) count += line.compare(0, prefix.size(), prefix) == 0;
    LeaveCriticalSection(&lock_);
    return count;
}

void LogCapture::Clear() {
    EnterCriticalSection(&lock_);
    lines_.clear();
    LeaveCriticalSection(&lock_);
}

::testing::AssertionResult LogCapture::WaitFor(const std::wstring &line, DWORD timeoutMs) const {
    ULONGLONG deadline = GetTickCount64() + timeoutMs;
    EnterCriticalSection(&lock_);
    bool found = ContainsLocked(line);
    while (!found) {
        ULONGLONG now = GetTickCount64();
        if (now >= deadline) break;
        SleepConditionVariableCS(&added_, &lock_, static_cast<DWORD>(deadline - now));
        found = ContainsLocked(line);
    }
    std::string described = found ? std::string() : DescribeLocked();
    LeaveCriticalSection(&lock_);
    if (found) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "timed out after " << timeoutMs
                                         << " ms waiting for [" << Narrow(line) << "]; " << described;
}

}  // namespace dbtest
