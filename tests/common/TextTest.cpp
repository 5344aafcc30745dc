#include "common/Text.h"

#include <string>

#include <gtest/gtest.h>

namespace kvmpd {
namespace {

struct Pair {
    const char* name;
    std::string utf8;
    std::wstring wide;
};

class TextPairs : public testing::TestWithParam<Pair> {};

TEST_P(TextPairs, ConvertBothWays) {
    EXPECT_EQ(Utf8ToWide(GetParam().utf8), GetParam().wide);
    EXPECT_EQ(WideToUtf8(GetParam().wide), GetParam().utf8);
}

INSTANTIATE_TEST_SUITE_P(Texts, TextPairs,
                         testing::Values(Pair{"Empty", "", L""},
                                         Pair{"Ascii", "http://host/a?b=c", L"http://host/a?b=c"},
                                         Pair{"TwoBytes", "na\xC3\xAFve", L"na\u00EFve"},
                                         Pair{"ThreeBytes", "\xE2\x82\xAC", L"\u20AC"},
                                         Pair{"FourBytes", "\xF0\x9F\x98\x80", L"\U0001F600"},
                                         Pair{"ZeroInside", std::string("a\0b", 3), std::wstring(L"a\0b", 3)},
                                         Pair{"Long", std::string(100000, 'x'), std::wstring(100000, L'x')}),
                         [](const testing::TestParamInfo<Pair>& row) { return std::string(row.param.name); });

TEST(TextConversion, BytesThatAreNoUtf8BecomeReplacementCharacters) {
    EXPECT_EQ(Utf8ToWide("a\x80z"), L"a\uFFFDz");
    EXPECT_EQ(Utf8ToWide("a\xFF"), L"a\uFFFD");
}

TEST(TextConversion, LoneSurrogateBecomesAReplacementCharacter) {
    EXPECT_EQ(WideToUtf8(std::wstring{L'a', static_cast<wchar_t>(0xD800), L'z'}), "a\xEF\xBF\xBDz");
}

TEST(TextComparison, IgnoresCase) {
    EXPECT_TRUE(EqualsIgnoreCase(L"HTTP://Host/Live.MPD", L"http://hOST/live.mpd"));
    EXPECT_TRUE(EqualsIgnoreCase(L"", L""));
    EXPECT_TRUE(EqualsIgnoreCase(L"\u20AC", L"\u20AC"));
}

TEST(TextComparison, TellsDifferentTextsApart) {
    EXPECT_FALSE(EqualsIgnoreCase(L"http://host/a", L"http://host/b"));
    EXPECT_FALSE(EqualsIgnoreCase(L"http://host/a", L"http://host/a?"));
    EXPECT_FALSE(EqualsIgnoreCase(L"", L"a"));
    EXPECT_FALSE(EqualsIgnoreCase(L"[", L"{")) << "neighbours of the letters are no letters";
    EXPECT_FALSE(EqualsIgnoreCase(L"@", L"`"));
}

}  // namespace
}  // namespace kvmpd
