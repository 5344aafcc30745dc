#include <array>
#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "tests/platform/support.h"

using namespace platform_test;

TEST(WaitForMultipleObjects, AnyReportsTheLowestSignalledIndex) {
    const OwnedHandle a(ManualEvent()), b(ManualEvent(true)), c(ManualEvent(true));
    const HANDLE handles[] = {a, b, c};
    EXPECT_EQ(WaitForMultipleObjects(3, handles, FALSE, INFINITE), kSatisfied + 1);
}

TEST(WaitForMultipleObjects, AnyTakesOnlyTheObjectItReports) {
    const OwnedHandle a(AutoEvent(true)), b(AutoEvent(true));
    const HANDLE handles[] = {a, b};
    EXPECT_EQ(WaitForMultipleObjects(2, handles, FALSE, INFINITE), kSatisfied);
    EXPECT_FALSE(TakesAtOnce(a));
    EXPECT_TRUE(TakesAtOnce(b));
}

TEST(WaitForMultipleObjects, AnyTimesOutWhenNoneIsSignalled) {
    const OwnedHandle a(AutoEvent()), b(Semaphore(0, 1));
    const HANDLE handles[] = {a, b};
    EXPECT_EQ(WaitForMultipleObjects(2, handles, FALSE, 0), kTimedOut);
    EXPECT_EQ(WaitForMultipleObjects(2, handles, FALSE, 5), kTimedOut);
}

TEST(WaitForMultipleObjects, AllTakesEveryObject) {
    const OwnedHandle a(AutoEvent(true)), b(Semaphore(2, 2)), c(ManualEvent(true));
    const HANDLE handles[] = {a, b, c};
    EXPECT_EQ(WaitForMultipleObjects(3, handles, TRUE, 0), kSatisfied);
    EXPECT_FALSE(TakesAtOnce(a));
    EXPECT_TRUE(TakesAtOnce(b));
    EXPECT_FALSE(TakesAtOnce(b));
    EXPECT_TRUE(TakesAtOnce(c));
}

TEST(WaitForMultipleObjects, AllTakesNothingWhenOneIsMissing) {
    const OwnedHandle a(AutoEvent(true)), b(AutoEvent());
    const HANDLE handles[] = {a, b};
    EXPECT_EQ(WaitForMultipleObjects(2, handles, TRUE, 5), kTimedOut);
    EXPECT_TRUE(TakesAtOnce(a));
}

TEST(WaitForMultipleObjects, AllLeavesAnObjectToOthersUntilItHasAll) {
    const OwnedHandle a(AutoEvent()), b(AutoEvent());
    std::thread waiter([&] {
        const HANDLE handles[] = {a, b};
        EXPECT_EQ(WaitForMultipleObjects(2, handles, TRUE, INFINITE), kSatisfied);
    });
    LetOthersReachTheirWait();
    EXPECT_TRUE(SetEvent(a));
    EXPECT_TRUE(TakesAtOnce(a));
    EXPECT_TRUE(SetEvent(b));
    EXPECT_TRUE(TakesAtOnce(b));
    EXPECT_TRUE(SetEvent(a));
    EXPECT_TRUE(SetEvent(b));
    waiter.join();
    EXPECT_FALSE(TakesAtOnce(a));
    EXPECT_FALSE(TakesAtOnce(b));
}

TEST(WaitForMultipleObjects, TakesSixtyFourObjectsAndNoMore) {
    std::vector<std::unique_ptr<OwnedHandle>> owners;
    std::vector<HANDLE> handles;
    for (int i = 0; i < 65; ++i) {
        owners.push_back(std::make_unique<OwnedHandle>(AutoEvent()));
        handles.push_back(*owners.back());
    }
    EXPECT_TRUE(SetEvent(handles[63]));
    EXPECT_EQ(WaitForMultipleObjects(64, handles.data(), FALSE, INFINITE), kSatisfied + 63);
    EXPECT_EQ(WaitForMultipleObjects(65, handles.data(), FALSE, 0), kFailed);
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_PARAMETER));
}

TEST(WaitForMultipleObjects, RefusesNoObjectsAtAll) {
    const HANDLE none[] = {nullptr};
    EXPECT_EQ(WaitForMultipleObjects(0, none, FALSE, 0), kFailed);
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_PARAMETER));
}

TEST(WaitForMultipleObjects, RefusesABadHandleAndTakesNothing) {
    const OwnedHandle good(AutoEvent(true));
    const HANDLE handles[] = {good, ClosedHandle()};
    EXPECT_EQ(WaitForMultipleObjects(2, handles, FALSE, 0), kFailed);
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_HANDLE));
    EXPECT_TRUE(TakesAtOnce(good));
}

TEST(WaitForMultipleObjects, MixesEventsSemaphoresAndThreads) {
    const OwnedHandle gate(ManualEvent());
    const OwnedHandle thread(CreateThread(
        nullptr, 0, [](LPVOID event) -> DWORD { return WaitForSingleObject(static_cast<HANDLE>(event), INFINITE); },
        static_cast<HANDLE>(gate), 0, nullptr));
    const OwnedHandle semaphore(Semaphore(0, 1)), event(AutoEvent());
    const HANDLE handles[] = {semaphore, thread, event};
    EXPECT_EQ(WaitForMultipleObjects(3, handles, FALSE, 0), kTimedOut);
    EXPECT_TRUE(SetEvent(gate));
    EXPECT_EQ(WaitForMultipleObjects(3, handles, FALSE, INFINITE), kSatisfied + 1);
    EXPECT_TRUE(ReleaseSemaphore(semaphore, 1, nullptr));
    EXPECT_TRUE(SetEvent(event));
    EXPECT_EQ(WaitForMultipleObjects(3, handles, TRUE, INFINITE), kSatisfied);
}

// Eight threads draw from four sources at once; every signal given is taken exactly once.
TEST(WaitForMultipleObjects, AnyUnderLoadTakesEverySignalOnce) {
    constexpr LONG kSignals = 4000;
    constexpr DWORD kSources = 4;
    const OwnedHandle s0(Semaphore(0, kSignals)), s1(Semaphore(0, kSignals)), s2(Semaphore(0, kSignals)),
        s3(Semaphore(0, kSignals)), stop(ManualEvent());
    std::array<std::atomic<int>, kSources> taken{};
    std::vector<std::thread> takers;
    for (int i = 0; i < 8; ++i) {
        takers.emplace_back([&] {
            // Stop comes last, so that whatever is signalled is taken before it.
            const HANDLE handles[] = {s0, s1, s2, s3, stop};
            for (;;) {
                const DWORD index = WaitForMultipleObjects(kSources + 1, handles, FALSE, INFINITE) - kSatisfied;
                if (index >= kSources) {
                    EXPECT_EQ(index, kSources);
                    return;
                }
                ++taken[index];
            }
        });
    }
    const HANDLE sources[] = {s0, s1, s2, s3};
    for (LONG i = 0; i < kSignals; ++i) {
        EXPECT_TRUE(ReleaseSemaphore(sources[i % 4], 1, nullptr));
    }
    EXPECT_TRUE(SetEvent(stop));
    for (std::thread& taker : takers) {
        taker.join();
    }
    for (DWORD i = 0; i < kSources; ++i) {
        EXPECT_EQ(taken[i], kSignals / 4);
        EXPECT_FALSE(TakesAtOnce(sources[i]));
    }
}

// Eight philosophers: each needs both neighbouring forks at once. Taking one fork and holding it would end in a
// deadlock, taking a fork twice would show in `holders`.
TEST(WaitForMultipleObjects, AllIsOneIndivisibleStep) {
    constexpr std::size_t kSeats = 8;
    constexpr int kMeals = 300;
    std::vector<std::unique_ptr<OwnedHandle>> forks;
    for (std::size_t i = 0; i < kSeats; ++i) {
        forks.push_back(std::make_unique<OwnedHandle>(i % 2 == 0 ? AutoEvent(true) : Semaphore(1, 1)));
    }
    const auto putBack = [&](std::size_t fork) {
        EXPECT_TRUE(fork % 2 == 0 ? SetEvent(*forks[fork]) : ReleaseSemaphore(*forks[fork], 1, nullptr));
    };
    std::array<std::atomic<int>, kSeats> holders{};
    std::vector<std::thread> philosophers;
    for (std::size_t seat = 0; seat < kSeats; ++seat) {
        philosophers.emplace_back([&, seat] {
            const std::size_t right = (seat + 1) % kSeats;
            const HANDLE both[] = {*forks[seat], *forks[right]};
            for (int meal = 0; meal < kMeals; ++meal) {
                EXPECT_EQ(WaitForMultipleObjects(2, both, TRUE, INFINITE), kSatisfied);
                EXPECT_EQ(++holders[seat], 1);
                EXPECT_EQ(++holders[right], 1);
                --holders[right];
                --holders[seat];
                putBack(seat);
                putBack(right);
            }
        });
    }
    for (std::thread& philosopher : philosophers) {
        philosopher.join();
    }
}

// The stop sequence of a worker, from every side: each of eight threads must see the stop event among busy work events.
TEST(WaitForMultipleObjects, AStopAmongBusyEventsReachesEveryThread) {
    const OwnedHandle stop(ManualEvent()), work(AutoEvent());
    std::vector<std::thread> workers;
    for (int i = 0; i < 8; ++i) {
        workers.emplace_back([&] {
            const HANDLE handles[] = {stop, work};
            while (WaitForMultipleObjects(2, handles, FALSE, INFINITE) != kSatisfied) {
                EXPECT_TRUE(SetEvent(work));
            }
        });
    }
    EXPECT_TRUE(SetEvent(work));
    LetOthersReachTheirWait();
    EXPECT_TRUE(SetEvent(stop));
    for (std::thread& worker : workers) {
        worker.join();
    }
}
