#include "tests/platform/support.h"

using namespace platform_test;

TEST(CreateEventW, BeginsInTheAskedState) {
    const OwnedHandle unsignalled(ManualEvent(false));
    const OwnedHandle signalled(ManualEvent(true));
    EXPECT_EQ(WaitForSingleObject(unsignalled, 0), kTimedOut);
    EXPECT_EQ(WaitForSingleObject(signalled, 0), kSatisfied);
}

TEST(CreateEventW, ManualResetStaysSignalledThroughWaits) {
    const OwnedHandle event(ManualEvent(true));
    EXPECT_TRUE(TakesAtOnce(event));
    EXPECT_TRUE(TakesAtOnce(event));
}

TEST(CreateEventW, AutoResetIsTakenByTheFirstWait) {
    const OwnedHandle event(AutoEvent(true));
    EXPECT_TRUE(TakesAtOnce(event));
    EXPECT_FALSE(TakesAtOnce(event));
}

TEST(CreateEventW, ClearsTheLastError) {
    SetLastError(ERROR_ALREADY_EXISTS);
    const OwnedHandle event(AutoEvent());
    EXPECT_TRUE(LastErrorIs(NO_ERROR));
}

TEST(CreateEventW, AnyNonZeroFlagCountsAsTrue) {
    const OwnedHandle event(CreateEventW(nullptr, 2, 4, nullptr));
    EXPECT_TRUE(TakesAtOnce(event));
    EXPECT_TRUE(TakesAtOnce(event));
}
