// VDDK's own log: the three InitEx callbacks and the process-wide cache of
// warnings and panics that a job collects with GetCachedVDDKlog.
#include <stdio.h>

#include <deque>

#include <diskbroker.h>
#include <skclass_mini/handles.h>
#include <skclass_mini/win.h>
#include <skstdutl/sklog.h>

#include "diskbroker_private.h"

using diskbroker_detail::GuardedVoid;

namespace {

constexpr size_t kMaxCachedLines = 100;
// VDDK's messages are formatted into a 2048-byte buffer; longer ones are lost.
constexpr size_t kMaxMessageChars = 2047;

struct CachedLine {
    wcstring text;
    DWORD threadId;  // kept for diagnosis; collection ignores it
};

struct VddkLogCache {
    skclass::CriticalSection lock;
    std::deque<CachedLine> lines;  // guarded by lock; oldest first
};

// Created on first use and never destroyed: VDDK's own threads can still report
// while the process exits, and a critical section deleted under the loader lock
// while such a thread holds or waits on it would be undefined behaviour.
VddkLogCache &TheLogCache() {
    static VddkLogCache *cache = new VddkLogCache;
    return *cache;
}

// Formats VDDK's text; false when it is empty, malformed or too long, which
// drops the message without a trace.
bool FormatVddkMessage(const char *format, va_list args, wcstring &text) {
    if (!format) return false;
    char buffer[kMaxMessageChars + 1];
    const int length = _vsnprintf_s(buffer, sizeof buffer, kMaxMessageChars, format, args);
    if (length <= 0) return false;
    text = wcstring::FromUtf8(buffer, static_cast<size_t>(length));
    return true;
}

}  // namespace

void diskBroker::VddkLogCallback(const char *format, va_list args) {
    GuardedVoid(L"VddkLogCallback", [&] {
        wcstring text;
        if (!FormatVddkMessage(format, args, text)) return;
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"VDDK-Log: %ls", text.c_str());
    });
}

void diskBroker::VddkWarningCallback(const char *format, va_list args) {
    GuardedVoid(L"VddkWarningCallback", [&] {
        wcstring text;
        if (!FormatVddkMessage(format, args, text)) return;
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"VDDK-Warn: %ls", text.c_str());
        CaptureLog(L"VDDK-Warn: ", text);
    });
}

// VDDK calls this for a fatal condition of its own; the process is not ours to
// end, so the message is kept and the call returns.
void diskBroker::VddkPanicCallback(const char *format, va_list args) {
    GuardedVoid(L"VddkPanicCallback", [&] {
        wcstring text;
        if (!FormatVddkMessage(format, args, text)) return;
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"VDDK-Panic: %ls", text.c_str());
        CaptureLog(L"VDDK-Panic: ", text);
    });
}

void diskBroker::CaptureLog(const wchar_t *prefix, wcstring &message) {
    GuardedVoid(L"CaptureLog", [&] {
        VddkLogCache &cache = TheLogCache();
        {
            skclass::CsLock hold(cache.lock);
            CachedLine line{wcstring(prefix) + message, GetCurrentThreadId()};
            if (cache.lines.size() >= kMaxCachedLines) cache.lines.pop_front();
            cache.lines.push_back(std::move(line));
        }
        message.clear();
    });
}

void diskBroker::GetCachedVDDKlog(wcstring *out) {
    if (!out) return;
    GuardedVoid(L"GetCachedVDDKlog", [&] {
        VddkLogCache &cache = TheLogCache();
        skclass::CsLock hold(cache.lock);
        for (const CachedLine &line : cache.lines) {
            // A plain substring test: a line already shown, or contained in one
            // shown, is not repeated.
            if (out->find(line.text) != wcstring::npos) continue;
            out->append(line.text);
            out->push_back(L'\n');
        }
        cache.lines.clear();
    });
}

void diskBroker::ClearCapturedLog() {
    VddkLogCache &cache = TheLogCache();
    skclass::CsLock hold(cache.lock);
    cache.lines.clear();
}
