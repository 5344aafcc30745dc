// The count of threads by itself; the other functions in front of the platform's are proven by the cells that would
// wait for ever without them.

#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "tests/faults/StandIns.h"

namespace kvmpd::test {
namespace {

TEST(ThreadTally, CountsWhatIsStartedUnderItsScopeAndWhatThatStarts) {
    const ThreadTally tally;
    if (!tally.Live()) {
        GTEST_SKIP()
            << "no function can be put in front of the system's thread creation: the cells count no threads here";
    }
    std::promise<void> started;
    std::promise<void> end;
    std::thread outer;
    std::thread inner;
    {
        const ThreadTally::Scope scope(tally);
        outer = std::thread([&] {
            inner = std::thread([&] { end.get_future().wait(); });
            started.set_value();
        });
    }
    std::thread other([&] { started.get_future().wait(); });
    other.join();
    outer.join();
    EXPECT_EQ(tally.Live(), 1u);
    end.set_value();
    inner.join();
    EXPECT_EQ(tally.Live(), 0u);
}

}  // namespace
}  // namespace kvmpd::test
