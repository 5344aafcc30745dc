#include <string>

#include "tests/platform/support.h"

using namespace platform_test;

namespace {

std::string Convert(const std::wstring& wide) {
    std::string text(wide.size() * 4 + 1, '#');
    const int length = WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()), text.data(),
                                           static_cast<int>(text.size()), nullptr, nullptr);
    EXPECT_GE(length, 0);
    return text.substr(0, static_cast<std::size_t>(length));
}

// A surrogate without its partner, made at run time because a literal cannot hold one.
std::wstring LoneSurrogate() {
    return {L'a', static_cast<wchar_t>(0xD800), L'b'};
}

}  // namespace

TEST(WideCharToMultiByte, ConvertsEveryLengthOfSequence) {
    EXPECT_EQ(Convert(L"A\u00E4\u20AC\U0001F600"), "A\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80");
}

TEST(WideCharToMultiByte, CountsTheTerminatorWhenTheLengthIsMinusOne) {
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"\u20ACx", -1, nullptr, 0, nullptr, nullptr), 5);
    char text[5] = {};
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"\u20ACx", -1, text, 5, nullptr, nullptr), 5);
    EXPECT_STREQ(text, "\xE2\x82\xACx");
}

TEST(WideCharToMultiByte, AnExactBufferFitsAndASmallerOneFails) {
    char text[4] = {};
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"\u20ACx", 2, text, 4, nullptr, nullptr), 4);
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"\u20ACx", 2, text, 3, nullptr, nullptr), 0);
    EXPECT_TRUE(LastErrorIs(ERROR_INSUFFICIENT_BUFFER));
}

TEST(WideCharToMultiByte, ReplacesALoneSurrogate) {
    EXPECT_EQ(Convert(LoneSurrogate()),
              "a\xEF\xBF\xBD"
              "b");
}

TEST(WideCharToMultiByte, RefusesALoneSurrogateWhenAskedTo) {
    const std::wstring wide = LoneSurrogate();
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, wide.c_str(), -1, nullptr, 0, nullptr, nullptr), 0);
    EXPECT_TRUE(LastErrorIs(ERROR_NO_UNICODE_TRANSLATION));
}

TEST(WideCharToMultiByte, RefusesDefaultCharactersForUtf8) {
    if (kvmpd::test::UnderWine()) {
        GTEST_SKIP() << "Wine takes default characters for UTF-8 and ignores them";
    }
    BOOL used = FALSE;
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"a", -1, nullptr, 0, "?", nullptr), 0);
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"a", -1, nullptr, 0, nullptr, &used), 0);
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_PARAMETER));
}

TEST(WideCharToMultiByte, RefusesImpossibleArguments) {
    char text[4] = {};
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"abc", 0, text, 4, nullptr, nullptr), 0);
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, nullptr, -1, text, 4, nullptr, nullptr), 0);
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"abc", -1, text, -1, nullptr, nullptr), 0);
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0x8000, L"abc", -1, text, 4, nullptr, nullptr), 0);
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_FLAGS));
}
