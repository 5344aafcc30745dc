#include <string>

#include "tests/platform/support.h"

using namespace platform_test;

// Each maximal invalid prefix is replaced once: the cases of the Unicode Standard, chapter 3.9, table 3-8 and around
// it.
TEST(PosixText, AnInvalidSequenceIsReplacedOncePerMaximalPrefix) {
    struct Case {
        std::string text;
        std::wstring wide;
    };
    const Case cases[] = {
        {"\x61\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64", L"a\uFFFD\uFFFD\uFFFDb\uFFFDc\uFFFD\uFFFDd"},
        {"\xC0\xAF\xE0\x80\xBF\xF0\x81\x82\x41", L"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFDA"},
        {"\xED\xA0\x80", L"\uFFFD\uFFFD\uFFFD"},
        {"\xF4\x91\x92\x93\xFF\x41\x80\xBF\x42", L"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFDA\uFFFD\uFFFDB"},
        {"\xE1\x80\xE2\xF0\x91\x92\xF1\xBF\x41", L"\uFFFD\uFFFD\uFFFD\uFFFDA"},
        {"\xF0\x9F\x98", L"\uFFFD"},
    };
    for (const Case& c : cases) {
        wchar_t wide[32] = {};
        const int length = MultiByteToWideChar(CP_UTF8, 0, c.text.data(), static_cast<int>(c.text.size()), wide, 32);
        ASSERT_GT(length, 0);
        EXPECT_EQ(std::wstring(wide, static_cast<std::size_t>(length)), c.wide);
    }
}

TEST(PosixText, ACharacterBeyondTheBasicPlaneIsOneWideCharacter) {
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "\xF0\x9F\x98\x80", 4, nullptr, 0), 1);
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"\U0010FFFF", 1, nullptr, 0, nullptr, nullptr), 4);
}

TEST(PosixText, ASurrogatePairIsNoCharacterInWideTextOfThirtyTwoBits) {
    const wchar_t pair[] = {static_cast<wchar_t>(0xD83D), static_cast<wchar_t>(0xDE00)};
    char text[8] = {};
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, pair, 2, text, 8, nullptr, nullptr), 6);
    EXPECT_EQ(std::string(text, 6), "\xEF\xBF\xBD\xEF\xBF\xBD");
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, pair, 2, text, 8, nullptr, nullptr), 0);
}

TEST(PosixText, TheSystemsCodePageIsUtf8) {
    wchar_t wide[2] = {};
    EXPECT_EQ(MultiByteToWideChar(CP_ACP, MB_PRECOMPOSED, "\xC3\xA4", -1, wide, 2), 2);
    EXPECT_EQ(wide[0], L'\u00E4');
    EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, L"\u00E4", -1, nullptr, 0, nullptr, nullptr), 3);
}
