#include "app/ClockWatch.h"

#include <gtest/gtest.h>

namespace kvmpd::app {
namespace {

using Verdict = ClockWatch::Verdict;

constexpr std::int64_t kSecond = 1'000'000;

ClockWatch::Piece At(std::int64_t seconds, std::uint64_t mark = 0) {
    return {Track::kVideo, seconds * kSecond, (seconds + 2) * kSecond, mark};
}

// Has taken pieces of two seconds from `from` up to `to`.
ClockWatch Watched(std::int64_t from, std::int64_t to) {
    ClockWatch watch;
    for (std::int64_t at = from; at < to; at += 2) {
        EXPECT_EQ(watch.Judge(At(at)), Verdict::kLater);
        watch.Take(At(at));
    }
    return watch;
}

TEST(ClockWatchInOneSource, TakesWhatGoesOnAndWhatComesAfterAGap) {
    ClockWatch watch = Watched(100, 110);
    EXPECT_EQ(watch.Judge(At(110)), Verdict::kLater);
    EXPECT_EQ(watch.Judge(At(4000)), Verdict::kLater);
}

TEST(ClockWatchInOneSource, LetsFragmentsOverlapALittle) {
    ClockWatch watch = Watched(100, 110);
    EXPECT_EQ(watch.Judge({Track::kVideo, 110 * kSecond - 40'000, 112 * kSecond, 1}), Verdict::kLater);
    EXPECT_EQ(watch.Judge({Track::kVideo, 109 * kSecond + 500'000, 109 * kSecond + 540'000, 1}), Verdict::kLater);
}

TEST(ClockWatchInOneSource, KnowsAClockThatFellWhateverTheBytes) {
    EXPECT_EQ(Watched(100, 110).Judge(At(0, 0)), Verdict::kNewClock);
    EXPECT_EQ(Watched(0, 20).Judge(At(0, 0)), Verdict::kNewClock);
}

TEST(ClockWatchInOneSource, KnowsAClockThatFellALittleByTheBytes) {
    EXPECT_EQ(Watched(0, 8).Judge(At(0, /*mark=*/7)), Verdict::kNewClock);
    EXPECT_EQ(Watched(0, 8).Judge(At(2, /*mark=*/0)), Verdict::kAgain);
}

TEST(ClockWatchInOneSource, KnowsAClockThatWasSetForward) {
    EXPECT_EQ(Watched(0, 8).Judge(At(1'700'000'000)), Verdict::kNewClock);
    EXPECT_EQ(Watched(0, 8).Judge(At(23 * 3600)), Verdict::kLater);
}

TEST(ClockWatchInOneSource, FollowsTheNewClock) {
    ClockWatch watch = Watched(100, 110);
    ASSERT_EQ(watch.Judge(At(0)), Verdict::kNewClock);
    watch.BeginClock(Track::kVideo);
    watch.Take(At(0));
    EXPECT_EQ(watch.EndUs(Track::kVideo), 2 * kSecond);
    EXPECT_EQ(watch.Judge(At(2)), Verdict::kLater);
}

TEST(ClockWatchInOneSource, JudgesEachTrackByItself) {
    ClockWatch watch = Watched(100, 110);
    EXPECT_EQ(watch.Judge({Track::kAudio, 0, kSecond, 0}), Verdict::kLater);
}

TEST(ClockWatchWithANewSource, KnowsWhatComesAgain) {
    ClockWatch watch = Watched(100, 110);
    watch.SourceBegins(60 * kSecond);
    for (const std::int64_t at : {102, 104, 106}) {
        EXPECT_EQ(watch.Judge(At(at)), Verdict::kAgain) << at;
    }
    EXPECT_EQ(watch.Judge(At(110)), Verdict::kLater);
}

// Before the recording's first media, or where it has a gap.
TEST(ClockWatchWithANewSource, CannotTellWhatWasNeverRecorded) {
    ClockWatch watch = Watched(100, 110);
    watch.Take(At(120));
    watch.SourceBegins(60 * kSecond);
    EXPECT_EQ(watch.Judge(At(70)), Verdict::kEarlier);
    EXPECT_EQ(watch.Judge(At(104)), Verdict::kAgain);
    EXPECT_EQ(watch.Judge(At(114, /*mark=*/9)), Verdict::kEarlier);
}

TEST(ClockWatchWithANewSource, KnowsAClockThatFellFurtherThanASourceReaches) {
    ClockWatch watch = Watched(100, 110);
    watch.SourceBegins(60 * kSecond);
    EXPECT_EQ(watch.Judge(At(48)), Verdict::kNewClock);
    watch.SourceBegins(ClockWatch::kAnywhere);
    EXPECT_EQ(watch.Judge(At(48)), Verdict::kEarlier);
}

TEST(ClockWatchWithANewSource, KnowsAClockThatFellByTheBytes) {
    ClockWatch watch = Watched(100, 110);
    watch.SourceBegins(60 * kSecond);
    EXPECT_EQ(watch.Judge(At(103, /*mark=*/5)), Verdict::kNewClock);
}

// The list still names segments from before the encoder was restarted.
TEST(ClockWatchWithANewSource, KnowsWhatWasRecordedOnTheClockBefore) {
    ClockWatch watch = Watched(100, 110);
    ASSERT_EQ(watch.Judge(At(0)), Verdict::kNewClock);
    watch.BeginClock(Track::kVideo);
    watch.Take(At(0, 1));
    watch.Take(At(2, 2));
    watch.Take(At(4, 3));
    watch.SourceBegins(60 * kSecond);
    EXPECT_EQ(watch.Judge(At(106)), Verdict::kAgain);
    EXPECT_EQ(watch.Judge(At(108)), Verdict::kAgain);
    EXPECT_EQ(watch.Judge(At(0, 1)), Verdict::kAgain);
    EXPECT_EQ(watch.Judge(At(2, 2)), Verdict::kAgain);
    EXPECT_EQ(watch.Judge(At(6, 4)), Verdict::kLater);
}

}  // namespace
}  // namespace kvmpd::app
