#include "manifest/StreamChoice.h"

#include <gtest/gtest.h>

#include "tests/manifest/Records.h"
#include "tests/support/LogCapture.h"

namespace kvmpd::test {
namespace {

MPD VideoOnly(std::vector<RepresentationInfo> qualities) {
    MPD mpd;
    mpd.m_adaptationSets = {Set("video/mp4", std::move(qualities))};
    return mpd;
}

/// Index of the representation that is chosen from one video set.
DWORD ChosenVideo(const MPD& mpd, const VideoPreference& preference) {
    const StreamSelection selection = ChooseStreams(mpd, preference);
    EXPECT_TRUE(selection.video);
    return selection.video ? selection.video->representation : 999;
}

TEST(StreamChoice, TakesThePreferredHeight) {
    EXPECT_EQ(ChosenVideo(VideoOnly({Quality(1, 480), Quality(2, 720), Quality(3, 1080)}), {.height = 720}), 1u);
}

TEST(StreamChoice, TakesTheLastAndNotTheNearestWithoutAnExactHeight) {
    EXPECT_EQ(ChosenVideo(VideoOnly({Quality(1, 480), Quality(2, 1080)}), {.height = 720}), 1u);
    EXPECT_EQ(ChosenVideo(VideoOnly({Quality(1, 1080), Quality(2, 144)}), {.height = 720}), 1u);
}

TEST(StreamChoice, TakesTheFirstOfSeveralWithThePreferredHeight) {
    EXPECT_EQ(ChosenVideo(VideoOnly({Quality(1, 480), Quality(2, 720), Quality(3, 720)}), {.height = 720}), 1u);
}

TEST(StreamChoice, TakesTheTargetWhateverItsHeight) {
    EXPECT_EQ(ChosenVideo(VideoOnly({Quality(11, 720), Quality(12, 1080)}), {.targetId = 12, .height = 720}), 1u);
}

TEST(StreamChoice, TakesTheFirstOfSeveralTargets) {
    EXPECT_EQ(ChosenVideo(VideoOnly({Quality(1), Quality(12), Quality(12)}), {.targetId = 12}), 1u);
}

TEST(StreamChoice, FallsBackToTheHeightWhenTheTargetIsAbsent) {
    EXPECT_EQ(ChosenVideo(VideoOnly({Quality(11, 720), Quality(12, 1080)}), {.targetId = 99, .height = 720}), 0u);
}

TEST(StreamChoice, FallsBackToTheLastWhenTargetAndHeightAreAbsent) {
    EXPECT_EQ(ChosenVideo(VideoOnly({Quality(11, 480), Quality(12, 1080), Quality(13, 360)}),
                          {.targetId = 99, .height = 720}),
              2u);
}

TEST(StreamChoice, TakesTheLastWithoutAnyPreference) {
    EXPECT_EQ(ChosenVideo(VideoOnly({Quality(11, 0), Quality(12, 1080)}), {}), 1u);
}

TEST(StreamChoice, FindsATargetWithANegativeId) {
    EXPECT_EQ(ChosenVideo(VideoOnly({Quality(-1), Quality(2)}), {.targetId = 0xFFFFFFFF}), 0u);
}

TEST(StreamChoice, TakesTheLastAudioWhateverItsBandwidth) {
    MPD mpd;
    mpd.m_adaptationSets = {Set("audio/mp4", {Quality(1), Quality(2), Quality(3)})};
    mpd.m_adaptationSets[0].m_representations[0].m_bandwidth = 320'000;
    const StreamSelection selection = ChooseStreams(mpd, {});
    ASSERT_TRUE(selection.audio);
    EXPECT_EQ(selection.audio->representation, 2u);
}

TEST(StreamChoice, TakesTheLastOfSeveralSetsOfAKind) {
    MPD mpd;
    mpd.m_adaptationSets = {Set("audio/mp4", {Quality(1)}), Set("video/mp4", {Quality(2)}),
                            Set("video/mp4; codecs=\"x\"", {Quality(3)}), Set("audio/mp4;x", {Quality(4)}),
                            Set("video/webm", {Quality(5)})};
    const StreamSelection selection = ChooseStreams(mpd, {});
    ASSERT_TRUE(selection.Complete());
    EXPECT_EQ(selection.video->set, 2u);
    EXPECT_EQ(selection.audio->set, 3u);
}

TEST(StreamChoice, IsIncompleteWithoutAudio) {
    const StreamSelection selection = ChooseStreams(VideoOnly({Quality(1)}), {});
    EXPECT_TRUE(selection.video);
    EXPECT_FALSE(selection.audio);
    EXPECT_FALSE(selection.Complete());
}

TEST(StreamChoice, IsIncompleteWithoutVideo) {
    MPD mpd;
    mpd.m_adaptationSets = {Set("audio/mp4", {Quality(1)})};
    EXPECT_FALSE(ChooseStreams(mpd, {}).Complete());
}

TEST(StreamChoice, FindsNothingInAnEmptyManifest) {
    const StreamSelection selection = ChooseStreams(MPD(), {.targetId = 1, .height = 720});
    EXPECT_FALSE(selection.audio);
    EXPECT_FALSE(selection.video);
}

TEST(StreamChoice, TreatsSetsWithoutRepresentationsAsAbsent) {
    MPD mpd;
    mpd.m_adaptationSets = {Set("audio/mp4", {}), Set("video/mp4", {})};
    const StreamSelection selection = ChooseStreams(mpd, {.height = 720});
    EXPECT_FALSE(selection.audio);
    EXPECT_FALSE(selection.video);
}

TEST(StreamChoice, KeepsAnEarlierSetWhenALaterOneIsEmpty) {
    MPD mpd;
    mpd.m_adaptationSets = {Set("audio/mp4", {Quality(1)}), Set("video/mp4", {Quality(2)}), Set("audio/mp4", {}),
                            Set("video/mp4", {})};
    const StreamSelection selection = ChooseStreams(mpd, {});
    ASSERT_TRUE(selection.Complete());
    EXPECT_EQ(selection.audio->set, 0u);
    EXPECT_EQ(selection.video->set, 1u);
}

TEST(FindRepresentation, GivesTheOneAtTheIndex) {
    const MPD mpd = LiveManifest(1, 1);
    const RepresentationInfo* found = FindRepresentation(mpd, {1, 1});
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->m_id, 12);
}

TEST(FindRepresentation, GivesNoneOutsideTheRecord) {
    const MPD mpd = LiveManifest(1, 1);
    EXPECT_EQ(FindRepresentation(mpd, {1, 2}), nullptr);
    EXPECT_EQ(FindRepresentation(mpd, {2, 0}), nullptr);
    EXPECT_EQ(FindRepresentation(MPD(), {0, 0}), nullptr);
}

using Lines = std::vector<std::string>;

TEST(StreamChoiceLog, TellsTheAudio) {
    MPD mpd;
    mpd.m_adaptationSets = {Set("audio/mp4", {Quality(4)})};
    mpd.m_adaptationSets[0].m_representations[0].m_bandwidth = 128'000;
    LogCapture log(5);
    ChooseStreams(mpd, {});
    EXPECT_EQ(log.Lines(), Lines{" MpdLoader::ChoiceStream choice audio quality ID: 4, bandwidth: 128000"});
}

TEST(StreamChoiceLog, TellsTheTarget) {
    LogCapture log(5);
    ChooseStreams(VideoOnly({Quality(11, 720), Quality(12, 1080)}), {.targetId = 12, .height = 720});
    EXPECT_EQ(log.Lines(), (Lines{" MpdLoader::ChoiceStream choice video quality by target ID: 12",
                                  " MpdLoader::ChoiceStream select video quality ID: 12. Its index is 1"}));
}

TEST(StreamChoiceLog, TellsTheMatchedHeight) {
    LogCapture log(5);
    ChooseStreams(VideoOnly({Quality(11, 720), Quality(12, 1080)}), {.height = 720});
    EXPECT_EQ(log.Lines(), (Lines{" MpdLoader::ChoiceStream choice video quality: 720 for prefer quality: 720.",
                                  " MpdLoader::ChoiceStream select video quality ID: 11. Its index is 0"}));
}

TEST(StreamChoiceLog, TellsAHeightOfZeroWithoutAMatch) {
    LogCapture log(5);
    ChooseStreams(VideoOnly({Quality(11, 480), Quality(12, 1080)}), {.height = 720});
    EXPECT_EQ(log.Lines(), (Lines{" MpdLoader::ChoiceStream choice video quality: 0 for prefer quality: 720.",
                                  " MpdLoader::ChoiceStream select video quality ID: 12. Its index is 1"}));
}

TEST(StreamChoiceLog, DoesNotMentionAHeightThatNobodyPrefers) {
    LogCapture log(5);
    ChooseStreams(VideoOnly({Quality(11, 480)}), {});
    EXPECT_EQ(log.Lines(), Lines{" MpdLoader::ChoiceStream select video quality ID: 11. Its index is 0"});
}

TEST(StreamChoiceLog, IsSilentBelowLevelFive) {
    LogCapture log(4);
    ChooseStreams(LiveManifest(1, 1), {.targetId = 12, .height = 720});
    EXPECT_TRUE(log.Lines().empty());
}

}  // namespace
}  // namespace kvmpd::test
