// A child committing runs in a loop is killed with TerminateProcess at random
// points; after every kill its file must load and hold what was committed:
// every acknowledged commit, nothing beyond the one in flight.
#include <algorithm>
#include <random>

#include <dbtest/child_process.h>
#include <dbtest/wait.h>
#include <skclass_mini/handles.h>

#include "sector_crash_plan.h"
#include "sector_fixture.h"

namespace sectortest {
namespace {

using namespace sectorcrash;

// Each round starts a Wine process: 150 kills stay within CTest's time.
constexpr unsigned kKills = 150;
using dbtest::kTimeoutMs;

// One flag per sector of the plan's range.
struct Bitmap {
    std::vector<bool> bits = std::vector<bool>(kSectors);
    void Add(uint64_t start, uint64_t count) { std::fill_n(bits.begin() + start, count, true); }
    bool Within(const Bitmap &outer) const {
        for (size_t s = 0; s < bits.size(); ++s)
            if (bits[s] && !outer.bits[s]) return false;
        return true;
    }
};

// The file's runs, strictly: every line whole and a run inside the plan's range.
::testing::AssertionResult LoadStrictly(const std::string &bytes, Bitmap &runs) {
    size_t at = 0;
    for (uint64_t line = 1; at < bytes.size(); ++line) {
        const size_t end = bytes.find('\n', at);
        if (end == std::string::npos) return ::testing::AssertionFailure() << "line " << line << " is torn";
        unsigned long long start = 0, count = 0;
        char tail = 0;
        const std::string text = bytes.substr(at, end - at);
        if (sscanf(text.c_str(), "%llu %llu%c", &start, &count, &tail) != 3 || tail != '\r' || count == 0 ||
            start + count > kSectors)
            return ::testing::AssertionFailure() << "line " << line << " is not a run: " << text;
        runs.Add(start, count);
        at = end + 1;
    }
    return ::testing::AssertionSuccess();
}

void SpinMicroseconds(uint64_t microseconds) {  // a random kill point, not a wait for anything
    LARGE_INTEGER frequency, now, end;
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&end);
    end.QuadPart += static_cast<LONGLONG>(microseconds * uint64_t(frequency.QuadPart) / 1000000);
    do QueryPerformanceCounter(&now);
    while (now.QuadPart < end.QuadPart);
}

TEST_F(SectorTest, KilledCommitsLeaveEveryAcknowledgedRunAndNothingUncommitted) {
    skclass::UniqueHandle mapping(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(Shared),
                                                     SharedName(GetCurrentProcessId()).c_str()));
    skclass::UniqueHandle ack(CreateEventW(nullptr, FALSE, FALSE, AckEventName(GetCurrentProcessId()).c_str()));
    ASSERT_TRUE(mapping && ack);
    Shared *shared = static_cast<Shared *>(MapViewOfFile(mapping.get(), FILE_MAP_ALL_ACCESS, 0, 0, sizeof(Shared)));
    ASSERT_NE(shared, nullptr);
    auto unmap = skclass::MakeScopeExit([shared] { UnmapViewOfFile(shared); });
    const uint64_t seed = 20261123;
    const std::wstring file = ObjectFolder(L"crash") + L"\\set.dat";
    std::mt19937 random(seed);
    Bitmap acknowledged;  // the runs of every acknowledged commit
    uint64_t counted = 0; // commits already in acknowledged
    unsigned tornOrInFlight = 0;
    for (unsigned round = 0; round < kKills; ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        dbtest::ChildProcess child(L"sector_crash_child.exe", L"\"" + data.Path() + L"\" " + std::to_wstring(seed) +
                                                                  L" " + std::to_wstring(GetCurrentProcessId()));
        ASSERT_TRUE(child.Started()) << child.StartError();
        HANDLE waits[2] = {ack.get(), child.Process()};
        for (unsigned acks = random() % 8; acks > 0; --acks)
            ASSERT_EQ(WaitForMultipleObjects(2, waits, FALSE, kTimeoutMs), WAIT_OBJECT_0)
                << "the child " << (child.Kill(kTimeoutMs) ? "hung" : "stopped") << "; its log:\n"
                << dbtest::ReadWholeFile(data.File(L"crash-child.log"));
        SpinMicroseconds(random() % 3000);
        ASSERT_TRUE(child.Kill(kTimeoutMs)) << "the child ended by itself";
        const uint64_t now = Acknowledged(shared);
        for (; counted < now; ++counted)
            for (const auto &run : CommitRuns(seed, counted)) acknowledged.Add(run.first, run.second);
        Bitmap inFile, allowed = acknowledged;
        for (const auto &run : CommitRuns(seed, now)) allowed.Add(run.first, run.second);  // the one in flight
        ASSERT_TRUE(LoadStrictly(dbtest::ReadWholeFile(file), inFile));
        ASSERT_TRUE(acknowledged.Within(inFile)) << "an acknowledged run is lost";
        ASSERT_TRUE(inFile.Within(allowed)) << "the file holds a run that was never committed";
        tornOrInFlight += !inFile.Within(acknowledged);
    }
    printf("[ crash    ] %llu commits acknowledged; %u kills landed with the next commit already on disk\n",
           static_cast<unsigned long long>(counted), tornOrInFlight);
}

}  // namespace
}  // namespace sectortest
