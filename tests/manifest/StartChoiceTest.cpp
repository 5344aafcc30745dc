#include "manifest/StartChoice.h"

#include <gtest/gtest.h>

#include <limits>

#include "tests/manifest/Records.h"
#include "tests/support/LogCapture.h"

namespace kvmpd::test {
namespace {

/// Ten segments of two seconds, numbers 100 to 109.
MPD TenSegments() {
    return Timeline(100, std::vector<DWORD>(10, 2000));
}

LONGLONG StartNumber(const MPD& mpd, const StartPreference& preference) {
    return SegmentNumber(mpd, static_cast<LONGLONG>(ChooseStartIndex(mpd, preference)));
}

struct StartCase {
    StartPreference preference;
    LONGLONG start;
};

void PrintTo(const StartCase& start, std::ostream* out) {
    *out << "id " << start.preference.segmentId << " time " << start.preference.delayTime << " segments "
         << start.preference.delaySegment;
}

class StartChoice : public testing::TestWithParam<StartCase> {};

TEST_P(StartChoice, OfTheSegments100To109) {
    EXPECT_EQ(StartNumber(TenSegments(), GetParam().preference), GetParam().start);
}

INSTANTIATE_TEST_SUITE_P(ByDelayInSegments, StartChoice,
                         testing::Values(StartCase{{.delaySegment = 0}, 109}, StartCase{{.delaySegment = 3}, 106},
                                         StartCase{{.delaySegment = 9}, 100}, StartCase{{.delaySegment = 10}, 100},
                                         StartCase{{.delaySegment = 1000}, 100},
                                         StartCase{{.delaySegment = 0xFFFFFFFF}, 100}));

INSTANTIATE_TEST_SUITE_P(ByNumber, StartChoice,
                         testing::Values(StartCase{{.segmentId = 104}, 103}, StartCase{{.segmentId = 109}, 108},
                                         StartCase{{.segmentId = 101}, 100}, StartCase{{.segmentId = 100}, 100},
                                         StartCase{{.segmentId = 99}, 100}, StartCase{{.segmentId = 1}, 100},
                                         StartCase{{.segmentId = 110}, 109}, StartCase{{.segmentId = 200}, 109},
                                         StartCase{{.segmentId = std::numeric_limits<LONGLONG>::max()}, 109}));

INSTANTIATE_TEST_SUITE_P(ByDelayTime, StartChoice,
                         testing::Values(StartCase{{.delayTime = 1}, 109}, StartCase{{.delayTime = 1999}, 109},
                                         StartCase{{.delayTime = 2000}, 108}, StartCase{{.delayTime = 5000}, 107},
                                         StartCase{{.delayTime = 19'999}, 100}, StartCase{{.delayTime = 20'000}, 100},
                                         StartCase{{.delayTime = 0xFFFFFFFF}, 100}));

INSTANTIATE_TEST_SUITE_P(Precedence, StartChoice,
                         testing::Values(StartCase{{.segmentId = 104, .delayTime = 5000, .delaySegment = 9}, 103},
                                         StartCase{{.segmentId = 0, .delayTime = 5000, .delaySegment = 9}, 107},
                                         StartCase{{.segmentId = -5, .delayTime = 0, .delaySegment = 3}, 106}));

TEST(StartChoice, CountsUnequalDurationsFromTheLiveEnd) {
    const MPD mpd = Timeline(1, {9000, 1000, 3000, 500});
    EXPECT_EQ(StartNumber(mpd, {.delayTime = 499}), 4);
    EXPECT_EQ(StartNumber(mpd, {.delayTime = 3499}), 3);
    EXPECT_EQ(StartNumber(mpd, {.delayTime = 3500}), 2);
    EXPECT_EQ(StartNumber(mpd, {.delayTime = 4500}), 1);
}

TEST(StartChoice, OfASingleSegmentIsThatSegment) {
    const MPD mpd = Timeline(7, {2000});
    for (const StartPreference& preference : {StartPreference{},
                                              {.segmentId = 7},
                                              {.segmentId = 8},
                                              {.delayTime = 1},
                                              {.delayTime = 9000},
                                              {.delaySegment = 5}}) {
        EXPECT_EQ(StartNumber(mpd, preference), 7);
    }
}

TEST(StartChoice, SurvivesATimelineOfNegativeNumbers) {
    const MPD mpd = Timeline(std::numeric_limits<LONGLONG>::min(), {2000, 2000});
    EXPECT_EQ(ChooseStartIndex(mpd, {.segmentId = std::numeric_limits<LONGLONG>::max()}), 1u);
}

TEST(StartChoiceLog, NamesThePreferredNumber) {
    LogCapture log(3);
    ChooseStartIndex(TenSegments(), {.segmentId = 104});
    EXPECT_EQ(log.Lines(), std::vector<std::string>{" MpdLoader::ThreadProc try to find segment id 104"});
}

TEST(StartChoiceLog, NamesThePreferredDelayTime) {
    LogCapture log(3);
    ChooseStartIndex(TenSegments(), {.delayTime = 5000});
    EXPECT_EQ(log.Lines(),
              std::vector<std::string>{" MpdLoader::ThreadProc try to find segment which delay time is 5000"});
}

TEST(StartChoiceLog, NamesThePreferredDelayInSegmentsEvenWhenItIsNone) {
    LogCapture log(3);
    ChooseStartIndex(TenSegments(), {});
    EXPECT_EQ(log.Lines(), std::vector<std::string>{" MpdLoader::ThreadProc try to find 0 segment from end"});
}

TEST(StartChoiceLog, IsSilentBelowLevelThree) {
    LogCapture log(2);
    ChooseStartIndex(TenSegments(), {});
    EXPECT_TRUE(log.Lines().empty());
}

TEST(SegmentsWithinDelay, CountsNoneOfAnEmptyTimeline) {
    EXPECT_EQ(SegmentsWithinDelay(Timeline(1, {}), 5000), 0u);
}
TEST(SegmentsWithinDelay, CountsAllWhenAllFit) {
    EXPECT_EQ(SegmentsWithinDelay(TenSegments(), 20'000), 10u);
}
TEST(SegmentsWithinDelay, StopsAtASegmentThatDoesNotFitThoughOlderOnesWould) {
    EXPECT_EQ(SegmentsWithinDelay(Timeline(1, {1, 1, 5000, 1}), 100), 1u);
}
TEST(SegmentsWithinDelay, LetsSegmentsWithoutDurationFitAlways) {
    EXPECT_EQ(SegmentsWithinDelay(Timeline(1, {2000, 0, 0}), 0), 2u);
}

}  // namespace
}  // namespace kvmpd::test
