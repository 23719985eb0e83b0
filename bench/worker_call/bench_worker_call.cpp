// One VixDiskLib_ListTransportModes through vixWorkerThread (the stand-in
// answers at once, so this is the hand-off) against the floor of any
// cross-thread hand-off: two threads passing the turn with two auto-reset
// events, once with SetEvent + wait and once with SignalObjectAndWait.
// Rounds alternate so all see the same machine load; the median round of
// each is printed with the ratios. The goal (worker within 1.3 times the
// SetEvent + wait ping-pong) is read off the output, never asserted.
//
//   bench_worker_call [calls per round] [rounds]
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <memory>
#include <thread>
#include <vector>

#include <dbtest/registry_sandbox.h>
#include <dbtest/temp_dir.h>
#include <dbtest/vddk_install.h>
#include <skclass_mini/handles.h>
#include <skstdutl/sklog.h>
#include <vixworkerthread.h>

#include "../support/bench_support.h"

namespace {

using benchsupport::Median;
using benchsupport::Now;

// Passes the turn to the other thread and waits for it back: SetEvent then
// wait (two system calls), or SignalObjectAndWait (one, the fewest possible).
void Pass(bool combined, HANDLE give, HANDLE take) {
    if (combined) {
        SignalObjectAndWait(give, take, INFINITE, FALSE);
    } else {
        SetEvent(give);
        WaitForSingleObject(take, INFINITE);
    }
}

// Microseconds per round trip of the turn between this thread and another.
double PingPong(int trips, bool combined) {
    skclass::UniqueHandle ping(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    skclass::UniqueHandle pong(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    std::thread partner([&] {
        WaitForSingleObject(ping.get(), INFINITE);
        for (int i = 1; i < trips; ++i) Pass(combined, pong.get(), ping.get());
        SetEvent(pong.get());
    });
    const double start = Now();
    for (int i = 0; i < trips; ++i) Pass(combined, ping.get(), pong.get());
    const double end = Now();
    partner.join();
    return (end - start) * 1e6 / trips;
}

// Microseconds per call through the worker; -1 if a call failed.
double WorkerCalls(vixWorkerThread &worker, int calls) {
    const double start = Now();
    for (int i = 0; i < calls; ++i)
        if (worker.VixDiskLib_ListTransportModes() == nullptr) return -1;
    return (Now() - start) * 1e6 / calls;
}

}  // namespace

int main(int argc, char **argv) {
    const int calls = argc > 1 ? atoi(argv[1]) : 5000;
    const int rounds = argc > 2 ? atoi(argv[2]) : 7;
    if (calls <= 0 || rounds <= 0) return 2;

    SK_SetLogFilePath(L"");  // no log file in the bench's folders
    dbtest::RegistrySandbox registry;
    dbtest::TempDir install;
    if (!benchsupport::InstallStandin(registry, install)) return 1;
    auto worker = std::make_unique<vixWorkerThread>(false);
    if (!worker->diskLibGlue || !worker->diskLibGlue->OK()) {
        fprintf(stderr, "the worker did not bind the stand-in\n");
        return 1;
    }

    WorkerCalls(*worker, calls / 10 + 1);  // warm every path up
    PingPong(calls / 10 + 1, false);
    PingPong(calls / 10 + 1, true);
    std::vector<double> worker_us, pingpong_us, combined_us;
    for (int round = 0; round < rounds; ++round) {
        worker_us.push_back(WorkerCalls(*worker, calls));
        pingpong_us.push_back(PingPong(calls, false));
        combined_us.push_back(PingPong(calls, true));
        if (worker_us.back() < 0) {
            fprintf(stderr, "a worker call failed\n");
            return 1;
        }
    }
    worker.reset();

    const double workerMedian = Median(worker_us);
    const double pingPongMedian = Median(pingpong_us);
    const double combinedMedian = Median(combined_us);
    printf("worker call (ListTransportModes):       %.2f us per call (median of %d rounds of %d)\n", workerMedian,
           rounds, calls);
    printf("event ping-pong, SetEvent + wait:        %.2f us per round trip\n", pingPongMedian);
    printf("event ping-pong, SignalObjectAndWait:    %.2f us per round trip\n", combinedMedian);
    printf("ratio worker / ping-pong:                %.2f (goal <= 1.30)\n", workerMedian / pingPongMedian);
    printf("ratio worker / SignalObjectAndWait pong: %.2f\n", workerMedian / combinedMedian);
    return 0;
}
