#include <thread>

#include "tests/platform/support.h"

TEST(GetCurrentThreadId, IsConstantInAThreadAndDiffersBetweenThreads) {
    const DWORD mine = GetCurrentThreadId();
    EXPECT_NE(mine, 0u);
    EXPECT_EQ(GetCurrentThreadId(), mine);
    DWORD other = 0;
    std::thread([&] { other = GetCurrentThreadId(); }).join();
    EXPECT_NE(other, 0u);
    EXPECT_NE(other, mine);
}
