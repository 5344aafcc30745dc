#include <thread>
#include <vector>

#include "tests/platform/support.h"

TEST(Interlocked, ReturnsTheNewValue) {
    LONG value = 0;
    EXPECT_EQ(InterlockedIncrement(&value), 1);
    EXPECT_EQ(InterlockedDecrement(&value), 0);
    EXPECT_EQ(InterlockedDecrement(&value), -1);
}

TEST(Interlocked, LosesNoCountBetweenThreads) {
    LONG value = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&, i] {
            for (int round = 0; round < 10'000; ++round) {
                if (i < 6) {
                    InterlockedIncrement(&value);
                } else {
                    InterlockedDecrement(&value);
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(value, 40'000);
}
