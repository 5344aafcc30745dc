// The ledger by which a soak run judges: what explains a gap, and what does not.
#include "tests/soak/StreamLedger.h"

#include <gtest/gtest.h>

namespace kvmpd::test {
namespace {

constexpr int kVideo = 720;
constexpr int kOtherVideo = 1080;

class SoakLedger : public testing::Test {
  protected:
    SoakLedger() { m_ledger.Answer({.first = 100, .last = 110, .hole = {}}); }

    /// Asks for a file of segment `number` once for each answer.
    void Fetch(int representation, std::int64_t number, std::initializer_list<SegmentFault> answers) {
        for (const SegmentFault answer : answers) {
            const BodyName name{.representation = representation, .number = number};
            m_ledger.Ask(name);
            m_ledger.Send(name, answer);
        }
    }
    void FetchAudio(std::int64_t number, std::initializer_list<SegmentFault> answers = {SegmentFault::kNone}) {
        Fetch(kAudioRepresentation, number, answers);
    }

    static constexpr SegmentFault kReset = SegmentFault::kReset;
    static constexpr SegmentFault kNone = SegmentFault::kNone;
    StreamLedger m_ledger;
};

TEST_F(SoakLedger, ASegmentThatWasNamedAndHadMayNotBeMissing) {
    FetchAudio(105);
    Fetch(kVideo, 105, {kNone});
    EXPECT_EQ(m_ledger.WhyMissing(kVideo, 105), std::nullopt);
    EXPECT_EQ(m_ledger.LossesSoFar().fetched, 0u);
    EXPECT_EQ(m_ledger.Wrong(), std::nullopt);
}

TEST_F(SoakLedger, ThreeFailuresOfOneFileExplainAGapInThatVideoOnly) {
    FetchAudio(105);
    Fetch(kVideo, 105, {kReset, kReset, kReset});
    EXPECT_EQ(m_ledger.WhyMissing(kVideo, 105), Missing::kFailed);
    EXPECT_EQ(m_ledger.WhyMissing(kOtherVideo, 105), std::nullopt);
    EXPECT_EQ(m_ledger.LossesSoFar().fetched, 1u);
}

TEST_F(SoakLedger, FailuresOfDifferentFilesDoNotAddUp) {
    FetchAudio(105, {kReset, kNone});
    Fetch(kVideo, 105, {kReset, kNone});
    FetchAudio(105, {kReset, kNone});
    Fetch(kOtherVideo, 105, {kReset, kNone});
    EXPECT_EQ(m_ledger.WhyMissing(kVideo, 105), std::nullopt);
    EXPECT_EQ(m_ledger.WhyMissing(kOtherVideo, 105), std::nullopt);
    EXPECT_EQ(m_ledger.LossesSoFar().fetched, 0u);
}

TEST_F(SoakLedger, ASegmentOfWhichBothFilesFailIsOneLoss) {
    FetchAudio(105, {kReset, kReset, kReset});
    Fetch(kVideo, 105, {kReset, kReset, kReset});
    EXPECT_EQ(m_ledger.WhyMissing(kVideo, 105), Missing::kFailed);
    EXPECT_EQ(m_ledger.LossesSoFar().fetched, 1u);
}

TEST_F(SoakLedger, FailuresInDifferentRoundsDoNotAddUp) {
    for (int round = 0; round < 3; ++round) {
        FetchAudio(105, {kReset, kNone});
        Fetch(kVideo, 105, {kReset, kNone});
    }
    EXPECT_EQ(m_ledger.WhyMissing(kVideo, 105), std::nullopt);
    EXPECT_EQ(m_ledger.LossesSoFar().fetched, 0u);
}

TEST_F(SoakLedger, ASegmentIsEmptyWhenItsOwnTwoFilesAre) {
    FetchAudio(105);
    Fetch(kVideo, 105, {SegmentFault::kEmptyBody});
    FetchAudio(105);
    Fetch(kOtherVideo, 105, {SegmentFault::kEmptyBody});
    EXPECT_EQ(m_ledger.WhyMissing(kVideo, 105), std::nullopt);
    FetchAudio(105, {SegmentFault::kEmptyBody});
    Fetch(kVideo, 105, {SegmentFault::kEmptyBody});
    EXPECT_EQ(m_ledger.WhyMissing(kVideo, 105), Missing::kEmpty);
    EXPECT_EQ(m_ledger.WhyMissing(kOtherVideo, 105), std::nullopt);
}

TEST_F(SoakLedger, AListThatGoesBackwardsChangesNothingForAClientThatPlaysOn) {
    m_ledger.Answer({.first = 95, .last = 105, .hole = {}, .backwards = true});
    EXPECT_EQ(m_ledger.WhyMissing(kVideo, 104), std::nullopt);
    EXPECT_EQ(m_ledger.WhyMissing(kVideo, 110), std::nullopt);
    EXPECT_EQ(m_ledger.WhyMissing(kVideo, 95), Missing::kNotOffered);
}

TEST_F(SoakLedger, AClientThatMayHaveStartedWithItIsNotHeldToWhatLiesBehindIt) {
    m_ledger.RestartBegins();
    m_ledger.RestartEnds();
    m_ledger.Answer({.first = 95, .last = 105, .hole = {}, .backwards = true});
    EXPECT_EQ(m_ledger.WhyMissing(kVideo, 104), std::nullopt);
    EXPECT_EQ(m_ledger.WhyMissing(kVideo, 106), Missing::kNotOffered);
    m_ledger.Answer({.first = 106, .last = 116, .hole = {}});
    EXPECT_EQ(m_ledger.WhyMissing(kVideo, 106), std::nullopt);
}

TEST_F(SoakLedger, AFourthAttemptIsWrong) {
    FetchAudio(105, {kReset, kReset, kReset, kReset});
    EXPECT_NE(m_ledger.Wrong(), std::nullopt);
}

TEST_F(SoakLedger, AskingAgainForWhatWasHadIsWrongUnlessAFileStandsInTheWay) {
    FetchAudio(105, {SegmentFault::kTruncated, kNone, kNone});
    Fetch(kVideo, 105, {kNone});
    EXPECT_EQ(m_ledger.Wrong(), std::nullopt);
    EXPECT_EQ(m_ledger.WhyMissing(kVideo, 105), Missing::kFailed);
    FetchAudio(108, {kNone, kNone});
    EXPECT_NE(m_ledger.Wrong(), std::nullopt);
}

TEST_F(SoakLedger, AVideoWithoutItsAudioIsWrong) {
    Fetch(kVideo, 105, {kNone});
    EXPECT_NE(m_ledger.Wrong(), std::nullopt);
}

}  // namespace
}  // namespace kvmpd::test
