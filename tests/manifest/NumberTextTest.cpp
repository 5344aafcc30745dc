#include "manifest/NumberText.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace kvmpd::test {
namespace {

struct NumberCase {
    const char* text;
    LONGLONG value;
    const char* error;  ///< Null: a number.
};

void PrintTo(const NumberCase& number, std::ostream* out) {
    *out << '"' << number.text << '"';
}

class ReadIntText : public testing::TestWithParam<NumberCase> {};

TEST_P(ReadIntText, ReadsAsStoiDoes) {
    const NumberText<LONG> number = ReadInt(GetParam().text);
    EXPECT_EQ(number.value, GetParam().value);
    EXPECT_STREQ(number.error, GetParam().error);
}

constexpr const char* kNotAnInt = "invalid stoi argument";
constexpr const char* kIntRange = "stoi argument out of range";

INSTANTIATE_TEST_SUITE_P(
    Texts, ReadIntText,
    testing::Values(NumberCase{"0", 0, nullptr}, NumberCase{"25", 25, nullptr}, NumberCase{"-7", -7, nullptr},
                    NumberCase{"+7", 7, nullptr}, NumberCase{" \t\n\v\f\r42", 42, nullptr},
                    NumberCase{"42 ", 42, nullptr}, NumberCase{"0042", 42, nullptr}, NumberCase{"12abc", 12, nullptr},
                    NumberCase{"0x10", 0, nullptr}, NumberCase{"1e3", 1, nullptr},
                    NumberCase{"30000/1001", 30000, nullptr}, NumberCase{"29.97", 29, nullptr},
                    NumberCase{"1280.5", 1280, nullptr}, NumberCase{"2147483647", 2147483647, nullptr},
                    NumberCase{"-2147483648", -2147483648LL, nullptr}, NumberCase{"2147483648", 0, kIntRange},
                    NumberCase{"-2147483649", 0, kIntRange}, NumberCase{"99999999999999999999999", 0, kIntRange},
                    NumberCase{"4294967297", 0, kIntRange}, NumberCase{"", 0, kNotAnInt}, NumberCase{" ", 0, kNotAnInt},
                    NumberCase{"abc", 0, kNotAnInt}, NumberCase{"x12", 0, kNotAnInt}, NumberCase{"-", 0, kNotAnInt},
                    NumberCase{"+-1", 0, kNotAnInt}, NumberCase{"- 1", 0, kNotAnInt}, NumberCase{".5", 0, kNotAnInt},
                    NumberCase{"\xC2\xA0"
                               "5",
                               0, kNotAnInt}));

class ReadLongLongText : public testing::TestWithParam<NumberCase> {};

TEST_P(ReadLongLongText, ReadsAsStollDoes) {
    const NumberText<LONGLONG> number = ReadLongLong(GetParam().text);
    EXPECT_EQ(number.value, GetParam().value);
    EXPECT_STREQ(number.error, GetParam().error);
}

constexpr const char* kNotALongLong = "invalid stoll argument";
constexpr const char* kLongLongRange = "stoll argument out of range";

INSTANTIATE_TEST_SUITE_P(Texts, ReadLongLongText,
                         testing::Values(NumberCase{"0", 0, nullptr}, NumberCase{"12abc", 12, nullptr},
                                         NumberCase{" -12", -12, nullptr},
                                         NumberCase{"2147483648", 2147483648LL, nullptr},
                                         NumberCase{"9223372036854775807", 9223372036854775807LL, nullptr},
                                         NumberCase{"-9223372036854775808", -9223372036854775807LL - 1, nullptr},
                                         NumberCase{"9223372036854775808", 0, kLongLongRange},
                                         NumberCase{"-9223372036854775809", 0, kLongLongRange},
                                         NumberCase{"92233720368547758070", 0, kLongLongRange},
                                         NumberCase{"abc", 0, kNotALongLong}, NumberCase{"", 0, kNotALongLong},
                                         NumberCase{"+", 0, kNotALongLong}));

TEST(NumberText, AgreesWithTheLibraryOnEveryShortText) {
    const std::string alphabet = " +-09a.";
    for (char a : alphabet) {
        for (char b : alphabet) {
            for (char c : alphabet) {
                for (char d : alphabet) {
                    const std::string text{a, b, c, d};
                    const NumberText<LONG> number = ReadInt(text.c_str());
                    try {
                        EXPECT_EQ(number.value, std::stoi(text)) << '"' << text << '"';
                        EXPECT_EQ(number.error, nullptr) << '"' << text << '"';
                    } catch (const std::invalid_argument&) {
                        EXPECT_STREQ(number.error, kNotAnInt) << '"' << text << '"';
                    }
                }
            }
        }
    }
}

}  // namespace
}  // namespace kvmpd::test
