#include <chrono>

#include "tests/platform/support.h"

TEST(Sleep, LastsAtLeastAsLongAsAsked) {
    const auto start = std::chrono::steady_clock::now();
    Sleep(30);
    // A system that counts in ticks may count the running one as whole.
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30 - 16));
}

TEST(Sleep, OfZeroReturns) {
    Sleep(0);
}
