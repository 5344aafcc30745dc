#include "app/Timeline.h"

#include <gtest/gtest.h>

namespace kvmpd::app {
namespace {

constexpr std::int64_t kSecond = 1'000'000;
using Verdict = Timeline::Verdict;

TEST(TimelineOrigin, IsTheEarlierOfTheTwoTracks) {
    Timeline timeline({});
    timeline.Begin(100 * kSecond, 99 * kSecond);
    EXPECT_EQ(timeline.OriginUs(), 99 * kSecond);
    timeline.Begin(5, 7);
    EXPECT_EQ(timeline.OriginUs(), 5);
}

TEST(TimelineGaps, AreCountedWithTheirLength) {
    Timeline timeline({});
    timeline.Begin(0, 0);
    EXPECT_EQ(timeline.Admit(Track::kVideo, 0, kSecond), Verdict::kWrite);
    EXPECT_EQ(timeline.Admit(Track::kVideo, kSecond, kSecond), Verdict::kWrite);
    EXPECT_EQ(timeline.Of(Track::kVideo).gaps, 0);
    EXPECT_EQ(timeline.Admit(Track::kVideo, 4 * kSecond, kSecond), Verdict::kWrite);
    EXPECT_EQ(timeline.Of(Track::kVideo).gaps, 1);
    EXPECT_EQ(timeline.Of(Track::kVideo).missingUs, 2 * kSecond);
    EXPECT_EQ(timeline.Of(Track::kVideo).endUs, 5 * kSecond);
    EXPECT_EQ(timeline.Of(Track::kVideo).packets, 3);
    EXPECT_EQ(timeline.Of(Track::kAudio).packets, 0);
}

TEST(TimelineGaps, RoundingIsNone) {
    Timeline timeline({});
    timeline.Begin(0, 0);
    timeline.Admit(Track::kAudio, 0, 21333);
    timeline.Admit(Track::kAudio, 21334, 21333);
    timeline.Admit(Track::kAudio, 42667 + 99'000, 21333);
    EXPECT_EQ(timeline.Of(Track::kAudio).gaps, 0);
}

TEST(TimelineGaps, AreToldWithTheirPlace) {
    Timeline timeline({});
    timeline.Begin(100 * kSecond, 100 * kSecond);
    timeline.Admit(Track::kAudio, 100 * kSecond, kSecond);
    EXPECT_FALSE(timeline.LastGap());
    timeline.Admit(Track::kAudio, 103 * kSecond, kSecond);
    ASSERT_TRUE(timeline.LastGap());
    EXPECT_EQ(timeline.LastGap()->track, Track::kAudio);
    EXPECT_EQ(timeline.LastGap()->fromUs, kSecond);
    EXPECT_EQ(timeline.LastGap()->toUs, 3 * kSecond);
    timeline.Admit(Track::kAudio, 104 * kSecond, kSecond);
    EXPECT_FALSE(timeline.LastGap());
}

TEST(TimelineGaps, AtTheBeginningBelongToTheTrackThatBeginsLater) {
    Timeline timeline({});
    timeline.Begin(11 * kSecond, 10 * kSecond);
    timeline.Admit(Track::kAudio, 10 * kSecond, kSecond);
    EXPECT_FALSE(timeline.LastGap());
    timeline.Admit(Track::kVideo, 11 * kSecond, kSecond);
    ASSERT_TRUE(timeline.LastGap());
    EXPECT_EQ(timeline.LastGap()->fromUs, 0);
    EXPECT_EQ(timeline.LastGap()->toUs, kSecond);
    EXPECT_EQ(timeline.Of(Track::kVideo).missingUs, kSecond);
}

TEST(TimelineGaps, ReachToTheLimitAtMost) {
    Timeline timeline(3 * kSecond);
    timeline.Begin(0, 0);
    timeline.Admit(Track::kVideo, 0, kSecond);
    EXPECT_EQ(timeline.Admit(Track::kVideo, 9 * kSecond, kSecond), Verdict::kBeyondLimit);
    ASSERT_TRUE(timeline.LastGap());
    EXPECT_EQ(timeline.LastGap()->toUs, 3 * kSecond);
    EXPECT_EQ(timeline.Admit(Track::kVideo, 10 * kSecond, kSecond), Verdict::kBeyondLimit);
    EXPECT_EQ(timeline.Of(Track::kVideo).gaps, 1);
}

TEST(TimelineGaps, AtTheEndAreWhatTheOtherTrackHasMore) {
    Timeline timeline({});
    timeline.Begin(0, 0);
    timeline.Admit(Track::kVideo, 0, kSecond);
    timeline.Admit(Track::kAudio, 0, 4 * kSecond);
    timeline.EndTrack(Track::kAudio);
    EXPECT_FALSE(timeline.LastGap());
    timeline.EndTrack(Track::kVideo);
    ASSERT_TRUE(timeline.LastGap());
    EXPECT_EQ(timeline.LastGap()->fromUs, kSecond);
    EXPECT_EQ(timeline.LastGap()->toUs, 4 * kSecond);
}

TEST(TimelineGaps, AtTheEndAreWhatIsKnownToBeLost) {
    Timeline timeline(6 * kSecond);
    timeline.Begin(0, 0);
    timeline.Admit(Track::kVideo, 0, 3 * kSecond);
    timeline.Admit(Track::kAudio, 0, 3 * kSecond);
    timeline.EndTrack(Track::kVideo, 2 * kSecond);
    ASSERT_TRUE(timeline.LastGap());
    EXPECT_EQ(timeline.LastGap()->fromUs, 3 * kSecond);
    EXPECT_EQ(timeline.LastGap()->toUs, 5 * kSecond);
    timeline.EndTrack(Track::kAudio, 20 * kSecond);
    ASSERT_TRUE(timeline.LastGap());
    EXPECT_EQ(timeline.LastGap()->toUs, 6 * kSecond) << "more was not asked for";
}

TEST(TimelineRepeats, AreRefusedUntilMediaIsNewAgain) {
    Timeline timeline({});
    timeline.Begin(10 * kSecond, 10 * kSecond);
    timeline.Admit(Track::kVideo, 10 * kSecond, kSecond);
    timeline.Admit(Track::kVideo, 11 * kSecond, kSecond);
    EXPECT_EQ(timeline.Admit(Track::kVideo, 10 * kSecond, kSecond), Verdict::kRepeated);
    EXPECT_EQ(timeline.Admit(Track::kVideo, 11 * kSecond, kSecond), Verdict::kRepeated);
    EXPECT_EQ(timeline.Admit(Track::kAudio, 10 * kSecond, kSecond), Verdict::kWrite);  // the other track is its own
    EXPECT_EQ(timeline.Admit(Track::kVideo, 12 * kSecond, kSecond), Verdict::kWrite);
    EXPECT_EQ(timeline.Of(Track::kVideo).repeated, 2);
    EXPECT_EQ(timeline.Of(Track::kVideo).gaps, 0);
}

TEST(TimelineLimit, EndsBothTracks) {
    Timeline timeline(2 * kSecond);
    timeline.Begin(100 * kSecond, 100 * kSecond);
    EXPECT_EQ(timeline.Admit(Track::kVideo, 100 * kSecond, kSecond), Verdict::kWrite);
    EXPECT_EQ(timeline.Admit(Track::kVideo, 101 * kSecond, kSecond), Verdict::kWrite);
    EXPECT_FALSE(timeline.LimitReached());  // the audio has not come so far
    EXPECT_EQ(timeline.Admit(Track::kVideo, 102 * kSecond, kSecond), Verdict::kBeyondLimit);
    EXPECT_EQ(timeline.Admit(Track::kAudio, 100 * kSecond, kSecond), Verdict::kWrite);
    EXPECT_FALSE(timeline.LimitReached());
    EXPECT_EQ(timeline.Admit(Track::kAudio, 101 * kSecond, 900'000), Verdict::kWrite);
    EXPECT_TRUE(timeline.LimitReached());  // within what the two tracks of a segment differ by
    EXPECT_EQ(timeline.Of(Track::kVideo).packets, 2);
}

TEST(TimelineLimit, IsNotReachedByTwoTracksThatAreOnlyNear) {
    Timeline timeline(2 * kSecond);
    timeline.Begin(0, 0);
    timeline.Admit(Track::kVideo, 0, 1'990'000);
    timeline.Admit(Track::kAudio, 0, 1'990'000);
    EXPECT_FALSE(timeline.LimitReached());
}

TEST(TimelineLimit, IsNeverReachedWithoutOne) {
    Timeline timeline({});
    timeline.Begin(0, 0);
    timeline.Admit(Track::kVideo, 1000 * kSecond, kSecond);
    timeline.Admit(Track::kAudio, 1000 * kSecond, kSecond);
    EXPECT_FALSE(timeline.LimitReached());
}

}  // namespace
}  // namespace kvmpd::app
