// Threads: commits to one object are whole lines in any interleaving, and an
// object whose call is stuck holds up no other object.
#include <thread>

#include <dbtest/wait.h>
#include <skclass_mini/handles.h>

#include "sector_fixture.h"

namespace sectortest {
namespace {

using dbtest::kTimeoutMs;
using dbtest::NewEvent;
// How long something that must not happen is given to show itself.
constexpr DWORD kMustNotMs = 300;

TEST_F(SectorTest, ConcurrentCommitsToOneObjectAreAllKeptWhole) {
    constexpr int kThreads = 4, kCommits = 50;
    std::vector<std::thread> threads;
    std::vector<int> failures(kThreads, 0);
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kCommits; ++i) {
                const uint64_t start = uint64_t(t * kCommits + i) * 4;  // gaps keep every run apart
                failures[t] += Commit(L"vm", t % 2 ? L"odd" : L"even", {{start, 1}, {start + 2, 1}});
            }
        });
    }
    for (std::thread &thread : threads) thread.join();
    EXPECT_EQ(failures, std::vector<int>(kThreads, 0));
    for (const wchar_t *set : {L"even", L"odd"}) {
        const auto runs = DumpedRuns(L"vm", set);
        EXPECT_EQ(runs.size(), size_t(kThreads / 2 * kCommits * 2)) << "every run, none joined or torn";
    }
}

// 1. A query on object A reads its change list from a pipe the test holds
//    open: the call stays inside A's lock.
// 2. Calls on object B finish meanwhile; a commit on A must wait.
// 3. The test writes the list; A's query and the waiting commit finish.
TEST_F(SectorTest, AnObjectStuckInACallHoldsUpNoOtherObject) {
    ASSERT_EQ(DataSetSectorManager(L"A", L"s", SECTOR_MANAGER_START_QUERY), 0);
    const std::wstring pipeName = L"\\\\.\\pipe\\" + dbtest::UniqueName(L"sector-list");
    // Overlapped, so that no step of the test can block without a bound.
    skclass::UniqueFile pipe(CreateNamedPipeW(pipeName.c_str(), PIPE_ACCESS_OUTBOUND | FILE_FLAG_OVERLAPPED,
                                              PIPE_TYPE_BYTE | PIPE_WAIT, 1, 65536, 65536, 0, nullptr));
    ASSERT_TRUE(pipe) << GetLastError();
    skclass::UniqueHandle queryDone = NewEvent(), otherDone = NewEvent(), sameDone = NewEvent(), io = NewEvent();
    int queryResult = -1, otherResult = -1, sameResult = -1;
    OVERLAPPED connect{};
    connect.hEvent = io.get();
    const bool pending = !ConnectNamedPipe(pipe.get(), &connect) && GetLastError() == ERROR_IO_PENDING;
    std::thread query([&] {
        wcstring out1 = scratch.File(L"a.xml"), out2;
        queryResult = DataSetSectorManager(L"A", pipeName, out1, out2, SECTOR_MANAGER_QUERY_SECTORS);
        SetEvent(queryDone.get());
    });
    HANDLE firstOf[2] = {io.get(), queryDone.get()};
    const bool connected = pending && WaitForMultipleObjects(2, firstOf, FALSE, kTimeoutMs) == WAIT_OBJECT_0;
    if (!connected) {  // the query never opened the pipe: nothing else to learn
        CancelIo(pipe.get());
        query.join();
        FAIL() << "the query did not open its change list (result " << queryResult << ")";
    }
    std::thread other([&] {
        otherResult = Commit(L"B", L"s", {{0, 1}}) + DataSetSectorManager(L"B", SECTOR_MANAGER_DUMP);
        SetEvent(otherDone.get());
    });
    std::thread same([&] {
        sameResult = Commit(L"A", L"s", {{0, 1}});
        SetEvent(sameDone.get());
    });
    const bool otherFinished = WaitForSingleObject(otherDone.get(), kTimeoutMs) == WAIT_OBJECT_0;
    const bool sameWaited = WaitForSingleObject(sameDone.get(), kMustNotMs) == WAIT_TIMEOUT;
    const bool queryWaited = WaitForSingleObject(queryDone.get(), 0) == WAIT_TIMEOUT;
    const std::string list = "<DiskChangeInfo><area><extent offset=\"0\" length=\"1024\"/></area></DiskChangeInfo>";
    OVERLAPPED write{};
    write.hEvent = io.get();
    ResetEvent(io.get());
    DWORD written = 0;
    if (!WriteFile(pipe.get(), list.data(), DWORD(list.size()), nullptr, &write) && GetLastError() == ERROR_IO_PENDING)
        WaitForSingleObject(io.get(), kTimeoutMs);
    GetOverlappedResult(pipe.get(), &write, &written, FALSE);
    EXPECT_EQ(written, list.size());
    pipe.reset();  // the end of the list
    const bool queryFinished = WaitForSingleObject(queryDone.get(), kTimeoutMs) == WAIT_OBJECT_0;
    const bool sameFinished = WaitForSingleObject(sameDone.get(), kTimeoutMs) == WAIT_OBJECT_0;
    query.join();
    other.join();
    same.join();
    EXPECT_TRUE(queryWaited) << "the query did not wait for its list";
    EXPECT_TRUE(otherFinished) << "object B waited for object A";
    EXPECT_TRUE(sameWaited) << "a second call on A did not wait for the first";
    EXPECT_TRUE(queryFinished && sameFinished);  // the query itself may fail: its pipe ends broken
    EXPECT_EQ(otherResult, 0);
    EXPECT_EQ(sameResult, 0);
}

}  // namespace
}  // namespace sectortest
