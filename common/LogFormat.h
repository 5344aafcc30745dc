// The formatter behind Log and LogA: the C runtime's printf notation as Windows writes it (%I64d, %lld, %08X, %s in the
// width of the format), over arguments that carry their own type.
//
// Every format is checked against its arguments when it is compiled: the number of conversions and, for each, whether
// the argument can stand there. What is printed follows the argument, not the conversion's size letters: "%d" of a
// 64-bit value prints all of it, "%d" of an unsigned 32-bit value prints it as signed ("-1" for INFINITE), "%08X" of an
// HRESULT prints eight digits, and "%s" of a number prints the number. So no format can read past its argument.
//
// Not supported, and refused when compiled: floating point, %n, and a width or precision given as '*'.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <type_traits>

namespace kvmpd {

struct LogArgument {
    enum class Kind : unsigned char { Signed, Unsigned, Narrow, Wide, Pointer };

    Kind kind;
    /// Size of an integer's type in bytes: hexadecimal and unsigned conversions print that many bytes.
    unsigned char bytes;
    union {
        std::uint64_t integer;  // sign-extended where the type is signed
        const char* narrow;
        const wchar_t* wide;
        const void* pointer;
    };
};

template <class Type>
constexpr LogArgument::Kind LogKindOf() {
    using Decayed = std::decay_t<Type>;
    if constexpr (std::is_same_v<Decayed, std::string> || std::is_same_v<Decayed, const char*> ||
                  std::is_same_v<Decayed, char*>) {
        return LogArgument::Kind::Narrow;
    } else if constexpr (std::is_same_v<Decayed, std::wstring> || std::is_same_v<Decayed, const wchar_t*> ||
                         std::is_same_v<Decayed, wchar_t*>) {
        return LogArgument::Kind::Wide;
    } else if constexpr (std::is_enum_v<Decayed>) {
        return LogKindOf<std::underlying_type_t<Decayed>>();
    } else if constexpr (std::is_integral_v<Decayed>) {
        return std::is_signed_v<Decayed> ? LogArgument::Kind::Signed : LogArgument::Kind::Unsigned;
    } else {
        static_assert(std::is_pointer_v<Decayed>, "a log argument is an integer, an enumerator, a text or a pointer");
        return LogArgument::Kind::Pointer;
    }
}

template <class Type>
LogArgument MakeLogArgument(const Type& value) {
    constexpr LogArgument::Kind kind = LogKindOf<Type>();
    LogArgument argument{};
    argument.kind = kind;
    if constexpr (std::is_same_v<Type, std::string>) {
        argument.narrow = value.c_str();
    } else if constexpr (std::is_same_v<Type, std::wstring>) {
        argument.wide = value.c_str();
    } else if constexpr (kind == LogArgument::Kind::Narrow) {
        argument.narrow = value;
    } else if constexpr (kind == LogArgument::Kind::Wide) {
        argument.wide = value;
    } else if constexpr (kind == LogArgument::Kind::Pointer) {
        argument.pointer = value;
    } else {
        argument.bytes = sizeof(Type);
        argument.integer = kind == LogArgument::Kind::Signed
                               ? static_cast<std::uint64_t>(static_cast<std::int64_t>(value))
                               : static_cast<std::uint64_t>(value);
    }
    return argument;
}

/// One conversion of a format, from its '%' to its type letter.
struct LogConversion {
    bool leftAlign = false;
    bool zeroFill = false;
    bool plusSign = false;
    bool blankSign = false;
    bool alternate = false;
    int width = 0;
    int precision = -1;  // -1: none given
    char type = '\0';    // one of d i u x X o c s S p %; '\0' for a malformed conversion
};

/// Reads the conversion that begins behind a '%' at `text` and moves `text` behind it.
template <class Char>
constexpr LogConversion ParseLogConversion(const Char*& text) {
    LogConversion conversion;
    for (bool flags = true; flags;) {
        switch (*text) {
            case '-':
                conversion.leftAlign = true;
                break;
            case '0':
                conversion.zeroFill = true;
                break;
            case '+':
                conversion.plusSign = true;
                break;
            case ' ':
                conversion.blankSign = true;
                break;
            case '#':
                conversion.alternate = true;
                break;
            default:
                flags = false;
                continue;
        }
        ++text;
    }
    constexpr int kMaxField = 1024;  // no line is longer, so no field needs to be
    const auto number = [&text] {
        int value = 0;
        for (; *text >= '0' && *text <= '9'; ++text) {
            value = value < kMaxField ? value * 10 + static_cast<int>(*text - '0') : kMaxField;
        }
        return value;
    };
    conversion.width = number();
    if (*text == '.') {
        ++text;
        conversion.precision = number();
    }
    if (*text == 'I' && text[1] == '6' && text[2] == '4') {
        text += 3;
    } else if (*text == 'I' && text[1] == '3' && text[2] == '2') {
        text += 3;
    } else {
        while (*text == 'l' || *text == 'h' || *text == 'w' || *text == 'z' || *text == 'j' || *text == 't') {
            ++text;
        }
    }
    switch (*text) {
        case 'd':
        case 'i':
        case 'u':
        case 'x':
        case 'X':
        case 'o':
        case 'c':
        case 's':
        case 'S':
        case 'p':
        case '%':
            conversion.type = static_cast<char>(*text);
            ++text;
            break;
        default:
            break;
    }
    return conversion;
}

// Not constexpr on purpose: reaching one of them makes the format a compile error that names the fault.
void LogFormatIsMalformed();
void LogFormatHasMoreConversionsThanArguments();
void LogFormatHasFewerConversionsThanArguments();
void LogFormatWantsAnInteger();
void LogFormatWantsATextOrANumber();
void LogFormatWantsAPointer();

template <class Char, size_t Count>
constexpr void CheckLogFormat(const Char* text, const std::array<LogArgument::Kind, Count>& kinds) {
    size_t used = 0;
    while (*text != '\0') {
        if (*text++ != '%') {
            continue;
        }
        const LogConversion conversion = ParseLogConversion(text);
        if (conversion.type == '\0') {
            LogFormatIsMalformed();
        }
        if (conversion.type == '%') {
            continue;
        }
        if (used == Count) {
            LogFormatHasMoreConversionsThanArguments();
            return;
        }
        const LogArgument::Kind kind = kinds[used++];
        const bool integer = kind == LogArgument::Kind::Signed || kind == LogArgument::Kind::Unsigned;
        if (conversion.type == 's' || conversion.type == 'S') {
            if (kind == LogArgument::Kind::Pointer) {
                LogFormatWantsATextOrANumber();
            }
        } else if (conversion.type == 'p') {
            if (kind != LogArgument::Kind::Pointer) {
                LogFormatWantsAPointer();
            }
        } else if (!integer) {
            LogFormatWantsAnInteger();
        }
    }
    if (used != Count) {
        LogFormatHasFewerConversionsThanArguments();
    }
}

/// A format that has been checked against `Arguments`; made from constant text only, when the program is compiled.
template <class Char, class... Arguments>
class LogFormat {
  public:
    template <size_t Length>
    consteval LogFormat(const Char (&text)[Length]) : m_text(text) {  // NOLINT: implicit, so that a literal converts
        CheckLogFormat(text, std::array<LogArgument::Kind, sizeof...(Arguments)>{LogKindOf<Arguments>()...});
    }
    constexpr const Char* Text() const { return m_text; }

  private:
    const Char* m_text;
};

/// Writes `format` with `arguments` into `space`, cut where it ends, always terminated. `space` holds at least the
/// terminator. Returns the number of characters written before the terminator. Allocates nothing.
size_t FormatLog(std::span<char> space, const char* format, std::span<const LogArgument> arguments);
size_t FormatLog(std::span<wchar_t> space, const wchar_t* format, std::span<const LogArgument> arguments);

}  // namespace kvmpd
