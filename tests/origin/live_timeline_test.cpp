#include "origin/LiveTimeline.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace kvmpd::origin {
namespace {

TEST(LiveTimeline, StartsEmptyWithTheStartNumberUpcoming) {
    const LiveTimeline timeline({.startNumber = 120});
    EXPECT_TRUE(timeline.Empty());
    EXPECT_EQ(timeline.Count(), 0u);
    EXPECT_EQ(timeline.FirstNumber(), 120);
    EXPECT_EQ(timeline.LastNumber(), 119);
    EXPECT_EQ(timeline.Upcoming(), (SegmentTime{120, 0, 2000}));
}

TEST(LiveTimeline, UsesTheDurationsInTurnAndAddsUpTheStartTimes) {
    LiveTimeline timeline({.startNumber = 5, .durationsMs = {2000, 1500, 500}});
    timeline.Advance(4);
    const std::vector<SegmentTime> expected{{5, 0, 2000}, {6, 2000, 1500}, {7, 3500, 500}, {8, 4000, 2000}};
    EXPECT_EQ(timeline.Window(), expected);
    EXPECT_EQ(timeline.EndMs(), 6000);
    EXPECT_EQ(timeline.Upcoming().durationMs, 1500u);
}

TEST(LiveTimeline, AppendGivesOneSegmentItsOwnDurationAndKeepsThePatternForTheOthers) {
    LiveTimeline timeline({.durationsMs = {2000, 1000}});
    timeline.Append(101);
    timeline.Advance(2);
    const std::vector<SegmentTime> expected{{1, 0, 101}, {2, 101, 1000}, {3, 1101, 2000}};
    EXPECT_EQ(timeline.Window(), expected);
}

TEST(LiveTimeline, GrowsForEverWithoutABound) {
    LiveTimeline timeline;
    timeline.Advance(5000);
    EXPECT_EQ(timeline.Count(), 5000u);
    EXPECT_EQ(timeline.FirstNumber(), 1);
    EXPECT_EQ(timeline.LastNumber(), 5000);
}

TEST(LiveTimeline, SlidesByCount) {
    LiveTimeline timeline({.startNumber = 100, .windowSegments = 3});
    timeline.Advance(3);
    EXPECT_EQ(timeline.FirstNumber(), 100);
    timeline.Advance();
    EXPECT_EQ(timeline.FirstNumber(), 101);
    EXPECT_EQ(timeline.LastNumber(), 103);
    EXPECT_EQ(timeline.Window().front(), (SegmentTime{101, 2000, 2000}));
}

TEST(LiveTimeline, SlidesByTimeWithAsManySegmentsAsFit) {
    LiveTimeline timeline({.durationsMs = {2000}, .windowMs = 7000});
    timeline.Advance(10);
    EXPECT_EQ(timeline.Count(), 3u);
    EXPECT_EQ(timeline.FirstNumber(), 8);
}

TEST(LiveTimeline, KeepsTheNewestSegmentEvenWhenItIsLongerThanTheWindow) {
    LiveTimeline timeline({.durationsMs = {2000}, .windowMs = 500});
    timeline.Advance(2);
    EXPECT_EQ(timeline.Count(), 1u);
    EXPECT_EQ(timeline.FirstNumber(), 2);
}

TEST(LiveTimeline, PublishesASegmentAtTheMillisecondAtWhichItEnds) {
    LiveTimeline timeline;
    EXPECT_EQ(timeline.AdvanceTo(1999), 0u);
    EXPECT_EQ(timeline.AdvanceTo(2000), 1u);
    EXPECT_EQ(timeline.AdvanceTo(2000), 0u);
    EXPECT_EQ(timeline.AdvanceTo(9000), 3u);
    EXPECT_EQ(timeline.LastNumber(), 4);
}

TEST(LiveTimeline, FindsWhatWasPublishedListedOrNot) {
    LiveTimeline timeline({.startNumber = 10, .windowSegments = 2});
    timeline.Advance(5);
    EXPECT_EQ(timeline.Find(10), (SegmentTime{10, 0, 2000}));
    EXPECT_EQ(timeline.Find(14), (SegmentTime{14, 8000, 2000}));
    EXPECT_FALSE(timeline.Find(9));
    EXPECT_FALSE(timeline.Find(15));
}

TEST(LiveTimeline, RefusesDurationsOfNothing) {
    EXPECT_THROW(LiveTimeline({.durationsMs = {}}), std::invalid_argument);
    EXPECT_THROW(LiveTimeline({.durationsMs = {2000, 0}}), std::invalid_argument);
    LiveTimeline timeline;
    EXPECT_THROW(timeline.Append(0), std::invalid_argument);
}

}  // namespace
}  // namespace kvmpd::origin
