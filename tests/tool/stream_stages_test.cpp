// The stage threads beside the reading: each stage works on every piece on
// its own thread in the order given, on the very buffer the producer filled,
// a buffer is reused only when every stage is done with it, and a failure
// in any stage reaches the producer without a hang.
#include <windows.h>

#include <atomic>
#include <future>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <dbtest/wait.h>
#include <skclass_mini/handles.h>

#include "sha256.h"
#include "stream_stages.h"

namespace {

using dbtool::Sha256;
using dbtool::StreamStages;

using dbtest::kTimeoutMs;
using dbtest::NewEvent;

constexpr auto kMustNotHappen = std::chrono::milliseconds(200);

TEST(StreamStages, PutWorksOnItsOwnThreadInOrderOnCopies) {
    // 1. the stage takes piece "a" and waits inside the work for `release`;
    // 2. meanwhile the caller queues "b" and overwrites its own buffer;
    // 3. released, the stage sees "a" then "b" as they were queued.
    skclass::UniqueHandle entered = NewEvent(), release = NewEvent();
    std::string seen;
    std::atomic<DWORD> stageThread{0};
    StreamStages stages({[&](const uint8_t *data, size_t length) {
                            stageThread = GetCurrentThreadId();
                            SetEvent(entered.get());
                            WaitForSingleObject(release.get(), kTimeoutMs);
                            seen.append(reinterpret_cast<const char *>(data), length);
                        }},
                        4, 2);
    char buffer[4] = {'a', 'a', 'a', 'a'};
    stages.Put(reinterpret_cast<uint8_t *>(buffer), 4);
    ASSERT_EQ(WaitForSingleObject(entered.get(), kTimeoutMs), WAIT_OBJECT_0);
    memset(buffer, 'b', 4);
    stages.Put(reinterpret_cast<uint8_t *>(buffer), 4);
    memset(buffer, 'c', 4);
    SetEvent(release.get());
    stages.Finish();
    EXPECT_EQ(seen, "aaaabbbb");
    EXPECT_NE(stageThread.load(), GetCurrentThreadId());
}

TEST(StreamStages, PutSplitsLargePiecesAndGivesTheSameDigest) {
    std::vector<uint8_t> data(10000);
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i * 7);
    Sha256 sha;
    {
        StreamStages stages({[&](const uint8_t *piece, size_t length) { sha.Update(piece, length); }}, 333, 3);
        stages.Put(data.data(), data.size());
        stages.Finish();
    }
    EXPECT_EQ(sha.FinishHex(), Sha256::Of(data.data(), data.size()));
}

TEST(StreamStages, EveryStageSeesEveryPieceInOrderInTheBorrowedBuffer) {
    const size_t pieces = 50;
    std::vector<const uint8_t *> lent;
    std::vector<std::string> seen(2);
    std::vector<std::vector<const uint8_t *>> where(2);
    auto stage = [&](size_t index) {
        return [&, index](const uint8_t *data, size_t length) {
            seen[index].append(reinterpret_cast<const char *>(data), length);
            where[index].push_back(data);
        };
    };
    std::string sent;
    {
        StreamStages stages({stage(0), stage(1)}, 3, 3);
        for (size_t i = 0; i < pieces; ++i) {
            uint8_t *buffer = stages.Borrow();
            EXPECT_EQ(stages.Borrow(), buffer) << "a second Borrow before Submit lends the same buffer";
            const size_t length = 1 + i % 3;
            for (size_t j = 0; j < length; ++j) buffer[j] = static_cast<uint8_t>('A' + (i + j) % 26);
            sent.append(reinterpret_cast<const char *>(buffer), length);
            lent.push_back(buffer);
            stages.Submit(length);
        }
        stages.Finish();
    }
    for (size_t index = 0; index < 2; ++index) {
        SCOPED_TRACE(index);
        EXPECT_EQ(seen[index], sent);
        EXPECT_EQ(where[index], lent) << "a stage must work on the buffer that was filled, not a copy";
    }
}

TEST(StreamStages, ABufferIsLentAgainOnlyWhenEveryStageIsDoneWithIt) {
    // 1. one buffer, two stages; the slow stage holds piece "x" inside its work;
    // 2. the fast stage is done with it, yet Borrow must not return;
    // 3. released, the slow stage still sees "x", and Borrow returns.
    skclass::UniqueHandle entered = NewEvent(), release = NewEvent();
    std::string slowSaw;
    std::atomic<int> fastPieces{0};
    StreamStages stages({[&](const uint8_t *, size_t) { ++fastPieces; },
                         [&](const uint8_t *data, size_t length) {
                             SetEvent(entered.get());
                             WaitForSingleObject(release.get(), kTimeoutMs);
                             slowSaw.assign(reinterpret_cast<const char *>(data), length);
                         }},
                        1, 1);
    *stages.Borrow() = 'x';
    stages.Submit(1);
    ASSERT_EQ(WaitForSingleObject(entered.get(), kTimeoutMs), WAIT_OBJECT_0);
    auto borrow = std::async(std::launch::async, [&] {
        uint8_t *buffer = stages.Borrow();
        *buffer = 'y';
        return buffer;
    });
    EXPECT_EQ(borrow.wait_for(kMustNotHappen), std::future_status::timeout);
    SetEvent(release.get());
    ASSERT_EQ(borrow.wait_for(std::chrono::milliseconds(kTimeoutMs)), std::future_status::ready);
    borrow.get();
    EXPECT_EQ(slowSaw, "x");
    EXPECT_EQ(fastPieces.load(), 1);
}

TEST(StreamStages, AFailureInAnyStageReachesTheProducerAndNothingHangs) {
    std::atomic<int> hashed{0};
    StreamStages stages({[&](const uint8_t *, size_t) { ++hashed; },
                         [](const uint8_t *, size_t) { throw std::runtime_error("disk full"); }},
                        8, 2);
    const uint8_t byte = 1;
    EXPECT_THROW(
        {
            for (int i = 0; i < 5; ++i) stages.Put(&byte, 1);
            stages.Finish();
        },
        std::runtime_error);
    EXPECT_THROW(stages.Borrow(), std::runtime_error) << "a failed pass stays failed";
}

TEST(StreamStages, StoppingWithWorkQueuedJoins) {
    std::atomic<int> pieces{0};
    {
        StreamStages stages({[&](const uint8_t *, size_t) { ++pieces; }}, 8, 4);
        const uint8_t byte = 1;
        for (int i = 0; i < 3; ++i) stages.Put(&byte, 1);
    }
    EXPECT_LE(pieces.load(), 3);
}

}  // namespace
