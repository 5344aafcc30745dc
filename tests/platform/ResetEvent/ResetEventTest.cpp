#include "tests/platform/support.h"

using namespace platform_test;

TEST(ResetEvent, ClearsASignal) {
    const OwnedHandle event(ManualEvent(true));
    EXPECT_TRUE(ResetEvent(event));
    EXPECT_FALSE(TakesAtOnce(event));
}

TEST(ResetEvent, OnAnUnsignalledEventIsNoFault) {
    const OwnedHandle event(AutoEvent());
    EXPECT_TRUE(ResetEvent(event));
    EXPECT_FALSE(TakesAtOnce(event));
}

TEST(ResetEvent, RefusesWhatIsNoEvent) {
    EXPECT_FALSE(ResetEvent(nullptr));
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_HANDLE));
    const OwnedHandle semaphore(Semaphore(1, 1));
    EXPECT_FALSE(ResetEvent(semaphore));
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_HANDLE));
    EXPECT_TRUE(TakesAtOnce(semaphore));
}
