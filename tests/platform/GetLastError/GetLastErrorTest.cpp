#include <atomic>
#include <thread>

#include "tests/platform/support.h"

using namespace platform_test;

TEST(GetLastError, IsEachThreadsOwn) {
    // Turns are taken without a call: starting, waiting for or joining a thread may leave an error number of its own.
    std::atomic<bool> set{false};
    std::atomic<bool> setByOther{false};
    DWORD inOther = 1;
    std::thread other([&] {
        while (!set) {
        }
        inOther = GetLastError();
        SetLastError(99);
        setByOther = true;
    });
    SetLastError(1234);
    set = true;
    while (!setByOther) {
    }
    EXPECT_TRUE(LastErrorIs(1234));
    other.join();
    EXPECT_EQ(inOther, 0u);
}

TEST(GetLastError, KeepsAllThirtyTwoBits) {
    SetLastError(0xFFFFFFFFu);
    EXPECT_TRUE(LastErrorIs(0xFFFFFFFFu));
}
