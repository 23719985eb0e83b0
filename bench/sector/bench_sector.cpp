// The sector bookkeeping's costs, each printed beside a bare baseline:
//  1. start (load and merge) of a set of 1,000,000 committed runs, against
//     reading the same file's bytes and parsing its numbers bare (goal under
//     1 s and within 3x); once for a file of shuffled commits (with the cost
//     of sorting them apart), once for a compacted one;
//  2. a query of 1,000,000 CBT extents against those runs, against sorting
//     2,000,000 pairs (goal within 2x): the whole operation, then its parts
//     side by side: the list read (the plain scan of its bytes), the query's
//     own work (the extents merged, minus the runs) and the answer's XML
//     written; for scale, the XmlLite path that reads unusual lists (SkXML)
//     and a bare XmlLite pass (the system parser's own floor);
//  3. a commit of one run with its flush, against WriteFile + FlushFileBuffers
//     of the same line.
// The parts are the library's own source built in, so each is timed apart.
// Usage: bench_sector [runs]   (1000000 by default; extents = runs)
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <data_object_sector_mgr.h>
#include <dbtest/temp_dir.h>
#include <skclass_mini/handles.h>
#include <skstdutl/sklog.h>
#include <skxml/xmlreader.h>

#include "sector_changelist.h"
#include "sector_runs.h"
#include "sector_store.h"

#include "../support/bench_timing.h"
#include "../support/extent_list_xml.h"

namespace {

using benchsupport::Median;
using benchsupport::Now;

constexpr int kRepeats = 3;
constexpr int kStartRepeats = 7;  // a start is short: more tries to find its best
constexpr int kCommits = 50;
constexpr uint64_t kExtentSpacing = 131072 / 512;  // sectors between extents of the list

// Results that must be used, so that no baseline is optimised away.
unsigned long long g_checksum = 0;

bool WriteAll(const std::wstring &path, const std::string &bytes) {
    skclass::UniqueFile file(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
    DWORD written = 0;
    return file && WriteFile(file.get(), bytes.data(), DWORD(bytes.size()), &written, nullptr) &&
           written == bytes.size();
}

// One run inside each extent of the list (sectors 32..63 of its 128), in
// commit order: shuffled, as parallel streams commit, or sorted, as a
// compacted file holds them.
std::string RunFileText(size_t runs, bool shuffled) {
    std::vector<uint64_t> order(runs);
    for (size_t i = 0; i < runs; ++i) order[i] = i;
    if (shuffled) std::shuffle(order.begin(), order.end(), std::mt19937(1));
    std::string text;
    text.reserve(runs * 16);
    for (uint64_t i : order) text += std::to_string(2048 + i * kExtentSpacing + 32) + " 32\r\n";
    return text;
}

// The baseline of 1: the file's bytes read and both numbers of each line parsed.
void BareParse(const std::wstring &path) {
    skclass::UniqueFile file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                         FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    std::string bytes(1 << 20, '\0');
    unsigned long long sum = 0, value = 0;
    DWORD got = 0;
    while (file && ReadFile(file.get(), &bytes[0], DWORD(bytes.size()), &got, nullptr) && got > 0) {
        for (DWORD i = 0; i < got; ++i) {
            const char c = bytes[i];
            if (c >= '0' && c <= '9') {
                value = value * 10 + unsigned(c - '0');
            } else if (value) {
                sum += value;
                value = 0;
            }
        }
    }
    g_checksum += sum;
}

// Of 1 for shuffled commits: the merge of the runs alone (a radix sort and
// one pass), the work the bare baseline has no part of.
double MergeShuffled(size_t count) {
    std::vector<uint64_t> order(count);
    for (size_t i = 0; i < count; ++i) order[i] = i;
    std::shuffle(order.begin(), order.end(), std::mt19937(1));
    sectormgr::SectorRuns runs;
    for (uint64_t i : order) runs.push_back({2048 + i * kExtentSpacing + 32, 2048 + i * kExtentSpacing + 63});
    const double start = Now();
    sectormgr::SectorRunSet set;
    set.Add(std::move(runs));
    g_checksum += set.Runs().size();
    return Now() - start;
}

double SortPairs(size_t count) {
    std::mt19937_64 random(2);
    std::vector<std::pair<uint64_t, uint64_t>> pairs(count);
    for (auto &pair : pairs) pair = {random(), random()};
    const double start = Now();
    std::sort(pairs.begin(), pairs.end());
    const double seconds = Now() - start;
    g_checksum += pairs[count / 2].first & 1;
    return seconds;
}

struct Bench {
    std::wstring root, folder, runFile, list, answer;
    size_t runs = 0;

    bool Prepare(bool shuffled) const {
        CreateDirectoryW((root + L"\\SectorManager").c_str(), nullptr);
        CreateDirectoryW(folder.c_str(), nullptr);
        return WriteAll(runFile, RunFileText(runs, shuffled));
    }
};

struct Times {
    std::vector<double> start, bare, merge, query, sorted, scan, skxml, xmllite, core, write;
};

// 1: count times, a start of the set, then the bare pass over the same file.
// The set is dropped without the end's rewrite, and the file written afresh,
// so every start loads the file as written.
bool TimeStarts(const Bench &bench, bool shuffled, int count, std::vector<double> &start, std::vector<double> &bare) {
    for (int i = 0; i < count; ++i) {
        if (!bench.Prepare(shuffled)) return false;
        double t = Now();
        if (DataSetSectorManager(L"bench", L"runs", SECTOR_MANAGER_START_QUERY) != 0) return false;
        start.push_back(Now() - t);
        t = Now();
        BareParse(bench.runFile);
        bare.push_back(Now() - t);
        DataSetSectorManager(L"bench", SECTOR_MANAGER_DESTROY_ALL);
    }
    return true;
}

// 2, in parts: what the query operation does, one step at a time.
bool TimeQueryParts(const Bench &bench, Times &times) {
    sectormgr::SectorRunSet have;
    if (!sectormgr::LoadRunFile(bench.runFile, have)) return false;
    double t = Now();
    sectormgr::SectorRuns extents;
    uint64_t count = 0;
    skclass::UniqueFile list(CreateFileW(bench.list.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                         FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    if (!sectormgr::ScanChangeListFile(list.get(), extents, count)) return false;
    times.scan.push_back(Now() - t);
    t = Now();
    sectormgr::SectorRunSet asked;
    asked.Add(std::move(extents));
    const sectormgr::SectorRuns left = sectormgr::SubtractAll(asked.Take(), {&have.Runs()});
    times.core.push_back(Now() - t);
    t = Now();
    if (!sectormgr::WriteChangeList(bench.answer, left)) return false;
    times.write.push_back(Now() - t);
    t = Now();
    CXmlReader reader;
    sectormgr::SectorRuns slow;
    if (!sectormgr::LoadChangeList(bench.list, reader) || !sectormgr::ChangeListRuns(reader, bench.list, slow, count))
        return false;
    times.skxml.push_back(Now() - t);
    t = Now();
    g_checksum += benchsupport::BareXmlLitePass(bench.list);
    times.xmllite.push_back(Now() - t);
    return true;
}

bool TimeQuery(const Bench &bench, Times &times, bool first) {
    wcstring answer = bench.answer, summary;
    const double t = Now();
    if (DataSetSectorManager(L"bench", bench.list, answer, summary, SECTOR_MANAGER_QUERY_SECTORS) != 0) return false;
    times.query.push_back(Now() - t);
    if (first) printf("query: %ls\n", summary.c_str());
    times.sorted.push_back(SortPairs(2 * bench.runs));
    return TimeQueryParts(bench, times);
}

double Best(const std::vector<double> &v) { return *std::min_element(v.begin(), v.end()); }

void Row(const char *what, double ours, const char *baseline, double bare) {
    printf("%-46s %9.1f ms | %-30s %9.1f ms | ratio %5.2f\n", what, ours * 1000, baseline, bare * 1000, ours / bare);
}

const char *Met(bool met) { return met ? "met" : "NOT met"; }

void PrintStart(const char *what, const std::vector<double> &start, const std::vector<double> &bare) {
    Row(what, Best(start), "read + parse the bytes bare", Best(bare));
    printf("   goals: under 1 s (%s), within 3x of bare (%s)\n", Met(Best(start) < 1),
           Met(Best(start) < 3 * Best(bare)));
}

void PrintQuery(const Times &t) {
    const double sort = Best(t.sorted);
    Row("2. query: extents minus runs, answer written", Best(t.query), "sort 2x as many pairs", sort);
    Row("   a. the list read (plain scan of its bytes)", Best(t.scan), "sort 2x as many pairs", sort);
    Row("   b. the query's own work on the sectors", Best(t.core), "sort 2x as many pairs", sort);
    Row("   c. the answer's XML written", Best(t.write), "sort 2x as many pairs", sort);
    Row("   for scale: the XmlLite path (SkXML) read", Best(t.skxml), "sort 2x as many pairs", sort);
    Row("   for scale: a bare XmlLite pass alone", Best(t.xmllite), "sort 2x as many pairs", sort);
    printf("   goal within 2x of the sort: %s\n", Met(Best(t.query) < 2 * sort));
}

void TimeCommits() {
    std::vector<double> commit, flush;
    const std::vector<wcstring> one = {L"5 1"};
    dbtest::TempDir scratch;
    skclass::UniqueFile raw(CreateFileW(scratch.File(L"raw.dat").c_str(), FILE_APPEND_DATA, 0, nullptr,
                                        CREATE_ALWAYS, 0, nullptr));
    for (int i = 0; i < kCommits; ++i) {
        double t = Now();
        DataSetSectorManager(L"bench", L"commits", one, SECTOR_MANAGER_COMMIT_SECTORS);
        commit.push_back(Now() - t);
        t = Now();
        DWORD written = 0;
        WriteFile(raw.get(), "5 1\r\n", 5, &written, nullptr);
        FlushFileBuffers(raw.get());
        flush.push_back(Now() - t);
    }
    Row("3. commit of one run (median)", Median(commit), "WriteFile + FlushFileBuffers", Median(flush));
}

}  // namespace

int main(int argc, char **argv) {
    SK_SetLogFilePath(L"");
    dbtest::TempDir data;
    if (data.Path().empty()) return 1;
    DataSetSectorManagerSetDataPath(data.Path().c_str());
    Bench bench;
    bench.runs = argc > 1 ? static_cast<size_t>(atoll(argv[1])) : 1000000;
    bench.root = data.Path();
    bench.folder = data.Path() + L"\\SectorManager\\bench";
    bench.runFile = bench.folder + L"\\runs.dat";
    bench.list = data.File(L"cbt.xml");
    bench.answer = data.File(L"answer.xml");
    const unsigned areas = unsigned((bench.runs + 999) / 1000);
    if (!benchsupport::WriteExtentList(bench.list, areas, 1000, 65536, 1048576)) {
        fprintf(stderr, "cannot write the bench's files\n");
        return 1;
    }
    printf("%zu committed runs and a list of %u extents, best of %d (starts: of %d)\n", bench.runs, areas * 1000,
           kRepeats, kStartRepeats);
    Times times;
    std::vector<double> sortedStart, sortedBare;
    if (!TimeStarts(bench, true, kStartRepeats, times.start, times.bare) ||
        !TimeStarts(bench, false, kStartRepeats, sortedStart, sortedBare))
        return 1;
    for (int r = 0; r < kRepeats; ++r) {
        times.merge.push_back(MergeShuffled(bench.runs));
        if (!bench.Prepare(true) || DataSetSectorManager(L"bench", L"runs", SECTOR_MANAGER_START_QUERY) != 0 ||
            !TimeQuery(bench, times, r == 0))
            return 1;
        DataSetSectorManager(L"bench", SECTOR_MANAGER_DESTROY_ALL);
    }
    PrintStart("1. start: load + merge, shuffled commits", times.start, times.bare);
    Row("   of which the merge of shuffled runs alone", Best(times.merge), "read + parse the bytes bare",
        Best(times.bare));
    PrintStart("   the same runs compacted (sorted)", sortedStart, sortedBare);
    PrintQuery(times);
    TimeCommits();
    printf("(checksum %llu)\n", g_checksum);
    return 0;
}
