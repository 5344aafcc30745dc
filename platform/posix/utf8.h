// UTF-8 and single code points: the one decoder and encoder of this folder.
#ifndef PLATFORM_POSIX_UTF8_H_
#define PLATFORM_POSIX_UTF8_H_

#include <cstddef>
#include <string_view>

namespace kvmpd::platform {

constexpr char32_t kReplacementCharacter = 0xFFFD;

// A code point that may stand in Unicode text: no surrogate and not above U+10FFFF.
constexpr bool IsScalarValue(char32_t c) {
    return c < 0xD800 || (c > 0xDFFF && c <= 0x10FFFF);
}

struct DecodedCharacter {
    char32_t value;      // kReplacementCharacter when invalid
    std::size_t length;  // bytes taken, at least 1
    bool valid;
};

// The first character of `text`, which is not empty. An invalid sequence takes its longest prefix that could have begun
// a valid one, else one byte (the practice that Unicode recommends: chapter 3.9, "maximal subpart").
constexpr DecodedCharacter DecodeUtf8(std::string_view text) {
    const auto byteAt = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned lead = byteAt(0);
    if (lead < 0x80) {
        return {lead, 1, true};
    }
    std::size_t length = 0;
    char32_t value = 0;
    // The range of the second byte keeps out overlong forms, surrogates and what lies above U+10FFFF.
    unsigned lowest = 0x80;
    unsigned highest = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
        value = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        value = lead & 0x0F;
        lowest = lead == 0xE0 ? 0xA0 : 0x80;
        highest = lead == 0xED ? 0x9F : 0xBF;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        value = lead & 0x07;
        lowest = lead == 0xF0 ? 0x90 : 0x80;
        highest = lead == 0xF4 ? 0x8F : 0xBF;
    } else {
        return {kReplacementCharacter, 1, false};
    }
    for (std::size_t i = 1; i < length; ++i) {
        if (i >= text.size() || byteAt(i) < lowest || byteAt(i) > highest) {
            return {kReplacementCharacter, i, false};
        }
        value = (value << 6) | (byteAt(i) & 0x3Fu);
        lowest = 0x80;
        highest = 0xBF;
    }
    return {value, length, true};
}

constexpr std::size_t kMaxUtf8Length = 4;

// Writes the UTF-8 form of a scalar value and returns its length; `out` has room for kMaxUtf8Length bytes.
constexpr std::size_t EncodeUtf8(char32_t c, char* out) {
    const auto trail = [c](unsigned shift) { return static_cast<char>(0x80u | ((c >> shift) & 0x3Fu)); };
    if (c < 0x80) {
        out[0] = static_cast<char>(c);
        return 1;
    }
    if (c < 0x800) {
        out[0] = static_cast<char>(0xC0u | (c >> 6));
        out[1] = trail(0);
        return 2;
    }
    if (c < 0x10000) {
        out[0] = static_cast<char>(0xE0u | (c >> 12));
        out[1] = trail(6);
        out[2] = trail(0);
        return 3;
    }
    out[0] = static_cast<char>(0xF0u | (c >> 18));
    out[1] = trail(12);
    out[2] = trail(6);
    out[3] = trail(0);
    return 4;
}

}  // namespace kvmpd::platform

#endif  // PLATFORM_POSIX_UTF8_H_
