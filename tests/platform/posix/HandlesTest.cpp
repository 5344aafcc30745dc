#include <pthread.h>

#include <atomic>
#include <csignal>
#include <thread>
#include <vector>

#include "tests/platform/support.h"
#include "tests/support/TempDir.h"

using namespace platform_test;

TEST(PosixHandles, AnOldHandleIsNeverTakenForAYoungerObject) {
    const HANDLE old = AutoEvent();
    EXPECT_TRUE(CloseHandle(old));
    // Enough to use the old one's place again.
    for (int i = 0; i < 100; ++i) {
        const OwnedHandle younger(AutoEvent());
        EXPECT_NE(static_cast<HANDLE>(younger), old);
        EXPECT_FALSE(SetEvent(old));
        EXPECT_FALSE(TakesAtOnce(younger));
    }
}

TEST(PosixHandles, GarbageIsRefused) {
    int local = 0;
    const OwnedHandle event(AutoEvent());
    const auto real = reinterpret_cast<ULONG_PTR>(static_cast<HANDLE>(event));
    for (const HANDLE garbage :
         {INVALID_HANDLE_VALUE, reinterpret_cast<HANDLE>(&local), reinterpret_cast<HANDLE>(real + 1),
          reinterpret_cast<HANDLE>(real | (ULONG_PTR{1} << 63)), reinterpret_cast<HANDLE>(ULONG_PTR{0xFFFF0})}) {
        EXPECT_FALSE(SetEvent(garbage));
        EXPECT_TRUE(LastErrorIs(ERROR_INVALID_HANDLE));
        EXPECT_FALSE(CloseHandle(garbage));
        EXPECT_EQ(WaitForSingleObject(garbage, 0), kFailed);
        EXPECT_TRUE(LastErrorIs(ERROR_INVALID_HANDLE));
    }
}

TEST(PosixHandles, AFileCannotBeWaitedForAndAnEventCannotBeRead) {
    const kvmpd::test::TempDir folder;
    const OwnedHandle file(Open(folder.Path() / "file", GENERIC_WRITE, CREATE_NEW));
    EXPECT_EQ(WaitForSingleObject(file, 0), kFailed);
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_HANDLE));
    const OwnedHandle event(AutoEvent());
    char c = 0;
    DWORD read = 0;
    EXPECT_FALSE(ReadFile(event, &c, 1, &read, nullptr));
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_HANDLE));
}

TEST(PosixHandles, OpenAndCloseFromEightThreadsGiveDistinctHandles) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([] {
            for (int round = 0; round < 500; ++round) {
                const OwnedHandle a(AutoEvent()), b(AutoEvent(true));
                EXPECT_NE(static_cast<HANDLE>(a), static_cast<HANDLE>(b));
                EXPECT_FALSE(TakesAtOnce(a));
                EXPECT_TRUE(TakesAtOnce(b));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

// Handles are closed under the feet of threads that wait for, set and reset them; each call works on the object or
// refuses the handle. That nothing is used after its end is for the sanitizers to see.
TEST(PosixHandles, ClosingRacesWithEveryUse) {
    for (int round = 0; round < 50; ++round) {
        const HANDLE event = AutoEvent();
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&] {
                while (SetEvent(event)) {
                    WaitForSingleObject(event, 1);
                    ResetEvent(event);
                }
                EXPECT_TRUE(LastErrorIs(ERROR_INVALID_HANDLE));
            });
        }
        EXPECT_TRUE(CloseHandle(event));
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
}

TEST(PosixHandles, NamesAreRefused) {
    EXPECT_EQ(CreateEventW(nullptr, TRUE, FALSE, L"name"), nullptr);
    EXPECT_TRUE(LastErrorIs(ERROR_NOT_SUPPORTED));
    EXPECT_EQ(CreateSemaphoreW(nullptr, 0, 1, L"name"), nullptr);
    EXPECT_TRUE(LastErrorIs(ERROR_NOT_SUPPORTED));
}

TEST(PosixWaits, AllRefusesOneObjectTwice) {
    const OwnedHandle event(AutoEvent(true));
    const HANDLE twice[] = {event, event};
    EXPECT_EQ(WaitForMultipleObjects(2, twice, TRUE, 0), kFailed);
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_PARAMETER));
    EXPECT_TRUE(TakesAtOnce(event));
}

TEST(PosixWaits, AnyTakesOneObjectOnceThoughItIsListedTwice) {
    const OwnedHandle event(AutoEvent());
    std::thread setter([&] {
        LetOthersReachTheirWait();
        EXPECT_TRUE(SetEvent(event));
    });
    const HANDLE twice[] = {event, event};
    EXPECT_EQ(WaitForMultipleObjects(2, twice, FALSE, INFINITE), kSatisfied);
    setter.join();
    EXPECT_FALSE(TakesAtOnce(event));
}

TEST(PosixThreads, LeaveAsynchronousSignalsToTheProgramsOwnThreads) {
    sigset_t mask;
    const OwnedHandle thread(CreateThread(
        nullptr, 0,
        [](LPVOID parameter) -> DWORD {
            pthread_sigmask(SIG_BLOCK, nullptr, static_cast<sigset_t*>(parameter));
            return 0;
        },
        &mask, 0, nullptr));
    EXPECT_EQ(WaitForSingleObject(thread, INFINITE), kSatisfied);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGCHLD, SIGUSR1}) {
        EXPECT_EQ(sigismember(&mask, signal), 1) << signal;
    }
    for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT}) {
        EXPECT_EQ(sigismember(&mask, signal), 0) << signal;
    }
    sigset_t mine;
    pthread_sigmask(SIG_BLOCK, nullptr, &mine);
    EXPECT_EQ(sigismember(&mine, SIGINT), 0);
}

TEST(PosixThreads, SuspendedStartIsRefused) {
    constexpr DWORD kCreateSuspended = 4;
    const auto start = [](LPVOID) -> DWORD { return 0; };
    EXPECT_EQ(CreateThread(nullptr, 0, start, nullptr, kCreateSuspended, nullptr), nullptr);
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(CreateThread(nullptr, 0, nullptr, nullptr, 0, nullptr), nullptr);
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_PARAMETER));
}

TEST(PosixThreads, AnImpossibleStackIsAnErrorAndLeavesNoThread) {
    static std::atomic<int> ran{0};
    const auto start = [](LPVOID) -> DWORD {
        ++ran;
        return 0;
    };
    EXPECT_EQ(CreateThread(nullptr, SIZE_T{1} << 50, start, nullptr, 0, nullptr), nullptr);
    EXPECT_TRUE(LastErrorIs(ERROR_MAX_THRDS_REACHED));
    EXPECT_EQ(ran, 0);
}

TEST(PosixCriticalSectionDeathTest, LeavingWhatIsNotHeldEndsTheProcess) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_DEATH(
        {
            CRITICAL_SECTION section;
            InitializeCriticalSection(&section);
            LeaveCriticalSection(&section);
        },
        "");
}
