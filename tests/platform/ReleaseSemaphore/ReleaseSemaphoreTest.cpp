#include <limits>

#include "tests/platform/support.h"

using namespace platform_test;

TEST(ReleaseSemaphore, AddsAndReportsTheCountBefore) {
    const OwnedHandle semaphore(Semaphore(1, 5));
    LONG previous = -1;
    EXPECT_TRUE(ReleaseSemaphore(semaphore, 3, &previous));
    EXPECT_EQ(previous, 1);
    for (int i = 0; i < 4; ++i) {
        EXPECT_TRUE(TakesAtOnce(semaphore));
    }
    EXPECT_FALSE(TakesAtOnce(semaphore));
}

TEST(ReleaseSemaphore, BeyondTheMaximumChangesNothing) {
    const OwnedHandle semaphore(Semaphore(1, 2));
    LONG previous = -1;
    EXPECT_FALSE(ReleaseSemaphore(semaphore, 2, &previous));
    EXPECT_TRUE(LastErrorIs(ERROR_TOO_MANY_POSTS));
    EXPECT_EQ(previous, -1);
    EXPECT_TRUE(TakesAtOnce(semaphore));
    EXPECT_FALSE(TakesAtOnce(semaphore));
}

TEST(ReleaseSemaphore, DoesNotOverflowNearTheLargestCount) {
    constexpr LONG kLargest = std::numeric_limits<LONG>::max();
    const OwnedHandle semaphore(Semaphore(kLargest - 1, kLargest));
    EXPECT_FALSE(ReleaseSemaphore(semaphore, kLargest, nullptr));
    EXPECT_TRUE(LastErrorIs(ERROR_TOO_MANY_POSTS));
    EXPECT_TRUE(ReleaseSemaphore(semaphore, 1, nullptr));
}

TEST(ReleaseSemaphore, RefusesACountBelowOne) {
    if (kvmpd::test::UnderWine()) {
        GTEST_SKIP() << "Wine takes a count of 0, and reads a negative one as too large";
    }
    const OwnedHandle semaphore(Semaphore(0, 2));
    EXPECT_FALSE(ReleaseSemaphore(semaphore, 0, nullptr));
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_PARAMETER));
    EXPECT_FALSE(ReleaseSemaphore(semaphore, -1, nullptr));
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_PARAMETER));
}

TEST(ReleaseSemaphore, RefusesAnEvent) {
    const OwnedHandle event(AutoEvent());
    EXPECT_FALSE(ReleaseSemaphore(event, 1, nullptr));
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_HANDLE));
}
