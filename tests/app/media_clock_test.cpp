// What the pump and the recording make of a stream whose clock begins anew.

#include <gtest/gtest.h>

#include <utility>

#include "tests/app/PumpFixture.h"

namespace kvmpd::app {
namespace {

using test::Bytes;
using test::MediaShape;
using test::Pump;

class ClockThatBeginsAnew : public Pump {
  protected:
    // Segments of one shape after those of another.
    void Use(const MediaShape& before, const MediaShape& after) {
        m_video = test::MakeVideoSegments(before);
        m_audio = test::MakeAudioSegments(before);
        Join(m_video, test::MakeVideoSegments(after));
        Join(m_audio, test::MakeAudioSegments(after));
    }

    static void Join(std::vector<Bytes>& to, std::vector<Bytes> more) {
        to.insert(to.end(), std::make_move_iterator(more.begin()), std::make_move_iterator(more.end()));
    }

    // The first `first` segments live; then a new source that begins with segment `again`, and the rest live.
    void GoLiveWithANewSource(std::size_t first, std::size_t again, std::size_t all) {
        m_source.idle = [this, first, again, all, replaced = false]() mutable {
            if (m_next == first && !std::exchange(replaced, true)) {
                m_source.video.clear();
                m_source.audio.clear();
                m_next = again;
                AppendSegment(m_next++);
                m_gate.PositionsRestart();
            } else if (m_next < all) {
                AppendSegment(m_next++);
            } else {
                m_gate.Stop();
            }
        };
    }

    // All of so many segments is there, one after the other, with both tracks as far apart as they were.
    void ExpectAllOf(int segments) {
        const auto facts = test::Inspect((m_dir.Path() / "out.mkv").string());
        EXPECT_EQ(m_summary.tracks[0].packets, 25 * segments);
        EXPECT_EQ(facts.videoPackets, 25 * segments);
        EXPECT_EQ(facts.audioPackets, m_summary.tracks[1].packets);
        EXPECT_NEAR(facts.duration, segments, 0.1);
        EXPECT_TRUE(facts.timesRise);
        EXPECT_NEAR(facts.largestVideoStep, 0.04, 0.03);
        EXPECT_LT(facts.largestAudioStep, 0.06);
        EXPECT_NEAR(facts.audioEnd, facts.videoEnd, 0.06);
        EXPECT_TRUE(m_gaps.empty());
        EXPECT_EQ(m_source.waits, 0);
    }

    DemuxedFragment Fragment(Track track, std::size_t n) {
        DemuxedFragment fragment;
        std::string error;
        EXPECT_TRUE(DemuxFragment((track == Track::kVideo ? m_video : m_audio)[n], track, fragment, error)) << error;
        return fragment;
    }

    void ExpectOneRestart(double at, double from, double to) const {
        ASSERT_EQ(m_clockRestarts.size(), 1u);
        EXPECT_EQ(m_summary.clockRestarts.size(), 1u);
        EXPECT_NEAR(static_cast<double>(m_clockRestarts[0].atUs) / 1e6, at, 0.03);
        EXPECT_NEAR(static_cast<double>(m_clockRestarts[0].fromUs) / 1e6, from, 0.03);
        EXPECT_NEAR(static_cast<double>(m_clockRestarts[0].toUs) / 1e6, to, 0.03);
    }
};

TEST_F(ClockThatBeginsAnew, InTheMiddleOfASourceIsFollowed) {
    Use({.segments = 4, .startSeconds = 1000}, {.segments = 4});
    GoLive(8);
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    ExpectAllOf(8);
    ExpectOneRestart(4, 1004, 0);
    EXPECT_EQ(m_summary.tracks[0].repeated + m_summary.tracks[1].repeated, 0);
}

TEST_F(ClockThatBeginsAnew, IsFollowedWhenTheReaderLags) {
    Use({.segments = 4, .startSeconds = 1000}, {.segments = 4});
    for (; m_next < 8; ++m_next) {
        AppendSegment(m_next);
    }
    GoLive(8);
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    ExpectAllOf(8);
    ExpectOneRestart(4, 1004, 0);
}

TEST_F(ClockThatBeginsAnew, IsFollowedFragmentByFragment) {
    Use({.segments = 3, .fragmentsPerSegment = 3, .startSeconds = 1000}, {.segments = 3, .fragmentsPerSegment = 4});
    GoLive(6);
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    ExpectAllOf(6);
    ExpectOneRestart(3, 1003, 0);
}

TEST_F(ClockThatBeginsAnew, KeepsAFileWithTheStreamsTimesRising) {
    Prepare({.limitUs = {}, .keepTimestamps = true});
    Use({.segments = 2, .startSeconds = 1000}, {.segments = 2});
    GoLive(4);
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    const auto facts = test::Inspect((m_dir.Path() / "out.mkv").string());
    EXPECT_NEAR(facts.start, 1000, 0.03);
    EXPECT_NEAR(facts.videoEnd, 1004, 0.06);
    EXPECT_TRUE(facts.timesRise);
}

// A recording that is as young as the clock: the times alone do not tell. The sound is silence, the same bytes as
// before.
TEST_F(ClockThatBeginsAnew, IsToldFromARepeatByThePictures) {
    Use({.segments = 4, .silent = true}, {.segments = 4, .brightness = 100, .silent = true});
    GoLive(8);
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    ExpectAllOf(8);
    ExpectOneRestart(4, 4, 0);
}

TEST_F(ClockThatBeginsAnew, WithANewSourceIsFollowed) {
    Use({.segments = 4, .startSeconds = 1000}, {.segments = 4});
    m_recording->NextSourceReaches(60'000'000);
    GoLiveWithANewSource(4, 4, 8);
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    ExpectAllOf(8);
    ExpectOneRestart(4, 1004, 0);
}

TEST_F(ClockThatBeginsAnew, WithANewSourceIsToldFromARepeatByThePictures) {
    Use({.segments = 4, .silent = true}, {.segments = 4, .brightness = 100, .silent = true});
    m_recording->NextSourceReaches(60'000'000);
    GoLiveWithANewSource(4, 4, 8);
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    ExpectAllOf(8);
    ExpectOneRestart(4, 4, 0);
}

// The new clock's first times lie before the recording's beginning, where nothing can be compared.
TEST_F(ClockThatBeginsAnew, WithANewSourceIsFollowedFromItsFirstSegmentThatIsThere) {
    Use({.segments = 4, .startSeconds = 10, .silent = true},
        {.segments = 6, .startSeconds = 7, .brightness = 100, .silent = true});
    m_recording->NextSourceReaches(60'000'000);
    GoLiveWithANewSource(4, 4, 10);
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    ExpectAllOf(10);
    ExpectOneRestart(4, 14, 7);
    EXPECT_EQ(m_summary.tracks[0].repeated, 0);
}

// There the sound, which was recorded from an earlier time on, shows the new clock before the pictures do.
TEST_F(ClockThatBeginsAnew, WithANewSourceIsFollowedFromItsFirstSegmentWhereTheSoundTellsFirst) {
    Use({.segments = 4, .startSeconds = 10}, {.segments = 6, .startSeconds = 7, .brightness = 100});
    std::vector<Bytes> sound = test::MakeAudioSegments({.segments = 5, .startSeconds = 9});
    test::Append(sound[0], sound[1]);
    sound.erase(sound.begin() + 1);
    std::move(sound.begin(), sound.end(), m_audio.begin());
    m_recording->NextSourceReaches(60'000'000);
    GoLiveWithANewSource(4, 4, 10);
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    ExpectOneRestart(5, 14, 7);
    const auto facts = test::Inspect((m_dir.Path() / "out.mkv").string());
    EXPECT_EQ(facts.videoPackets, 250);
    EXPECT_NEAR(facts.audioEnd, facts.videoEnd, 0.06);
    EXPECT_TRUE(facts.timesRise);
    EXPECT_LT(facts.largestAudioStep, 0.06);
    EXPECT_LT(facts.largestVideoStep, 0.1);
    EXPECT_EQ(m_summary.tracks[0].repeated + m_summary.tracks[1].repeated, 0);
}

// Media from before the recording's beginning, which a new source delivers, is no sign of another clock.
TEST_F(ClockThatBeginsAnew, IsNotSeenInWhatLiesBeforeTheRecording) {
    Use({.segments = 10, .silent = true}, {.segments = 1});
    m_recording->NextSourceReaches(60'000'000);
    m_next = 4;
    GoLiveWithANewSource(7, 0, 10);
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    ExpectAllOf(6);
    EXPECT_TRUE(m_clockRestarts.empty());
    EXPECT_EQ(m_summary.tracks[0].repeated, 175);
}

TEST_F(ClockThatBeginsAnew, IsNotSeenInWhatANewSourceRepeats) {
    Use({.segments = 6, .silent = true}, {.segments = 1});
    m_recording->NextSourceReaches(60'000'000);
    GoLiveWithANewSource(4, 1, 6);
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    ExpectAllOf(6);
    EXPECT_TRUE(m_clockRestarts.empty());
    EXPECT_EQ(m_summary.tracks[0].repeated, 75);
}

TEST_F(ClockThatBeginsAnew, IsFollowedOnceWhenANewSourceBeginsBeforeIt) {
    Use({.segments = 4, .startSeconds = 1000}, {.segments = 4});
    m_recording->NextSourceReaches(60'000'000);
    GoLiveWithANewSource(6, 2, 8);
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    ExpectAllOf(8);
    ExpectOneRestart(4, 1004, 0);
    EXPECT_EQ(m_summary.tracks[0].repeated, 100);
}

TEST_F(ClockThatBeginsAnew, IsFollowedWhenTheSegmentThatShowsItIsDamaged) {
    Use({.segments = 4, .startSeconds = 1000}, {.segments = 4});
    m_video[4].resize(m_video[4].size() / 2);
    GoLive(8);
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    const auto facts = test::Inspect((m_dir.Path() / "out.mkv").string());
    EXPECT_EQ(facts.videoPackets, 175);
    EXPECT_TRUE(facts.timesRise);
    EXPECT_NEAR(facts.duration, 8, 0.1);
    EXPECT_NEAR(facts.audioEnd, facts.videoEnd, 0.06);
    ASSERT_EQ(m_gaps.size(), 1u);
    EXPECT_EQ(m_gaps[0].cause, LossCause::kCutShort);
}

// Before the recording has begun there is nothing that could be continued: it begins with the new clock.
TEST_F(ClockThatBeginsAnew, BeforeTheOtherTrackIsThereBeginsTheRecordingAnew) {
    Use({.segments = 2, .startSeconds = 1000}, {.segments = 2});
    for (std::size_t n = 0; n < 3; ++n) {
        m_audio[n] = test::ToBytes("<html>no sound here, and for some time to come</html>");
    }
    GoLive(4);
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    EXPECT_EQ(m_summary.tracks[0].packets, 50);
    EXPECT_TRUE(m_clockRestarts.empty());
}

// The video is a segment ahead of the sound where that is an error page at first, so the sound's first media is of the
// clock that the video has left.
TEST_F(ClockThatBeginsAnew, BeforeTheOtherTrackIsThereIsNotMixedWithTheClockBefore) {
    Use({.segments = 3, .startSeconds = 1000}, {.segments = 3});
    for (std::size_t n = 0; n < 3; ++n) {
        m_recording->Add(Track::kVideo, Fragment(Track::kVideo, n));
    }
    m_recording->Add(Track::kVideo, Fragment(Track::kVideo, 3));
    m_recording->Add(Track::kAudio, Fragment(Track::kAudio, 2));
    for (std::size_t n = 3; n < 6; ++n) {
        m_recording->Add(Track::kAudio, Fragment(Track::kAudio, n));
        if (n > 3) {
            m_recording->Add(Track::kVideo, Fragment(Track::kVideo, n));
        }
    }
    m_recording->Finish();
    m_summary = m_recording->Snapshot();
    EXPECT_TRUE(m_summary.gaps.empty());
    EXPECT_EQ(m_summary.tracks[0].packets, 75);
    EXPECT_NEAR(static_cast<double>(m_summary.tracks[0].endUs) / 1e6, 3, 0.03);
    EXPECT_NEAR(static_cast<double>(m_summary.tracks[1].endUs) / 1e6, 3, 0.03);
    EXPECT_TRUE(m_summary.clockRestarts.empty());
}

TEST_F(ClockThatBeginsAnew, OfTheSoundAloneIsFollowedAtTheSoundsEnd) {
    m_video = test::MakeVideoSegments({.segments = 30, .startSeconds = 1000});
    m_audio = test::MakeAudioSegments({.segments = 4, .startSeconds = 1000});
    Join(m_audio, test::MakeAudioSegments({.segments = 26}));
    GoLive(30);
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    ExpectAllOf(30);
    ASSERT_EQ(m_clockRestarts.size(), 1u);
}

TEST_F(ClockThatBeginsAnew, AndOnceMoreIsFollowedEachTime) {
    Use({.segments = 2, .startSeconds = 5000}, {.segments = 2, .startSeconds = 1000});
    Join(m_video, test::MakeVideoSegments({.segments = 2}));
    Join(m_audio, test::MakeAudioSegments({.segments = 2}));
    GoLive(6);
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    ExpectAllOf(6);
    EXPECT_EQ(m_clockRestarts.size(), 2u);
}

TEST_F(ClockThatBeginsAnew, CountsTowardsTheLimit) {
    Prepare({.limitUs = 6'000'000});
    Use({.segments = 4, .startSeconds = 1000}, {.segments = 4});
    GoLive(8);
    EXPECT_EQ(Run(), RecordEnd::kTimeReached);
    EXPECT_EQ(m_summary.tracks[0].packets, 150);
}

}  // namespace
}  // namespace kvmpd::app
