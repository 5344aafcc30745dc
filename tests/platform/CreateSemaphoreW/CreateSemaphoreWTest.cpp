#include "tests/platform/support.h"

using namespace platform_test;

TEST(CreateSemaphoreW, GivesAsManyWaitsAsItsCount) {
    const OwnedHandle semaphore(Semaphore(2, 5));
    EXPECT_TRUE(TakesAtOnce(semaphore));
    EXPECT_TRUE(TakesAtOnce(semaphore));
    EXPECT_FALSE(TakesAtOnce(semaphore));
}

struct BadCounts {
    LONG initial;
    LONG maximum;
};

class CreateSemaphoreWCounts : public testing::TestWithParam<BadCounts> {};

TEST_P(CreateSemaphoreWCounts, AreRefused) {
    EXPECT_EQ(Semaphore(GetParam().initial, GetParam().maximum), nullptr);
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_PARAMETER));
}

INSTANTIATE_TEST_SUITE_P(Impossible, CreateSemaphoreWCounts,
                         testing::Values(BadCounts{-1, 1}, BadCounts{2, 1}, BadCounts{0, 0}, BadCounts{0, -1}));
