#include "download/SegmentQueue.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "tests/download/LogLevel.h"
#include "tests/support/LogCapture.h"

namespace kvmpd {
namespace {

using test::LevelOf;
using test::LogCapture;

std::shared_ptr<Segment> Numbered(LONGLONG number) {
    auto segment = std::make_shared<Segment>();
    segment->m_segmentNumber = number;
    return segment;
}

/// Returns when `count` threads sleep in the queue. Nothing announces that a thread has fallen asleep, so this asks.
void AwaitSleepers(SegmentQueue& queue, int count) {
    while (queue.WaitingThreads() != count) {
        std::this_thread::yield();
    }
}

TEST(SegmentQueueOrder, IsFirstInFirstOut) {
    SegmentQueue queue(0);
    for (LONGLONG number = 1; number <= 3; ++number) {
        queue.push(Numbered(number));
    }
    for (LONGLONG number = 1; number <= 3; ++number) {
        EXPECT_EQ(queue.pop()->m_segmentNumber, number);
    }
}

TEST(SegmentQueueOrder, HandsOutTheSameSegmentAndKeepsNoReference) {
    SegmentQueue queue(0);
    const std::shared_ptr<Segment> pushed = Numbered(1);
    queue.push(pushed);
    EXPECT_EQ(pushed.use_count(), 2);
    EXPECT_EQ(queue.pop(), pushed);
    EXPECT_EQ(pushed.use_count(), 1);
}

TEST(SegmentQueuePop, BlocksOnAnEmptyQueueUntilAPush) {
    SegmentQueue queue(0);
    std::atomic<LONGLONG> popped = 0;
    std::jthread popper([&] { popped = queue.pop()->m_segmentNumber; });
    AwaitSleepers(queue, 1);
    EXPECT_EQ(popped, 0);
    queue.push(Numbered(5));
    popper.join();
    EXPECT_EQ(popped, 5);
}

TEST(SegmentQueuePop, EveryPushIsTakenByOneOfSeveralThreadsThatWait) {
    SegmentQueue queue(0);
    std::atomic<int> popped = 0;
    std::vector<std::jthread> poppers;
    for (int popper = 0; popper < 3; ++popper) {
        poppers.emplace_back([&] {
            queue.pop();
            ++popped;
        });
    }
    AwaitSleepers(queue, 3);
    for (int left = 2; left >= 0; --left) {
        queue.push(Numbered(1));
        AwaitSleepers(queue, left);
    }
    poppers.clear();
    EXPECT_EQ(popped, 3);
}

class SegmentQueueUnbounded : public testing::TestWithParam<LONG> {};

TEST_P(SegmentQueueUnbounded, TakesAnyNumberWithoutBlocking) {
    constexpr LONGLONG kMany = 10000;
    SegmentQueue queue(GetParam());
    for (LONGLONG number = 0; number < kMany; ++number) {
        queue.push(Numbered(number));
    }
    for (LONGLONG number = 0; number < kMany; ++number) {
        ASSERT_EQ(queue.pop()->m_segmentNumber, number);
    }
}

INSTANTIATE_TEST_SUITE_P(Capacities, SegmentQueueUnbounded, testing::Values(0, -1));

TEST(SegmentQueueBounded, ThirdPushIntoCapacityTwoBlocksUntilAPop) {
    SegmentQueue queue(2);
    queue.push(Numbered(1));
    queue.push(Numbered(2));
    std::atomic<bool> pushed = false;
    std::jthread pusher([&] {
        queue.push(Numbered(3));
        pushed = true;
    });
    AwaitSleepers(queue, 1);
    EXPECT_FALSE(pushed);
    EXPECT_EQ(queue.pop()->m_segmentNumber, 1);
    pusher.join();
    EXPECT_TRUE(pushed);
    EXPECT_EQ(queue.pop()->m_segmentNumber, 2);
    EXPECT_EQ(queue.pop()->m_segmentNumber, 3);
}

TEST(SegmentQueueBounded, NeverHoldsMoreThanItsCapacity) {
    constexpr int kSegments = 200;
    SegmentQueue queue(2);
    std::atomic<int> pushed = 0;
    std::jthread pusher([&] {
        for (int number = 0; number < kSegments; ++number) {
            queue.push(Numbered(number));
            ++pushed;
        }
    });
    for (int number = 0; number < kSegments; ++number) {
        ASSERT_EQ(queue.pop()->m_segmentNumber, number);
        EXPECT_LE(pushed, number + 1 + 2);
    }
}

TEST(SegmentQueueClear, DropsEverySegment) {
    SegmentQueue queue(0);
    const std::weak_ptr<Segment> first = [&queue] {
        auto segment = Numbered(1);
        queue.push(segment);
        return segment;
    }();
    const auto kept = Numbered(2);
    queue.push(kept);
    const LogCapture log(8);
    queue.clear();
    EXPECT_EQ(log.Lines(), std::vector<std::string>{});
    EXPECT_TRUE(first.expired());
    EXPECT_EQ(kept.use_count(), 1);
    queue.push(Numbered(3));
    EXPECT_EQ(queue.pop()->m_segmentNumber, 3);
}

TEST(SegmentQueueClear, OfAnEmptyQueueIsHarmless) {
    SegmentQueue queue(0);
    queue.clear();
    queue.push(Numbered(1));
    EXPECT_EQ(queue.pop()->m_segmentNumber, 1);
}

TEST(SegmentQueueClear, LeavesAWaitingPushToTheClose) {
    SegmentQueue queue(1);
    queue.push(Numbered(1));
    const auto second = Numbered(2);
    std::jthread pusher([&] { queue.push(second); });
    AwaitSleepers(queue, 1);
    queue.clear();
    queue.close();
    pusher.join();
    EXPECT_EQ(second.use_count(), 1) << "a push whose wait is ended by the close queues nothing";
}

TEST(SegmentQueueClose, QueueWithRoomStillTakesSegmentsAndHandsThemOut) {
    SegmentQueue queue(2);
    queue.push(Numbered(1));
    queue.close();
    queue.push(Numbered(2));
    EXPECT_EQ(queue.pop()->m_segmentNumber, 1);
    EXPECT_EQ(queue.pop()->m_segmentNumber, 2);
    EXPECT_EQ(queue.pop(), nullptr);
    EXPECT_EQ(queue.pop(), nullptr);
}

TEST(SegmentQueueClose, PushIntoAFullClosedQueueDropsTheSegment) {
    SegmentQueue queue(1);
    queue.push(Numbered(1));
    queue.close();
    const auto dropped = Numbered(2);
    queue.push(dropped);
    EXPECT_EQ(dropped.use_count(), 1);
    EXPECT_EQ(queue.pop()->m_segmentNumber, 1);
    EXPECT_EQ(queue.pop(), nullptr);
}

TEST(SegmentQueueClose, EndsEveryWait) {
    SegmentQueue full(1);
    full.push(Numbered(1));
    SegmentQueue empty(1);
    const auto dropped = Numbered(2);
    std::atomic<int> emptyHanded = 0;
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 2; ++thread) {
        threads.emplace_back([&] { full.push(dropped); });
        threads.emplace_back([&] { emptyHanded += empty.pop() ? 0 : 1; });
    }
    AwaitSleepers(full, 2);
    AwaitSleepers(empty, 2);
    full.close();
    empty.close();
    threads.clear();
    EXPECT_EQ(emptyHanded, 2);
    EXPECT_EQ(dropped.use_count(), 1);
}

TEST(SegmentQueueDestructor, GivesAnEmptyPointerToThreadsThatWaitInPop) {
    auto queue = std::make_unique<SegmentQueue>(0);
    std::atomic<int> emptyHanded = 0;
    std::vector<std::jthread> poppers;
    for (int popper = 0; popper < 3; ++popper) {
        poppers.emplace_back([&emptyHanded, waited = queue.get()] { emptyHanded += waited->pop() ? 0 : 1; });
    }
    AwaitSleepers(*queue, 3);
    queue.reset();
    poppers.clear();
    EXPECT_EQ(emptyHanded, 3);
}

TEST(SegmentQueueDestructor, EndsAPushThatWaits) {
    auto queue = std::make_unique<SegmentQueue>(1);
    queue->push(Numbered(1));
    const auto dropped = Numbered(2);
    std::jthread pusher([&dropped, waited = queue.get()] { waited->push(dropped); });
    AwaitSleepers(*queue, 1);
    queue.reset();
    pusher.join();
    EXPECT_EQ(dropped.use_count(), 1);
}

TEST(SegmentQueueDestructor, ReleasesTheSegmentsThatAreLeft) {
    const auto left = Numbered(1);
    {
        SegmentQueue queue(0);
        queue.push(left);
    }
    EXPECT_EQ(left.use_count(), 1);
}

TEST(SegmentQueueLog, NamesConstructionAndDestruction) {
    const LogCapture log(4);
    { const SegmentQueue queue(0); }
    EXPECT_EQ(log.Lines(), (std::vector<std::string>{" SegmentQueue::SegmentQueue ", " SegmentQueue::~SegmentQueue ",
                                                     " SegmentQueue::close "}));
}

TEST(SegmentQueueLog, IsAtLevelFour) {
    const auto live = [] { const SegmentQueue queue(0); };
    EXPECT_EQ(LevelOf(" SegmentQueue::SegmentQueue ", live), 4);
    EXPECT_EQ(LevelOf(" SegmentQueue::~SegmentQueue ", live), 4);
    EXPECT_EQ(LevelOf(" SegmentQueue::close ", live), 4);
}

TEST(SegmentQueueLog, IsSilentInUse) {
    SegmentQueue queue(1);
    const LogCapture log(8);
    queue.push(Numbered(1));
    queue.pop();
    queue.clear();
    EXPECT_EQ(log.Lines(), std::vector<std::string>{});
}

TEST(SegmentQueueThreads, EverySegmentOfManyPushersReachesOnePopper) {
    constexpr int kPushers = 3;
    constexpr int kEach = 300;
    SegmentQueue queue(4);
    std::vector<LONGLONG> seen;
    {
        std::vector<std::jthread> pushers;
        for (int pusher = 0; pusher < kPushers; ++pusher) {
            pushers.emplace_back([&queue, pusher] {
                for (int i = 0; i < kEach; ++i) {
                    queue.push(Numbered(pusher * kEach + i));
                }
            });
        }
        for (int i = 0; i < kPushers * kEach; ++i) {
            seen.push_back(queue.pop()->m_segmentNumber);
        }
    }
    std::ranges::sort(seen);
    for (int i = 0; i < kPushers * kEach; ++i) {
        ASSERT_EQ(seen[static_cast<size_t>(i)], i);
    }
}

}  // namespace
}  // namespace kvmpd
