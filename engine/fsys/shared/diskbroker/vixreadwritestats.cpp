// Read/write statistics: runs of equal-sized requests inside contiguous
// extents, one log line per extent. Sectors are 512 bytes.
#include "vixreadwritestats_internal.h"

#include <string>

#include <skstdutl/sklog.h>

namespace vixstats {
namespace {

constexpr unsigned kSectorShift = 9;
// A disk read in ever-changing request sizes inside one extent would grow the
// text by a run per request, without end: past this length the runs are
// counted but no longer spelled out, and the text ends in ", ...".
constexpr size_t kMaxChunkTextChars = 4096;
const wchar_t kChunkTextCut[] = L", ...";

// Appends "[count * size]" for the current run and starts a run of size
// sectors (a run of size 0 counts nothing yet).
void CloseRunAndStart(_vixReadWriteStats &stats, uint64_t size) {
    if (stats.chunkText.size() < kMaxChunkTextChars) {
        if (!stats.chunkText.empty()) stats.chunkText += L", ";
        stats.chunkText += L"[" + std::to_wstring(static_cast<int>(stats.chunkCount)) + L" * " +
                           std::to_wstring(stats.chunkSectors) + L"]";
        if (stats.chunkText.size() >= kMaxChunkTextChars) stats.chunkText += kChunkTextCut;
    }
    stats.chunkSectors = size;
    stats.chunkCount = size == 0 ? 0 : 1;
}

// The second number of each pair is a length, not an end.
void LogExtentLine(const _vixReadWriteStats &stats) {
    const wchar_t *format = nullptr;
    if (stats.kind == _vixReadWriteStats::kRead)
        format = L"VixDiskLib_Read(%s) No of reads: %d Data chunks: %s Data extent: "
                 L"[%08I64u-%08I64u(%08I64u-%08I64u)] ";
    else if (stats.kind == _vixReadWriteStats::kWrite)
        format = L"VixDiskLib_Write(%s) No of writes: %d Data chunks: %s Data extent:"
                 L"[%08I64u-%08I64u(%08I64u-%08I64u)] ";
    if (!format) return;
    SK_Zprintf_2(SK_SOURCE_FILE, 0, format, stats.name.c_str(), static_cast<int>(stats.operationCount),
                 stats.chunkText.c_str(), stats.extentStart, stats.extentSectors,
                 stats.extentStart << kSectorShift, stats.extentSectors << kSectorShift);
}

}  // namespace

void RecordRequest(_vixReadWriteStats &stats, uint64_t startSector, uint64_t sectorCount) {
    if (stats.extentStart == 0 && stats.extentSectors == 0) {
        // Nothing collected yet (a 0-sector request at sector 0 keeps it so).
        stats.extentStart = startSector;
        stats.chunkSectors = sectorCount;
        stats.chunkCount = 1;
        stats.operationCount += 1;
        stats.extentSectors = sectorCount;
    } else if (startSector == stats.extentStart + stats.extentSectors) {
        if (sectorCount == stats.chunkSectors)
            stats.chunkCount += 1;
        else
            CloseRunAndStart(stats, sectorCount);
        stats.extentSectors += sectorCount;
        stats.operationCount += 1;
    } else {
        CloseRunAndStart(stats, sectorCount);
        LogExtentLine(stats);
        stats.chunkText.clear();
        stats.operationCount = 1;
        stats.extentStart = startSector;
        stats.extentSectors = sectorCount;
    }
}

void FinishAtClose(_vixReadWriteStats &stats) {
    CloseRunAndStart(stats, 0);
    LogExtentLine(stats);
    stats = _vixReadWriteStats();
}

}  // namespace vixstats
