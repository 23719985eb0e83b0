#include "progress.h"

#include <stdio.h>

#include <skclass_mini/win.h>

#include "console.h"

namespace dbtool {
namespace {

constexpr double kRedrawSeconds = 0.1;
constexpr int kBarWidth = 28;

double Now() {
    LARGE_INTEGER frequency, counter;
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&counter);
    return static_cast<double>(counter.QuadPart) / static_cast<double>(frequency.QuadPart);
}

}  // namespace

Progress::Progress(std::wstring label, uint64_t totalBytes, bool visible)
    : Progress(std::move(label), totalBytes, StdoutIsTerminal(), Now, [visible](const std::wstring &t) {
          if (visible) Out(t);
      }) {}

Progress::Progress(std::wstring label, uint64_t totalBytes, bool terminal, Clock clock, Sink sink)
    : label_(std::move(label)), total_(totalBytes), terminal_(terminal), clock_(std::move(clock)),
      sink_(std::move(sink)), start_(clock_()) {}

void Progress::Advance(uint64_t bytes) {
    done_ += bytes;
    Draw(false);
}

std::wstring Progress::Rate(double seconds, uint64_t bytes) const {
    wchar_t text[32];
    swprintf(text, 32, L"%.1f MB/s", seconds > 0 ? static_cast<double>(bytes) / 1e6 / seconds : 0.0);
    return text;
}

void Progress::Draw(bool force) {
    const double now = clock_();
    const double elapsed = now - start_;
    const double fraction = total_ ? static_cast<double>(done_) / static_cast<double>(total_) : 1.0;
    if (!terminal_) {
        // A line at each quarter reached; the last one comes from Finish.
        const int quarter = static_cast<int>(fraction * 4);
        if (quarter <= lastQuarter_ || quarter >= 4) return;
        lastQuarter_ = quarter;
        sink_(label_ + L": " + std::to_wstring(quarter * 25) + L"% " + FormatBytes(done_) + L" of " +
              FormatBytes(total_) + L", " + Rate(elapsed, done_) + L"\n");
        return;
    }
    if (!force && lastDraw_ >= 0 && now - lastDraw_ < kRedrawSeconds) return;
    lastDraw_ = now;
    const int filled = static_cast<int>(fraction * kBarWidth + 0.5);
    std::wstring bar = L"\r" + label_ + L" [" + std::wstring(filled, L'#') + std::wstring(kBarWidth - filled, L'.') +
                       L"] ";
    wchar_t percent[16];
    swprintf(percent, 16, L"%3d%% ", static_cast<int>(fraction * 100));
    bar += percent + FormatBytes(done_) + L"/" + FormatBytes(total_) + L"  " + Rate(elapsed, done_);
    if (done_ > 0 && done_ < total_ && elapsed > 0) {
        const double remaining = elapsed * static_cast<double>(total_ - done_) / static_cast<double>(done_);
        bar += L"  ETA " + FormatDuration(remaining);
    }
    sink_(bar + L"   ");
}

void Progress::Finish() {
    if (finished_) return;
    finished_ = true;
    const double elapsed = clock_() - start_;
    if (terminal_) {
        Draw(true);
        sink_(L"\n");
    }
    wchar_t seconds[32];
    swprintf(seconds, 32, L"%.1fs", elapsed);
    sink_(label_ + L": " + FormatBytes(done_) + L" in " + seconds + L" (" + Rate(elapsed, done_) + L")\n");
}

}  // namespace dbtool
