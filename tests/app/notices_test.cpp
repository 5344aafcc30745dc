#include "app/Notices.h"

#include <gtest/gtest.h>

#include <set>

namespace kvmpd::app {
namespace {

using namespace std::chrono_literals;
using Retry = RetryPolicy::Retry;
using Action = RetryPolicy::Action;
using Trouble = RetryPolicy::Trouble;

TEST(RetryNotice, SaysWhatIsTriedAndWhen) {
    EXPECT_EQ(DescribeRetry({Trouble::kManifestFailed, Action::kWake, 3, 5'432ms}),
              "the manifest is asked for again in 5.4 s (try 3)");
    EXPECT_EQ(DescribeRetry({Trouble::kManifestFailed, Action::kReplace, 1, 1'500ms}),
              "a new source asks for the manifest in 1.5 s (try 1)");
    EXPECT_EQ(DescribeRetry({Trouble::kSourceFailed, Action::kReplace, 2, 2'000ms}),
              "the stream cannot be read any further; a new source takes it up in 2.0 s (try 2)");
    EXPECT_EQ(DescribeRetry({Trouble::kStalled, Action::kReplace, 1, 0ms}),
              "no new media has come for long; a new source takes the stream up");
    EXPECT_EQ(DescribeRetry({Trouble::kWakeRefused, Action::kReplace, 1, 0ms}),
              "the source has no manifest any more; a new one takes the stream up");
    EXPECT_EQ(
        DescribeRetry({Trouble::kStillClosing, Action::kReplace, 1, 1'500ms}),
        "a new source must wait, because transfers of the sources before it have not ended; looked at again in 1.5 "
        "s (try 1)");
}

TEST(RetryNotice, IsAnObjectForPrograms) {
    EXPECT_EQ(
        RetryJson({Trouble::kManifestFailed, Action::kWake, 3, 5'432ms}, 61'000),
        R"({"type":"retry","time":61.000,"reason":"manifest-failed","action":"ask-again","attempt":3,"wait":5.432})");
    EXPECT_EQ(RetryJson({Trouble::kStalled, Action::kReplace, 1, 0ms}, 0),
              R"({"type":"retry","time":0.000,"reason":"no-media","action":"new-source","attempt":1,"wait":0.000})");
}

TEST(GapNotice, SaysWhatIsMissing) {
    const Gap gap{.track = Track::kVideo, .fromUs = 4'000'000, .toUs = 6'500'999, .cause = LossCause::kCutShort};
    EXPECT_EQ(DescribeGap(gap), "0:04.000 to 0:06.500 of the video (a segment was cut short)");
    EXPECT_EQ(GapJson(gap), R"({"track":"video","from":4.000,"to":6.500,"cause":"cut-short"})");
    EXPECT_EQ(GapJson(gap, 9'000),
              R"({"type":"gap","time":9.000,"track":"video","from":4.000,"to":6.500,"cause":"cut-short"})");
}

TEST(GapNotice, TellsEveryCauseApart) {
    std::set<std::string> sentences;
    std::set<std::string> objects;
    for (const LossCause cause :
         {LossCause::kAbsent, LossCause::kDownloadFailed, LossCause::kNotMedia, LossCause::kCutShort,
          LossCause::kDamaged, LossCause::kLeftCache, LossCause::kNewSource, LossCause::kNewClock}) {
        sentences.insert(DescribeGap({.cause = cause}));
        objects.insert(GapJson({.cause = cause}));
    }
    EXPECT_EQ(sentences.size(), 8u);
    EXPECT_EQ(objects.size(), 8u);
}

TEST(ClockNotice, SaysWhereItWentAndWhereTheRecordingGoesOn) {
    const ClockRestart restart{.atUs = 12'000'000, .fromUs = 588'000'000, .toUs = 0};
    EXPECT_EQ(DescribeClockRestart(restart),
              "the stream's clock went from 9:48.000 to 0:00.000; the recording goes on at 0:12.000");
    EXPECT_EQ(ClockRestartJson(restart), R"({"at":12.000,"from":588.000,"to":0.000})");
    EXPECT_EQ(ClockRestartJson(restart, 61'000),
              R"({"type":"clock-restart","time":61.000,"at":12.000,"from":588.000,"to":0.000})");
}

}  // namespace
}  // namespace kvmpd::app
