#include "common/Locks.h"

#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace kvmpd {
namespace {

constexpr int kThreads = 4;
constexpr int kRounds = 1000;

template <class Lock, class Hold>
class Counted {
  public:
    void Raise() {
        const Hold hold(m_lock);
        ++m_count;
    }
    int Count() {
        const Hold hold(m_lock);
        return m_count;
    }

  private:
    Lock m_lock;
    int m_count GUARDED_BY(m_lock) = 0;
};

template <class Counter>
int RaisedByAllThreads() {
    Counter counter;
    {
        std::vector<std::jthread> threads;
        for (int thread = 0; thread < kThreads; ++thread) {
            threads.emplace_back([&counter] {
                for (int round = 0; round < kRounds; ++round) {
                    counter.Raise();
                }
            });
        }
    }
    return counter.Count();
}

TEST(LocksMutex, LetsOneThreadInAtATime) {
    EXPECT_EQ((RaisedByAllThreads<Counted<Mutex, MutexLock>>()), kThreads * kRounds);
}

TEST(LocksCritSec, LetsOneThreadInAtATime) {
    EXPECT_EQ((RaisedByAllThreads<Counted<CritSec, CritSecLock>>()), kThreads * kRounds);
}

/// The analysis takes a second entry for a mistake; that it is none is what the test shows.
void EnterTwice(CritSec& section, std::atomic<int>& entered) NO_THREAD_SAFETY_ANALYSIS {
    section.Lock();
    section.Lock();
    ++entered;
    section.Unlock();
}

TEST(LocksCritSec, IsLeftWhenEveryEntryHasBeenLeft) {
    CritSec section;
    std::atomic<int> entered = 0;
    std::atomic<bool> insideTwice = false;
    EnterTwice(section, entered);
    std::jthread other([&] {
        const CritSecLock hold(section);
        insideTwice = entered.load() == 2;
    });
    // The first entry is still open, so the other thread cannot have been in.
    EXPECT_FALSE(insideTwice);
    entered = 2;
    [&]() NO_THREAD_SAFETY_ANALYSIS { section.Unlock(); }();
    other.join();
    EXPECT_TRUE(insideTwice);
}

/// A hand-over of one value at a time, as the component's queues do it.
class Slot {
  public:
    void Give(int value) {
        const MutexLock lock(m_mutex);
        while (m_value != 0) {
            m_changed.Wait(m_mutex);
        }
        m_value = value;
        m_changed.NotifyAll();
    }
    int Take() {
        const MutexLock lock(m_mutex);
        while (m_value == 0) {
            m_changed.Wait(m_mutex);
        }
        m_changed.NotifyAll();
        return std::exchange(m_value, 0);
    }
    /// Whether a wait without a notification ended by its time.
    bool RunsOut() {
        const MutexLock lock(m_mutex);
        while (m_changed.WaitFor(m_mutex, 1)) {
        }
        ++m_value;  // the lock is held again
        return true;
    }
    bool WaitsForValue() {
        const MutexLock lock(m_mutex);
        while (m_value == 0) {
            if (!m_changed.WaitFor(m_mutex, 60000)) {
                return false;
            }
        }
        return true;
    }

  private:
    Mutex m_mutex;
    CondVar m_changed;
    int m_value GUARDED_BY(m_mutex) = 0;
};

TEST(LocksCondVar, WakesWhoWaits) {
    Slot slot;
    std::jthread giver([&slot] {
        for (int value = 1; value <= kRounds; ++value) {
            slot.Give(value);
        }
    });
    for (int value = 1; value <= kRounds; ++value) {
        ASSERT_EQ(slot.Take(), value);
    }
}

TEST(LocksCondVar, TimedWaitEndsWithoutANotification) {
    Slot slot;
    EXPECT_TRUE(slot.RunsOut());
    EXPECT_EQ(slot.Take(), 1);
}

TEST(LocksCondVar, TimedWaitEndsByANotification) {
    Slot slot;
    std::jthread giver([&slot] { slot.Give(1); });
    EXPECT_TRUE(slot.WaitsForValue());
}

}  // namespace
}  // namespace kvmpd
