// Commit-list files: a streaming loader that nothing in a file can crash or
// stall, durable appends, atomic rewrites.
#include "sector_store.h"

#include <string.h>

#include <algorithm>
#include <charconv>
#include <string>

#include <skclass_mini/dawdle.h>
#include <skclass_mini/handles.h>
#include <skstdutl/sklog.h>

namespace sectormgr {

namespace {

// A valid line is at most two 20-digit numbers with a few blanks; anything
// longer is skipped without being kept, however long it is.
constexpr size_t kMaxLineBytes = 128;
constexpr DWORD kChunkBytes = 1 << 20;
// Lines skipped one by one in the log; beyond this only the total.
constexpr uint64_t kSkippedLinesLogged = 10;

template <typename Char>
bool IsBlank(Char c) {
    return c == ' ' || c == '\t';
}

template <typename Char>
bool ParseNumber(const Char *&p, const Char *end, uint64_t &value) {
    const Char *start = p;
    value = 0;
    for (; p < end && *p >= '0' && *p <= '9'; ++p) {
        const uint64_t digit = static_cast<uint64_t>(*p - '0');
        if (value >= UINT64_MAX / 10 && (value > UINT64_MAX / 10 || digit > UINT64_MAX % 10)) return false;
        value = value * 10 + digit;
    }
    return p != start;
}

template <typename Char>
bool ParseRun(const Char *p, const Char *end, SectorRun &run) {
    while (end > p && (IsBlank(end[-1]) || end[-1] == '\r')) --end;
    while (p < end && IsBlank(*p)) ++p;
    uint64_t start = 0, count = 0;
    if (!ParseNumber(p, end, start) || p == end || !IsBlank(*p)) return false;
    while (p < end && IsBlank(*p)) ++p;
    if (!ParseNumber(p, end, count) || p != end) return false;
    return MakeRun(start, count, run);
}

// Feeds a file's bytes line by line to the set, keeping at most one short
// partial line between chunks.
class LineLoader {
public:
    LineLoader(const std::wstring &path, SectorRunSet &set) : path_(path), set_(set) {}

    void Feed(const char *p, const char *end) {
        while (p < end) {
            const char *lineEnd = static_cast<const char *>(memchr(p, '\n', static_cast<size_t>(end - p)));
            if (!lineEnd) {
                Carry(p, end);
                return;
            }
            if (partial_.empty() && !overlong_) {
                TakeLine(p, lineEnd);
            } else {
                Carry(p, lineEnd);
                TakeLine(partial_.data(), partial_.data() + partial_.size());
            }
            partial_.clear();
            overlong_ = false;
            p = lineEnd + 1;
        }
    }

    // Room for the runs of a file of size bytes, at a typical line length;
    // more lines only cost the vector's growth.
    void Expect(uint64_t size) { runs_.reserve(static_cast<size_t>(std::min<uint64_t>(size / 16, 1u << 24))); }

    // Adds the runs read, all at once: one merge instead of one per few thousand.
    void Finish() {
        set_.Add(runs_);
        if (!partial_.empty() || overlong_)
            SK_Zprintf_2(SK_SOURCE_FILE, 0, L"DataSetSectorManager: '%s' ends in a torn line (no line end); ignored",
                         path_.c_str());
        if (skipped_ > kSkippedLinesLogged)
            SK_Zprintf_2(SK_SOURCE_FILE, 0, L"DataSetSectorManager: '%s': %I64u lines skipped in all", path_.c_str(),
                         skipped_);
    }

private:
    void Carry(const char *p, const char *end) {
        const size_t length = static_cast<size_t>(end - p);
        if (overlong_ || partial_.size() + length > kMaxLineBytes) {
            overlong_ = true;
            partial_.clear();
            return;
        }
        partial_.append(p, length);
    }

    void TakeLine(const char *p, const char *end) {
        ++line_;
        SectorRun run;
        if (!overlong_ && static_cast<size_t>(end - p) <= kMaxLineBytes && ParseRun(p, end, run)) {
            runs_.push_back(run);
            return;
        }
        if (++skipped_ <= kSkippedLinesLogged)
            SK_Zprintf_2(SK_SOURCE_FILE, 0,
                         L"DataSetSectorManager: '%s' line %I64u is not a run \"start count\" in decimal sectors; skipped",
                         path_.c_str(), line_);
    }

    const std::wstring &path_;
    SectorRunSet &set_;
    SectorRuns runs_;
    std::string partial_;   // the current line's bytes seen so far, when short
    bool overlong_ = false; // the current line is already too long to be a run
    uint64_t line_ = 0;
    uint64_t skipped_ = 0;
};

void AppendRunText(std::string &text, const SectorRun &run) {
    ForEachCountedRun(run, [&text](uint64_t start, uint64_t count) {
        char buffer[48];
        char *p = std::to_chars(buffer, buffer + 20, start).ptr;
        *p++ = ' ';
        p = std::to_chars(p, p + 20, count).ptr;
        *p++ = '\r';
        *p++ = '\n';
        text.append(buffer, static_cast<size_t>(p - buffer));
    });
}

bool WriteAll(HANDLE file, const std::string &text) {
    DWORD written = 0;
    return WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr) &&
           written == text.size();
}

bool SeekTo(HANDLE file, uint64_t offset) {
    LARGE_INTEGER position;
    position.QuadPart = static_cast<LONGLONG>(offset);
    return SetFilePointerEx(file, position, nullptr, FILE_BEGIN) != 0;
}

// The length of the file without a last line that has no line end.
bool WholeLinesLength(HANDLE file, uint64_t size, uint64_t &length) {
    char block[4096];
    uint64_t end = size;
    while (end > 0) {
        const DWORD want = static_cast<DWORD>(end < sizeof block ? end : sizeof block);
        DWORD got = 0;
        if (!SeekTo(file, end - want) || !ReadFile(file, block, want, &got, nullptr) || got != want) return false;
        for (DWORD i = want; i > 0; --i) {
            if (block[i - 1] == '\n') {
                length = end - want + i;
                return true;
            }
        }
        end -= want;
    }
    length = 0;
    return true;
}

bool CutTornLine(HANDLE file, const std::wstring &path, uint64_t &size) {
    uint64_t whole = size;
    if (size > 0 && !WholeLinesLength(file, size, whole)) return false;
    if (whole == size) return true;
    if (!SeekTo(file, whole) || !SetEndOfFile(file)) return false;
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"DataSetSectorManager: '%s': cut a torn last line of %I64u bytes before appending",
                 path.c_str(), size - whole);
    size = whole;
    return true;
}

// A file another process holds for a moment (a virus scanner, the handles of
// a process that is being killed) is asked for again a few times before the
// operation fails.
constexpr int kBusyAttempts = 10;
constexpr unsigned long kBusyRetryMs = 50;

bool Busy(DWORD error) {
    return error == ERROR_SHARING_VIOLATION || error == ERROR_LOCK_VIOLATION || error == ERROR_ACCESS_DENIED;
}

HANDLE OpenWhenFree(const std::wstring &path, DWORD access, DWORD share, DWORD disposition, DWORD flags) {
    for (int attempt = 1;; ++attempt) {
        HANDLE file = CreateFileW(path.c_str(), access, share, nullptr, disposition, flags, nullptr);
        if (file != INVALID_HANDLE_VALUE || attempt == kBusyAttempts || !Busy(GetLastError())) return file;
        skclass::Dawdle(kBusyRetryMs);
    }
}

bool ReplaceWhenFree(const std::wstring &from, const std::wstring &to) {
    for (int attempt = 1;; ++attempt) {
        if (MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) return true;
        if (attempt == kBusyAttempts || !Busy(GetLastError())) return false;
        skclass::Dawdle(kBusyRetryMs);
    }
}

void LogFileError(const wchar_t *what, const std::wstring &path) {
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"DataSetSectorManager: cannot %s '%s', error %u", what, path.c_str(),
                 static_cast<unsigned>(GetLastError()));
}

}  // namespace

bool ParseRunText(const char *begin, const char *end, SectorRun &run) { return ParseRun(begin, end, run); }
bool ParseRunText(const wchar_t *begin, const wchar_t *end, SectorRun &run) { return ParseRun(begin, end, run); }

bool LoadRunFile(const std::wstring &path, SectorRunSet &set) {
    skclass::UniqueFile file(
        OpenWhenFree(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN));
    if (!file) {
        const DWORD error = GetLastError();
        if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) return true;
        LogFileError(L"open", path);
        return false;
    }
    std::string chunk(kChunkBytes, '\0');
    LineLoader loader(path, set);
    LARGE_INTEGER size{};
    if (GetFileSizeEx(file.get(), &size)) loader.Expect(static_cast<uint64_t>(size.QuadPart));
    for (;;) {
        DWORD got = 0;
        if (!ReadFile(file.get(), &chunk[0], kChunkBytes, &got, nullptr)) {
            LogFileError(L"read", path);
            return false;
        }
        if (got == 0) break;
        loader.Feed(chunk.data(), chunk.data() + got);
    }
    loader.Finish();
    return true;
}

bool AppendRuns(const std::wstring &path, const SectorRuns &runs) {
    std::string text;
    text.reserve(runs.size() * 24);
    for (const SectorRun &run : runs) AppendRunText(text, run);
    skclass::UniqueFile file(
        OpenWhenFree(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL));
    if (!file) {
        LogFileError(L"open for appending", path);
        return false;
    }
    LARGE_INTEGER size{};
    if (!GetFileSizeEx(file.get(), &size)) {
        LogFileError(L"size", path);
        return false;
    }
    uint64_t length = static_cast<uint64_t>(size.QuadPart);
    if (!CutTornLine(file.get(), path, length)) {
        LogFileError(L"check the end of", path);
        return false;
    }
    if (!SeekTo(file.get(), length) || !WriteAll(file.get(), text) || !FlushFileBuffers(file.get())) {
        LogFileError(L"append to", path);
        // The lines that did land are whole or torn; either way they are cut
        // back, so an unacknowledged commit leaves nothing behind.
        if (SeekTo(file.get(), length)) SetEndOfFile(file.get());
        return false;
    }
    return true;
}

bool RewriteRuns(const std::wstring &path, const SectorRuns &runs) {
    const std::wstring temporary = path.substr(0, path.size() - 4) + L".tmp";
    {
        skclass::UniqueFile file(
            OpenWhenFree(temporary, GENERIC_WRITE, 0, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL));
        if (!file) {
            LogFileError(L"create", temporary);
            return false;
        }
        std::string text;
        bool ok = true;
        for (size_t i = 0; ok && i < runs.size(); ++i) {
            AppendRunText(text, runs[i]);
            if (text.size() >= kChunkBytes || i + 1 == runs.size()) {
                ok = WriteAll(file.get(), text);
                text.clear();
            }
        }
        if (!ok || !FlushFileBuffers(file.get())) {
            LogFileError(L"write", temporary);
            file.reset();
            DeleteFileW(temporary.c_str());
            return false;
        }
    }
    if (!ReplaceWhenFree(temporary, path)) {
        LogFileError(L"replace", path);
        DeleteFileW(temporary.c_str());
        return false;
    }
    return true;
}

}  // namespace sectormgr
