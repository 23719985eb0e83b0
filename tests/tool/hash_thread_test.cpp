// The hash thread beside the reading: work runs on its own thread in the
// order given, on copies (the caller's buffer is free again at once), and a
// failure there reaches the caller.
#include <windows.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <skclass_mini/handles.h>

#include "hash_thread.h"
#include "sha256.h"

namespace {

using dbtool::HashThread;
using dbtool::Sha256;

constexpr DWORD kMustHappenMs = 10000;

TEST(HashThread, WorksOnItsOwnThreadInOrderOnCopies) {
    // 1. the worker takes piece "a" and waits inside the work for `release`;
    // 2. meanwhile the caller queues "b" and overwrites its own buffer;
    // 3. released, the worker sees "a" then "b" as they were queued.
    skclass::UniqueHandle entered(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    skclass::UniqueHandle release(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    std::string seen;
    std::atomic<DWORD> workerThread{0};
    HashThread hasher(
        [&](const uint8_t *data, size_t length) {
            workerThread = GetCurrentThreadId();
            SetEvent(entered.get());
            WaitForSingleObject(release.get(), kMustHappenMs);
            seen.append(reinterpret_cast<const char *>(data), length);
        },
        4, 2);
    char buffer[4] = {'a', 'a', 'a', 'a'};
    hasher.Put(reinterpret_cast<uint8_t *>(buffer), 4);
    ASSERT_EQ(WaitForSingleObject(entered.get(), kMustHappenMs), WAIT_OBJECT_0);
    memset(buffer, 'b', 4);
    hasher.Put(reinterpret_cast<uint8_t *>(buffer), 4);
    memset(buffer, 'c', 4);
    SetEvent(release.get());
    hasher.Finish();
    EXPECT_EQ(seen, "aaaabbbb");
    EXPECT_NE(workerThread.load(), GetCurrentThreadId());
}

TEST(HashThread, SplitsLargePiecesAndGivesTheSameDigest) {
    std::vector<uint8_t> data(10000);
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i * 7);
    Sha256 sha;
    {
        HashThread hasher([&](const uint8_t *piece, size_t length) { sha.Update(piece, length); }, 333, 3);
        hasher.Put(data.data(), data.size());
        hasher.Finish();
    }
    EXPECT_EQ(sha.FinishHex(), Sha256::Of(data.data(), data.size()));
}

TEST(HashThread, AFailureReachesTheCallerAndNothingHangs) {
    HashThread hasher([](const uint8_t *, size_t) { throw std::runtime_error("hash failed"); }, 8, 1);
    const uint8_t byte = 1;
    EXPECT_THROW(
        {
            for (int i = 0; i < 3; ++i) hasher.Put(&byte, 1);
            hasher.Finish();
        },
        std::runtime_error);
}

TEST(HashThread, StoppingWithWorkQueuedJoins) {
    std::atomic<int> pieces{0};
    {
        HashThread hasher([&](const uint8_t *, size_t) { ++pieces; }, 8, 4);
        const uint8_t byte = 1;
        for (int i = 0; i < 3; ++i) hasher.Put(&byte, 1);
    }
    EXPECT_LE(pieces.load(), 3);
}

}  // namespace
