#include "app/Text.h"

#include <gtest/gtest.h>

#include "app/Json.h"

namespace kvmpd::app {
namespace {

using std::chrono::milliseconds;

struct LengthCase {
    const char* text;
    std::optional<milliseconds> length;
};

class DurationText : public testing::TestWithParam<LengthCase> {};

TEST_P(DurationText, MeansTheLengthThatAPersonReads) {
    EXPECT_EQ(ParseDuration(GetParam().text), GetParam().length);
}

INSTANTIATE_TEST_SUITE_P(
    Lengths, DurationText,
    testing::Values(LengthCase{"20", milliseconds(20000)}, LengthCase{"20s", milliseconds(20000)},
                    LengthCase{"1m30s", milliseconds(90000)}, LengthCase{"2h", milliseconds(7200000)},
                    LengthCase{"90m", milliseconds(5400000)}, LengthCase{"1.5s", milliseconds(1500)},
                    LengthCase{"0.25", milliseconds(250)}, LengthCase{"1h2m3s", milliseconds(3723000)},
                    LengthCase{"", std::nullopt}, LengthCase{"0", std::nullopt}, LengthCase{"-5", std::nullopt},
                    LengthCase{"abc", std::nullopt}, LengthCase{"20x", std::nullopt}, LengthCase{"20 s", std::nullopt},
                    LengthCase{"1m30", std::nullopt}, LengthCase{"30s1m", std::nullopt},
                    LengthCase{"5s5s", std::nullopt}, LengthCase{"s", std::nullopt}, LengthCase{"1e3", std::nullopt},
                    LengthCase{"nan", std::nullopt}, LengthCase{"inf", std::nullopt},
                    LengthCase{"99999999999999999999h", std::nullopt}));

struct UrlCase {
    const char* url;
    bool good;
};

class ManifestUrl : public testing::TestWithParam<UrlCase> {};

TEST_P(ManifestUrl, IsHttpOrHttpsWithAHost) {
    EXPECT_EQ(IsHttpUrl(GetParam().url), GetParam().good);
}

INSTANTIATE_TEST_SUITE_P(Urls, ManifestUrl,
                         testing::Values(UrlCase{"http://127.0.0.1:8080/live.mpd", true},
                                         UrlCase{"https://example.org/a?b=c", true}, UrlCase{"HTTP://Host/", true},
                                         UrlCase{"http://[::1]/x", true}, UrlCase{"", false}, UrlCase{"http://", false},
                                         UrlCase{"http:///path", false}, UrlCase{"http://:80/", false},
                                         UrlCase{"ftp://host/x", false}, UrlCase{"file:///x.mpd", false},
                                         UrlCase{"live.mpd", false}, UrlCase{"http:/host", false},
                                         UrlCase{"http://ho st/", false}, UrlCase{"http://host/\n", false}));

TEST(Utf8, SurvivesTheWayThereAndBack) {
    const std::string text = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x8E\xAC";
    EXPECT_EQ(WideFromUtf8(text), L"a\u00E9\u20AC\U0001F3AC");
    EXPECT_EQ(Utf8FromWide(WideFromUtf8(text)), text);
}

TEST(Utf8, IllFormedBytesBecomeReplacementCharacters) {
    EXPECT_EQ(WideFromUtf8("a\xFFz"), L"a\uFFFDz");
    EXPECT_EQ(WideFromUtf8("\xC0\x80"), L"\uFFFD\uFFFD");            // an overlong zero
    EXPECT_EQ(WideFromUtf8("\xE2\x82"), L"\uFFFD\uFFFD");            // cut short
    EXPECT_EQ(WideFromUtf8("\xED\xA0\x80"), L"\uFFFD\uFFFD\uFFFD");  // a surrogate
}

TEST(ClockText, ShowsHoursOnlyWhenThereAreAny) {
    EXPECT_EQ(FormatClock(0, false), "0:00");
    EXPECT_EQ(FormatClock(83, true), "0:00.083");
    EXPECT_EQ(FormatClock(83000, false), "1:23");
    EXPECT_EQ(FormatClock(3723004, true), "1:02:03.004");
    EXPECT_EQ(FormatClock(-2500, true), "-0:02.500");
}

TEST(SizeText, UsesTheUnitThatFits) {
    EXPECT_EQ(FormatBytes(999), "999 B");
    EXPECT_EQ(FormatBytes(1500), "1.5 kB");
    EXPECT_EQ(FormatBytes(3200000), "3.2 MB");
    EXPECT_EQ(FormatBytes(7150000000), "7.15 GB");
    EXPECT_EQ(FormatBitRate(950000), "950 kbit/s");
    EXPECT_EQ(FormatBitRate(2100000), "2.10 Mbit/s");
}

TEST(Json, QuotesWhatWouldBreakALine) {
    EXPECT_EQ(JsonQuote("plain"), "\"plain\"");
    EXPECT_EQ(JsonQuote("a\"b\\c\n\r\t\x01"), "\"a\\\"b\\\\c\\n\\r\\t\\u0001\"");
    EXPECT_EQ(JsonQuote("\xC3\xA9"), "\"\xC3\xA9\"");
    EXPECT_EQ(JsonQuote("\xFF"), "\"\xEF\xBF\xBD\"");
}

TEST(Json, BuildsOneObjectPerLine) {
    EXPECT_EQ(JsonLine().Str(), "{}");
    EXPECT_EQ(JsonLine().Text("a", "x").Number("b", -3).Bool("c", true).Seconds("d", 12034).Seconds("e", -5).Str(),
              R"({"a":"x","b":-3,"c":true,"d":12.034,"e":-0.005})");
}

}  // namespace
}  // namespace kvmpd::app
