#include <chrono>

#include "tests/platform/support.h"

TEST(GetTickCount64, CountsMilliseconds) {
    const ULONGLONG start = GetTickCount64();
    const auto steadyStart = std::chrono::steady_clock::now();
    Sleep(60);
    const ULONGLONG ticks = GetTickCount64() - start;
    const auto outside = std::chrono::steady_clock::now() - steadyStart;
    EXPECT_GE(ticks, 60u - 16u);
    EXPECT_LE(ticks, static_cast<ULONGLONG>(std::chrono::ceil<std::chrono::milliseconds>(outside).count()) + 16u);
}
