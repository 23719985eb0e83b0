// The sector bookkeeping's costs, each printed beside a bare baseline:
//  1. start (load and merge) of a set of 1,000,000 committed runs, against
//     reading the same file's bytes and parsing its numbers bare (goal under
//     1 s and within 3x);
//  2. a query of 1,000,000 CBT extents against those runs, against sorting
//     2,000,000 pairs (goal within 2x): the whole operation, the bare XmlLite
//     pass over its list (where most of the time goes), and the query's own
//     work on the sectors (the run sets, built into this bench from the
//     library's source);
//  3. a commit of one run with its flush, against WriteFile + FlushFileBuffers
//     of the same line.
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

#include "sector_runs.h"

#include "../support/bench_timing.h"
#include "../support/extent_list_xml.h"

namespace {

using benchsupport::Median;
using benchsupport::Now;

constexpr int kRepeats = 3;
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

// One run inside each extent of the list (sectors 32..63 of its 128), shuffled.
std::string RunFileText(size_t runs) {
    std::vector<uint64_t> order(runs);
    for (size_t i = 0; i < runs; ++i) order[i] = i;
    std::shuffle(order.begin(), order.end(), std::mt19937(1));
    std::string text;
    text.reserve(runs * 16);
    for (uint64_t i : order) text += std::to_string(2048 + i * kExtentSpacing + 32) + " 32\r\n";
    return text;
}

// The baseline of 1: the file's bytes read and both numbers of each line parsed.
unsigned long long BareParse(const std::wstring &path) {
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
    return sum;
}

// The query's work past the XML: the extents (as the list cuts them) merged,
// minus the merged runs.
double QueryCore(size_t runs) {
    sectormgr::SectorRunSet have, asked;
    std::vector<uint64_t> order(runs);
    for (size_t i = 0; i < runs; ++i) order[i] = i;
    std::shuffle(order.begin(), order.end(), std::mt19937(1));
    for (uint64_t i : order) have.Add(sectormgr::SectorRun{2048 + i * kExtentSpacing + 32, 2048 + i * kExtentSpacing + 63});
    have.Runs();
    const double start = Now();
    for (size_t i = 0; i < runs; ++i) asked.Add(sectormgr::SectorRun{2048 + i * kExtentSpacing, 2048 + i * kExtentSpacing + 127});
    const sectormgr::SectorRuns left = sectormgr::Subtract(asked.Runs(), have.Runs());
    const double seconds = Now() - start;
    g_checksum += left.size();
    return seconds;
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

void Row(const char *what, double ours, const char *baseline, double bare) {
    printf("%-44s %9.1f ms | %-34s %9.1f ms | ratio %5.2f\n", what, ours * 1000, baseline, bare * 1000, ours / bare);
}

}  // namespace

int main(int argc, char **argv) {
    const size_t runs = argc > 1 ? static_cast<size_t>(atoll(argv[1])) : 1000000;
    SK_SetLogFilePath(L"");
    dbtest::TempDir data;
    if (data.Path().empty()) return 1;
    DataSetSectorManagerSetDataPath(data.Path().c_str());
    const std::wstring folder = data.Path() + L"\\SectorManager\\bench";
    CreateDirectoryW((data.Path() + L"\\SectorManager").c_str(), nullptr);
    CreateDirectoryW(folder.c_str(), nullptr);
    const std::wstring runFile = folder + L"\\runs.dat", list = data.File(L"cbt.xml");
    if (!WriteAll(runFile, RunFileText(runs)) ||
        !benchsupport::WriteExtentList(list, unsigned((runs + 999) / 1000), 1000, 65536, 1048576)) {
        fprintf(stderr, "cannot write the bench's files\n");
        return 1;
    }
    printf("%zu committed runs (shuffled) and a list of %zu extents, best of %d\n", runs, (runs + 999) / 1000 * 1000,
           kRepeats);

    std::vector<double> start, bare, query, sorted, xml, core;
    for (int r = 0; r < kRepeats; ++r) {
        double t = Now();
        if (DataSetSectorManager(L"bench", L"runs", SECTOR_MANAGER_START_QUERY) != 0) return 1;
        start.push_back(Now() - t);
        t = Now();
        BareParse(runFile);
        bare.push_back(Now() - t);
        wcstring answer = data.File(L"answer.xml"), summary;
        t = Now();
        if (DataSetSectorManager(L"bench", list, answer, summary, SECTOR_MANAGER_QUERY_SECTORS) != 0) return 1;
        query.push_back(Now() - t);
        if (r == 0) printf("query: %ls\n", summary.c_str());
        sorted.push_back(SortPairs(2 * runs));
        t = Now();
        g_checksum += benchsupport::BareXmlLitePass(list);
        xml.push_back(Now() - t);
        core.push_back(QueryCore(runs));
        // Dropped without the end's rewrite, so every repeat loads the same file.
        DataSetSectorManager(L"bench", SECTOR_MANAGER_DESTROY_ALL);
        CreateDirectoryW((data.Path() + L"\\SectorManager").c_str(), nullptr);
        CreateDirectoryW(folder.c_str(), nullptr);
        WriteAll(runFile, RunFileText(runs));
    }
    const auto best = [](const std::vector<double> &v) { return *std::min_element(v.begin(), v.end()); };
    Row("1. start: load + merge the runs", best(start), "read + parse the bytes bare", best(bare));
    Row("2. query: extents minus runs, answer written", best(query), "sort 2x as many pairs", best(sorted));
    Row("   the list's XML alone (bare XmlLite)", best(xml), "sort 2x as many pairs", best(sorted));
    Row("   the query's own work on the sectors", best(core), "sort 2x as many pairs", best(sorted));

    std::vector<double> commit, flush;
    const std::vector<wcstring> one = {L"5 1"};
    skclass::UniqueFile raw(CreateFileW(data.File(L"raw.dat").c_str(), FILE_APPEND_DATA, 0, nullptr, CREATE_ALWAYS,
                                        0, nullptr));
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
    const double total = best(start);
    printf("goals: start under 1 s (%s), start within 3x of bare (%s), query within 2x of the sort (%s; its own "
           "work on the sectors: %s)\n",
           total < 1 ? "met" : "NOT met", total < 3 * best(bare) ? "met" : "NOT met",
           best(query) < 2 * best(sorted) ? "met" : "NOT met", best(core) < 2 * best(sorted) ? "met" : "NOT met");
    printf("(checksum %llu)\n", g_checksum);
    return 0;
}
