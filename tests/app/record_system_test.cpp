// What `kvmpd record` does as people run it.

#include <gtest/gtest.h>

#include "tests/app/RecordFixture.h"

namespace kvmpd::app {
namespace {

namespace fs = std::filesystem;
using test::ChildProcess;
using test::FileText;
using test::JsonValue;
using test::RecordCommandLine;

TEST_F(RecordCommandLine, RecordsTheLengthAskedFor) {
    const auto child = StartRecording({"--for", "8s"});
    EXPECT_EQ(Finish(*child), 0) << Errors();
    const auto facts = test::Inspect(Output().string());
    ExpectSummaryAgreesWith(facts);
    EXPECT_EQ(facts.videoPackets, 8 * 25);
    EXPECT_NEAR(facts.duration, 8, 0.15);
    EXPECT_NEAR(facts.start, 0, 0.15);
    EXPECT_TRUE(facts.firstVideoIsKey);
    EXPECT_EQ(facts.videoCodec, "h264");
    EXPECT_EQ(facts.audioCodec, "aac");
    EXPECT_EQ(JsonValue(m_summary, "video_gaps"), "0");
    EXPECT_EQ(JsonValue(m_summary, "audio_gaps"), "0");
    EXPECT_EQ(JsonValue(m_summary, "end"), "\"time-reached\"");
    EXPECT_TRUE(SaidOnStdout("\"event\":\"qualities\""));
    EXPECT_TRUE(SaidOnStdout("\"event\":\"quality\""));
    EXPECT_TRUE(SaidOnStdout("\"event\":\"manifest\",\"result\":\"loaded\""));
    EXPECT_TRUE(SaidOnStdout("\"event\":\"buffering\""));
    EXPECT_FALSE(SaidOnStdout("\"event\":\"position\"")) << "the delay that was asked for is no news";
    EXPECT_GT(std::stod(JsonValue(m_summary, "time")), 0);
    EXPECT_TRUE(fs::is_empty(Temporary()));
}

TEST_F(RecordCommandLine, TellsPeopleTheSameInSentences) {
    const auto child =
        Start(m_origin->ManifestUrl(), {"-o", Output().string(), "--for", "3s", "--delay-segments", "11"});
    EXPECT_EQ(Finish(*child), 0) << Errors();
    EXPECT_TRUE(SaidOnStdout("the manifest offers 2 video qualities"));
    EXPECT_TRUE(SaidOnStdout("  chosen"));
    EXPECT_TRUE(SaidOnStdout("recorded " + Output().string()));
    EXPECT_NE(Errors().find("segment "), std::string::npos) << "no progress: " << Errors();
}

TEST_F(RecordCommandLine, TakesTheQualityThatIsAskedFor) {
    const auto byId = StartRecording({"--for", "2s", "--quality", "144"});
    EXPECT_EQ(Finish(*byId), 0) << Errors();
    EXPECT_EQ(JsonValue(m_summary, "height"), "144");
    const auto byHeight = StartRecording({"--for", "2s", "--prefer-height", "144", "-y"});
    EXPECT_EQ(Finish(*byHeight), 0) << Errors();
    EXPECT_EQ(JsonValue(m_summary, "height"), "144");
    const auto byDefault = StartRecording({"--for", "2s", "-y"});
    EXPECT_EQ(Finish(*byDefault), 0) << Errors();
    EXPECT_EQ(JsonValue(m_summary, "height"), "240");
}

class StopSignal : public RecordCommandLine, public testing::WithParamInterface<int> {};

TEST_P(StopSignal, EndsTheRecordingWithAFileThatPlays) {
    const auto child = StartRecording({});
    ASSERT_TRUE(child->ReadUntil("\"segments\":12")) << Errors();  // all that the manifest lists
    child->Signal(GetParam());
    EXPECT_EQ(Finish(*child), 0) << Errors();
    const auto facts = test::Inspect(Output().string());
    ExpectSummaryAgreesWith(facts);
    EXPECT_EQ(facts.videoPackets, 12 * 25);
    EXPECT_EQ(JsonValue(m_summary, "end"), "\"asked\"");
    EXPECT_EQ(Errors(), "");
    EXPECT_TRUE(fs::is_empty(Temporary()));
}

INSTANTIATE_TEST_SUITE_P(Signals, StopSignal, testing::Values(SIGINT, SIGTERM, SIGHUP));

// As timeout(1) does it: to the program, and to the group that it is in.
TEST_F(RecordCommandLine, TakesTheSameSignalTwiceInAMomentForOne) {
    const auto child = StartRecording({});
    ASSERT_TRUE(child->ReadUntil("\"segments\":12")) << Errors();
    child->Signal(SIGTERM);
    child->Signal(SIGTERM);
    EXPECT_EQ(Finish(*child), 0) << Errors();
    ExpectSummaryAgreesWith(test::Inspect(Output().string()));
}

TEST_F(RecordCommandLine, ASecondSignalEndsItAtOnce) {
    // Nobody reads standard output. The first signal gives the reader a moment to take the rest; the second does
    // not.
    ChildProcess::Options options;
    options.smallPipe = true;
    const auto child = Start(m_origin->ManifestUrl(), {"-o", "-", "--delay-segments", "11"}, options);
    ASSERT_TRUE(child->WaitForUnread()) << Errors();
    child->Signal(SIGINT);
    child->Signal(SIGTERM);
    EXPECT_EQ(child->Wait(), 130);
    ExpectNothingLeftBehind();
}

TEST_F(RecordCommandLine, GivesAReaderThatTakesNothingUpWhenStopped) {
    ChildProcess::Options options;
    options.smallPipe = true;
    const auto child = Start(m_origin->ManifestUrl(), {"-o", "-", "--delay-segments", "11"}, options);
    ASSERT_TRUE(child->WaitForUnread()) << Errors();
    child->Signal(SIGINT);
    EXPECT_EQ(child->Wait(), 0) << Errors();
    ExpectNothingLeftBehind();
}

TEST_F(RecordCommandLine, StoppedBeforeAnyMediaLeavesNothing) {
    const auto gate = std::make_shared<origin::ReplyGate>();
    m_origin->SetReplyHook(
        [gate](const origin::OriginRequest&, origin::OriginReply& reply) { reply.holdUntil = gate; });
    const auto child = Start(m_origin->ManifestUrl(), {"-o", Output().string()});
    ASSERT_TRUE(m_origin->WaitForManifestRequests(1));
    child->Signal(SIGINT);
    EXPECT_EQ(Finish(*child), 5) << Errors();
    ExpectError("stopped before any media arrived");
    ExpectNothingLeftBehind();
}

TEST_F(RecordCommandLine, WritesToStandardOutput) {
    const fs::path piped = m_dir.Path() / "piped.mkv";
    ChildProcess::Options options;
    options.standardOutput = piped;
    const auto child =
        Start(m_origin->ManifestUrl(), {"-o", "-", "--for", "5s", "--delay-segments", "11", "--json"}, options);
    EXPECT_EQ(child->Wait(), 0) << Errors();
    const auto facts = test::Inspect(piped.string());
    ASSERT_TRUE(facts.opened);
    EXPECT_EQ(facts.videoPackets, 5 * 25);
    EXPECT_NE(Errors().find("\"type\":\"summary\""), std::string::npos) << Errors();
    ExpectNothingLeftBehind();
}

TEST_F(RecordCommandLine, EndsCleanlyWhenTheReaderOfStandardOutputLeaves) {
    ChildProcess::Options options;
    options.dropStandardOutput = true;
    const auto child = Start(m_origin->ManifestUrl(), {"-o", "-", "--delay-segments", "11"}, options);
    EXPECT_EQ(child->Wait(), 0) << Errors();
    ExpectNothingLeftBehind();
}

TEST_F(RecordCommandLine, GoesOnAfterASegmentThatCannotBeHad) {
    m_origin->SetReplyHook([](const origin::OriginRequest& request, origin::OriginReply& reply) {
        if (request.number == 4) {
            reply.truncateAt = 10;
        }
    });
    const auto child = StartRecording({"--for", "8s"});
    EXPECT_EQ(Finish(*child), 0) << Errors();
    EXPECT_TRUE(SaidOnStdout("\"event\":\"download_failed\""));
    ExpectOneSegmentMissing();
}

// The component stores whatever a server answers; an error page is found out by its bytes.
TEST_F(RecordCommandLine, GoesOnAfterAnErrorPageInPlaceOfASegment) {
    m_origin->SetReplyHook([](const origin::OriginRequest& request, origin::OriginReply& reply) {
        if (request.number == 4) {
            reply.status = 503;
            reply.body = std::make_shared<const std::string>("<html><body>Service unavailable</body></html>");
        }
    });
    const auto child = StartRecording({"--for", "8s"});
    EXPECT_EQ(Finish(*child), 0) << Errors();
    EXPECT_TRUE(SaidOnStdout("is no media; it is left out up to the next segment"));
    ExpectOneSegmentMissing();
}

TEST_F(RecordCommandLine, AsksForTheManifestAgainAfterAFailedReload) {
    m_origin->SetReplyHook([this](const origin::OriginRequest& request, origin::OriginReply& reply) {
        if (request.kind == origin::OriginRequest::Kind::Manifest && request.ordinal == 2) {
            reply.status = 500;
            reply.body = std::make_shared<const std::string>();
            m_origin->Advance(2);
        }
    });
    const auto child = StartRecording({"--for", "14s"});  // more than the first manifest lists
    EXPECT_EQ(Finish(*child), 0) << Errors();
    EXPECT_TRUE(SaidOnStdout("\"event\":\"manifest\",\"result\":\"failed\""));
    EXPECT_EQ(JsonValue(m_summary, "video_packets"), std::to_string(14 * 25));
    EXPECT_EQ(JsonValue(m_summary, "video_gaps"), "0");
}

TEST_F(RecordCommandLine, RefusesAnAddressThatIsNone) {
    const auto child = Start("live.mpd", {"-o", Output().string()});
    EXPECT_EQ(Finish(*child), 1);
    ExpectError("is no address of a manifest");
    ExpectNothingLeftBehind();
}

TEST_F(RecordCommandLine, RefusesALengthThatIsNone) {
    for (const char* option : {"--for", "--give-up-after", "--reconnect-after"}) {
        const auto child = Start(m_origin->ManifestUrl(), {"-o", Output().string(), option, "soon"});
        EXPECT_EQ(Finish(*child), 1);
        EXPECT_NE(Errors().find("is no length of time"), std::string::npos) << Errors();
        ExpectNothingLeftBehind();
    }
}

TEST_F(RecordCommandLine, SaysThatAServerCannotBeReached) {
    const std::string url = m_origin->ManifestUrl();
    m_origin->Stop();  // the port is free, so connections are refused
    const auto child = Start(url, {"-o", Output().string(), "--give-up-after", "3s"});
    EXPECT_EQ(Finish(*child), 2);
    ExpectError("no manifest could be fetched from " + url + " for 3 s");
    ExpectNothingLeftBehind();
}

struct AnswerCase {
    const char* name;
    int status;
    const char* body;
    const char* sentence;
};

class ManifestAnswer : public RecordCommandLine, public testing::WithParamInterface<AnswerCase> {};

TEST_P(ManifestAnswer, ThatCannotBeFollowedIsSaidInOneSentence) {
    m_origin->SetReplyHook([](const origin::OriginRequest&, origin::OriginReply& reply) {
        reply.status = GetParam().status;
        reply.body = std::make_shared<const std::string>(GetParam().body);
    });
    // Long enough for an answer to come on a machine that does other things as well.
    const auto child = Start(m_origin->ManifestUrl(), {"-o", Output().string(), "--give-up-after", "4s"});
    EXPECT_EQ(Finish(*child), 2);
    ExpectError(GetParam().sentence);
    ExpectNothingLeftBehind();
}

INSTANTIATE_TEST_SUITE_P(
    Answers, ManifestAnswer,
    testing::Values(AnswerCase{"NotFound", 404, "not here", "no manifest could be fetched"},
                    AnswerCase{"Refused", 403, "no", "no manifest could be fetched"},
                    AnswerCase{"Html", 200, "<html><body>Welcome<br></html>", "no manifest could be fetched"},
                    AnswerCase{"Empty", 200, "", "no manifest could be fetched"},
                    AnswerCase{"OtherShape", 200, "<MPD><Period><BaseURL>x/</BaseURL></Period></MPD>",
                               "is not of the shape that can be followed"}),
    [](const auto& tested) { return std::string(tested.param.name); });

TEST_F(RecordCommandLine, DoesNotTouchAFileThatExists) {
    std::ofstream(Output()) << "precious";
    const auto child = Start(m_origin->ManifestUrl(), {"-o", Output().string(), "--for", "1s"});
    EXPECT_EQ(Finish(*child), 3);
    ExpectError("it exists already");
    EXPECT_EQ(FileText(Output()), "precious");
    EXPECT_EQ(m_origin->ManifestRequests(), 0u);
}

TEST_F(RecordCommandLine, SaysThatTheOutputsFolderIsMissing) {
    const auto child = Start(m_origin->ManifestUrl(), {"-o", (Results() / "no/show.mkv").string()});
    EXPECT_EQ(Finish(*child), 3);
    ExpectError("its folder does not exist");
    ExpectNothingLeftBehind();
}

TEST_F(RecordCommandLine, SaysThatTheOutputIsFull) {
    if (!fs::exists("/dev/full")) {
        GTEST_SKIP() << "there is no /dev/full here";
    }
    const auto child = Start(m_origin->ManifestUrl(), {"-o", "/dev/full", "--quiet", "--delay-segments", "11"});
    EXPECT_EQ(Finish(*child), 3);
    ExpectError("No space left on device");
    ExpectNothingLeftBehind();
}

TEST_F(RecordCommandLine, SaysThatTheCacheFolderCannotBeUsed) {
    const auto child =
        Start(m_origin->ManifestUrl(), {"-o", Output().string(), "--cache-dir", (m_dir.Path() / "missing").string()});
    EXPECT_EQ(Finish(*child), 4);
    ExpectError("no cache folder can be made in");
    ExpectNothingLeftBehind();
}

TEST_F(RecordCommandLine, MakesItsCacheInTheFolderGivenAndRemovesIt) {
    const fs::path folder = m_dir.Path() / "cache";
    fs::create_directory(folder);
    const auto child = StartRecording({"--for", "2s", "--cache-dir", folder.string()});
    EXPECT_EQ(Finish(*child), 0) << Errors();
    EXPECT_TRUE(fs::is_empty(folder));
    EXPECT_TRUE(fs::is_empty(Temporary()));
}

}  // namespace
}  // namespace kvmpd::app
