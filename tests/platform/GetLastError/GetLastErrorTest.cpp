#include <thread>

#include "tests/platform/support.h"

using namespace platform_test;

TEST(GetLastError, IsEachThreadsOwn) {
    SetLastError(1234);
    DWORD inOther = 1;
    std::thread([&] {
        inOther = GetLastError();
        SetLastError(99);
    }).join();
    EXPECT_EQ(inOther, 0u);
    EXPECT_TRUE(LastErrorIs(1234));
}

TEST(GetLastError, KeepsAllThirtyTwoBits) {
    SetLastError(0xFFFFFFFFu);
    EXPECT_TRUE(LastErrorIs(0xFFFFFFFFu));
}
