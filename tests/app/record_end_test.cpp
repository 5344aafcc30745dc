// What `kvmpd record` says of media that was lost at the very end.

#include <gtest/gtest.h>

#include <csignal>

#include "tests/app/RecordFixture.h"

namespace kvmpd::app {
namespace {

using test::JsonValue;
using test::kWindowSegments;
using Kind = origin::OriginRequest::Kind;

constexpr std::int64_t kLastGood = 8;

class RecordingThatEndsInTrouble : public test::RecordCommandLine {
  protected:
    void SpoilFromTheNinthOn(std::function<void(origin::OriginReply&)> damage) {
        m_origin->SetReplyHook([=](const origin::OriginRequest& request, origin::OriginReply& reply) {
            if (request.kind == Kind::Segment && request.number > kLastGood) {
                damage(reply);
            }
        });
    }

    // Both tracks lack what came after the eighth second, and the summary agrees with the file.
    void ExpectGapAtTheEnd(const std::string& cause, double shortest) {
        const auto gaps = LinesOf("gap");
        ASSERT_EQ(gaps.size(), 2u) << m_summary;
        for (const std::string& gap : gaps) {
            EXPECT_NEAR(std::stod(JsonValue(gap, "from")), kLastGood, 0.05) << gap;
            EXPECT_GE(std::stod(JsonValue(gap, "to")), kLastGood + shortest - 0.05) << gap;
            EXPECT_LE(std::stod(JsonValue(gap, "to")), static_cast<double>(kWindowSegments) + 0.05) << gap;
            EXPECT_EQ(JsonValue(gap, "cause"), "\"" + cause + "\"");
            EXPECT_NE(m_summary.find("{" + gap.substr(gap.find("\"track\""))), std::string::npos) << m_summary;
        }
        EXPECT_EQ(test::Inspect(Output().string()).videoPackets, 25 * kLastGood);
        EXPECT_GE(std::stod(JsonValue(m_summary, "since_media")), 5.0) << m_summary;
    }
};

TEST_F(RecordingThatEndsInTrouble, TellsOfTheDownloadsThatFailed) {
    SpoilFromTheNinthOn([](origin::OriginReply& reply) { reply.truncateAt = 10; });
    const auto child = StartRecording({});
    ASSERT_TRUE(KeepUntil(*child, "\"stands_still\":")) << Errors();
    child->Signal(SIGINT);
    EXPECT_EQ(Finish(*child), 0) << Errors();
    ExpectGapAtTheEnd("download-failed", 4);
    EXPECT_EQ(JsonValue(m_summary, "failed_since_media"), "4") << m_summary;
}

// All of them are there at once, so that it cannot be told how many they are; one at least.
TEST_F(RecordingThatEndsInTrouble, TellsOfTheErrorPages) {
    SpoilFromTheNinthOn([](origin::OriginReply& reply) {
        reply.status = 404;
        reply.body = std::make_shared<const std::string>("<html><body>There is nothing here</body></html>");
    });
    const auto child = StartRecording({});
    ASSERT_TRUE(KeepUntil(*child, "\"stands_still\":")) << Errors();
    child->Signal(SIGINT);
    EXPECT_EQ(Finish(*child), 0) << Errors();
    ExpectGapAtTheEnd("not-media", 1);
    EXPECT_EQ(JsonValue(m_summary, "failed_since_media"), "0") << m_summary;
}

// One after the other, at the live edge. The sound cannot be asked for what is there, and still the video is looked
// after.
TEST_F(RecordingThatEndsInTrouble, TellsOfErrorPagesThatComeOneByOne) {
    m_origin->SetReplyHook([](const origin::OriginRequest& request, origin::OriginReply& reply) {
        if (request.kind == Kind::Segment && request.number > static_cast<std::int64_t>(kWindowSegments)) {
            reply.status = 404;
            reply.body = std::make_shared<const std::string>("Not Found");
        }
    });
    const auto child = StartRecording({});
    ASSERT_TRUE(KeepUntil(*child, "\"segments\":12")) << Errors();
    for (std::size_t n = kWindowSegments + 1; n <= kWindowSegments + 5; ++n) {
        m_origin->Advance();
        ASSERT_TRUE(KeepUntil(*child, "\"buffered_ms\":" + std::to_string(1000 * n))) << Errors();
    }
    ASSERT_TRUE(KeepUntil(*child, "\"stands_still\":")) << Errors();
    child->Signal(SIGINT);
    EXPECT_EQ(Finish(*child), 0) << Errors();
    const auto gaps = LinesOf("gap");
    ASSERT_EQ(gaps.size(), 2u) << m_summary;
    for (const std::string& gap : gaps) {
        EXPECT_NEAR(std::stod(JsonValue(gap, "from")), kWindowSegments, 0.05) << gap;
        // A page that is told before it can be read may count as read.
        EXPECT_GE(std::stod(JsonValue(gap, "to")), kWindowSegments + 4 - 0.05) << gap;
        EXPECT_LE(std::stod(JsonValue(gap, "to")), kWindowSegments + 5 + 0.05) << gap;
        EXPECT_EQ(JsonValue(gap, "cause"), "\"not-media\"");
    }
}

TEST_F(RecordingThatEndsInTrouble, SaysNothingOfLossesWhereTheStreamWentWell) {
    const auto child = StartRecording({});
    ASSERT_TRUE(KeepUntil(*child, "\"segments\":12")) << Errors();
    child->Signal(SIGINT);
    EXPECT_EQ(Finish(*child), 0) << Errors();
    EXPECT_TRUE(LinesOf("gap").empty());
    EXPECT_NE(m_summary.find("\"gaps\":[]"), std::string::npos) << m_summary;
    EXPECT_EQ(JsonValue(m_summary, "failed_since_media"), "0") << m_summary;
}

TEST_F(RecordingThatEndsInTrouble, NamesErrorPagesThatCameInPlaceOfEverything) {
    m_origin->SetReplyHook([](const origin::OriginRequest& request, origin::OriginReply& reply) {
        if (request.kind == Kind::Segment) {
            reply.status = 404;
            reply.body = std::make_shared<const std::string>("<html><body>There is nothing here</body></html>");
        }
    });
    const auto child = StartRecording({"--give-up-after", "2s"});
    EXPECT_EQ(Finish(*child), 2) << Errors();
    ExpectError("an error page for instance");
    ExpectNothingLeftBehind();
}

}  // namespace
}  // namespace kvmpd::app
