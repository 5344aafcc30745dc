// `kvmpd record` when the encoder is restarted and its clock begins anew.

#include <gtest/gtest.h>

#include "tests/app/RecordFixture.h"

namespace kvmpd::app {
namespace {

namespace fs = std::filesystem;
using test::JsonValue;
using test::kWindowSegments;
using Kind = origin::OriginRequest::Kind;

class RecordThroughARestartedEncoder : public test::RecordCommandLine {
  protected:
    // In place of every segment from `first` on, the media of another encoder, the first of whose is at time 0.
    void RestartClockAtSegment(std::int64_t first) {
        const auto encoder = std::make_shared<origin::TestCard>(Card(std::chrono::hours(1)));
        auto times = std::make_shared<origin::LiveTimeline>(m_origin->Timeline());
        m_origin->SetReplyHook([=](const origin::OriginRequest& request, origin::OriginReply& reply) {
            if (request.kind == Kind::Segment && request.number >= first) {
                const auto time = times->Find(request.number - first + 1);
                reply.body = time ? encoder->Segment(request.representationId, *time) : nullptr;
            }
        });
    }

    void ExpectOneRestart(double at, double from) const {
        const auto restarts = LinesOf("clock-restart");
        ASSERT_EQ(restarts.size(), 1u);
        EXPECT_NEAR(std::stod(JsonValue(restarts[0], "at")), at, 0.05) << restarts[0];
        EXPECT_NEAR(std::stod(JsonValue(restarts[0], "from")), from, 0.05) << restarts[0];
        EXPECT_NEAR(std::stod(JsonValue(restarts[0], "to")), 0, 0.05) << restarts[0];
        // The same object stands in the summary, without type and time.
        EXPECT_NE(m_summary.find("{" + restarts[0].substr(restarts[0].find("\"at\""))), std::string::npos) << m_summary;
    }

    // A player sees so many seconds, without a break, sound and picture together.
    void ExpectSeconds(int seconds) const {
        const auto facts = test::Inspect(Output().string());
        ExpectSummaryAgreesWith(facts);
        EXPECT_EQ(facts.videoPackets, 25 * seconds);
        EXPECT_NEAR(facts.duration, seconds, 0.1);
        EXPECT_TRUE(facts.timesRise);
        EXPECT_LT(facts.largestVideoStep, 0.1);
        EXPECT_LT(facts.largestAudioStep, 0.1);
        EXPECT_NEAR(facts.audioEnd, facts.videoEnd, 0.06);
        EXPECT_EQ(JsonValue(m_summary, "video_gaps"), "0");
        EXPECT_EQ(JsonValue(m_summary, "audio_gaps"), "0");
    }
};

// The packager forgets its numbers as well: the manifest goes back to segment 1, and nothing of it is news to a source
// that has seen segment 162. The times lie further back than a source could begin.
TEST_F(RecordThroughARestartedEncoder, GoesOnWithANewSourceWhenTheNumbersFallBack) {
    RestartOrigin(150 + kWindowSegments);
    m_origin->Media().Segment(origin::kAudioRepresentationId, m_origin->Timeline().Window().front());  // takes a while
    const auto child = StartRecording({"--for", "18s", "--reconnect-after", "2s"});
    ASSERT_TRUE(KeepUntil(*child, "\"segments\":12")) << Errors();
    RestartOrigin(6);
    EXPECT_EQ(Finish(*child), 0) << Errors();
    ExpectSeconds(18);
    ExpectOneRestart(12, 162);
    ASSERT_FALSE(LinesOf("retry").empty());
    EXPECT_EQ(JsonValue(LinesOf("retry").back(), "action"), "\"new-source\"");
    EXPECT_TRUE(fs::is_empty(Temporary()));
}

TEST_F(RecordThroughARestartedEncoder, GoesOnWithTheSameSourceWhenTheNumbersGoOn) {
    RestartClockAtSegment(7);
    const auto child = StartRecording({"--for", "11s"});
    EXPECT_EQ(Finish(*child), 0) << Errors();
    ExpectSeconds(11);
    ExpectOneRestart(6, 6);
    EXPECT_TRUE(LinesOf("retry").empty());
    EXPECT_EQ(JsonValue(m_summary, "video_repeated"), "0");
}

TEST_F(RecordThroughARestartedEncoder, TellsAPersonInOneLine) {
    RestartClockAtSegment(7);
    const auto child =
        Start(m_origin->ManifestUrl(), {"--for", "8s", "-o", Output().string(), "--delay-segments", "11"});
    EXPECT_EQ(Finish(*child), 0) << Errors();
    EXPECT_TRUE(SaidOnStdout("clock: the stream's clock went from 0:06.")) << Errors();
}

}  // namespace
}  // namespace kvmpd::app
