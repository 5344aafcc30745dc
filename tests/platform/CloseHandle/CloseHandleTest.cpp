#include <thread>

#include "tests/platform/support.h"

using namespace platform_test;

TEST(CloseHandle, RefusesAHandleClosedBefore) {
    const HANDLE handle = AutoEvent();
    EXPECT_TRUE(CloseHandle(handle));
    EXPECT_FALSE(CloseHandle(handle));
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_HANDLE));
}

TEST(CloseHandle, RefusesNull) {
    EXPECT_FALSE(CloseHandle(nullptr));
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_HANDLE));
}

TEST(CloseHandle, OfAThreadLetsItRunOn) {
    const OwnedHandle gate(ManualEvent()), done(ManualEvent());
    struct Both {
        HANDLE gate;
        HANDLE done;
    } both{gate, done};
    const HANDLE thread = CreateThread(
        nullptr, 0,
        [](LPVOID parameter) -> DWORD {
            const Both* const events = static_cast<Both*>(parameter);
            WaitForSingleObject(events->gate, INFINITE);
            SetEvent(events->done);
            return 0;
        },
        &both, 0, nullptr);
    EXPECT_TRUE(CloseHandle(thread));
    EXPECT_TRUE(SetEvent(gate));
    EXPECT_EQ(WaitForSingleObject(done, INFINITE), kSatisfied);
}

TEST(CloseHandle, DuringAWaitDoesNotDisturbTheOtherObjectsOfTheWait) {
    const HANDLE closing = AutoEvent();
    const OwnedHandle staying(AutoEvent());
    std::thread waiter([&] {
        const HANDLE handles[] = {closing, staying};
        const DWORD result = WaitForMultipleObjects(2, handles, FALSE, INFINITE);
        // Too slow a start finds the handle closed already.
        EXPECT_TRUE(result == kSatisfied + 1 || result == kFailed);
    });
    LetOthersReachTheirWait();
    EXPECT_TRUE(CloseHandle(closing));
    EXPECT_TRUE(SetEvent(staying));
    waiter.join();
}

TEST(CloseHandle, DuringAWaitLeavesTheWaitToItsTimeOut) {
    const HANDLE closing = AutoEvent();
    std::thread waiter([&] {
        const DWORD result = WaitForSingleObject(closing, 60);
        EXPECT_TRUE(result == kTimedOut || result == kFailed);
    });
    LetOthersReachTheirWait();
    EXPECT_TRUE(CloseHandle(closing));
    waiter.join();
}
