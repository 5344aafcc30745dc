#include "app/MediaPump.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>

#include "tests/app/TestMedia.h"
#include "tests/support/TempDir.h"

namespace kvmpd::app {
namespace {

using namespace std::chrono_literals;
using test::Append;
using test::Bytes;
using test::FakeSource;

// Calls the test, on the reader's thread, whenever the pump has found nothing to do: it asked twice and read nothing in
// between. That is the moment to append the next segment, or to end.
class LiveSource : public FakeSource {
  public:
    std::function<void()> idle;

    ReadStatus Probe(std::int64_t position) override {
        const ReadStatus status = FakeSource::Probe(position);
        if (status != ReadStatus::kNotYet) {
            return status;
        }
        const bool nothingRead = m_readsBefore == reads.size();
        m_readsBefore = reads.size();
        if (nothingRead && idle) {
            idle();
        }
        return status;
    }

  private:
    std::optional<std::size_t> m_readsBefore;
};

class Pump : public testing::Test, protected PumpListener {
  protected:
    void SetUp() override { Prepare({}); }

    void Prepare(const Recording::Options& options) {
        m_recording.reset();
        m_output.reset();
        std::string error;
        m_output = OutputFile::Open((m_dir.Path() / "out.mkv").string(), /*overwrite=*/true, error);
        ASSERT_TRUE(m_output) << error;
        m_recording = std::make_unique<Recording>(*m_output, options);
    }

    void AppendSegment(std::size_t n) {
        Append(m_source.video, m_video.at(n));
        Append(m_source.audio, m_audio.at(n));
    }

    // Segments appear one by one, each when the pump has read all there was; after the last one it is stopped.
    void GoLive(std::size_t segments) {
        m_source.idle = [this, segments] {
            if (m_next < segments) {
                AppendSegment(m_next++);
            } else {
                m_gate.Stop();
            }
        };
    }

    RecordEnd Run(MediaPump::Timing timing = {.patience = 60s, .recheck = 1ms}) {
        PumpListener& listener = *this;
        MediaPump pump(
            m_source, [] { return std::string("the source's words"); }, *m_recording, m_gate, listener, timing);
        const RecordEnd end = pump.Run();
        m_detail = pump.Detail();
        m_recording->Finish();
        m_summary = m_recording->Snapshot();
        return end;
    }

    void OnSegmentRead(std::int64_t bytes) override { m_segmentBytes.push_back(bytes); }
    void OnWarning(const std::string& sentence) override { m_warnings.push_back(sentence); }

    kvmpd::test::TempDir m_dir;
    LiveSource m_source;
    std::vector<Bytes> m_video = test::MakeVideoSegments({.segments = 4});
    std::vector<Bytes> m_audio = test::MakeAudioSegments({.segments = 4});
    std::size_t m_next = 0;
    PumpGate m_gate;
    std::unique_ptr<OutputFile> m_output;
    std::unique_ptr<Recording> m_recording;
    Recording::Summary m_summary;
    std::string m_detail;
    std::vector<std::int64_t> m_segmentBytes;
    std::vector<std::string> m_warnings;
};

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
    EXPECT_LE(largestLead, 1);
}

TEST_F(Pump, EndsAtTheLimit) {
    Prepare({.limitUs = 2'000'000});
    GoLive(4);
    EXPECT_EQ(Run(), RecordEnd::kTimeReached);
    EXPECT_EQ(m_summary.tracks[0].packets, 50);
}

TEST_F(Pump, EndsWhenItFellBehindTheCache) {
    AppendSegment(0);
    m_source.released = 10;
    EXPECT_EQ(Run(), RecordEnd::kFellBehind);
    EXPECT_EQ(m_detail, "the source's words");
}

TEST_F(Pump, EndsWhenTheSourceFails) {
    AppendSegment(0);
    m_source.nextResult = ReadStatus::kFailed;
    EXPECT_EQ(Run(), RecordEnd::kReadFailed);
    EXPECT_EQ(m_detail, "the source's words");
}

TEST_F(Pump, GivesUpWhenNoMediaComes) {
    EXPECT_EQ(Run({.patience = 20ms, .recheck = 1ms}), RecordEnd::kNoMedia);
    EXPECT_FALSE(m_summary.begun);
}

TEST_F(Pump, GivesUpWhenNoMoreMediaComes) {
    AppendSegment(0);
    EXPECT_EQ(Run({.patience = 200ms, .recheck = 1ms}), RecordEnd::kNoMedia);
    EXPECT_EQ(m_summary.tracks[0].packets, 25);
}

TEST_F(Pump, SaysThatWhatComesIsNoMedia) {
    m_source.video = test::ToBytes("<html>somebody else's page</html>");
    m_source.audio = m_source.video;
    EXPECT_EQ(Run({.patience = 20ms, .recheck = 1ms}), RecordEnd::kNotMedia);
    ASSERT_FALSE(m_warnings.empty());
    EXPECT_EQ(m_warnings.front(), "the video at byte 0 is no media; it is left out up to the next segment");
}

TEST_F(Pump, SaysWhichTrackIsMissing) {
    m_source.video = m_video[0];
    Append(m_source.video, m_video[1]);
    EXPECT_EQ(Run({.patience = 20ms, .recheck = 1ms}), RecordEnd::kNotMedia);
    EXPECT_EQ(m_detail, "there is no audio in it");
}

TEST_F(Pump, GoesOnAfterASegmentThatIsNoMedia) {
    m_video[1] = test::ToBytes("<html>502 bad gateway, in place of a segment</html>");
    GoLive(4);
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    EXPECT_EQ(m_summary.tracks[0].packets, 75);
    EXPECT_EQ(m_summary.tracks[0].gaps, 1);
    EXPECT_EQ(m_summary.tracks[0].missingUs, 1'000'000);
    EXPECT_EQ(m_warnings.size(), 1u);
}

TEST_F(Pump, GoesOnAfterAnAudioSegmentThatIsNoMedia) {
    m_audio[1] = test::ToBytes("<html>502 bad gateway, in place of a segment</html>");
    GoLive(4);
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    EXPECT_EQ(m_summary.tracks[0].packets, 100);
    EXPECT_EQ(m_summary.tracks[1].gaps, 1);
    EXPECT_NEAR(static_cast<double>(m_summary.tracks[1].endUs) / 1e6, 4.0, 0.03);
}

TEST_F(Pump, LeavesADamagedFragmentOut) {
    Bytes& segment = m_video[1];
    const std::string name = "traf";
    const auto at = std::search(segment.begin(), segment.end(), name.begin(), name.end());
    ASSERT_NE(at, segment.end());
    std::fill(at, at + 4, std::uint8_t{'x'});  // the fragment says nothing about its track any more
    GoLive(3);
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    EXPECT_EQ(m_summary.tracks[0].packets, 50);
    EXPECT_EQ(m_summary.tracks[0].gaps, 1);
    EXPECT_FALSE(m_warnings.empty());
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
    MediaPump pump(source, [] { return std::string(); }, *m_recording, m_gate, listener,
                   {.patience = 60s, .recheck = 1ms});
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
    std::thread reader([this] { Run({.patience = 1h, .recheck = 1h}); });
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
