#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>
#include <vector>
#include <skclass_mini/singleton.h>
#include <dbtest/wait.h>

namespace {

using namespace dbtest;

// Factories are plain function pointers, so each test's state is global.
std::atomic<int> g_constructions{0};
skclass::UniqueHandle g_factoryEntered;
skclass::UniqueHandle g_factoryGate;

std::shared_ptr<void> SlowFactory() {
    ++g_constructions;
    SetEvent(g_factoryEntered.get());
    WaitForSingleObject(g_factoryGate.get(), kTimeoutMs);
    return std::make_shared<int>(42);
}

TEST(Singleton, ConcurrentFirstCallsConstructOnce) {
    g_constructions = 0;
    g_factoryEntered = NewEvent();
    g_factoryGate = NewEvent();
    constexpr int kThreads = 8;
    std::vector<std::shared_ptr<void>> results(kThreads);
    std::vector<skclass::UniqueHandle> calling;
    for (int i = 0; i < kThreads; ++i) calling.push_back(NewEvent());
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            SetEvent(calling[i].get());
            results[i] = skclass::GetOrCreateSingleton("test.concurrent", &SlowFactory);
        });
    }
    ASSERT_TRUE(Signalled(g_factoryEntered));
    for (auto &event : calling) ASSERT_TRUE(Signalled(event));
    SetEvent(g_factoryGate.get());  // the others now wait inside the storage
    for (auto &thread : threads) thread.join();
    EXPECT_EQ(g_constructions, 1);
    for (const auto &result : results) {
        ASSERT_NE(result, nullptr);
        EXPECT_EQ(result, results[0]);
    }
    skclass::ReleaseSingleton("test.concurrent");
}

wcstring g_innerError;
std::shared_ptr<void> g_innerResult;

std::shared_ptr<void> RecursiveFactory() {
    g_innerResult = skclass::GetOrCreateSingleton("test.recursive", &RecursiveFactory, &g_innerError);
    return std::make_shared<int>(1);
}

TEST(Singleton, RefusesRecursiveCreationWithAnError) {
    wcstring outerError;
    auto outer = skclass::GetOrCreateSingleton("test.recursive", &RecursiveFactory, &outerError);
    EXPECT_NE(outer, nullptr);
    EXPECT_TRUE(outerError.empty());
    EXPECT_EQ(g_innerResult, nullptr);
    EXPECT_FALSE(g_innerError.empty());
    skclass::ReleaseSingleton("test.recursive");
}

int g_throwingCalls = 0;
std::shared_ptr<void> ThrowsOnceFactory() {
    if (g_throwingCalls++ == 0) throw std::runtime_error("construction failed");
    return std::make_shared<int>(7);
}

TEST(Singleton, AThrowingFactoryLeavesTheKeyFreeForALaterTry) {
    wcstring error;
    EXPECT_EQ(skclass::GetOrCreateSingleton("test.throws", &ThrowsOnceFactory, &error), nullptr);
    EXPECT_EQ(error, L"construction failed");
    auto second = skclass::GetOrCreateSingleton("test.throws", &ThrowsOnceFactory);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(*std::static_pointer_cast<int>(second), 7);
    skclass::ReleaseSingleton("test.throws");
}

struct Counted {
    static std::atomic<int> alive;
    Counted() { ++alive; }
    ~Counted() { --alive; }
};
std::atomic<int> Counted::alive{0};

TEST(Singleton, ReleaseHandsBackTheObjectAndTheNextCallMakesANewOne) {
    auto first = skclass::GetSingleton<Counted>("test.counted");
    EXPECT_EQ(skclass::GetSingleton<Counted>("test.counted"), first);
    EXPECT_EQ(Counted::alive, 1);
    auto released = skclass::ReleaseSingleton("test.counted");
    EXPECT_EQ(released.get(), first.get());
    released.reset();
    EXPECT_EQ(Counted::alive, 1);  // still held by `first`
    first.reset();
    EXPECT_EQ(Counted::alive, 0);
    auto again = skclass::GetSingleton<Counted>("test.counted");
    EXPECT_EQ(Counted::alive, 1);
    EXPECT_EQ(skclass::ReleaseSingleton("test.counted"), again);
    EXPECT_EQ(skclass::ReleaseSingleton("test.counted"), nullptr);
}

}  // namespace
