#include <type_traits>

#include "tests/platform/support.h"

static_assert(std::is_same_v<decltype(ClockMs()), LONGLONG>);

TEST(ClockMs, RunsWhileTheThreadSleeps) {
    const LONGLONG start = ClockMs();
    Sleep(60);
    EXPECT_GE(ClockMs() - start, 60 - 16);
}

TEST(ClockMs, NeverGoesBackwards) {
    LONGLONG previous = ClockMs();
    for (int i = 0; i < 10'000; ++i) {
        const LONGLONG now = ClockMs();
        ASSERT_GE(now, previous);
        previous = now;
    }
}
