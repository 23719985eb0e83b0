// Commit-list files: a streaming loader that nothing in a file can crash or
// stall, durable appends, atomic rewrites.
#include "sector_store.h"

#include <algorithm>
#include <memory>
#include <string>
#include <utility>

#include <skclass_mini/dawdle.h>
#include <skclass_mini/handles.h>
#include <skstdutl/sklog.h>

#include "sector_runsort.h"
#include "sector_text.h"

namespace sectormgr {

namespace {

// Read in pieces that stay in the processor's cache while they are scanned:
// reading a large file whole costs more (fresh memory for all of it) than the
// calls saved.
constexpr DWORD kChunkBytes = 64u << 10;
// A rewrite hands its text to the file in pieces of this size.
constexpr size_t kWriteChunkBytes = 1 << 20;
// Lines a file holds at least per run: "1 1\n" is four bytes, but what the
// library writes for a real disk is longer; a wrong guess only costs growth.
constexpr uint64_t kTypicalLineBytes = 12;
constexpr size_t kMostRunsReserved = size_t(1) << 24;

// What the scanner skipped, said in the log: the first few lines by number,
// a torn last line, the total when there were more.
void LogScan(const std::wstring &path, const RunLineScanner &scanner) {
    for (uint64_t line : scanner.FirstSkipped())
        SK_Zprintf_2(SK_SOURCE_FILE, 0,
                     L"DataSetSectorManager: '%s' line %I64u is not a run \"start count\" in decimal sectors; skipped",
                     path.c_str(), line);
    if (scanner.Torn())
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"DataSetSectorManager: '%s' ends in a torn line (no line end); ignored",
                     path.c_str());
    if (scanner.Skipped() > RunLineScanner::kSkippedNoted)
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"DataSetSectorManager: '%s': %I64u lines skipped in all", path.c_str(),
                     scanner.Skipped());
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

bool LoadRunFile(const std::wstring &path, SectorRunSet &set) {
    skclass::UniqueFile file(
        OpenWhenFree(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN));
    if (!file) {
        const DWORD error = GetLastError();
        if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) return true;
        LogFileError(L"open", path);
        return false;
    }
    LARGE_INTEGER size{};
    const uint64_t bytes = GetFileSizeEx(file.get(), &size) ? static_cast<uint64_t>(size.QuadPart) : 0;
    std::unique_ptr<char[]> chunk(new char[kChunkBytes]);
    SectorRuns runs;
    runs.reserve(static_cast<size_t>(std::min<uint64_t>(bytes / kTypicalLineBytes, kMostRunsReserved)));
    RunLineScanner scanner(runs);
    for (;;) {
        DWORD got = 0;
        if (!ReadFile(file.get(), chunk.get(), kChunkBytes, &got, nullptr)) {
            LogFileError(L"read", path);
            return false;
        }
        if (got == 0) break;
        scanner.Feed(chunk.get(), chunk.get() + got);
    }
    LogScan(path, scanner);
    if (!scanner.Merged()) SortAndCoalesce(runs, scanner.Spread());
    set.Add(std::move(runs), true);
    return true;
}

bool AppendRuns(const std::wstring &path, const SectorRuns &runs) {
    std::string text;
    text.reserve(runs.size() * 24);
    for (const SectorRun &run : runs) AppendRunLine(text, run);
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
            AppendRunLine(text, runs[i]);
            if (text.size() >= kWriteChunkBytes || i + 1 == runs.size()) {
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
