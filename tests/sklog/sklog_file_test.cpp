// The log file: its lines, concurrent writers, rotation, folder creation.
#include <process.h>
#include <set>
#include <string>
#include <vector>
#include <gtest/gtest.h>
#include <dbtest/files.h>
#include <dbtest/temp_dir.h>
#include <dbtest/log_capture.h>
#include <skstdutl/sklog.h>

namespace {

const DWORD kTimeoutMs = 30000;  // bound on every wait for another thread

std::vector<std::string> SplitLines(const std::string &content) {
    std::vector<std::string> lines;
    size_t start = 0;
    for (size_t end; (end = content.find("\r\n", start)) != std::string::npos; start = end + 2)
        lines.push_back(content.substr(start, end - start));
    EXPECT_EQ(start, content.size()) << "file ends in a torn line";
    return lines;
}

// A private folder per test; the log goes to <folder>\sklog\Logs\diskBroker.log,
// two folders the logger has to create.
class SklogFile : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_FALSE(folder_.Path().empty());
        SK_SetLogFilePath(logPath_.c_str());
    }
    void TearDown() override {
        SK_SetLogFilePath(L"");  // closes the file so the folder can be removed
        SK_SetLogFilePath(nullptr);
    }
    dbtest::TempDir folder_;
    const std::wstring logPath_ = folder_.File(L"sklog\\Logs\\diskBroker.log");
};

TEST_F(SklogFile, WritesOneLinePerCallCreatingTheFolder) {
    SetLastError(1234);  // callers log, then report their error
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"hello %s", L"w\x00f6rld");
    EXPECT_EQ(GetLastError(), 1234u) << "kept across creating the folders and the file";
    std::vector<std::string> lines = SplitLines(dbtest::ReadWholeFile(logPath_));
    ASSERT_EQ(lines.size(), 1u);
    // "... [  tid] file: text", text in UTF-8.
    const std::string tid = std::to_string(GetCurrentThreadId());
    EXPECT_NE(lines[0].find(tid + "] sklog_file_test.cpp: hello w\xc3\xb6rld"), std::string::npos) << lines[0];
}

// Cut to the buffer, ended in it.
TEST_F(SklogFile, GetLogFilePathReportsTheOverrideCutToTheBuffer) {
    wchar_t tiny[4] = {L'?', L'?', L'?', L'?'};
    SK_GetLogFilePath(tiny, 4);
    EXPECT_EQ(std::wstring(tiny), logPath_.substr(0, 3));
}

const int kThreads = 8;
const int kLinesPerThread = 2000;

unsigned __stdcall LogMany(void *arg) {
    int thread = static_cast<int>(reinterpret_cast<intptr_t>(arg));
    for (int i = 0; i < kLinesPerThread; ++i)
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"thread %d line %d", thread, i);
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"thread %d done", thread);
    return 0;
}

TEST_F(SklogFile, ConcurrentWritersNeitherTearNorLoseLines) {
    dbtest::LogCapture capture;
    std::vector<HANDLE> threads;
    for (intptr_t t = 0; t < kThreads; ++t) {
        threads.push_back(reinterpret_cast<HANDLE>(
            _beginthreadex(nullptr, 0, &LogMany, reinterpret_cast<void *>(t), 0, nullptr)));
        ASSERT_NE(threads.back(), nullptr);
    }
    ASSERT_EQ(WaitForMultipleObjects(kThreads, threads.data(), TRUE, kTimeoutMs), WAIT_OBJECT_0);
    for (HANDLE h : threads) CloseHandle(h);

    std::vector<std::string> lines = SplitLines(dbtest::ReadWholeFile(logPath_));
    ASSERT_EQ(lines.size(), static_cast<size_t>(kThreads * (kLinesPerThread + 1)));
    std::set<std::string> texts;
    for (const std::string &line : lines) texts.insert(line.substr(line.find(": ") + 2));
    EXPECT_EQ(texts.size(), lines.size()) << "duplicated lines";
    EXPECT_EQ(capture.Lines().size(), lines.size());
}

TEST_F(SklogFile, RotatesAtTenMegabytesKeepingOneOlderFile) {
    std::wstring text(SK_LOG_MAX_TEXT - 100, L'r');
    const unsigned long long tenMb = 10ull * 1024 * 1024;
    unsigned long long written = 0;
    int count = 0;
    while (written <= tenMb + 100000) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"%d %s", count++, text.c_str());
        written += text.size() + 60;
    }
    std::string older = dbtest::ReadWholeFile(logPath_ + L".1");
    std::string current = dbtest::ReadWholeFile(logPath_);
    EXPECT_LE(older.size(), tenMb);
    EXPECT_GT(older.size(), tenMb - 2 * text.size() - 200);
    std::vector<std::string> olderLines = SplitLines(older);
    std::vector<std::string> currentLines = SplitLines(current);
    EXPECT_EQ(olderLines.size() + currentLines.size(), static_cast<size_t>(count)) << "lost a line";
    ASSERT_FALSE(currentLines.empty());
    EXPECT_NE(currentLines.back().find(": " + std::to_string(count - 1) + " rrr"), std::string::npos);
}

}  // namespace
