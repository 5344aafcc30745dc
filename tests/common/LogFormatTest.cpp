#include "common/LogFormat.h"

#include <cstdint>
#include <limits>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/Text.h"
#include "platform/win32.h"

namespace kvmpd {
namespace {

constexpr size_t kRoomy = 1024;

/// What a format gives in a space of `space` characters, the terminator included.
template <class Char, class... Arguments>
std::basic_string<Char> Format(size_t space, LogFormat<Char, std::type_identity_t<Arguments>...> format,
                               const Arguments&... arguments) {
    constexpr Char kUntouched = 0x7E;
    std::vector<Char> buffer(space + 1, kUntouched);
    const std::array<LogArgument, sizeof...(Arguments)> packed{MakeLogArgument(arguments)...};
    const size_t length = FormatLog(std::span<Char>(buffer.data(), space), format.Text(), packed);
    EXPECT_LT(length, space);
    EXPECT_EQ(buffer[length], Char()) << "not terminated";
    EXPECT_EQ(buffer[space], kUntouched) << "written behind the space";
    return std::basic_string<Char>(buffer.data(), length);
}

struct Case {
    const char* name;
    std::string narrow;
    std::string wide;  // as UTF-8
    std::string expected;
};

void PrintTo(const Case& row, std::ostream* out) {
    *out << row.name;
}

// One format in both widths.
#define KV_CASE(name, expected, format, ...)                                                    \
    Case {                                                                                      \
        name, Format<char>(kRoomy, format __VA_OPT__(, ) __VA_ARGS__),                          \
            WideToUtf8(Format<wchar_t>(kRoomy, L##format __VA_OPT__(, ) __VA_ARGS__)), expected \
    }

enum class Signed : int { kMinus = -7 };
enum Plain : unsigned { kPlain = 7 };

const char* const kNullNarrow = nullptr;
const wchar_t* const kNullWide = nullptr;

std::vector<Case> Numbers() {
    constexpr std::int64_t k64Min = std::numeric_limits<std::int64_t>::min();
    constexpr std::uint64_t k64Max = std::numeric_limits<std::uint64_t>::max();
    return {
        KV_CASE("NoConversion", " text", " text"),
        KV_CASE("Empty", "", ""),
        KV_CASE("PercentSign", "100%", "100%%"),
        KV_CASE("Decimal", "-12", "%d", -12),
        KV_CASE("DecimalI", "12", "%i", 12),
        KV_CASE("DecimalOf64Bits", "123456789012345", "%d", std::int64_t{123456789012345}),
        KV_CASE("DecimalOfTheSmallest64Bits", "-9223372036854775808", "%d", k64Min),
        KV_CASE("DecimalOfTheSmallest32Bits", "-2147483648", "%lld", std::numeric_limits<LONG>::min()),
        KV_CASE("DecimalOfADwordIsSigned", "-1", "%d", DWORD{INFINITE}),
        KV_CASE("DecimalOfAnUnsigned64IsSigned", "-1", "%d", k64Max),
        KV_CASE("DecimalOfAByteKeepsItsValue", "200", "%d", BYTE{200}),
        KV_CASE("DecimalOfAWordKeepsItsValue", "65000", "%d", std::uint16_t{65000}),
        KV_CASE("DecimalOfASignedCharacter", "-3", "%d", static_cast<signed char>(-3)),
        KV_CASE("DecimalOfABool", "1", "%d", true),
        KV_CASE("DecimalOfAnEnumerator", "-7", "%d", Signed::kMinus),
        KV_CASE("UnsignedOfAPlainEnumerator", "7", "%u", kPlain),
        KV_CASE("LongUnsigned", "4294967295", "%lu", DWORD{0xFFFFFFFF}),
        KV_CASE("LongUnsignedOf64Bits", "18446744073709551615", "%lu", k64Max),
        KV_CASE("LongUnsignedOfASigned32", "4294967295", "%lu", LONG{-1}),
        KV_CASE("LongDecimal", "-5", "%ld", LONG{-5}),
        KV_CASE("LongLongI", "-4294967296", "%lli", std::int64_t{-1} << 32),
        KV_CASE("I64", "-1234567890123", "%I64d", std::int64_t{-1234567890123}),
        KV_CASE("I64OfA32BitValue", "7", "%I64d", 7),
        KV_CASE("I64Unsigned", "18446744073709551615", "%I64u", k64Max),
        KV_CASE("I32", "-7", "%I32d", LONG{-7}),
        KV_CASE("UnsignedFollowedByLetters", "42ll", "%ull", 42u),
        KV_CASE("ShortFollowsTheArgument", "70000", "%hd", 70000),
        KV_CASE("Size", "9", "%zu", size_t{9}),
        KV_CASE("CallAndArguments", " x #3 of 5 ", " x #%d of %lu ", 3, 5u),
    };
}

std::vector<Case> Fields() {
    constexpr auto kFail = static_cast<HRESULT>(0x80004005);
    return {
        KV_CASE("EightDigitsOfAResult", "0x80004005", "0x%08X", kFail),
        KV_CASE("EightDigitsOfSuccess", "0x00000000", "0x%08X", HRESULT{0}),
        KV_CASE("LongHexadecimal", "0x8000ffff", "0x%08lx", DWORD{0x8000FFFF}),
        KV_CASE("LongHexadecimalUpper", "0xFFFFFFFF", "0x%08lX", LONG{-1}),
        KV_CASE("SixteenDigits", "0x3fffffffffffffff", "0x%016llx", std::int64_t{0x3FFFFFFFFFFFFFFF}),
        KV_CASE("SixteenDigitsOfMinusOne", "ffffffffffffffff", "%016llx", std::int64_t{-1}),
        KV_CASE("SixteenDigitsOfA32BitMinusOne", "00000000ffffffff", "%016llx", LONG{-1}),
        KV_CASE("SixteenBlanked", "0x           FFFFF", "0x%16llX", std::int64_t{0xFFFFF}),
        KV_CASE("EightBlanked", "      AB", "%8X", 0xAB),
        KV_CASE("EightBlankedOverflows", "123456789", "%8d", 123456789),
        KV_CASE("HexadecimalOfZero", "0", "%x", 0),
        KV_CASE("HexadecimalOfAByte", "c8", "%x", BYTE{200}),
        KV_CASE("Octal", "755", "%o", 0755),
        KV_CASE("AlternateOctal", "0755", "%#o", 0755),
        KV_CASE("AlternateOctalOfZero", "0", "%#o", 0),
        KV_CASE("AlternateHexadecimal", "0xff", "%#x", 255),
        KV_CASE("AlternateHexadecimalUpperPadded", "0X00FF", "%#06X", 255),
        KV_CASE("AlternateHexadecimalOfZero", "0", "%#x", 0),
        KV_CASE("LeftAligned", "7    |", "%-5d|", 7),
        KV_CASE("LeftAlignedIgnoresZeros", "7    |", "%-05d|", 7),
        KV_CASE("ZeroFilledMinus", "-0042", "%05d", -42),
        KV_CASE("PlusSign", "+42", "%+d", 42),
        KV_CASE("PlusSignOfNegative", "-42", "%+d", -42),
        KV_CASE("BlankSign", " 42", "% d", 42),
        KV_CASE("PlusWinsOverBlank", "+42", "% +d", 42),
        KV_CASE("Precision", "007", "%.3d", 7),
        KV_CASE("PrecisionAndWidth", "  007", "%5.3d", 7),
        KV_CASE("PrecisionEndsZeroFill", "  007", "%05.3d", 7),
        KV_CASE("PrecisionZeroOfZero", "", "%.0d", 0),
        KV_CASE("PrecisionZeroOfSeven", "7", "%.0d", 7),
        KV_CASE("Character", "x", "%c", 'x'),
        KV_CASE("CharacterInAField", "  x", "%3c", 'x'),
    };
}

std::vector<Case> Texts() {
    const std::string narrow = "na\xC3\xAFve";
    const std::wstring wide = L"na\u00EFve";
    char writable[] = "array";
    return {
        KV_CASE("Narrow", "<text>", "<%s>", "text"),
        KV_CASE("Wide", "<text>", "<%s>", L"text"),
        KV_CASE("NarrowString", "<na\xC3\xAFve>", "<%s>", narrow),
        KV_CASE("WideString", "<na\xC3\xAFve>", "<%s>", wide),
        KV_CASE("WritableArray", "<array>", "<%s>", writable),
        KV_CASE("EmptyText", "<>", "<%s>", ""),
        KV_CASE("NullNarrow", "<(null)>", "<%s>", kNullNarrow),
        KV_CASE("NullWide", "<(null)>", "<%s>", kNullWide),
        KV_CASE("OtherWidthLetter", "<text>", "<%S>", "text"),
        KV_CASE("LongText", "<text>", "<%ls>", L"text"),
        KV_CASE("ShortText", "<text>", "<%hs>", "text"),
        KV_CASE("TextOfANumber", "<-17>", "<%s>", -17),
        KV_CASE("TextOfA64BitNumber", "<123456789012345>", "<%s>", std::int64_t{123456789012345}),
        KV_CASE("TextOfADword", "<4294967295>", "<%s>", DWORD{0xFFFFFFFF}),
        KV_CASE("RightInAField", "<  text>", "<%6s>", "text"),
        KV_CASE("LeftInAField", "<text  >", "<%-6s>", L"text"),
        KV_CASE("Precision", "<te>", "<%.2s>", "text"),
        KV_CASE("PrecisionInAField", "<  te>", "<%4.2s>", "text"),
        KV_CASE("PrecisionZero", "<>", "<%.s>", "text"),
        KV_CASE("PercentInATextIsText", "<%d %s %n>", "<%s>", "%d %s %n"),
        KV_CASE("TextBehindText", "<a><b><3>", "<%s><%s><%d>", "a", L"b", 3),
        KV_CASE("BeyondTheBasicPlane", "<\xF0\x9F\x98\x80>", "<%s>", L"\U0001F600"),
    };
}

class LogFormatTable : public testing::TestWithParam<Case> {};

TEST_P(LogFormatTable, GivesTheExpectedTextInBothWidths) {
    EXPECT_EQ(GetParam().narrow, GetParam().expected);
    EXPECT_EQ(GetParam().wide, GetParam().expected);
}

std::string NameOf(const testing::TestParamInfo<Case>& row) {
    return row.param.name;
}

INSTANTIATE_TEST_SUITE_P(Numbers, LogFormatTable, testing::ValuesIn(Numbers()), NameOf);
INSTANTIATE_TEST_SUITE_P(Fields, LogFormatTable, testing::ValuesIn(Fields()), NameOf);
INSTANTIATE_TEST_SUITE_P(Texts, LogFormatTable, testing::ValuesIn(Texts()), NameOf);

// A field's width counts what is written, so columns stand below each other whatever the width of the source.
TEST(LogFormatText, FieldWidthCountsCharactersOfTheOutput) {
    EXPECT_EQ(Format<char>(kRoomy, "<%4s>", L"\u00EF"), "<  \xC3\xAF>");
    EXPECT_EQ(Format<wchar_t>(kRoomy, L"<%4s>", "\xC3\xAF"), L"<   \u00EF>");
}

TEST(LogFormatText, PrecisionReadsNothingBehindIt) {
    const char unterminated[] = {'a', 'b', 'c'};
    const char* const text = unterminated;
    EXPECT_EQ(Format<char>(kRoomy, "%.3s", text), "abc");
}

TEST(LogFormatText, TextOfTheFormatsOwnWidthPassesUnchanged) {
    EXPECT_EQ(Format<char>(kRoomy, "%s", "\xFF\xFE"), "\xFF\xFE");
    const std::wstring loneSurrogate(1, static_cast<wchar_t>(0xD800));
    EXPECT_EQ(Format<wchar_t>(kRoomy, L"%s", loneSurrogate), loneSurrogate);
}

struct BadUtf8 {
    const char* name;
    const char* bytes;
    const wchar_t* expected;
};

void PrintTo(const BadUtf8& row, std::ostream* out) {
    *out << row.name;
}

class LogFormatBadUtf8 : public testing::TestWithParam<BadUtf8> {};

TEST_P(LogFormatBadUtf8, BecomesReplacementCharactersInAWideLine) {
    EXPECT_EQ(Format<wchar_t>(kRoomy, L"%s", GetParam().bytes), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Sequences, LogFormatBadUtf8,
                         testing::Values(BadUtf8{"StrayContinuation", "a\x80z", L"a\uFFFDz"},
                                         BadUtf8{"CutShort", "a\xE2\x82", L"a\uFFFD\uFFFD"},
                                         BadUtf8{"BrokenByALetter", "\xE2z\x82", L"\uFFFDz\uFFFD"},
                                         BadUtf8{"OverlongOfTwo", "\xC0\xAF", L"\uFFFD\uFFFD"},
                                         BadUtf8{"OverlongOfThree", "\xE0\x80\xAF", L"\uFFFD\uFFFD\uFFFD"},
                                         BadUtf8{"OverlongOfFour", "\xF0\x80\x80\xAF", L"\uFFFD\uFFFD\uFFFD\uFFFD"},
                                         BadUtf8{"Surrogate", "\xED\xA0\x80", L"\uFFFD\uFFFD\uFFFD"},
                                         BadUtf8{"AboveTheLastCodePoint", "\xF4\x90\x80\x80",
                                                 L"\uFFFD\uFFFD\uFFFD\uFFFD"},
                                         BadUtf8{"NoSuchLeadByte", "\xF5\x80", L"\uFFFD\uFFFD"}),
                         [](const testing::TestParamInfo<BadUtf8>& row) { return std::string(row.param.name); });

TEST(LogFormatText, LoneSurrogateBecomesAReplacementCharacterInANarrowLine) {
    const std::wstring text{L'a', static_cast<wchar_t>(0xDC00), L'z'};
    EXPECT_EQ(Format<char>(kRoomy, "%s", text), "a\xEF\xBF\xBDz");
}

TEST(LogFormatPointer, PrintsAllDigitsUpperCase) {
    const void* const pointer = reinterpret_cast<const void*>(std::uintptr_t{0xABC});
    const std::string expected = std::string(2 * sizeof(void*) - 3, '0') + "ABC";
    EXPECT_EQ(Format<char>(kRoomy, "%p", pointer), expected);
    EXPECT_EQ(WideToUtf8(Format<wchar_t>(kRoomy, L"%p", pointer)), expected);
}

// Truncation inside every kind of output: the text is cut, never rejected, and what would follow is dropped.
TEST(LogFormatTruncation, CutsTheFormatsOwnText) {
    EXPECT_EQ(Format<char>(4, "abcdef"), "abc");
    EXPECT_EQ(Format<wchar_t>(4, L"abcdef"), L"abc");
}

TEST(LogFormatTruncation, FillsTheSpaceExactly) {
    EXPECT_EQ(Format<char>(4, "%s", "abc"), "abc");
    EXPECT_EQ(Format<char>(4, "%d%d", 12, 3), "123");
}

TEST(LogFormatTruncation, CutsANumberFromItsEnd) {
    EXPECT_EQ(Format<char>(4, "%d", -123456), "-12");
    EXPECT_EQ(Format<wchar_t>(6, L"a=%lld", std::int64_t{987654321}), L"a=987");
}

TEST(LogFormatTruncation, CutsPaddingBeforeANumber) {
    EXPECT_EQ(Format<char>(4, "%8X", 0xAB), "   ");
    EXPECT_EQ(Format<char>(4, "%08X", 0xAB), "000");
    EXPECT_EQ(Format<char>(4, "%#8x", 0xAB), "   ");
    EXPECT_EQ(Format<char>(2, "%#x", 0xAB), "0");
}

TEST(LogFormatTruncation, CutsPaddingBehindAText) {
    EXPECT_EQ(Format<char>(4, "%-8s|", "a"), "a  ");
    EXPECT_EQ(Format<wchar_t>(4, L"%8s|", L"a"), L"   ");
}

TEST(LogFormatTruncation, CutsATextOfEitherWidth) {
    EXPECT_EQ(Format<char>(4, "%s|", "abcdef"), "abc");
    EXPECT_EQ(Format<char>(4, "%s|", L"abcdef"), "abc");
    EXPECT_EQ(Format<wchar_t>(4, L"%s|", "abcdef"), L"abc");
    EXPECT_EQ(Format<wchar_t>(4, L"%s|", L"abcdef"), L"abc");
}

TEST(LogFormatTruncation, CutsInsideACharacterOfSeveralBytes) {
    EXPECT_EQ(Format<char>(4, "ab%s", L"\u20AC"), "ab\xE2");
}

TEST(LogFormatTruncation, CutsAPointerAPercentSignAndACharacter) {
    EXPECT_EQ(Format<char>(4, "%p", static_cast<const void*>(nullptr)), "000");
    EXPECT_EQ(Format<char>(4, "abc%%"), "abc");
    EXPECT_EQ(Format<char>(4, "abc%c", 'd'), "abc");
}

TEST(LogFormatTruncation, SpaceForTheTerminatorOnlyGivesAnEmptyText) {
    EXPECT_EQ(Format<char>(1, "abc %d", 5), "");
    EXPECT_EQ(Format<wchar_t>(1, L"abc %s", "x"), L"");
}

TEST(LogFormatTruncation, HugeFieldsEndWithTheSpace) {
    EXPECT_EQ(Format<char>(8, "%999999999d", 5), "       ");
    EXPECT_EQ(Format<char>(8, "%.999999999d", 5), "0000000");
    EXPECT_EQ(Format<char>(8, "%999999999s", "x"), "       ");
}

TEST(LogFormatTruncation, AVeryLongTextIsCut) {
    const std::string text(100000, 'x');
    EXPECT_EQ(Format<char>(kRoomy, "%s", text), std::string(kRoomy - 1, 'x'));
    EXPECT_EQ(Format<wchar_t>(kRoomy, L"%s", text), std::wstring(kRoomy - 1, L'x'));
}

}  // namespace
}  // namespace kvmpd
