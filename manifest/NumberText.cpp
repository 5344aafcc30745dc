#include "manifest/NumberText.h"

#include <limits>

namespace kvmpd {
namespace {

constexpr bool IsSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}
constexpr bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

enum class Outcome { Number, NoDigits, TooLarge };

/// Accumulates downwards from 0, because the negative range is the larger one.
template <class Integer>
Outcome Read(const char* text, Integer& value) {
    constexpr Integer lowest = std::numeric_limits<Integer>::min();
    while (IsSpace(*text)) {
        ++text;
    }
    const bool negative = *text == '-';
    if (negative || *text == '+') {
        ++text;
    }
    if (!IsDigit(*text)) {
        return Outcome::NoDigits;
    }
    Integer negated = 0;
    for (; IsDigit(*text); ++text) {
        const Integer digit = static_cast<Integer>(*text - '0');
        if (negated < (lowest + digit) / 10) {
            return Outcome::TooLarge;
        }
        negated = static_cast<Integer>(negated * 10 - digit);
    }
    if (!negative && negated == lowest) {
        return Outcome::TooLarge;
    }
    value = negative ? negated : static_cast<Integer>(-negated);
    return Outcome::Number;
}

}  // namespace

NumberText<LONG> ReadInt(const char* text) {
    NumberText<LONG> number;
    switch (Read(text, number.value)) {
        case Outcome::Number:
            break;
        case Outcome::NoDigits:
            number.error = "invalid stoi argument";
            break;
        case Outcome::TooLarge:
            number.error = "stoi argument out of range";
            break;
    }
    return number;
}

NumberText<LONGLONG> ReadLongLong(const char* text) {
    NumberText<LONGLONG> number;
    switch (Read(text, number.value)) {
        case Outcome::Number:
            break;
        case Outcome::NoDigits:
            number.error = "invalid stoll argument";
            break;
        case Outcome::TooLarge:
            number.error = "stoll argument out of range";
            break;
    }
    return number;
}

}  // namespace kvmpd
