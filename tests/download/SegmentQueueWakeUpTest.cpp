// Whom the queue's operations wake: one waiter, all, or nobody. That a thread woken in vain goes back to sleep hides
// the difference from every other observer.
#include <gtest/gtest.h>

#include <condition_variable>

#include "download/SegmentQueue.h"

namespace {

thread_local int t_wokenOne = 0;
thread_local int t_wokenAll = 0;

}  // namespace

// The names are the linker's.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
void __real__ZNSt18condition_variable10notify_oneEv(std::condition_variable* condition);
void __real__ZNSt18condition_variable10notify_allEv(std::condition_variable* condition);

void __wrap__ZNSt18condition_variable10notify_oneEv(std::condition_variable* condition) {
    ++t_wokenOne;
    __real__ZNSt18condition_variable10notify_oneEv(condition);
}

void __wrap__ZNSt18condition_variable10notify_allEv(std::condition_variable* condition) {
    ++t_wokenAll;
    __real__ZNSt18condition_variable10notify_allEv(condition);
}
}
// NOLINTEND(bugprone-reserved-identifier)

namespace kvmpd {
namespace {

struct WakeUps {
    int one = 0;
    int all = 0;
    bool operator==(const WakeUps&) const = default;
};

void PrintTo(const WakeUps& wakeUps, std::ostream* out) {
    *out << wakeUps.one << " of one, " << wakeUps.all << " of all";
}

template <class Action>
WakeUps During(const Action& action) {
    t_wokenOne = 0;
    t_wokenAll = 0;
    action();
    return {t_wokenOne, t_wokenAll};
}

class SegmentQueueWakeUp : public testing::TestWithParam<LONG> {
  protected:
    SegmentQueue m_queue{GetParam()};
};

TEST_P(SegmentQueueWakeUp, APushWakesOneThread) {
    EXPECT_EQ(During([this] { m_queue.push(std::make_shared<Segment>()); }), (WakeUps{1, 0}));
}

TEST_P(SegmentQueueWakeUp, APopWakesOneThread) {
    m_queue.push(std::make_shared<Segment>());
    EXPECT_EQ(During([this] { m_queue.pop(); }), (WakeUps{1, 0}));
}

TEST_P(SegmentQueueWakeUp, AClearWakesNobody) {
    m_queue.push(std::make_shared<Segment>());
    EXPECT_EQ(During([this] { m_queue.clear(); }), (WakeUps{0, 0}));
}

TEST_P(SegmentQueueWakeUp, ACloseWakesEveryThreadOfBothKinds) {
    EXPECT_EQ(During([this] { m_queue.close(); }), (WakeUps{0, 2}));
}

INSTANTIATE_TEST_SUITE_P(Capacities, SegmentQueueWakeUp, testing::Values(0, 2));

}  // namespace
}  // namespace kvmpd
