// Manifests that the parser refuses: each with its result and its message.
#include <gtest/gtest.h>

#include "tests/manifest/ParserFixture.h"

namespace kvmpd::test {
namespace {

using Lines = std::vector<std::string>;

struct RefusedCase {
    const char* name;
    std::string body;
    HRESULT result;
    Lines log;
};

void PrintTo(const RefusedCase& refused, std::ostream* out) {
    *out << refused.name;
}

class MpdParserRefuses : public testing::TestWithParam<RefusedCase> {};

TEST_P(MpdParserRefuses, WithItsResultAndMessage) {
    const Parsed parsed = Parse(GetParam().body);
    EXPECT_EQ(parsed.result, GetParam().result);
    EXPECT_EQ(parsed.log, GetParam().log);
}

const Lines kNoMpd{"[Error] MpdParser::parse failed to get MPD node from root"};
const Lines kNoPeriod{"[Error] MpdParser::parse failed to get Period node from root"};
const Lines kNoList{"[Error] MpdParser::parse failed to get SegmentList node from period"};
const Lines kNoTimeline{"[Error] MpdParser::parse failed to get SegmentTimeline node from SegmentList"};
const Lines kNoDuration{"[Error] MpdParser::parse failed to get d from in SegmentTimeline S"};

INSTANTIATE_TEST_SUITE_P(
    Structure, MpdParserRefuses,
    testing::Values(
        RefusedCase{"AnotherRoot", "<SmoothStreamingMedia/>", E_UNEXPECTED, kNoMpd},
        RefusedCase{"RootInAnotherCase", "<mpd><Period/></mpd>", E_UNEXPECTED, kNoMpd},
        RefusedCase{"MpdBelowTheRoot", "<x><MPD/></x>", E_UNEXPECTED, kNoMpd},
        RefusedCase{"PrefixedRoot", "<dash:MPD/>", E_UNEXPECTED, kNoMpd},
        RefusedCase{"NoPeriod", "<MPD><BaseURL>x</BaseURL></MPD>", E_UNEXPECTED, kNoPeriod},
        RefusedCase{"NoSegmentList", Period(""), E_UNEXPECTED, kNoList},
        RefusedCase{
            "SegmentTemplate",
            Period(
                R"(<SegmentTemplate media="$Number$.m4s"><SegmentTimeline><S d="1"/></SegmentTimeline></SegmentTemplate>)"),
            E_UNEXPECTED, kNoList},
        RefusedCase{"NoTimeline", Period(R"(<SegmentList startNumber="1"/>)"), E_UNEXPECTED, kNoTimeline},
        RefusedCase{"NoTimelineNorStartNumber", Period("<SegmentList/>"), E_UNEXPECTED, kNoTimeline}),
    [](const auto& test) { return std::string(test.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Numbers, MpdParserRefuses,
    testing::Values(
        RefusedCase{"NoStartNumber",
                    Period("<SegmentList><SegmentTimeline/></SegmentList>"),
                    E_FAIL,
                    {"[Error] MpdParser::parse failed to get startNumber from segmentList"}},
        RefusedCase{"StartNumberInAnotherCase",
                    Period(R"(<SegmentList StartNumber="1"><SegmentTimeline/></SegmentList>)"),
                    E_FAIL,
                    {"[Error] MpdParser::parse failed to get startNumber from segmentList"}},
        RefusedCase{"StartNumberIsText",
                    Period(R"(<SegmentList startNumber="abc"><SegmentTimeline/></SegmentList>)"),
                    E_FAIL,
                    {"[Error] MpdParser::parse get unexpected startNumber",
                     "[Error] MpdParser::parse : invalid stoll argument"}},
        RefusedCase{"StartNumberIsEmpty",
                    Period(R"(<SegmentList startNumber=""><SegmentTimeline/></SegmentList>)"),
                    E_FAIL,
                    {"[Error] MpdParser::parse get unexpected startNumber",
                     "[Error] MpdParser::parse : invalid stoll argument"}},
        RefusedCase{"StartNumberIsTooLarge",
                    Period(R"(<SegmentList startNumber="9223372036854775808"><SegmentTimeline/></SegmentList>)"),
                    E_FAIL,
                    {"[Error] MpdParser::parse get unexpected startNumber",
                     "[Error] MpdParser::parse : stoll argument out of range"}},
        RefusedCase{"FirstEntryWithoutDuration", TimelineManifest("<S/>"), E_FAIL, kNoDuration},
        RefusedCase{"LastEntryWithoutDuration", TimelineManifest(R"(<S d="1"/><S r="1"/>)"), E_FAIL, kNoDuration}),
    [](const auto& test) { return std::string(test.param.name); });

/// The numbers are the XML library's.
Lines XmlError(int number) {
    return {"[Error] MpdParser::parse get unexpected xml format: " + std::to_string(number)};
}

INSTANTIATE_TEST_SUITE_P(Xml, MpdParserRefuses,
                         testing::Values(RefusedCase{"EmptyBody", "", E_FAIL, XmlError(13)},
                                         RefusedCase{"BlankBody", " \r\n", E_FAIL, XmlError(13)},
                                         RefusedCase{"ZeroByte", std::string(1, '\0'), E_FAIL, XmlError(13)},
                                         RefusedCase{"OnlyAByteOrderMark", "\xEF\xBB\xBF", E_FAIL, XmlError(13)},
                                         RefusedCase{"PlainText", "404 page not found", E_FAIL, XmlError(8)},
                                         RefusedCase{"UnclosedElement", "<MPD><Period>", E_FAIL, XmlError(14)},
                                         RefusedCase{"CrossedElements", "<MPD><Period></MPD></Period>", E_FAIL,
                                                     XmlError(14)},
                                         RefusedCase{"UnclosedTag", "<MPD", E_FAIL, XmlError(6)},
                                         RefusedCase{"UnquotedAttribute", "<MPD a=b/>", E_FAIL, XmlError(7)},
                                         RefusedCase{"UnclosedComment", "<MPD><!-- ", E_FAIL, XmlError(10)}),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(MpdParserRefuses, AnHtmlErrorPage) {
    EXPECT_EQ(Parse("<html><body><h1>404</h1></body></html>").result, E_UNEXPECTED);
}

TEST(MpdParserRefuses, ElementsNestedWithoutEnd) {
    std::string body;
    for (int depth = 0; depth < 100'000; ++depth) {
        body += "<x>";
    }
    EXPECT_EQ(Parse(std::move(body)).result, E_FAIL);
}

TEST(MpdParserRefuses, AManifestCutAnywhere) {
    const std::string whole = VideoManifest(
        R"(<Representation id="1" bandwidth="2"><BaseURL>b/</BaseURL><SegmentList><SegmentURL media="m"/></SegmentList></Representation>)");
    ASSERT_EQ(Parse(whole).result, S_OK);
    for (size_t length = 0; length < whole.size(); ++length) {
        EXPECT_LT(Parse(whole.substr(0, length)).result, 0) << length;
    }
}

TEST(MpdParserRefuses, NothingAfterAFailure) {
    auto client = std::make_unique<FakeHttpClient>();
    FakeHttpClient& http = *client;
    MpdParser parser(std::move(client));
    http.body = "<MPD/>";
    EXPECT_EQ(parser.parse(L"http://origin/", std::make_shared<MPD>()), E_UNEXPECTED);
    http.body = Manifest("");
    EXPECT_EQ(parser.parse(L"http://origin/", std::make_shared<MPD>()), S_OK);
}

}  // namespace
}  // namespace kvmpd::test
