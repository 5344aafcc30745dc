// Formats made of arbitrary pieces, written by the log's formatter in both widths and compared with what the C library
// writes for the same pieces: every flag, width, precision, size and conversion that both know, over integers of every
// type and over text of both widths, into spaces of every size.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "common/LogFormat.h"
#include "common/Text.h"
#include "tests/fuzz/FuzzInput.h"

namespace {

using kvmpd::FormatLog;
using kvmpd::LogArgument;
using kvmpd::test::FuzzInput;

/// Text in printable ASCII without '%', which means itself in every format and in both widths.
std::string PlainText(FuzzInput& input) {
    std::string text = input.Text();
    std::replace(text.begin(), text.end(), '%', '_');
    return text;
}

/// A format, its arguments and what it should give.
struct Line {
    std::string format;
    std::vector<LogArgument> arguments;
    std::string expected;
};

template <class... Values>
std::string Reference(const std::string& format, Values... values) {
    std::array<char, 4096> buffer;
    const int length = std::snprintf(buffer.data(), buffer.size(), format.c_str(), values...);
    return length < 0 ? std::string()
                      : std::string(buffer.data(), std::min(buffer.size() - 1, static_cast<size_t>(length)));
}

/// Flags, width and precision.
std::string Field(FuzzInput& input, std::string_view flags) {
    std::string field;
    const unsigned chosen = input.Byte();
    for (size_t i = 0; i < flags.size(); ++i) {
        if ((chosen >> i & 1) != 0) {
            field.push_back(flags[i]);
        }
    }
    const unsigned shape = input.Byte();
    if ((shape & 1) != 0) {
        field += std::to_string(1 + input.Byte() % 60);
    }
    if ((shape & 2) != 0) {
        field += '.';
        if ((shape & 4) != 0) {
            field += std::to_string(input.Byte() % 60);
        }
    }
    return field;
}

/// One integer of type `Type`. What the C library is asked to write is the value that the formatter documents: signed
/// conversions at 32 or 64 bits, the others at the width of the type.
template <class Type>
void AddInteger(Line& line, FuzzInput& input) {
    static constexpr std::string_view kConversions = "diuxXo";
    static constexpr std::array<std::string_view, 8> kSizes{"", "l", "ll", "I64", "I32", "h", "hh", "z"};
    const auto value = static_cast<Type>(input.Long());
    const std::string field = Field(input, "-0+ #");
    const char conversion = kConversions[input.Byte() % kConversions.size()];
    const bool isSigned = conversion == 'd' || conversion == 'i';
    line.format += "%" + field + std::string(kSizes[input.Byte() % kSizes.size()]) + conversion;
    line.arguments.push_back(kvmpd::MakeLogArgument(value));
    const std::string reference = "%" + field + "ll" + conversion;
    if (isSigned) {
        const long long number = sizeof(Type) == 4 ? static_cast<std::int32_t>(value) : static_cast<long long>(value);
        line.expected += Reference(reference, number);
    } else {
        line.expected += Reference(reference, static_cast<unsigned long long>(std::make_unsigned_t<Type>(value)));
    }
}

/// "%s" of a number is the number.
void AddNumberAsText(Line& line, FuzzInput& input) {
    const auto value = static_cast<std::int64_t>(input.Long());
    line.format += "%s";
    line.arguments.push_back(kvmpd::MakeLogArgument(value));
    line.expected += std::to_string(value);
}

template <class Text>
void AddText(Line& line, FuzzInput& input, const Text& text, const std::string& narrow) {
    const std::string field = Field(input, "-");
    line.format += "%" + field + (input.Byte() % 2 == 0 ? "s" : "S");
    line.arguments.push_back(kvmpd::MakeLogArgument(text));
    line.expected += Reference("%" + field + "s", narrow.c_str());
}

void AddCharacter(Line& line, FuzzInput& input) {
    const char value = static_cast<char>('!' + input.Byte() % 90);
    const std::string field = Field(input, "-");
    const std::string width = field.substr(0, field.find('.'));
    line.format += "%" + width + "c";
    line.arguments.push_back(kvmpd::MakeLogArgument(value));
    line.expected += Reference("%" + width + "c", value);
}

void AddPiece(Line& line, FuzzInput& input, std::vector<std::string>& narrow, std::vector<std::wstring>& wide) {
    switch (input.Byte() % 14) {
        case 0:
            return AddInteger<std::int8_t>(line, input);
        case 1:
            return AddInteger<std::uint8_t>(line, input);
        case 2:
            return AddInteger<std::int16_t>(line, input);
        case 3:
            return AddInteger<std::uint16_t>(line, input);
        case 4:
            return AddInteger<std::int32_t>(line, input);
        case 5:
            return AddInteger<std::uint32_t>(line, input);
        case 6:
            return AddInteger<std::int64_t>(line, input);
        case 7:
            return AddInteger<std::uint64_t>(line, input);
        case 8:
            return AddNumberAsText(line, input);
        case 9:
            narrow.push_back(PlainText(input));
            return AddText(line, input, narrow.back(), narrow.back());
        case 10:
            narrow.push_back(PlainText(input));
            wide.push_back(kvmpd::Utf8ToWide(narrow.back()));
            return AddText(line, input, wide.back(), narrow.back());
        case 11:
            return AddCharacter(line, input);
        case 12:
            line.format += "%%";
            line.expected += '%';
            return;
        default: {
            const std::string text = PlainText(input);
            line.format += text;
            line.expected += text;
            return;
        }
    }
}

void Fail(const Line& line, const std::string& got, const char* width) {
    std::fprintf(stderr, "%s\n  format   <%s>\n  expected <%s>\n  got      <%s>\n", width, line.format.c_str(),
                 line.expected.c_str(), got.c_str());
    std::abort();
}

/// A valid line in a space of `space` characters.
void Compare(const Line& line, size_t space) {
    const std::string expected = line.expected.substr(0, space - 1);

    std::vector<char> narrow(space, '~');
    const size_t narrowLength = FormatLog(narrow, line.format.c_str(), line.arguments);
    if (narrowLength >= space || narrow[narrowLength] != '\0' || std::string(narrow.data()) != expected) {
        Fail(line, std::string(narrow.data(), std::min(narrowLength, space)), "narrow");
    }
    std::vector<wchar_t> wide(space, L'~');
    const size_t wideLength = FormatLog(wide, kvmpd::Utf8ToWide(line.format).c_str(), line.arguments);
    if (wideLength >= space || wide[wideLength] != L'\0' || kvmpd::WideToUtf8(wide.data()) != expected) {
        Fail(line, kvmpd::WideToUtf8({wide.data(), std::min(wideLength, space)}), "wide");
    }
}

/// Bytes that are no valid text at all, as format and as arguments: nothing is compared, the sanitizers watch.
void Disturb(FuzzInput& input) {
    std::string bytes;
    std::wstring wide;
    while (!input.IsEmpty()) {
        const auto byte = static_cast<std::uint8_t>(input.Byte());
        bytes.push_back(static_cast<char>(byte));
        wide.push_back(static_cast<wchar_t>(byte | (byte % 7 == 0 ? 0xD800u : 0u)));
    }
    const std::array arguments{kvmpd::MakeLogArgument(bytes), kvmpd::MakeLogArgument(wide), kvmpd::MakeLogArgument(-1),
                               kvmpd::MakeLogArgument(bytes)};
    std::array<char, 200> narrowSpace;
    std::array<wchar_t, 200> wideSpace;
    FormatLog(narrowSpace, "%s %S %d %.5s", arguments);
    FormatLog(wideSpace, L"%-70s %5S %d %9s", arguments);
    // A format that no compiler has checked: more conversions than arguments print nothing.
    FormatLog(narrowSpace, bytes.c_str(), arguments);
    FormatLog(wideSpace, wide.c_str(), arguments);
    FormatLog(narrowSpace, bytes.c_str(), {});
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size) {
    kvmpd::test::FuzzInput input(data, size);
    const unsigned kind = input.Byte();
    if (kind % 8 == 0) {
        Disturb(input);
        return 0;
    }
    const size_t space = kind % 8 == 1 ? size_t{1} + input.Byte() : 2048;
    constexpr int kMostPieces = 16;  // an argument's text stays where it is: the vectors never grow beyond this
    std::vector<std::string> narrow;
    std::vector<std::wstring> wide;
    narrow.reserve(kMostPieces);
    wide.reserve(kMostPieces);
    Line line;
    for (int piece = 0; piece < kMostPieces && !input.IsEmpty(); ++piece) {
        AddPiece(line, input, narrow, wide);
    }
    Compare(line, space);
    return 0;
}
