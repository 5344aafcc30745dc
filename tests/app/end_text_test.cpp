#include "app/EndText.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace kvmpd::app {
namespace {

struct CodeCase {
    RecordEnd end;
    ExitCode withMedia;
    ExitCode without;
};

class EndOfARecording : public testing::TestWithParam<CodeCase> {};

TEST_P(EndOfARecording, HasItsExitCode) {
    EXPECT_EQ(ExitCodeOf(GetParam().end, true), GetParam().withMedia);
    EXPECT_EQ(ExitCodeOf(GetParam().end, false), GetParam().without);
}

INSTANTIATE_TEST_SUITE_P(
    Ends, EndOfARecording,
    testing::Values(CodeCase{RecordEnd::kTimeReached, ExitCode::kRecorded, ExitCode::kRecorded},
                    CodeCase{RecordEnd::kAsked, ExitCode::kRecorded, ExitCode::kNothingYet},
                    CodeCase{RecordEnd::kReaderGone, ExitCode::kRecorded, ExitCode::kRecorded},
                    CodeCase{RecordEnd::kNoManifest, ExitCode::kEndedEarly, ExitCode::kNoStream},
                    CodeCase{RecordEnd::kManifestShape, ExitCode::kEndedEarly, ExitCode::kNoStream},
                    CodeCase{RecordEnd::kNoMedia, ExitCode::kEndedEarly, ExitCode::kNoStream},
                    CodeCase{RecordEnd::kCacheFailed, ExitCode::kCacheFolder, ExitCode::kCacheFolder},
                    CodeCase{RecordEnd::kNotMedia, ExitCode::kEndedEarly, ExitCode::kNoStream},
                    CodeCase{RecordEnd::kCodecChanged, ExitCode::kEndedEarly, ExitCode::kNoStream},
                    CodeCase{RecordEnd::kOutputFailed, ExitCode::kOutput, ExitCode::kOutput},
                    CodeCase{RecordEnd::kOutputRemoved, ExitCode::kOutput, ExitCode::kOutput},
                    CodeCase{RecordEnd::kComponentFailed, ExitCode::kEndedEarly, ExitCode::kNoStream}));

EndContext Context(bool hasMedia) {
    return {.url = "http://host/live.mpd", .detail = "the disk is full", .hasMedia = hasMedia};
}

TEST_P(EndOfARecording, IsSaidInOneSentenceWhenItIsNotAsAsked) {
    for (const bool hasMedia : {false, true}) {
        const std::string text = EndSentence(GetParam().end, Context(hasMedia));
        const bool asAsked = ExitCodeOf(GetParam().end, hasMedia) == ExitCode::kRecorded;
        EXPECT_EQ(text.empty(), asAsked) << text;
        EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 0) << text;
    }
    EXPECT_STRNE(EndWord(GetParam().end), "unknown");
}

TEST(EndSentences, NameTheAddress) {
    for (const RecordEnd end : {RecordEnd::kNoManifest, RecordEnd::kManifestShape}) {
        EXPECT_NE(EndSentence(end, Context(false)).find("http://host/live.mpd"), std::string::npos);
    }
}

TEST(EndSentences, NameEveryReasonForNoManifest) {
    const std::string text = EndSentence(RecordEnd::kNoManifest, Context(false));
    for (const char* reason : {"cannot be reached", "refuses", "is no manifest", "too large"}) {
        EXPECT_NE(text.find(reason), std::string::npos) << text;
    }
}

TEST(EndSentences, DoNotSayOfARemovedFileThatItIsKept) {
    const std::string text = EndSentence(RecordEnd::kOutputRemoved, Context(true));
    EXPECT_NE(text.find("was removed while it was written"), std::string::npos) << text;
    EXPECT_EQ(text.find("holds what came before"), std::string::npos) << text;
}

TEST(EndSentences, SayThatWhatWasRecordedIsKept) {
    EXPECT_NE(EndSentence(RecordEnd::kCacheFailed, Context(true)).find("holds what came before"), std::string::npos);
    EXPECT_EQ(EndSentence(RecordEnd::kCacheFailed, Context(false)).find("holds what came before"), std::string::npos);
}

TEST(EndSentences, TellNoAnswerFromNoSegment) {
    EndContext context{.url = "http://host/live.mpd"};
    EXPECT_NE(EndSentence(RecordEnd::kNoMedia, context).find("no answer came from http://host/live.mpd"),
              std::string::npos);
    context.manifestLoaded = true;
    EXPECT_NE(EndSentence(RecordEnd::kNoMedia, context).find("no segment of media came"), std::string::npos);
    context.failedDownloads = 4;
    EXPECT_NE(EndSentence(RecordEnd::kNoMedia, context).find("4 of its segments could not be downloaded"),
              std::string::npos);
    context.hasMedia = true;
    context.patience = "1m";
    EXPECT_NE(EndSentence(RecordEnd::kNoMedia, context).find("no new media came for 1m (4 of its"), std::string::npos);
}

}  // namespace
}  // namespace kvmpd::app
