// Progress of one stream: a bar redrawn in place on a terminal (bytes, MB/s,
// ETA), a plain line at each quarter otherwise, so logs of scripted runs stay
// short and readable.
#pragma once
#include <stdint.h>

#include <functional>
#include <string>

namespace dbtool {

class Progress {
public:
    using Clock = std::function<double()>;  // seconds, monotonic
    using Sink = std::function<void(const std::wstring &)>;

    // Draws on stdout, as a bar when stdout is a terminal; draws nothing
    // when not visible (the caller reports the outcome itself).
    Progress(std::wstring label, uint64_t totalBytes, bool visible = true);
    // For tests: explicit clock, output and mode.
    Progress(std::wstring label, uint64_t totalBytes, bool terminal, Clock clock, Sink sink);

    void Advance(uint64_t bytes);
    // Ends the display with a summary line: "<label>: 64.0 MiB in 1.2s (53.3 MB/s)".
    void Finish();
    uint64_t Done() const { return done_; }
    double Seconds() const { return clock_() - start_; }

private:
    void Draw(bool force);
    std::wstring Rate(double seconds, uint64_t bytes) const;

    std::wstring label_;
    uint64_t total_;
    uint64_t done_ = 0;
    bool terminal_;
    Clock clock_;
    Sink sink_;
    double start_;
    double lastDraw_ = -1;
    int lastQuarter_ = 0;
    bool finished_ = false;
};

}  // namespace dbtool
