#include <array>
#include <atomic>
#include <thread>
#include <vector>

#include "tests/platform/support.h"

using namespace platform_test;

TEST(SetEvent, TwiceOnAnAutoResetEventIsOneSignal) {
    const OwnedHandle event(AutoEvent());
    EXPECT_TRUE(SetEvent(event));
    EXPECT_TRUE(SetEvent(event));
    EXPECT_TRUE(TakesAtOnce(event));
    EXPECT_FALSE(TakesAtOnce(event));
}

TEST(SetEvent, RefusesAClosedHandle) {
    EXPECT_FALSE(SetEvent(ClosedHandle()));
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_HANDLE));
}

TEST(SetEvent, RefusesNullAndASemaphore) {
    EXPECT_FALSE(SetEvent(nullptr));
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_HANDLE));
    const OwnedHandle semaphore(Semaphore(0, 1));
    EXPECT_FALSE(SetEvent(semaphore));
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_HANDLE));
}

TEST(SetEvent, ManualResetReleasesEveryWaiter) {
    const OwnedHandle event(ManualEvent());
    std::vector<std::thread> waiters;
    for (int i = 0; i < 8; ++i) {
        waiters.emplace_back([&] { EXPECT_EQ(WaitForSingleObject(event, INFINITE), kSatisfied); });
    }
    EXPECT_TRUE(SetEvent(event));
    for (std::thread& waiter : waiters) {
        waiter.join();
    }
}

TEST(SetEvent, AutoResetReleasesExactlyOneWaiter) {
    const OwnedHandle event(AutoEvent());
    const OwnedHandle released(Semaphore(0, 8));
    std::vector<std::thread> waiters;
    for (int i = 0; i < 8; ++i) {
        waiters.emplace_back([&] {
            EXPECT_EQ(WaitForSingleObject(event, INFINITE), kSatisfied);
            EXPECT_TRUE(ReleaseSemaphore(released, 1, nullptr));
        });
    }
    LetOthersReachTheirWait();
    for (int i = 0; i < 8; ++i) {
        EXPECT_TRUE(SetEvent(event));
        EXPECT_EQ(WaitForSingleObject(released, INFINITE), kSatisfied);
        // A second waiter would have been released by the same signal; it would soon show.
        EXPECT_EQ(WaitForSingleObject(released, 1), kTimedOut);
    }
    for (std::thread& waiter : waiters) {
        waiter.join();
    }
}

// Two threads hand a turn to each other; a single wake-up lost between a check and a sleep would stop both for ever.
TEST(SetEvent, NoWakeUpIsLostBetweenTwoThreads) {
    const OwnedHandle ping(AutoEvent());
    const OwnedHandle pong(AutoEvent());
    constexpr int kTurns = 5000;
    int turns = 0;  // of whoever has the turn
    std::thread other([&] {
        for (int i = 0; i < kTurns; ++i) {
            EXPECT_EQ(WaitForSingleObject(ping, INFINITE), kSatisfied);
            ++turns;
            EXPECT_TRUE(SetEvent(pong));
        }
    });
    for (int i = 0; i < kTurns; ++i) {
        EXPECT_TRUE(SetEvent(ping));
        EXPECT_EQ(WaitForSingleObject(pong, INFINITE), kSatisfied);
        EXPECT_EQ(turns, i + 1);
    }
    other.join();
}
