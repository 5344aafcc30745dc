// Media that is lost at the end of a recording, where nothing comes behind it, and which losses are put down to failed
// downloads.

#include <gtest/gtest.h>

#include <utility>

#include "tests/app/PumpFixture.h"

namespace kvmpd::app {
namespace {

constexpr std::int64_t kSecond = 1'000'000;

class Losses : public test::Pump {
  protected:
    void Use(int segments) {
        m_video = test::MakeVideoSegments({.segments = segments});
        m_audio = test::MakeAudioSegments({.segments = segments});
        m_recording->Tally().SourceBegins();
        m_recording->Tally().SegmentLasts(kSecond);
    }

    // A segment is stored and told, as the component does it.
    void Store(std::size_t n) {
        AppendSegment(n);
        m_stored += kSecond;
        m_recording->Tally().Buffered(m_stored);
    }
    void StorePage(std::size_t n) {
        m_video[n] = m_audio[n] = test::ToBytes("<html><body>404 not found, whatever it was</body></html>");
        Store(n);
    }

    // What happens, one thing after the other, each when the pump has read all there was; then it is stopped.
    void Happens(std::vector<std::function<void()>> steps) {
        m_source.idle = [this, steps = std::move(steps), at = std::size_t{0}]() mutable {
            if (at < steps.size()) {
                steps[at++]();
            } else {
                m_gate.Stop();
            }
        };
    }
    std::function<void()> Stores(std::size_t n) {
        return [this, n] { Store(n); };
    }
    std::function<void()> StoresPage(std::size_t n) {
        return [this, n] { StorePage(n); };
    }
    std::function<void()> Fails(int times = 1) {
        return [this, times] {
            for (int i = 0; i < times; ++i) {
                m_recording->Tally().Failed();
            }
        };
    }

    // Both tracks have these gaps and no others.
    struct Expected {
        double from;
        double to;
        LossCause cause;
    };
    void ExpectGaps(const std::vector<Expected>& expected) const {
        for (const Track track : {Track::kVideo, Track::kAudio}) {
            std::vector<Gap> gaps;
            std::copy_if(m_summary.gaps.begin(), m_summary.gaps.end(), std::back_inserter(gaps),
                         [&](const Gap& gap) { return gap.track == track; });
            ASSERT_EQ(gaps.size(), expected.size()) << NameOf(track);
            for (std::size_t i = 0; i < gaps.size(); ++i) {
                EXPECT_NEAR(static_cast<double>(gaps[i].fromUs) / 1e6, expected[i].from, 0.03) << NameOf(track);
                EXPECT_NEAR(static_cast<double>(gaps[i].toUs) / 1e6, expected[i].to, 0.03) << NameOf(track);
                EXPECT_EQ(gaps[i].cause, expected[i].cause) << NameOf(track) << " gap " << i;
            }
        }
    }

    std::int64_t m_stored = 0;
};

using LossAtTheEnd = Losses;
using FailedDownloads = Losses;

TEST_F(LossAtTheEnd, OfADownloadThatFailedIsAGapOfItsLength) {
    Use(2);
    Happens({Stores(0), Stores(1), Fails(), Fails(), Fails()});
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    ExpectGaps({{2, 5, LossCause::kDownloadFailed}});
    EXPECT_EQ(m_summary.tracks[0].missingUs / 10'000, 300);
}

TEST_F(LossAtTheEnd, OfErrorPagesIsAsLongAsWhatWasStored) {
    Use(7);
    Happens({Stores(0), Stores(1), StoresPage(2), StoresPage(3), StoresPage(4), StoresPage(5), StoresPage(6)});
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    for (const Gap& gap : m_summary.gaps) {
        EXPECT_NEAR(static_cast<double>(gap.fromUs) / 1e6, 2, 0.03);
        EXPECT_EQ(gap.cause, LossCause::kNotMedia);
        EXPECT_LE(static_cast<double>(gap.toUs) / 1e6, 7.03) << "more was not lost";
    }
    ASSERT_EQ(m_summary.gaps.size(), 2u);
    EXPECT_NEAR(static_cast<double>(m_summary.gaps[0].toUs) / 1e6, 7, 0.03);
}

// How much of what had been stored was media is not known then.
TEST_F(LossAtTheEnd, OfErrorPagesIsNotOverstatedByAReaderThatLags) {
    Use(4);
    Store(0);
    Store(1);
    StorePage(2);
    Happens({});
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    ExpectGaps({{2, 3, LossCause::kNotMedia}});
}

TEST_F(LossAtTheEnd, OfBothKindsIsOneGap) {
    Use(4);
    Happens({Stores(0), Stores(1), StoresPage(2), Fails()});
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    ExpectGaps({{2, 4, LossCause::kNotMedia}});
}

TEST_F(LossAtTheEnd, IsNoneWhereTheLastMediaWasRecorded) {
    Use(6);
    Happens({Stores(0), Stores(1), Fails(), Stores(3), StoresPage(4), Stores(5)});
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    ExpectGaps({{2, 3, LossCause::kDownloadFailed}, {4, 5, LossCause::kNotMedia}});
}

TEST_F(LossAtTheEnd, IsNoneBehindTheLengthThatWasAskedFor) {
    Prepare({.limitUs = 2 * kSecond});
    Use(3);
    Happens({Stores(0), [this] { Fails(3)(), Store(1); }, Stores(2)});
    EXPECT_EQ(Run(), RecordEnd::kTimeReached);
    ExpectGaps({});
}

// Or the media was delivered after all, under another number.
TEST_F(LossAtTheEnd, IsNoneOfAFailureThatLeftNoGap) {
    Use(4);
    Happens({Stores(0), Fails(), Stores(1), Stores(2), Stores(3)});
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    ExpectGaps({});
}

TEST_F(LossAtTheEnd, IsNoneOfAFailureInFrontOfTheRecording) {
    Use(2);
    Happens({Fails(), Stores(0), Stores(1)});
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    ExpectGaps({});
}

// A new source asks for what was recorded as well, so its failures do not tell what is missing.
TEST_F(LossAtTheEnd, IsNotCountedTwiceWhenANewSourceFailsAsWell) {
    Use(2);
    Happens({Stores(0), Stores(1), Fails(2),
             [this] {
                 m_source.video.clear();
                 m_source.audio.clear();
                 m_recording->Tally().SourceBegins();
                 m_gate.PositionsRestart();
             },
             Fails(5)});
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    ExpectGaps({{2, 4, LossCause::kDownloadFailed}});
}

TEST_F(LossAtTheEnd, WithoutALengthOfSegmentsIsNotGuessed) {
    Use(2);
    m_recording->Tally().SegmentLasts(0);
    Happens({Stores(0), Stores(1), Fails(3)});
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    ExpectGaps({});
}

// The five behind the first gap are used up by it: of what is missing later nothing is known.
TEST_F(FailedDownloads, ExplainOneGapTogether) {
    Use(12);
    Happens({Stores(0), Stores(1), Fails(5), Stores(7), Stores(8), Stores(11)});
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    ExpectGaps({{2, 7, LossCause::kDownloadFailed}, {9, 11, LossCause::kAbsent}});
}

TEST_F(FailedDownloads, OfShorterSegmentsExplainOneGapTogetherAsWell) {
    Use(12);
    m_recording->Tally().SegmentLasts(4 * kSecond);
    Happens({Stores(0), Stores(1), Fails(5), Stores(7), Stores(8), Stores(11)});
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    ExpectGaps({{2, 7, LossCause::kDownloadFailed}, {9, 11, LossCause::kAbsent}});
}

TEST_F(FailedDownloads, ExplainAGapEachWhenTheReaderLags) {
    Use(6);
    Store(0);
    Fails()();
    Store(2);
    Fails()();
    Store(4);
    Happens({Stores(5)});
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    ExpectGaps({{1, 2, LossCause::kDownloadFailed}, {3, 4, LossCause::kDownloadFailed}});
}

// ---- error pages in a row ----

TEST_F(Losses, OfManyErrorPagesInARowAreToldMoreAndMoreRarely) {
    Use(24);
    std::vector<std::function<void()>> steps{Stores(0)};
    for (std::size_t n = 1; n <= 20; ++n) {
        steps.push_back([this, n] {
            m_video[n] = test::ToBytes("<html><body>404 not found, whatever it was</body></html>");
            Store(n);
        });
    }
    steps.push_back(Stores(21));
    Happens(steps);
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    const std::string from = std::to_string(m_video[0].size());
    EXPECT_EQ(m_warnings, (std::vector<std::string>{
                              "the video at byte " + from + " is no media; it is left out up to the next segment",
                              "the video is still no media: 4 segments in a row, since byte " + from,
                              "the video is still no media: 16 segments in a row, since byte " + from,
                              "the video is media again; 20 segments in a row, since byte " + from + ", were none"}));
    EXPECT_EQ(m_source.waits, 0);
}

TEST_F(Losses, OfEverythingToErrorPagesNamesThem) {
    Use(2);
    Happens({StoresPage(0), StoresPage(1), [this] { m_gate.GiveUp(); }});
    EXPECT_EQ(Run(), RecordEnd::kNotMedia);
    EXPECT_EQ(m_detail, "the server sent something else in their place, an error page for instance");
}

}  // namespace
}  // namespace kvmpd::app
