#include "common/LogFormat.h"

#include <algorithm>

namespace kvmpd {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

/// Takes one code point from wide text; a surrogate pair counts as one where wchar_t has 16 bits.
char32_t NextWide(const wchar_t*& text, const wchar_t* end) {
    const auto unit = static_cast<char32_t>(*text++);
    if constexpr (sizeof(wchar_t) == 2) {
        if (unit >= 0xD800 && unit < 0xDC00 && text != end) {
            const auto low = static_cast<char32_t>(*text);
            if (low >= 0xDC00 && low < 0xE000) {
                ++text;
                return 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
            }
        }
    }
    return unit > 0x10FFFF || (unit >= 0xD800 && unit < 0xE000) ? kReplacement : unit;
}

/// Takes one code point from UTF-8. A byte that begins no well-formed sequence (RFC 3629: no overlong form, no
/// surrogate, nothing above U+10FFFF) counts alone as U+FFFD.
char32_t NextNarrow(const char*& text, const char* end) {
    constexpr char32_t kSmallest[] = {0, 0x80, 0x800, 0x10000};
    const auto first = static_cast<unsigned char>(*text++);
    if (first < 0x80) {
        return first;
    }
    const int more = first >= 0xF0 && first < 0xF5   ? 3
                     : first >= 0xE0 && first < 0xF0 ? 2
                     : first >= 0xC2 && first < 0xE0 ? 1
                                                     : 0;
    if (more == 0 || end - text < more) {
        return kReplacement;
    }
    char32_t code = first & (0x3Fu >> more);
    for (int i = 0; i < more; ++i) {
        const auto next = static_cast<unsigned char>(text[i]);
        if ((next & 0xC0) != 0x80) {
            return kReplacement;
        }
        code = (code << 6) | (next & 0x3Fu);
    }
    if (code < kSmallest[more] || code > 0x10FFFF || (code >= 0xD800 && code < 0xE000)) {
        return kReplacement;
    }
    text += more;
    return code;
}

/// The output: everything behind the end of the space is dropped.
template <class Char>
class Writer {
  public:
    explicit Writer(std::span<Char> space) : m_at(space.data()), m_begin(m_at), m_last(m_at + space.size() - 1) {}

    void Put(Char character) {
        if (m_at != m_last) {
            *m_at++ = character;
        }
    }

    void Fill(Char character, int count) {
        for (; count > 0 && m_at != m_last; --count) {
            Put(character);
        }
    }

    bool Full() const { return m_at == m_last; }

    size_t Finish() {
        *m_at = Char();
        return static_cast<size_t>(m_at - m_begin);
    }

  private:
    Char* m_at;
    Char* m_begin;
    Char* m_last;
};

/// Stands in for a Writer to learn how much a text takes, as far as a field can be wide.
template <class Char>
class Counter {
  public:
    void Put(Char) { ++m_count; }
    bool Full() const { return m_count >= kMostCounted; }
    int Count() const { return m_count; }

  private:
    static constexpr int kMostCounted = 1024;
    int m_count = 0;
};

template <class Char, class Output>
void PutCode(Output& out, char32_t code) {
    const auto put = [&out](char32_t unit) { out.Put(static_cast<Char>(unit)); };
    if constexpr (sizeof(Char) == 1) {
        if (code < 0x80) {
            put(code);
        } else if (code < 0x800) {
            put(0xC0 | (code >> 6));
            put(0x80 | (code & 0x3F));
        } else if (code < 0x10000) {
            put(0xE0 | (code >> 12));
            put(0x80 | ((code >> 6) & 0x3F));
            put(0x80 | (code & 0x3F));
        } else {
            put(0xF0 | (code >> 18));
            put(0x80 | ((code >> 12) & 0x3F));
            put(0x80 | ((code >> 6) & 0x3F));
            put(0x80 | (code & 0x3F));
        }
    } else if (sizeof(Char) == 2 && code >= 0x10000) {
        put(0xD800 + ((code - 0x10000) >> 10));
        put(0xDC00 + ((code - 0x10000) & 0x3FF));
    } else {
        put(code);
    }
}

/// Writes a text of the output's own character type unit by unit, so that what the caller gave arrives unchanged, and
/// one of the other type character by character.
template <class Char, class Output, class Source>
void PutCharacters(Output& out, const Source* text, const Source* end) {
    while (text != end && !out.Full()) {
        if constexpr (std::is_same_v<Char, Source>) {
            out.Put(*text++);
        } else if constexpr (sizeof(Source) == 1) {
            PutCode<Char>(out, NextNarrow(text, end));
        } else {
            PutCode<Char>(out, NextWide(text, end));
        }
    }
}

template <class Char, class Source>
void PutText(Writer<Char>& out, const LogConversion& conversion, const Source* text) {
    static constexpr Source kNull[] = {'(', 'n', 'u', 'l', 'l', ')', 0};
    // Behind what a line can hold nothing is looked at, and behind the precision nothing may be.
    constexpr size_t kMostLooked = 4096;
    const size_t limit =
        conversion.precision < 0 ? kMostLooked : std::min(kMostLooked, static_cast<size_t>(conversion.precision));
    const Source* const begin = text ? text : kNull;
    const Source* end = begin;
    while (static_cast<size_t>(end - begin) < limit && *end != 0) {
        ++end;
    }
    int padding = 0;
    if (conversion.width > 0) {
        Counter<Char> counter;
        PutCharacters<Char>(counter, begin, end);
        padding = std::max(0, conversion.width - counter.Count());
    }
    if (!conversion.leftAlign) {
        out.Fill(' ', padding);
    }
    PutCharacters<Char>(out, begin, end);
    if (conversion.leftAlign) {
        out.Fill(' ', padding);
    }
}

/// The bits of an integer that its own type has.
std::uint64_t UnsignedValue(const LogArgument& argument) {
    return argument.bytes >= 8 ? argument.integer : argument.integer & ((std::uint64_t{1} << (argument.bytes * 8)) - 1);
}

/// The integer read as signed: 32 and 64 bits at their own width; the smaller unsigned types become int on their way
/// into a call and so keep their value.
std::int64_t SignedValue(const LogArgument& argument) {
    return argument.bytes == 4 ? static_cast<std::int32_t>(argument.integer)
                               : static_cast<std::int64_t>(argument.integer);
}

template <class Char>
void PutInteger(Writer<Char>& out, LogConversion conversion, const LogArgument& argument) {
    if (conversion.type == 's' || conversion.type == 'S') {
        conversion.type = argument.kind == LogArgument::Kind::Signed ? 'd' : 'u';
        conversion.precision = -1;
    }
    std::uint64_t value = 0;
    char sign = '\0';
    unsigned base = 10;
    if (conversion.type == 'd' || conversion.type == 'i') {
        const std::int64_t number = SignedValue(argument);
        value = number < 0 ? ~static_cast<std::uint64_t>(number) + 1 : static_cast<std::uint64_t>(number);
        sign = number < 0 ? '-' : conversion.plusSign ? '+' : conversion.blankSign ? ' ' : '\0';
    } else {
        value = UnsignedValue(argument);
        base = conversion.type == 'u' ? 10 : conversion.type == 'o' ? 8 : 16;
    }
    const char* digits = conversion.type == 'x' ? "0123456789abcdef" : "0123456789ABCDEF";
    char reversed[24];
    int length = 0;
    for (std::uint64_t rest = value; rest != 0; rest /= base) {
        reversed[length++] = digits[rest % base];
    }
    if (length == 0 && conversion.precision != 0) {
        reversed[length++] = '0';
    }
    const bool prefix = conversion.alternate && base == 16 && value != 0;
    const int head = (sign != '\0' ? 1 : 0) + (prefix ? 2 : 0);
    int zeros = std::max(0, conversion.precision - length);
    if (conversion.alternate && base == 8 && zeros == 0 && (length == 0 || reversed[length - 1] != '0')) {
        zeros = 1;
    }
    int padding = std::max(0, conversion.width - head - zeros - length);
    if (conversion.zeroFill && !conversion.leftAlign && conversion.precision < 0) {
        zeros += padding;
        padding = 0;
    }
    if (!conversion.leftAlign) {
        out.Fill(' ', padding);
    }
    if (sign != '\0') {
        out.Put(static_cast<Char>(sign));
    }
    if (prefix) {
        out.Put('0');
        out.Put(static_cast<Char>(conversion.type));
    }
    out.Fill('0', zeros);
    while (length > 0) {
        out.Put(static_cast<Char>(reversed[--length]));
    }
    if (conversion.leftAlign) {
        out.Fill(' ', padding);
    }
}

template <class Char>
void PutArgument(Writer<Char>& out, LogConversion conversion, const LogArgument& argument) {
    switch (argument.kind) {
        case LogArgument::Kind::Narrow:
            PutText(out, conversion, argument.narrow);
            return;
        case LogArgument::Kind::Wide:
            PutText(out, conversion, argument.wide);
            return;
        case LogArgument::Kind::Pointer: {
            // A pointer prints as all its digits, upper case and without "0x", as the Windows runtime does.
            LogArgument number{};
            number.kind = LogArgument::Kind::Unsigned;
            number.bytes = sizeof(void*);
            number.integer = reinterpret_cast<std::uintptr_t>(argument.pointer);
            conversion.type = 'X';
            conversion.precision = static_cast<int>(2 * sizeof(void*));
            PutInteger(out, conversion, number);
            return;
        }
        case LogArgument::Kind::Signed:
        case LogArgument::Kind::Unsigned:
            if (conversion.type == 'c') {
                const Char text[2] = {static_cast<Char>(argument.integer), 0};
                conversion.precision = 1;
                PutText(out, conversion, text);
            } else {
                PutInteger(out, conversion, argument);
            }
            return;
    }
}

template <class Char>
size_t FormatInto(std::span<Char> space, const Char* format, std::span<const LogArgument> arguments) {
    Writer<Char> out(space);
    size_t next = 0;
    while (*format != 0 && !out.Full()) {
        if (*format != '%') {
            out.Put(*format++);
            continue;
        }
        ++format;
        const LogConversion conversion = ParseLogConversion(format);
        if (conversion.type == '%') {
            out.Put('%');
        } else if (conversion.type != '\0' && next < arguments.size()) {
            PutArgument(out, conversion, arguments[next++]);
        }
    }
    return out.Finish();
}

}  // namespace

size_t FormatLog(std::span<char> space, const char* format, std::span<const LogArgument> arguments) {
    return FormatInto(space, format, arguments);
}

size_t FormatLog(std::span<wchar_t> space, const wchar_t* format, std::span<const LogArgument> arguments) {
    return FormatInto(space, format, arguments);
}

}  // namespace kvmpd
