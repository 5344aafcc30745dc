#include "app/SourceSupervisor.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <string>

namespace kvmpd::app {
namespace {

using namespace std::chrono_literals;

// What the sources under supervision did, in order; and a way to hold their closing up.
struct Diary {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::string> lines;
    bool closingHeld = false;

    void Write(const std::string& line) {
        {
            const std::lock_guard lock(mutex);
            lines.push_back(line);
        }
        changed.notify_all();
    }
    void LetClose() {
        {
            const std::lock_guard lock(mutex);
            closingHeld = false;
        }
        changed.notify_all();
    }
    void WaitFor(const std::string& line) {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return std::find(lines.begin(), lines.end(), line) != lines.end(); });
    }
    std::vector<std::string> Take() {
        const std::lock_guard lock(mutex);
        return std::exchange(lines, {});
    }
};

class FakeLive final : public SupervisedSource {
  public:
    FakeLive(Diary& diary, std::uint64_t id) : m_diary(diary), m_name(std::to_string(id)) {}
    ~FakeLive() override {
        std::unique_lock lock(m_diary.mutex);
        m_diary.changed.wait(lock, [&] { return !m_diary.closingHeld; });
        lock.unlock();
        m_diary.Write("closed " + m_name);
    }
    void AskForManifestAgain() override { m_diary.Write("woken " + m_name); }
    void EndReads() override { m_diary.Write("reads of " + m_name + " ended"); }

  private:
    Diary& m_diary;
    const std::string m_name;
};

class Supervised : public testing::Test {
  protected:
    using Lines = std::vector<std::string>;

    void Make(const RetryPolicy::Options& options) {
        m_supervisor = std::make_unique<SourceSupervisor>(
            options,
            SourceSupervisor::Callbacks{
                .make = [this](const SourceSupervisor::Request& request) -> std::unique_ptr<SupervisedSource> {
                    m_requests.push_back(request);
                    m_diary.Write("made " + std::to_string(request.id));
                    return m_canMake ? std::make_unique<FakeLive>(m_diary, request.id) : nullptr;
                },
                .retry = [this](const RetryPolicy::Retry& retry) { m_retries.push_back(retry); },
                .gaveUp = [this] { m_diary.Write("given up"); }},
            [this] { return m_now.load(); });
    }

    void SetUp() override {
        RetryPolicy::Options options;
        options.giveUpBeforeMedia.reset();
        Make(options);
    }

    // Time passes, and what is due then is done.
    void After(RetryPolicy::Length length) {
        m_now = m_now.load() + length;
        m_supervisor->Step();
    }
    void AfterTheWait() {
        m_supervisor->Step();  // tells of the try
        ASSERT_FALSE(m_retries.empty());
        After(m_retries.back().wait);
    }

    Diary m_diary;
    std::atomic<SourceSupervisor::Time> m_now{SourceSupervisor::Time(1h)};
    bool m_canMake = true;
    std::vector<SourceSupervisor::Request> m_requests;
    std::vector<RetryPolicy::Retry> m_retries;
    std::unique_ptr<SourceSupervisor> m_supervisor;
};

TEST_F(Supervised, BeginsWithOneSource) {
    EXPECT_TRUE(m_supervisor->Start());
    EXPECT_EQ(m_supervisor->CurrentId(), 1u);
    EXPECT_EQ(m_requests.front().sinceMedia, std::nullopt);
    m_supervisor.reset();
    EXPECT_EQ(m_diary.Take(), (Lines{"made 1", "closed 1"}));
}

TEST_F(Supervised, SaysThatTheFirstSourceCannotBeMade) {
    m_canMake = false;
    EXPECT_FALSE(m_supervisor->Start());
}

TEST_F(Supervised, WakesASourceWhoseReloadFailed) {
    m_supervisor->Start();
    m_supervisor->ManifestLoaded(1, 2s);
    m_supervisor->ManifestFailed(1);
    EXPECT_EQ(m_supervisor->UntilStep(), 0ms) << "there is something to tell";
    AfterTheWait();
    EXPECT_EQ(m_diary.Take(), (Lines{"made 1", "woken 1"}));
    ASSERT_EQ(m_retries.size(), 1u);
    EXPECT_EQ(m_retries[0].action, RetryPolicy::Action::kWake);
}

TEST_F(Supervised, ReplacesASourceThatNeverHadAManifest) {
    m_supervisor->Start();
    m_supervisor->ManifestFailed(1);
    AfterTheWait();
    m_diary.WaitFor("closed 1");
    EXPECT_EQ(m_diary.Take(), (Lines{"made 1", "made 2", "reads of 1 ended", "closed 1"}));
    EXPECT_EQ(m_supervisor->CurrentId(), 2u);
}

TEST_F(Supervised, ReplacesASourceThatCannotBeWoken) {
    m_supervisor->Start();
    m_supervisor->ManifestLoaded(1, 2s);
    m_supervisor->ManifestFailed(1);
    AfterTheWait();
    m_supervisor->DelayUnchanged(1);
    After(0ms);
    EXPECT_EQ(m_supervisor->CurrentId(), 2u);
}

TEST_F(Supervised, TellsHowLongNoMediaHasCome) {
    m_supervisor->Start();
    m_supervisor->MediaArrived();
    After(7s);
    m_supervisor->SourceFailed(1);
    AfterTheWait();
    ASSERT_EQ(m_requests.size(), 2u);
    EXPECT_EQ(m_requests[1].sinceMedia, 7s + m_retries.back().wait);
}

TEST_F(Supervised, DoesNotListenToASourceThatWasReplaced) {
    m_supervisor->Start();
    m_supervisor->ManifestFailed(1);
    AfterTheWait();
    m_supervisor->ManifestFailed(1);
    m_supervisor->SourceFailed(1);
    After(1h);
    EXPECT_EQ(m_supervisor->CurrentId(), 2u);
    EXPECT_EQ(m_retries.size(), 1u);
}

TEST_F(Supervised, GoesOnTryingWhenNoSourceCanBeMade) {
    m_supervisor->Start();
    m_supervisor->SourceFailed(1);
    m_canMake = false;
    for (int n = 0; n < 3; ++n) {
        AfterTheWait();
    }
    EXPECT_EQ(m_retries.size(), 4u);
    m_canMake = true;
    AfterTheWait();
    m_diary.WaitFor("closed 1");
    const Lines lines = m_diary.Take();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "reads of 1 ended"), 1);
}

// Servers that send a byte a second hold a closing source for hours. The stream must not be lost to that.
TEST_F(Supervised, IsNotDisabledByTransfersThatNeverEnd) {
    RetryPolicy::Options options;
    options.giveUpBeforeMedia.reset();
    options.stallLimit = 5s;
    Make(options);
    m_diary.closingHeld = true;
    m_supervisor->Start();
    for (int n = 0; n < 12 * 60 && m_requests.size() < 5; ++n) {
        After(1s);
    }
    EXPECT_EQ(m_requests.size(), 5u) << "in twelve minutes";
    m_diary.LetClose();
}

TEST_F(Supervised, SaysThatASourceWaitsForOthersToEndAndNothingElse) {
    RetryPolicy::Options options;
    options.giveUpBeforeMedia.reset();
    options.stallLimit = 5s;
    Make(options);
    m_diary.closingHeld = true;
    m_supervisor->Start();
    After(5s);
    After(10s);
    m_retries.clear();
    After(20s);
    ASSERT_EQ(m_retries.size(), 1u);
    EXPECT_EQ(m_retries[0].trouble, RetryPolicy::Trouble::kStillClosing);
    EXPECT_GE(m_retries[0].wait, 1s);
    EXPECT_EQ(m_supervisor->CurrentId(), 3u) << "which is still listened to";
    m_diary.LetClose();
}

// The media that was missed has come after all, so that no source is needed.
TEST_F(Supervised, KeepsASourceThatRecoversWhileItsReplacementWaits) {
    RetryPolicy::Options options;
    options.giveUpBeforeMedia.reset();
    options.stallLimit = 5s;
    Make(options);
    m_diary.closingHeld = true;
    m_supervisor->Start();
    After(5s);
    After(10s);
    After(20s);
    m_supervisor->MediaArrived();
    After(4s);
    EXPECT_EQ(m_supervisor->CurrentId(), 3u);
    m_diary.LetClose();
}

TEST_F(Supervised, GathersSourcesThatCannotCloseSlowlyAndOnlySoMany) {
    m_diary.closingHeld = true;
    m_supervisor->Start();
    std::vector<SourceSupervisor::Time> made;
    for (int n = 0; n < 10'000; ++n) {
        m_supervisor->SourceFailed(m_supervisor->CurrentId());
        After(1s);
        made.resize(m_requests.size(), m_now.load());
    }
    EXPECT_EQ(m_requests.size(), 9u) << "eight are closing, one is there";
    for (std::size_t n = 3; n < made.size(); ++n) {
        EXPECT_GE(made[n] - made[n - 1], 30s) << "with two closing already";
    }
    m_diary.LetClose();
    for (int n = 1; n <= 8; ++n) {
        m_diary.WaitFor("closed " + std::to_string(n));
    }
    // The threads have nothing left to do, but may not have said so yet.
    while (m_requests.size() < 10) {
        std::this_thread::yield();
        After(30s);
    }
    EXPECT_EQ(m_requests.size(), 10u);
}

TEST_F(Supervised, GivesUpOnce) {
    Make({});
    m_supervisor->Start();
    m_diary.Take();
    EXPECT_EQ(m_supervisor->UntilStep(), 30s);
    After(30s);
    After(1s);
    EXPECT_EQ(m_diary.Take(), Lines{"given up"});
    EXPECT_EQ(m_supervisor->UntilStep(), std::nullopt);
}

TEST_F(Supervised, ReplacesAStalledSourceAndSaysSo) {
    RetryPolicy::Options options;
    options.stallLimit = 10s;
    Make(options);
    m_supervisor->Start();
    m_supervisor->MediaArrived();
    After(10s);
    EXPECT_EQ(m_supervisor->CurrentId(), 2u);
    ASSERT_EQ(m_retries.size(), 1u);
    EXPECT_EQ(m_retries[0].trouble, RetryPolicy::Trouble::kStalled);
}

// Sources report from threads of their own, also while they are being replaced and closed.
TEST_F(Supervised, IsToldFromManyThreads) {
    m_supervisor->Start();
    std::atomic<bool> stop = false;
    std::vector<std::thread> threads;
    for (int n = 0; n < 3; ++n) {
        threads.emplace_back([&] {
            while (!stop) {
                const std::uint64_t id = m_supervisor->CurrentId();
                m_supervisor->ManifestFailed(id);
                m_supervisor->DelayUnchanged(id);
                m_supervisor->MediaArrived();
                m_supervisor->SourceFailed(id);
                m_supervisor->ManifestLoaded(id, 1s);
            }
        });
    }
    for (int n = 0; n < 200; ++n) {
        After(1s);
        (void)m_supervisor->UntilStep();
    }
    stop = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    m_supervisor->Close();
    m_diary.WaitFor("closed 1");
}

}  // namespace
}  // namespace kvmpd::app
