#include <atomic>
#include <memory>
#include <set>
#include <vector>

#include "tests/platform/support.h"

using namespace platform_test;

namespace {

DWORD WINAPI ReturnParameter(LPVOID parameter) {
    return static_cast<DWORD>(reinterpret_cast<DWORD_PTR>(parameter));
}

DWORD WINAPI CountUp(LPVOID counter) {
    ++*static_cast<std::atomic<int>*>(counter);
    return 0;
}

}  // namespace

TEST(CreateThread, RunsTheFunctionWithItsParameter) {
    std::atomic<int> counter{0};
    const OwnedHandle thread(CreateThread(nullptr, 0, &CountUp, &counter, 0, nullptr));
    ASSERT_NE(static_cast<HANDLE>(thread), nullptr);
    EXPECT_EQ(WaitForSingleObject(thread, INFINITE), kSatisfied);
    EXPECT_EQ(counter, 1);
}

TEST(CreateThread, TellsTheThreadsOwnNumber) {
    DWORD inside = 0;
    DWORD outside = 0;
    const OwnedHandle thread(CreateThread(
        nullptr, 0,
        [](LPVOID id) -> DWORD {
            *static_cast<DWORD*>(id) = GetCurrentThreadId();
            return 0;
        },
        &inside, 0, &outside));
    EXPECT_EQ(WaitForSingleObject(thread, INFINITE), kSatisfied);
    EXPECT_NE(outside, 0u);
    EXPECT_EQ(inside, outside);
    EXPECT_NE(outside, GetCurrentThreadId());
}

TEST(CreateThread, HandleIsUnsignalledWhileTheThreadRuns) {
    const OwnedHandle gate(ManualEvent());
    const OwnedHandle thread(CreateThread(
        nullptr, 0, [](LPVOID event) -> DWORD { return WaitForSingleObject(event, INFINITE); },
        static_cast<HANDLE>(gate), 0, nullptr));
    EXPECT_EQ(WaitForSingleObject(thread, 5), kTimedOut);
    EXPECT_TRUE(SetEvent(gate));
    EXPECT_EQ(WaitForSingleObject(thread, INFINITE), kSatisfied);
}

TEST(CreateThread, HandleStaysSignalledAfterTheEnd) {
    const OwnedHandle thread(CreateThread(nullptr, 0, &ReturnParameter, nullptr, 0, nullptr));
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(WaitForSingleObject(thread, INFINITE), kSatisfied);
    }
}

TEST(CreateThread, SeveralWaitersSeeOneEnd) {
    const OwnedHandle gate(ManualEvent());
    struct Context {
        HANDLE first;
        HANDLE gate;
    } context{nullptr, gate};
    const OwnedHandle first(CreateThread(
        nullptr, 0, [](LPVOID event) -> DWORD { return WaitForSingleObject(event, INFINITE); },
        static_cast<HANDLE>(gate), 0, nullptr));
    context.first = first;
    std::vector<std::unique_ptr<OwnedHandle>> waiters;
    for (int i = 0; i < 8; ++i) {
        waiters.push_back(std::make_unique<OwnedHandle>(CreateThread(
            nullptr, 0,
            [](LPVOID parameter) -> DWORD {
                return WaitForSingleObject(static_cast<Context*>(parameter)->first, INFINITE);
            },
            &context, 0, nullptr)));
    }
    EXPECT_TRUE(SetEvent(gate));
    for (const auto& waiter : waiters) {
        EXPECT_EQ(WaitForSingleObject(*waiter, INFINITE), kSatisfied);
        DWORD result = kFailed;
        EXPECT_TRUE(GetExitCodeThread(*waiter, &result));
        EXPECT_EQ(result, kSatisfied);
    }
}

TEST(CreateThread, AWaitOutlastsTheThreadsThreadLocals) {
    // The destructor must not touch its object: GCC for Windows emulates thread-local storage and gives an object's
    // memory back before it runs the object's destructor.
    static std::atomic<int> destroyed{0};
    struct Late {
        Late() {}  // not trivial, so that the first use constructs it and registers its destructor
        ~Late() {
            Sleep(2);  // a wait that did not care would be back before
            ++destroyed;
        }
    };
    destroyed = 0;
    const OwnedHandle thread(CreateThread(
        nullptr, 0,
        [](LPVOID) -> DWORD {
            static thread_local Late late;
            static_cast<void>(late);
            return 0;
        },
        nullptr, 0, nullptr));
    EXPECT_EQ(WaitForSingleObject(thread, INFINITE), kSatisfied);
    EXPECT_EQ(destroyed, 1);
}

TEST(CreateThread, TakesAStackSize) {
    for (const SIZE_T size : {SIZE_T{1}, SIZE_T{100'000}, SIZE_T{4} << 20}) {
        const OwnedHandle thread(
            CreateThread(nullptr, size, &ReturnParameter, nullptr, STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr));
        ASSERT_NE(static_cast<HANDLE>(thread), nullptr) << size;
        EXPECT_EQ(WaitForSingleObject(thread, INFINITE), kSatisfied);
    }
}

TEST(CreateThread, ManyShortThreadsWithoutWaitingForThem) {
    std::atomic<int> counter{0};
    std::vector<std::unique_ptr<OwnedHandle>> threads;
    for (int i = 0; i < 64; ++i) {
        threads.push_back(std::make_unique<OwnedHandle>(CreateThread(nullptr, 0, &CountUp, &counter, 0, nullptr)));
        if (i % 2 == 0) {
            threads.back()->Close();
        }
    }
    // What counts is that all of them run, those closed at once included; the closed ones can only be watched here.
    while (counter < 64) {
        Sleep(1);
    }
}
