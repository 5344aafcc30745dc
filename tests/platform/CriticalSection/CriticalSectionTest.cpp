#include <thread>
#include <vector>

#include "tests/platform/support.h"

using namespace platform_test;

namespace {

class CriticalSection : public testing::Test {
  protected:
    CriticalSection() { InitializeCriticalSection(&m_section); }
    ~CriticalSection() override { DeleteCriticalSection(&m_section); }

    // Whether another thread gets in right now.
    bool IsFreeForOthers() {
        bool free = false;
        std::thread([&] {
            free = TryEnterCriticalSection(&m_section) != FALSE;
            if (free) {
                LeaveCriticalSection(&m_section);
            }
        }).join();
        return free;
    }

    CRITICAL_SECTION m_section;
};

}  // namespace

TEST_F(CriticalSection, KeepsOthersOutUntilItIsLeft) {
    EXPECT_TRUE(IsFreeForOthers());
    EnterCriticalSection(&m_section);
    EXPECT_FALSE(IsFreeForOthers());
    LeaveCriticalSection(&m_section);
    EXPECT_TRUE(IsFreeForOthers());
}

TEST_F(CriticalSection, IsEnteredAgainByItsOwnerAndLeftAsOften) {
    EnterCriticalSection(&m_section);
    EnterCriticalSection(&m_section);
    EXPECT_TRUE(TryEnterCriticalSection(&m_section));
    LeaveCriticalSection(&m_section);
    LeaveCriticalSection(&m_section);
    EXPECT_FALSE(IsFreeForOthers());
    LeaveCriticalSection(&m_section);
    EXPECT_TRUE(IsFreeForOthers());
}

TEST_F(CriticalSection, LetsOneThreadInAtATime) {
    constexpr int kThreads = 8;
    constexpr int kRounds = 2000;
    int counter = 0;  // guarded by m_section
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < kRounds; ++round) {
                EnterCriticalSection(&m_section);
                ++counter;
                LeaveCriticalSection(&m_section);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counter, kThreads * kRounds);
}

TEST_F(CriticalSection, CanBeInitialisedAgainAfterItsDeletion) {
    EnterCriticalSection(&m_section);
    LeaveCriticalSection(&m_section);
    DeleteCriticalSection(&m_section);
    InitializeCriticalSection(&m_section);
    EXPECT_TRUE(TryEnterCriticalSection(&m_section));
    LeaveCriticalSection(&m_section);
}
