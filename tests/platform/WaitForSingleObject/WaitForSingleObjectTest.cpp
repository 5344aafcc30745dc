#include <thread>

#include "tests/platform/support.h"

using namespace platform_test;

TEST(WaitForSingleObject, TimesOutNoEarlierThanAsked) {
    const OwnedHandle event(AutoEvent());
    const ULONGLONG start = GetTickCount64();
    EXPECT_EQ(WaitForSingleObject(event, 50), kTimedOut);
    // The tick count itself is only as fine as 16 ms on some systems.
    EXPECT_GE(GetTickCount64() - start, 50u - 16u);
}

TEST(WaitForSingleObject, ATimedOutWaitTakesNothingLater) {
    const OwnedHandle event(AutoEvent());
    EXPECT_EQ(WaitForSingleObject(event, 1), kTimedOut);
    EXPECT_TRUE(SetEvent(event));
    EXPECT_TRUE(TakesAtOnce(event));
}

TEST(WaitForSingleObject, RefusesNullAndClosedHandles) {
    EXPECT_EQ(WaitForSingleObject(nullptr, 0), kFailed);
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_HANDLE));
    EXPECT_EQ(WaitForSingleObject(ClosedHandle(), INFINITE), kFailed);
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_HANDLE));
}

TEST(WaitForSingleObject, LeavesTheLastErrorAloneWhenItSucceedsOrTimesOut) {
    const OwnedHandle event(AutoEvent(true));
    SetLastError(4711);
    EXPECT_TRUE(TakesAtOnce(event));
    EXPECT_FALSE(TakesAtOnce(event));
    EXPECT_TRUE(LastErrorIs(4711));
}

// Signals and time-outs meet at the same moment again and again: every signal is either taken by the wait or still
// there after it, never both and never neither.
TEST(WaitForSingleObject, ASignalAtTheTimeOutIsNeitherLostNorDoubled) {
    const OwnedHandle event(AutoEvent());
    const OwnedHandle next(AutoEvent());
    constexpr int kRounds = 200;
    std::thread signaller([&] {
        for (int i = 0; i < kRounds; ++i) {
            EXPECT_EQ(WaitForSingleObject(next, INFINITE), kSatisfied);
            Sleep(1);  // as long as the wait: that the two meet is the point
            EXPECT_TRUE(SetEvent(event));
        }
    });
    for (int i = 0; i < kRounds; ++i) {
        EXPECT_TRUE(SetEvent(next));
        if (WaitForSingleObject(event, 1) != kSatisfied) {
            EXPECT_EQ(WaitForSingleObject(event, INFINITE), kSatisfied);
        }
    }
    signaller.join();
    EXPECT_FALSE(TakesAtOnce(event));
}
