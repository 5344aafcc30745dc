#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>

#include "tests/app/PumpFixture.h"

namespace kvmpd::app {
namespace {

using namespace std::chrono_literals;
using test::Append;
using test::Bytes;
using test::FakeSource;
using test::LiveSource;
using test::Pump;

TEST_F(Pump, FollowsTheLiveEdgeWithoutEverWaitingInARead) {
    GoLive(4);
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    EXPECT_EQ(m_source.waits, 0);
    EXPECT_EQ(m_summary.tracks[0].packets, 100);
    EXPECT_EQ(m_summary.tracks[0].gaps + m_summary.tracks[1].gaps, 0);
    EXPECT_NEAR(static_cast<double>(m_summary.tracks[1].endUs) / 1e6, 4.0, 0.03);
    EXPECT_TRUE(m_warnings.empty());
}

TEST_F(Pump, TellsOfEverySegmentWithItsSize) {
    GoLive(3);
    Run();
    ASSERT_EQ(m_segmentBytes.size(), 3u);
    for (std::size_t n = 0; n < 3; ++n) {
        EXPECT_EQ(m_segmentBytes[n], static_cast<std::int64_t>(m_video[n].size()));
    }
}

TEST_F(Pump, ReadsAllFragmentsOfASegmentBeforeTheNextOneExists) {
    m_video = test::MakeVideoSegments({.segments = 2, .fragmentsPerSegment = 3});
    m_audio = test::MakeAudioSegments({.segments = 2, .fragmentsPerSegment = 4});
    GoLive(2);
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    EXPECT_EQ(m_source.waits, 0);
    EXPECT_EQ(m_summary.tracks[0].packets, 50);
    EXPECT_NEAR(static_cast<double>(m_summary.tracks[1].endUs) / 1e6, 2.0, 0.03);
}

TEST_F(Pump, AlternatesSoThatNeitherTrackRunsAhead) {
    for (std::size_t n = 0; n < 4; ++n) {
        AppendSegment(n);
    }
    GoLive(0);
    Run();
    // By the time a segment of one track is begun, the other track has begun all segments before the one before.
    std::int64_t begun[kTracks] = {0, 0};
    std::int64_t largestLead = 0;
    for (const auto& read : m_source.reads) {
        const bool audio = read.position >= kAudioPositionBase;
        std::int64_t at = 0;
        for (const Bytes& segment : audio ? m_audio : m_video) {
            if (read.position == at + (audio ? kAudioPositionBase : 0) && read.length == 8) {
                ++begun[audio ? 1 : 0];
            }
            at += static_cast<std::int64_t>(segment.size());
        }
        largestLead = std::max(largestLead, std::abs(begun[0] - begun[1]));
    }
    EXPECT_EQ(begun[0], 4);
    EXPECT_EQ(begun[1], 4);
    EXPECT_LE(largestLead, 2);  // the reader of the video also looks at the header behind each box
}

TEST_F(Pump, EndsAtTheLimit) {
    Prepare({.limitUs = 2'000'000});
    GoLive(4);
    EXPECT_EQ(Run(), RecordEnd::kTimeReached);
    EXPECT_EQ(m_summary.tracks[0].packets, 50);
}

TEST_F(Pump, GoesOnWithTheEarliestWhenItFellBehindTheCache) {
    // Both tracks' first two segments are gone by the time the third is read.
    m_audio = m_video;  // so that they end at the same bytes
    const std::vector<Bytes> audio = test::MakeAudioSegments({.segments = 4});
    for (std::size_t n = 0; n < 4; ++n) {
        m_audio[n] = audio[n];
        const std::size_t size = std::max(m_audio[n].size(), m_video[n].size()) + 16;
        for (Bytes* segment : {&m_audio[n], &m_video[n]}) {
            Append(*segment, test::MakeBox("free", Bytes(size - segment->size() - 8)));
        }
    }
    AppendSegment(0);
    bool moved = false;
    m_source.idle = [this, &moved] {
        if (std::exchange(moved, true)) {
            m_gate.Stop();
            return;
        }
        for (const std::size_t n : {1u, 2u, 3u}) {
            AppendSegment(n);
        }
        m_source.released = static_cast<std::int64_t>(m_video[0].size() + m_video[1].size());
    };
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    EXPECT_EQ(m_summary.tracks[0].packets, 75);
    ASSERT_EQ(m_gaps.size(), 2u);
    for (const Gap& gap : m_gaps) {
        EXPECT_EQ(gap.cause, LossCause::kLeftCache);
        EXPECT_NEAR(static_cast<double>(gap.fromUs) / 1e6, 1, 0.03);
        EXPECT_NEAR(static_cast<double>(gap.toUs) / 1e6, 2, 0.03);
    }
}

TEST_F(Pump, WaitsForAnotherSourceWhenItsOwnFails) {
    AppendSegment(0);
    m_sourceFailed = [this] {
        m_source.failing = false;
        AppendSegment(1);
        m_gate.PositionsRestart();  // both segments, from 0
    };
    bool failed = false;
    m_source.idle = [this, &failed] {
        if (std::exchange(failed, true)) {
            m_gate.Stop();
        } else {
            m_source.failing = true;
        }
    };
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    EXPECT_EQ(m_failures, std::vector<std::string>{"the source's words"});
    EXPECT_EQ(m_source.restarts, 1);
    EXPECT_EQ(m_summary.tracks[0].packets, 50);
    EXPECT_EQ(m_summary.tracks[0].repeated, 25);
    EXPECT_TRUE(m_gaps.empty());
}

TEST_F(Pump, TellsOfAGapWhereANewSourceBeganLater) {
    AppendSegment(0);
    bool replaced = false;
    m_source.idle = [this, &replaced] {
        if (std::exchange(replaced, true)) {
            m_gate.Stop();
            return;
        }
        m_source.video = m_video[3];
        m_source.audio = m_audio[3];
        m_gate.PositionsRestart();
    };
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    ASSERT_EQ(m_gaps.size(), 2u);
    EXPECT_EQ(m_gaps[0].cause, LossCause::kNewSource);
    EXPECT_EQ(m_gaps[1].cause, LossCause::kNewSource);
    EXPECT_EQ(m_streamStarts, std::vector<std::int64_t>{3'000'000});
}

// What it says when it is told to give up depends on what came.
class PumpGivesUp : public Pump {
  protected:
    RecordEnd RunUntilIdle() {
        m_source.idle = [this] { m_gate.GiveUp(); };
        return Run();
    }
};

TEST_F(PumpGivesUp, WhenNoMediaComes) {
    EXPECT_EQ(RunUntilIdle(), RecordEnd::kNoMedia);
    EXPECT_FALSE(m_summary.begun);
}

TEST_F(PumpGivesUp, WhenNoMoreMediaComes) {
    AppendSegment(0);
    EXPECT_EQ(RunUntilIdle(), RecordEnd::kNoMedia);
    EXPECT_EQ(m_summary.tracks[0].packets, 25);
}

TEST_F(PumpGivesUp, WhenWhatComesIsNoMedia) {
    m_source.video = test::ToBytes("<html>somebody else's page</html>");
    m_source.audio = m_source.video;
    EXPECT_EQ(RunUntilIdle(), RecordEnd::kNotMedia);
    ASSERT_FALSE(m_warnings.empty());
    EXPECT_EQ(m_warnings.front(), "the video at byte 0 is no media; it is left out up to the next segment");
}

TEST_F(PumpGivesUp, WhenATrackIsMissing) {
    m_source.video = m_video[0];
    Append(m_source.video, m_video[1]);
    EXPECT_EQ(RunUntilIdle(), RecordEnd::kNotMedia);
    EXPECT_EQ(m_detail, "there is no audio in it");
}

TEST_F(Pump, EndsWhereTheCodecChanges) {
    m_video[2] = test::MakeVideoSegments({.segments = 1, .startSeconds = 2, .width = 96})[0];
    GoLive(4);
    EXPECT_EQ(Run(), RecordEnd::kCodecChanged);
    EXPECT_EQ(m_detail, "the stream's video changed from 64x48 to 96x48");
    EXPECT_EQ(m_summary.tracks[0].packets, 50);
}

TEST_F(Pump, StartsAtZeroAgainWhenPositionsRestart) {
    AppendSegment(0);
    AppendSegment(1);
    bool restarted = false;
    m_source.idle = [this, &restarted] {
        if (restarted) {
            m_gate.Stop();
            return;
        }
        restarted = true;
        m_source.video.clear();
        m_source.audio.clear();
        for (const std::size_t n : {1u, 2u, 3u}) {
            AppendSegment(n);
        }
        m_gate.PositionsRestart();
    };
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    EXPECT_EQ(m_summary.tracks[0].packets, 100);
    EXPECT_EQ(m_summary.tracks[0].repeated, 25);
    EXPECT_EQ(m_summary.tracks[0].gaps, 0);
    EXPECT_EQ(m_source.waits, 0);
}

// A source that cuts the first long read short once, as bytes that are not there, and has started anew by then.
class RestartingSource : public LiveSource {
  public:
    std::function<void()> restart;

    ReadStatus Read(std::int64_t position, std::span<std::uint8_t> bytes) override {
        if (restart && position < kAudioPositionBase && bytes.size() > 100) {
            std::exchange(restart, nullptr)();
            return ReadStatus::kNotYet;
        }
        return LiveSource::Read(position, bytes);
    }
};

TEST_F(Pump, DropsABoxInPartWhenPositionsRestart) {
    RestartingSource source;
    source.video = m_video[0];
    source.audio = m_audio[0];
    source.restart = [&] {
        source.video = m_video[1];
        source.audio = m_audio[1];
        m_gate.PositionsRestart();
    };
    source.idle = [&] { m_gate.Stop(); };
    PumpListener& listener = *this;
    MediaPump pump(source, [] { return std::string(); }, *m_recording, m_gate, listener, {.recheck = 1ms});
    EXPECT_EQ(pump.Run(), RecordEnd::kAsked);
    EXPECT_TRUE(m_warnings.empty());
    EXPECT_EQ(m_recording->Snapshot().tracks[0].packets, 25);
}

TEST_F(Pump, IsWokenByNewsAndByStop) {
    std::mutex mutex;
    std::condition_variable changed;
    int idles = 0;
    m_source.idle = [&] {
        const std::lock_guard lock(mutex);
        ++idles;
        changed.notify_all();
    };
    // Nothing but news and the stop can end a wait here within the test's life.
    std::thread reader([this] { Run({.recheck = 1h}); });
    m_gate.News();
    {
        std::unique_lock lock(mutex);
        // The first probe is not yet idleness; each piece of news brings one more.
        while (idles < 3) {
            lock.unlock();
            m_gate.News();
            lock.lock();
            changed.wait_for(lock, 1ms);
        }
    }
    m_gate.Stop();
    reader.join();
    EXPECT_GE(idles, 3);
}

}  // namespace
}  // namespace kvmpd::app
