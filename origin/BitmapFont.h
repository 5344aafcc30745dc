#pragma once

#include <array>
#include <cstdint>

namespace kvmpd::origin {

inline constexpr int kGlyphWidth = 5;
inline constexpr int kGlyphHeight = 7;

// Rows from the top, the leftmost dot in bit 4.
using Glyph = std::array<std::uint8_t, kGlyphHeight>;

// Digits, capital letters, and ':', '.', '-'; anything else is blank.
const Glyph& GlyphOf(char character);

}  // namespace kvmpd::origin
