// What the parser keeps of a manifest that it accepts.
#include <gtest/gtest.h>

#include "tests/manifest/ParserFixture.h"

namespace kvmpd::test {
namespace {

using Lines = std::vector<std::string>;
using Names = TextList;
using Durations = std::vector<DWORD>;

constexpr const char* kOneQuality = R"(<Representation id="1"><BaseURL>b/</BaseURL></Representation>)";

TEST(MpdParserTimeline, NumbersAndSumsItsSegments) {
    const Parsed parsed = Parse(Period(
        R"(<SegmentList startNumber="120"><SegmentTimeline><S d="2000"/><S d="2000"/><S d="2000"/><S d="2000"/><S d="1500"/></SegmentTimeline></SegmentList>)"));
    EXPECT_EQ(parsed.result, S_OK);
    EXPECT_EQ(parsed.mpd->m_startNumber, 120);
    EXPECT_EQ(LastSegmentNumber(*parsed.mpd), 124);
    EXPECT_EQ(parsed.mpd->m_totalDuration, 9500u);
    EXPECT_EQ(LastSegmentDuration(*parsed.mpd), 1500u);
    EXPECT_EQ(parsed.log, Lines());
}

TEST(MpdParserTimeline, MayBeEmpty) {
    const Parsed parsed = Parse(TimelineManifest(""));
    EXPECT_EQ(parsed.result, S_OK);
    EXPECT_TRUE(parsed.mpd->m_segmentDurations.empty());
    EXPECT_EQ(parsed.mpd->m_totalDuration, 0u);
}

TEST(MpdParserTimeline, TakesARepeatedEntryAsOneSegment) {
    EXPECT_EQ(Parse(TimelineManifest(R"(<S d="2000" r="3"/>)")).mpd->m_segmentDurations, Durations{2000});
}

TEST(MpdParserTimeline, IgnoresStartTimesAndForeignAttributes) {
    const Parsed parsed = Parse(TimelineManifest(R"(<S t="77" d="2000" yt:sid="9"/><S yt:sid="10" d="5000"/>)"));
    EXPECT_EQ(parsed.mpd->m_segmentDurations, (Durations{2000, 5000}));
}

TEST(MpdParserTimeline, TakesDurationsAsTheyStandWhateverTheTimescale) {
    const Parsed parsed = Parse(Period(
        R"(<SegmentList timescale="90000" startNumber="1"><SegmentTimeline><S d="180000"/></SegmentTimeline></SegmentList>)"));
    EXPECT_EQ(parsed.mpd->m_segmentDurations, Durations{180'000});
}

TEST(MpdParserTimeline, IgnoresOtherElementsBetweenItsEntries) {
    EXPECT_EQ(Parse(TimelineManifest(R"(<S d="1"/><X d="2"/><!-- <S d="3"/> --><s d="4"/><S d="5"/>)"))
                  .mpd->m_segmentDurations,
              (Durations{1, 5}));
}

TEST(MpdParserTimeline, KeepsASegmentWhoseDurationIsNotANumber) {
    const Parsed parsed = Parse(TimelineManifest(R"(<S d="1000"/><S d="abc"/><S d="2000"/>)"));
    EXPECT_EQ(parsed.result, S_OK);
    EXPECT_EQ(parsed.mpd->m_segmentDurations, (Durations{1000, 0, 2000}));
    EXPECT_EQ(parsed.mpd->m_totalDuration, 3000u);
    EXPECT_EQ(parsed.log, (Lines{"[Error] MpdParser::parse get unexpected target duration for: abc",
                                 "[Error] MpdParser::parse : invalid stoi argument"}));
}

TEST(MpdParserTimeline, KeepsASegmentWhoseDurationIsTooLarge) {
    const Parsed parsed = Parse(TimelineManifest(R"(<S d="2147483648"/>)"));
    EXPECT_EQ(parsed.mpd->m_segmentDurations, Durations{0});
    EXPECT_EQ(parsed.log, (Lines{"[Error] MpdParser::parse get unexpected target duration for: 2147483648",
                                 "[Error] MpdParser::parse : stoi argument out of range"}));
}

TEST(MpdParserTimeline, WrapsANegativeDuration) {
    const Parsed parsed = Parse(TimelineManifest(R"(<S d="-1"/><S d="3"/>)"));
    EXPECT_EQ(parsed.mpd->m_segmentDurations, (Durations{0xFFFFFFFF, 3}));
    EXPECT_EQ(parsed.mpd->m_totalDuration, 2u);
}

TEST(MpdParserStartNumber, StopsAtTheFirstCharacterThatIsNoDigit) {
    EXPECT_EQ(Parse(Period(R"(<SegmentList startNumber="12abc"><SegmentTimeline/></SegmentList>)")).mpd->m_startNumber,
              12);
}

TEST(MpdParserStartNumber, IsSixtyFourBitsWide) {
    EXPECT_EQ(
        Parse(Period(R"(<SegmentList startNumber=" 9000000000"><SegmentTimeline/></SegmentList>)")).mpd->m_startNumber,
        9'000'000'000LL);
}

TEST(MpdParserShape, ReadsOnlyTheFirstPeriod) {
    const Parsed parsed =
        Parse("<MPD><Period>" + std::string(kTimeline) +
              R"(</Period><Period><SegmentList startNumber="9"/><AdaptationSet id="1"/></Period></MPD>)");
    EXPECT_EQ(parsed.result, S_OK);
    EXPECT_EQ(parsed.mpd->m_startNumber, 120);
    EXPECT_TRUE(parsed.mpd->m_adaptationSets.empty());
}

TEST(MpdParserShape, ReadsOnlyTheFirstListAndTimeline) {
    const Parsed parsed = Parse(Period(
        R"(<SegmentList startNumber="1"><SegmentTimeline><S d="1"/></SegmentTimeline><SegmentTimeline><S d="2"/></SegmentTimeline></SegmentList><SegmentList startNumber="2"><SegmentTimeline><S d="3"/></SegmentTimeline></SegmentList>)"));
    EXPECT_EQ(parsed.mpd->m_startNumber, 1);
    EXPECT_EQ(parsed.mpd->m_segmentDurations, Durations{1});
}

TEST(MpdParserShape, FindsElementsInAnyOrderAmongOthers) {
    const Parsed parsed = Parse(
        R"(<!-- live --><MPD xmlns="urn:mpeg:dash:schema:mpd:2011"><ProgramInformation/><Period><EventStream/>)"
        R"(<AdaptationSet id="1" mimeType="audio/mp4"><Role/>)"
        R"(<Representation id="2"><AudioChannelConfiguration value="2"/><BaseURL>b/</BaseURL></Representation></AdaptationSet>)" +
        std::string(kTimeline) + "</Period></MPD>");
    EXPECT_EQ(parsed.result, S_OK);
    EXPECT_EQ(parsed.mpd->m_segmentDurations.size(), 3u);
    EXPECT_EQ(parsed.Quality().m_baseUrl, "b/");
}

TEST(MpdParserShape, DoesNotTakeARepresentationsListForThePeriods) {
    EXPECT_EQ(
        Parse(
            Period(
                R"(<AdaptationSet><Representation id="1"><SegmentList startNumber="1"><SegmentTimeline/></SegmentList></Representation></AdaptationSet>)"))
            .result,
        E_UNEXPECTED);
}

TEST(MpdParserSet, KeepsIdMimeTypeAndOrder) {
    const Parsed parsed = Parse(Manifest(
        R"(<AdaptationSet id="3" mimeType="audio/mp4"/><AdaptationSet id="1" mimeType="video/mp4"/><AdaptationSet id="2" mimeType="video/webm"/>)"));
    ASSERT_EQ(parsed.mpd->m_adaptationSets.size(), 3u);
    EXPECT_EQ(parsed.Set(0).m_id, 3);
    EXPECT_EQ(parsed.Set(1).m_mimeType, "video/mp4");
    EXPECT_EQ(parsed.Set(2).m_mimeType, "video/webm");
    EXPECT_EQ(parsed.log, Lines());
}

TEST(MpdParserSet, IsKeptWithoutRepresentations) {
    EXPECT_TRUE(Parse(Manifest(R"(<AdaptationSet id="3" mimeType="video/mp4"/>)")).Set().m_representations.empty());
}

TEST(MpdParserSet, IsUnknownWithoutAMimeTypeAndThenNeverChosen) {
    const Parsed parsed = Parse(Manifest(R"(<AdaptationSet id="3"/>)"));
    EXPECT_EQ(parsed.Set().m_mimeType, "Unknown");
    EXPECT_FALSE(parsed.Set().IsAudio() || parsed.Set().IsVideo());
}

TEST(MpdParserSet, IsKeptWithIdZeroWithoutAnId) {
    const Parsed parsed = Parse(Manifest(R"(<AdaptationSet mimeType="video/mp4"/>)"));
    EXPECT_EQ(parsed.result, S_OK);
    EXPECT_EQ(parsed.Set().m_id, 0);
    EXPECT_EQ(parsed.log, Lines{"[Error] MpdParser::parse failed to find id in AdaptationSet "});
}

TEST(MpdParserSet, IsKeptWithIdZeroWhenTheIdIsNotANumber) {
    const Parsed parsed = Parse(Manifest(R"(<AdaptationSet id="main" mimeType="video/mp4"/>)"));
    EXPECT_EQ(parsed.Set().m_id, 0);
    EXPECT_EQ(parsed.log, (Lines{"[Error] MpdParser::parse get AdaptationSet unexpected id",
                                 "[Error] MpdParser::parse : invalid stoi argument"}));
}

TEST(MpdParserRepresentation, KeepsItsNumbers) {
    const Parsed parsed = Parse(VideoManifest(
        R"(<Representation id="11" bandwidth="2500000" frameRate="30" width="1280" height="720"><BaseURL>b/</BaseURL></Representation>)"));
    EXPECT_EQ(parsed.Quality().m_id, 11);
    EXPECT_EQ(parsed.Quality().m_bandwidth, 2'500'000);
    EXPECT_EQ(parsed.Quality().m_frameRate, 30);
    EXPECT_EQ(parsed.Quality().m_width, 1280);
    EXPECT_EQ(parsed.Quality().m_height, 720);
    EXPECT_EQ(parsed.log, Lines());
}

TEST(MpdParserRepresentation, HasZerosForAbsentNumbersWithoutAnError) {
    const Parsed parsed = Parse(VideoManifest(kOneQuality));
    EXPECT_EQ(parsed.Quality().m_bandwidth, 0);
    EXPECT_EQ(parsed.Quality().m_frameRate, 0);
    EXPECT_EQ(parsed.Quality().m_width, 0);
    EXPECT_EQ(parsed.Quality().m_height, 0);
    EXPECT_EQ(parsed.log, Lines());
}

struct FrameRateCase {
    const char* text;
    LONG frameRate;
};

class MpdParserFrameRate : public testing::TestWithParam<FrameRateCase> {};

TEST_P(MpdParserFrameRate, IsTheLeadingInteger) {
    const Parsed parsed = Parse(VideoManifest(R"(<Representation id="1" frameRate=")" + std::string(GetParam().text) +
                                              R"("><BaseURL>b/</BaseURL></Representation>)"));
    EXPECT_EQ(parsed.Quality().m_frameRate, GetParam().frameRate);
}

INSTANTIATE_TEST_SUITE_P(Texts, MpdParserFrameRate,
                         testing::Values(FrameRateCase{"25", 25}, FrameRateCase{"30000/1001", 30000},
                                         FrameRateCase{"24000/1001", 24000}, FrameRateCase{"29.97", 29}));

TEST(MpdParserRepresentation, ReadsAWidthUpToItsDecimalPoint) {
    EXPECT_EQ(Parse(VideoManifest(R"(<Representation id="1" width="1280.5"><BaseURL>b/</BaseURL></Representation>)"))
                  .Quality()
                  .m_width,
              1280);
}

class MpdParserBadNumber : public testing::TestWithParam<const char*> {};

TEST_P(MpdParserBadNumber, IsZeroAndKeepsTheRepresentationAndItsOtherNumbers) {
    const std::string name = GetParam();
    std::string attributes;
    for (const std::string other : {"bandwidth", "frameRate", "width", "height"}) {
        attributes += " " + other + "=\"" + (other == name ? "x" : "7") + "\"";
    }
    const Parsed parsed =
        Parse(VideoManifest("<Representation id=\"1\"" + attributes + "><BaseURL>b/</BaseURL></Representation>"));
    const RepresentationInfo& quality = parsed.Quality();
    EXPECT_EQ(quality.m_bandwidth, name == "bandwidth" ? 0 : 7);
    EXPECT_EQ(quality.m_frameRate, name == "frameRate" ? 0 : 7);
    EXPECT_EQ(quality.m_width, name == "width" ? 0 : 7);
    EXPECT_EQ(quality.m_height, name == "height" ? 0 : 7);
    EXPECT_EQ(parsed.log, (Lines{"[Error] MpdParser::parse get Representation unexpected " + name,
                                 "[Error] MpdParser::parse : invalid stoi argument"}));
}

INSTANTIATE_TEST_SUITE_P(Attributes, MpdParserBadNumber, testing::Values("bandwidth", "frameRate", "width", "height"));

TEST(MpdParserRepresentation, ReportsItsBadNumbersInTheirFixedOrder) {
    const Parsed parsed = Parse(VideoManifest(
        R"(<Representation height="h" width="w" frameRate="99999999999" bandwidth="b" id="1"><BaseURL>b/</BaseURL></Representation>)"));
    EXPECT_EQ(parsed.log, (Lines{"[Error] MpdParser::parse get Representation unexpected bandwidth",
                                 "[Error] MpdParser::parse : invalid stoi argument",
                                 "[Error] MpdParser::parse get Representation unexpected frameRate",
                                 "[Error] MpdParser::parse : stoi argument out of range",
                                 "[Error] MpdParser::parse get Representation unexpected width",
                                 "[Error] MpdParser::parse : invalid stoi argument",
                                 "[Error] MpdParser::parse get Representation unexpected height",
                                 "[Error] MpdParser::parse : invalid stoi argument"}));
}

TEST(MpdParserRepresentation, IsSkippedWithoutAnId) {
    const Parsed parsed =
        Parse(VideoManifest(R"(<Representation><BaseURL>a/</BaseURL></Representation>)" + std::string(kOneQuality)));
    ASSERT_EQ(parsed.Set().m_representations.size(), 1u);
    EXPECT_EQ(parsed.Quality().m_baseUrl, "b/");
    EXPECT_EQ(parsed.log, Lines{"[Error] MpdParser::parse failed to get id from Representation"});
}

TEST(MpdParserRepresentation, IsSkippedWhenItsIdIsNotANumber) {
    const Parsed parsed = Parse(
        VideoManifest(R"(<Representation id="v1"><BaseURL>a/</BaseURL></Representation>)" + std::string(kOneQuality)));
    ASSERT_EQ(parsed.Set().m_representations.size(), 1u);
    EXPECT_EQ(parsed.log, (Lines{"[Error] MpdParser::parse get Representation unexpected id",
                                 "[Error] MpdParser::parse : invalid stoi argument"}));
}

TEST(MpdParserRepresentation, IsSkippedWhenItsIdIsTooLarge) {
    const Parsed parsed =
        Parse(VideoManifest(R"(<Representation id="2147483648"><BaseURL>a/</BaseURL></Representation>)"));
    EXPECT_TRUE(parsed.Set().m_representations.empty());
    EXPECT_EQ(parsed.log, (Lines{"[Error] MpdParser::parse get Representation unexpected id",
                                 "[Error] MpdParser::parse : stoi argument out of range"}));
}

TEST(MpdParserRepresentation, IsSkippedWithoutABaseUrl) {
    const Parsed parsed = Parse(VideoManifest(R"(<Representation id="1"/>)" + std::string(kOneQuality)));
    ASSERT_EQ(parsed.Set().m_representations.size(), 1u);
    EXPECT_EQ(parsed.log, Lines{"[Error] MpdParser::parse failed to get BaseURL"});
}

TEST(MpdParserRepresentation, TakesABaseUrlWithoutTextAsEmpty) {
    for (const char* element : {"<BaseURL/>", "<BaseURL></BaseURL>", "<BaseURL><x/></BaseURL>"}) {
        const Parsed parsed =
            Parse(VideoManifest("<Representation id=\"1\">" + std::string(element) + "</Representation>"));
        EXPECT_EQ(parsed.result, S_OK) << element;
        EXPECT_EQ(parsed.Quality().m_baseUrl, "") << element;
    }
}

TEST(MpdParserRepresentation, ReadsTheFirstBaseUrlWithItsEntities) {
    EXPECT_EQ(
        Parse(
            VideoManifest(
                R"(<Representation id="1"><BaseURL>https://h/a%2Fb?x=1&amp;y=2/</BaseURL><BaseURL>no/</BaseURL></Representation>)"))
            .Quality()
            .m_baseUrl,
        "https://h/a%2Fb?x=1&y=2/");
}

TEST(MpdParserRepresentation, KeepsBlanksAndLineFeedsAroundItsBaseUrl) {
    EXPECT_EQ(
        Parse(VideoManifest("<Representation id=\"1\"><BaseURL>\n  https://h/a  b/ \n</BaseURL></Representation>"))
            .Quality()
            .m_baseUrl,
        "\n  https://h/a  b/ \n");
}

TEST(MpdParserRepresentation, HasNoMediaNamesWithoutAList) {
    const Parsed parsed = Parse(VideoManifest(kOneQuality));
    EXPECT_EQ(parsed.result, S_OK);
    EXPECT_TRUE(parsed.Quality().m_mediaUrls.empty());
}

TEST(MpdParserRepresentation, KeepsItsMediaNamesInOrder) {
    const Parsed parsed = Parse(VideoManifest(
        R"(<Representation id="1"><BaseURL>b/</BaseURL><SegmentList><Initialization sourceURL="i"/><SegmentURL media="sq/122/a.m4s"/><SegmentURL media="sq/121/b.m4s"/></SegmentList><SegmentList><SegmentURL media="no"/></SegmentList></Representation>)"));
    EXPECT_EQ(parsed.Quality().m_mediaUrls, (Names{"sq/122/a.m4s", "sq/121/b.m4s"}));
}

TEST(MpdParserRepresentation, SkipsASegmentWithoutAMediaName) {
    const Parsed parsed = Parse(VideoManifest(
        R"(<Representation id="1"><BaseURL>b/</BaseURL><SegmentList><SegmentURL media="1"/><SegmentURL mediaRange="0-9"/><SegmentURL media=""/></SegmentList></Representation>)"));
    EXPECT_EQ(parsed.Quality().m_mediaUrls, (Names{"1", ""}));
    EXPECT_EQ(parsed.log, Lines{"[Error] MpdParser::parse failed to get media from SegmentURL"});
}

TEST(MpdParserRepresentation, KeepsTextAsUtf8) {
    EXPECT_EQ(
        Parse(VideoManifest("<Representation id=\"1\"><BaseURL>https://h/\xE2\x82\xAC/</BaseURL></Representation>"))
            .Quality()
            .m_baseUrl,
        "https://h/\xE2\x82\xAC/");
}

TEST(MpdParserLog, TellsEachStepAtItsLevel) {
    const Parsed parsed = Parse(VideoManifest(kOneQuality), 6);
    EXPECT_EQ(parsed.log, (Lines{" MpdParser::parse ", " MpdParser::parse download MPD complete",
                                 " MpdParser::parse start number is 120",
                                 " MpdParser::parse get SegmentList start number: 120, length: 3"}));
    EXPECT_EQ(Parse(VideoManifest(kOneQuality), 5).log,
              (Lines{" MpdParser::parse ", " MpdParser::parse download MPD complete",
                     " MpdParser::parse get SegmentList start number: 120, length: 3"}));
    EXPECT_EQ(Parse(VideoManifest(kOneQuality), 4).log,
              (Lines{" MpdParser::parse ", " MpdParser::parse download MPD complete"}));
    EXPECT_EQ(Parse(VideoManifest(kOneQuality), 3).log, Lines());
}

TEST(MpdParserLog, TellsBirthAndDeathAtLevelFour) {
    LogCapture log(4);
    { MpdParser parser; }
    EXPECT_EQ(log.Count(" MpdParser::MpdParser "), 1u);
    EXPECT_EQ(log.Count(" MpdParser::~MpdParser "), 1u);
}

TEST(MpdParserLog, IsSilentAboutBirthAndDeathAtLevelThree) {
    LogCapture log(3);
    { MpdParser parser(std::make_unique<FakeHttpClient>()); }
    EXPECT_TRUE(log.Lines().empty());
}

}  // namespace
}  // namespace kvmpd::test
