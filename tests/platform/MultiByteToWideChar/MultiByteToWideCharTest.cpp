#include <cwchar>
#include <string>

#include "tests/platform/support.h"

using namespace platform_test;

namespace {

std::wstring Convert(const std::string& text, DWORD flags = 0) {
    std::wstring wide(text.size() * 2 + 1, L'#');
    const int length = MultiByteToWideChar(CP_UTF8, flags, text.data(), static_cast<int>(text.size()), wide.data(),
                                           static_cast<int>(wide.size()));
    EXPECT_GE(length, 0);
    return wide.substr(0, static_cast<std::size_t>(length));
}

}  // namespace

TEST(MultiByteToWideChar, ConvertsEveryLengthOfSequence) {
    EXPECT_EQ(Convert("A\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80"), L"A\u00E4\u20AC\U0001F600");
}

TEST(MultiByteToWideChar, CountsTheTerminatorWhenTheLengthIsMinusOne) {
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "\xC3\xA4x", -1, nullptr, 0), 3);
    wchar_t wide[3] = {L'#', L'#', L'#'};
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "\xC3\xA4x", -1, wide, 3), 3);
    EXPECT_STREQ(wide, L"\u00E4x");
}

TEST(MultiByteToWideChar, AnEmptyTextWithTerminatorIsOneCharacter) {
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "", -1, nullptr, 0), 1);
}

TEST(MultiByteToWideChar, WritesNoTerminatorOfItsOwn) {
    wchar_t wide[3] = {L'#', L'#', L'#'};
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "ab", 2, wide, 3), 2);
    EXPECT_EQ(wide[2], L'#');
}

TEST(MultiByteToWideChar, ConvertsZeroBytesInsideTheLength) {
    EXPECT_EQ(Convert(std::string("a\0b", 3)), std::wstring(L"a\0b", 3));
}

TEST(MultiByteToWideChar, AnExactBufferFitsAndASmallerOneFails) {
    wchar_t wide[4] = {};
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "abc", -1, wide, 4), 4);
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "abc", -1, wide, 3), 0);
    EXPECT_TRUE(LastErrorIs(ERROR_INSUFFICIENT_BUFFER));
}

TEST(MultiByteToWideChar, ReplacesAnInvalidByte) {
    EXPECT_EQ(Convert("a\xFF"
                      "b"),
              L"a\uFFFDb");
}

class MultiByteToWideCharInvalid : public testing::TestWithParam<const char*> {};

TEST_P(MultiByteToWideCharInvalid, IsRefusedWhenAskedTo) {
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, GetParam(), -1, nullptr, 0), 0);
    EXPECT_TRUE(LastErrorIs(ERROR_NO_UNICODE_TRANSLATION));
}

INSTANTIATE_TEST_SUITE_P(Sequences, MultiByteToWideCharInvalid,
                         testing::Values("\x80", "\xC3", "\xC3(", "\xC0\x80", "\xE0\x80\x80", "\xED\xA0\x80",
                                         "\xF4\x90\x80\x80", "\xF8\x88\x80\x80\x80", "\xE2\x82"));

TEST(MultiByteToWideChar, ValidTextPassesTheCheck) {
    EXPECT_EQ(Convert("\xC3\xA4", MB_ERR_INVALID_CHARS), L"\u00E4");
}

TEST(MultiByteToWideChar, RefusesImpossibleArguments) {
    wchar_t wide[4] = {};
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "abc", 0, wide, 4), 0);
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, nullptr, -1, wide, 4), 0);
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "abc", -1, wide, -1), 0);
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "abc", -1, nullptr, 4), 0);
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_PARAMETER));
}

TEST(MultiByteToWideChar, RefusesAnUnknownCodePageAndUnknownFlags) {
    EXPECT_EQ(MultiByteToWideChar(47'110, 0, "abc", -1, nullptr, 0), 0);
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0x100, "abc", -1, nullptr, 0), 0);
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_FLAGS));
}

TEST(MultiByteToWideChar, LeavesTheLastErrorAloneWhenItSucceeds) {
    SetLastError(4711);
    EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, "abc", 3, nullptr, 0), 3);
    EXPECT_TRUE(LastErrorIs(4711));
}
