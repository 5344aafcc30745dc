// What the pump makes of segments that come damaged, or as something else.

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

#include "tests/app/PumpFixture.h"

namespace kvmpd::app {
namespace {

using test::Bytes;
using test::Pump;

// One segment of four comes in another form than it should; every other one is recorded whole, and the gap is told.
struct DamageCase {
    const char* name;
    bool video;
    bool audio;
    std::size_t segment;
    std::function<void(Bytes&)> damage;
    LossCause cause;
    bool allAtOnce = false;  // the reader lags, and finds all segments there
};

void MakeHtml(Bytes& segment) {
    segment = test::ToBytes("<!DOCTYPE html><html><body>502 bad gateway</body></html>");
}
void MakeHtmlAfterALineFeed(Bytes& segment) {
    segment = test::ToBytes("\n\n<html><body>503 service unavailable, and a good many words</body></html>");
}
void MakeTiny(Bytes& segment) {
    segment = test::ToBytes("no");
}
void CutInTheMiddle(Bytes& segment) {
    segment.resize(segment.size() / 2);
}
void CutOneByte(Bytes& segment) {
    segment.pop_back();
}
void CutInTheInitialisation(Bytes& segment) {
    segment.resize(100);
}
void BlankTheFragment(Bytes& segment) {
    const std::string name = "traf";
    std::fill_n(std::search(segment.begin(), segment.end(), name.begin(), name.end()), 4, std::uint8_t{'x'});
}

class Resynchronising : public Pump, public testing::WithParamInterface<DamageCase> {};

TEST_P(Resynchronising, LosesThatSegmentAndNothingElse) {
    const DamageCase& tested = GetParam();
    if (tested.video) {
        tested.damage(m_video[tested.segment]);
    }
    if (tested.audio) {
        tested.damage(m_audio[tested.segment]);
    }
    if (tested.allAtOnce) {
        for (; m_next < 4; ++m_next) {
            AppendSegment(m_next);
        }
    }
    GoLive(4);
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    EXPECT_EQ(m_summary.tracks[0].packets, tested.video ? 75 : 100);
    EXPECT_EQ(m_summary.tracks[0].gaps, tested.video ? 1 : 0);
    EXPECT_EQ(m_summary.tracks[1].gaps, tested.audio ? 1 : 0);
    EXPECT_NEAR(static_cast<double>(m_summary.tracks[1].endUs) / 1e6, 4.0, 0.03);
    EXPECT_EQ(m_gaps.size(), m_summary.gaps.size());
    ASSERT_EQ(m_gaps.size(), static_cast<std::size_t>(tested.video) + static_cast<std::size_t>(tested.audio));
    for (const Gap& gap : m_gaps) {
        EXPECT_EQ(gap.cause, tested.cause);
        EXPECT_NEAR(static_cast<double>(gap.fromUs) / 1e6, static_cast<double>(tested.segment), 0.03);
        EXPECT_NEAR(static_cast<double>(gap.toUs) / 1e6, static_cast<double>(tested.segment) + 1, 0.03);
    }
    EXPECT_FALSE(m_warnings.empty());
}

std::vector<DamageCase> DamageCases() {
    std::vector<DamageCase> cases;
    for (const bool atOnce : {false, true}) {
        const auto add = [&](DamageCase each) {
            each.allAtOnce = atOnce;
            cases.push_back(std::move(each));
        };
        add({"HtmlInTheVideo", true, false, 1, MakeHtml, LossCause::kNotMedia});
        add({"HtmlInTheAudio", false, true, 1, MakeHtml, LossCause::kNotMedia});
        add({"HtmlInBoth", true, true, 2, MakeHtml, LossCause::kNotMedia});
        add({"HtmlAfterALineFeed", true, true, 1, MakeHtmlAfterALineFeed, LossCause::kNotMedia});
        add({"TwoBytes", true, true, 1, MakeTiny, LossCause::kNotMedia});
        add({"VideoCut", true, false, 1, CutInTheMiddle, LossCause::kCutShort});
        add({"AudioCut", false, true, 1, CutInTheMiddle, LossCause::kCutShort});
        add({"BothCut", true, true, 2, CutInTheMiddle, LossCause::kCutShort});
        add({"VideoCutByOneByte", true, false, 1, CutOneByte, LossCause::kCutShort});
        add({"CutInTheInitialisation", true, true, 1, CutInTheInitialisation, LossCause::kCutShort});
        add({"Damaged", true, false, 1, BlankTheFragment, LossCause::kDamaged});
        add({"HtmlFirstInTheVideo", true, false, 0, MakeHtml, LossCause::kNotMedia});
        add({"HtmlFirstInTheAudio", false, true, 0, MakeHtml, LossCause::kNotMedia});
        add({"VideoCutFirst", true, false, 0, CutInTheMiddle, LossCause::kCutShort});
    }
    return cases;
}

INSTANTIATE_TEST_SUITE_P(Segments, Resynchronising, testing::ValuesIn(DamageCases()), [](const auto& tested) {
    return std::string(tested.param.name) + (tested.param.allAtOnce ? "AllAtOnce" : "Live");
});

// Of audio nothing can be asked in advance: the byte that is missing shows only when the next segment is read. The
// fragment has been recorded by then, its last piece of sound spoilt. That piece is the gap.
class FewBytesShort : public Pump, public testing::WithParamInterface<std::size_t> {};

TEST_P(FewBytesShort, AtTheEndOfASoundSegmentIsAGap) {
    m_audio[1].resize(m_audio[1].size() - GetParam());
    GoLive(4);
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    EXPECT_EQ(m_summary.tracks[0].packets, 100);
    EXPECT_EQ(m_summary.tracks[0].gaps, 0);
    EXPECT_NEAR(static_cast<double>(m_summary.tracks[1].endUs) / 1e6, 4.0, 0.03);
    ASSERT_EQ(m_warnings.size(), 1u);
    EXPECT_NE(m_warnings[0].find("a segment of audio ends before its time"), std::string::npos) << m_warnings[0];
    ASSERT_EQ(m_gaps.size(), 1u);
    EXPECT_EQ(m_summary.tracks[1].gaps, 1);
    EXPECT_EQ(m_gaps[0].track, Track::kAudio);
    EXPECT_EQ(m_gaps[0].cause, LossCause::kCutShort);
    EXPECT_NEAR(static_cast<double>(m_gaps[0].toUs) / 1e6, 2.0, 0.03);
    EXPECT_NEAR(static_cast<double>(m_gaps[0].toUs - m_gaps[0].fromUs) / 1e6, 0.021, 0.002);
}

// The cut goes through the header of the segment's second fragment: of both tracks so many of its eight bytes are left.
// By themselves they cannot be told from other bytes that are no box.
TEST_P(FewBytesShort, OfABoxHeaderIsAGapUpToTheNextSegment) {
    m_video = test::MakeVideoSegments({.segments = 4, .fragmentsPerSegment = 2});
    m_audio = test::MakeAudioSegments({.segments = 4, .fragmentsPerSegment = 2});
    const std::string name = "moof";
    for (std::vector<Bytes>* track : {&m_video, &m_audio}) {
        Bytes& segment = (*track)[1];
        const auto first = std::search(segment.begin(), segment.end(), name.begin(), name.end());
        const auto second = std::search(first + 4, segment.end(), name.begin(), name.end());
        segment.resize(static_cast<std::size_t>(second - segment.begin()) - 4 + GetParam());
    }
    GoLive(4);
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    EXPECT_EQ(m_summary.tracks[0].packets, 88);  // 13 of 25 in the first half
    ASSERT_EQ(m_gaps.size(), 2u);
    for (const Gap& gap : m_gaps) {
        EXPECT_NEAR(static_cast<double>(gap.fromUs) / 1e6, 1.52, 0.04);
        EXPECT_NEAR(static_cast<double>(gap.toUs) / 1e6, 2.0, 0.03);
        EXPECT_EQ(gap.cause, LossCause::kNotMedia);
    }
}

INSTANTIATE_TEST_SUITE_P(Bytes, FewBytesShort, testing::Range<std::size_t>(1, 8),
                         [](const auto& tested) { return std::to_string(tested.param); });

TEST_F(Pump, TellsOfMediaLostAtTheEnd) {
    MakeHtml(m_video[3]);
    GoLive(4);
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    EXPECT_EQ(m_summary.tracks[0].packets, 75);
    ASSERT_EQ(m_summary.gaps.size(), 1u);
    EXPECT_EQ(m_summary.gaps[0].cause, LossCause::kNotMedia);
    EXPECT_NEAR(static_cast<double>(m_summary.gaps[0].toUs) / 1e6, 4.0, 0.03);
}

TEST_F(Pump, SaysThatADownloadFailedWhereNothingElseIsKnown) {
    m_video.erase(m_video.begin() + 1);
    m_audio.erase(m_audio.begin() + 1);
    m_recording->Tally().Failed();
    GoLive(3);
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    ASSERT_EQ(m_gaps.size(), 2u);
    EXPECT_EQ(m_gaps[0].cause, LossCause::kDownloadFailed);
    EXPECT_EQ(m_gaps[1].cause, LossCause::kDownloadFailed);
}

// The live edge is where a read that finds nothing would hold the reader up for ten seconds.
TEST_F(Pump, DoesNotWaitInReadsAfterAnErrorPage) {
    m_video = test::MakeVideoSegments({.segments = 8});
    m_audio = test::MakeAudioSegments({.segments = 8});
    MakeHtml(m_audio[2]);
    MakeHtml(m_video[4]);
    GoLive(8);
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    EXPECT_EQ(m_source.waits, 0);
    EXPECT_EQ(m_summary.tracks[0].packets, 175);
    EXPECT_NEAR(static_cast<double>(m_summary.tracks[1].endUs) / 1e6, 8.0, 0.03);
}

TEST_F(Pump, RecordsTheAudioWhileTheVideoIsNoMedia) {
    m_video = test::MakeVideoSegments({.segments = 8});
    m_audio = test::MakeAudioSegments({.segments = 8});
    for (std::size_t n = 1; n < 8; ++n) {
        MakeHtml(m_video[n]);
    }
    GoLive(8);
    EXPECT_EQ(Run(), RecordEnd::kAsked);
    EXPECT_EQ(m_summary.tracks[0].packets, 25);
    EXPECT_GT(static_cast<double>(m_summary.tracks[1].endUs) / 1e6, 6.9);
    EXPECT_EQ(m_summary.tracks[1].gaps, 0);
}

}  // namespace
}  // namespace kvmpd::app
