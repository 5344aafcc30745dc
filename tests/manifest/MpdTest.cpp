#include "manifest/Mpd.h"

#include <gtest/gtest.h>

#include <limits>

#include "tests/manifest/Records.h"

namespace kvmpd::test {
namespace {

TEST(Mpd, IsBornEmpty) {
    const MPD mpd;
    EXPECT_EQ(mpd.m_startNumber, 0);
    EXPECT_EQ(mpd.m_totalDuration, 0u);
    EXPECT_TRUE(mpd.m_segmentDurations.empty());
    EXPECT_TRUE(mpd.m_adaptationSets.empty());
}

TEST(Mpd, NumbersItsSegmentsFromTheStartNumber) {
    const MPD mpd = Timeline(120, {2000, 2000, 2000, 2000, 1500});
    EXPECT_EQ(SegmentNumber(mpd, 0), 120);
    EXPECT_EQ(SegmentNumber(mpd, 4), 124);
    EXPECT_EQ(LastSegmentNumber(mpd), 124);
}

TEST(Mpd, TakesTheLastDurationFromTheLastEntry) {
    EXPECT_EQ(LastSegmentDuration(Timeline(120, {2000, 1500})), 1500u);
}

TEST(Mpd, HasNoLastDurationWithoutATimeline) {
    EXPECT_EQ(LastSegmentDuration(Timeline(5, {})), 0u);
}

TEST(Mpd, EndsBeforeItsFirstNumberWithoutATimeline) {
    EXPECT_EQ(LastSegmentNumber(Timeline(5, {})), 4);
}

TEST(Mpd, WrapsNumbersBeyondTheLargest) {
    const MPD mpd = Timeline(std::numeric_limits<LONGLONG>::max(), {1, 1});
    EXPECT_EQ(LastSegmentNumber(mpd), std::numeric_limits<LONGLONG>::min());
}

struct UrlCase {
    const char* baseUrl;
    const char* media;
    const char* url;
};

class MpdSegmentUrl : public testing::TestWithParam<UrlCase> {};

TEST_P(MpdSegmentUrl, IsTheBaseFollowedByTheName) {
    RepresentationInfo representation = Quality(1, 0, GetParam().baseUrl);
    representation.m_mediaUrls = {"first.m4s", GetParam().media};
    EXPECT_EQ(SegmentUrl(representation, 1), GetParam().url);
}

INSTANTIATE_TEST_SUITE_P(Bases, MpdSegmentUrl,
                         testing::Values(UrlCase{"live/q1/", "seg120.m4s", "live/q1/seg120.m4s"},
                                         UrlCase{"live/q1", "seg120.m4s", "live/q1seg120.m4s"},
                                         UrlCase{"", "seg120.m4s", "seg120.m4s"}, UrlCase{"live/q1/", "", "live/q1/"},
                                         UrlCase{"http://host/a?b=", "/c/../d", "http://host/a?b=/c/../d"}));

TEST(MpdSegmentUrl, IsEmptyPastTheLastName) {
    RepresentationInfo representation = Quality(1, 0, "live/");
    representation.m_mediaUrls = {"1.m4s"};
    EXPECT_EQ(SegmentUrl(representation, 1), "");
}

struct KindCase {
    const char* mimeType;
    bool audio;
    bool video;
};

class AdaptationSetKind : public testing::TestWithParam<KindCase> {};

TEST_P(AdaptationSetKind, IsTheBeginningOfTheMimeType) {
    const AdaptationSetInfo set = Set(GetParam().mimeType, {});
    EXPECT_EQ(set.IsAudio(), GetParam().audio);
    EXPECT_EQ(set.IsVideo(), GetParam().video);
}

INSTANTIATE_TEST_SUITE_P(MimeTypes, AdaptationSetKind,
                         testing::Values(KindCase{"audio/mp4", true, false}, KindCase{"video/mp4", false, true},
                                         KindCase{"audio/mp4; codecs=\"mp4a.40.2\"", true, false},
                                         KindCase{"video/mp4; codecs=\"avc1.64001f\"", false, true},
                                         KindCase{"x-audio/mp4", false, false}, KindCase{"video/webm", false, false},
                                         KindCase{"Unknown", false, false}, KindCase{"", false, false},
                                         KindCase{"Audio/mp4", false, false}));

}  // namespace
}  // namespace kvmpd::test
