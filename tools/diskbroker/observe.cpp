#include "observe.h"

#include <stdio.h>
#include <wchar.h>

#include <skstdutl/sklog.h>
#include <vddkcache.h>

namespace dbtool {
namespace {

void Sink(void *context, const SK_LogRecord *record) {
    if (record && record->text) static_cast<LogWatch *>(context)->Keep(record->text);
}

bool StartsWith(const wchar_t *text, const wchar_t *prefix) { return wcsncmp(text, prefix, wcslen(prefix)) == 0; }

}  // namespace

LogWatch::LogWatch() { sinkId_ = SK_AddLogSink(&Sink, this); }

LogWatch::~LogWatch() {
    if (sinkId_) SK_RemoveLogSink(sinkId_);
}

void LogWatch::Keep(const wchar_t *text) {
    const bool statistics = (StartsWith(text, L"VixDiskLib_Read(") && wcsstr(text, L"No of reads:")) ||
                            (StartsWith(text, L"VixDiskLib_Write(") && wcsstr(text, L"No of writes:"));
    const bool problem = wcsstr(text, L"Could not write to the disk") || wcsstr(text, L"Could not read the disk") ||
                         wcsstr(text, L"Data Written:");
    if (!statistics && !problem) return;
    skclass::CsLock hold(lock_);
    (statistics ? statistics_ : problems_).push_back(text);
}

std::vector<std::wstring> LogWatch::TakeStatistics() {
    skclass::CsLock hold(lock_);
    return std::move(statistics_);
}

std::vector<std::wstring> LogWatch::TakeProblems() {
    skclass::CsLock hold(lock_);
    return std::move(problems_);
}

DepthReading DepthReading::Of(const bufferDepthHistogram *histogram) {
    DepthReading reading;
    if (!histogram) return reading;
    reading.samples = histogram->totalSamples;
    reading.counts.assign(histogram->counts, histogram->counts + histogram->bucketCount + 1);
    return reading;
}

std::wstring DepthReading::Describe(const std::wstring &emptyVerdict, const std::wstring &fullVerdict) const {
    uint64_t total = 0, weighted = 0;
    for (size_t depth = 0; depth < counts.size(); ++depth) {
        total += counts[depth];
        weighted += static_cast<uint64_t>(counts[depth]) * depth;
    }
    if (total == 0) return L"no waits sampled";
    const double emptyShare = static_cast<double>(counts[0]) / static_cast<double>(total);
    wchar_t text[160];
    swprintf(text, 160, L"%ls: queue empty in %.0f%% of %llu waits, mean depth %.1f of %zu",
             (emptyShare > 0.5 ? emptyVerdict : fullVerdict).c_str(), emptyShare * 100.0,
             static_cast<unsigned long long>(total), static_cast<double>(weighted) / static_cast<double>(total),
             counts.empty() ? size_t(0) : counts.size() - 1);
    return text;
}

}  // namespace dbtool
