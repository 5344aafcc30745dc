// Recognises where a segment begins inside of bytes that were taken for something else: a segment that was cut short is
// followed at once by the next one, which then lies inside of the box whose rest is missing.

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace kvmpd::app {

constexpr std::uint32_t FourCc(const char (&name)[5]) {
    return static_cast<std::uint32_t>(static_cast<unsigned char>(name[0])) << 24 |
           static_cast<std::uint32_t>(static_cast<unsigned char>(name[1])) << 16 |
           static_cast<std::uint32_t>(static_cast<unsigned char>(name[2])) << 8 |
           static_cast<std::uint32_t>(static_cast<unsigned char>(name[3]));
}

inline std::uint32_t ReadBig32(const std::uint8_t* p) {
    return static_cast<std::uint32_t>(p[0]) << 24 | static_cast<std::uint32_t>(p[1]) << 16 |
           static_cast<std::uint32_t>(p[2]) << 8 | p[3];
}

// Whether a box of this type may stand at the top level of a segment (ISO/IEC 14496-12, 23009-1).
bool IsTopLevelType(std::uint32_t type);

struct SegmentStart {
    std::size_t offset = 0;
    // A file type box and the header of a box behind it were seen. Otherwise the bytes ended before that.
    bool certain = false;
};

// The first place from `from` on where a segment begins: a small ftyp or styp box, followed by another box. Compressed
// media that look like it by chance are less likely than a disk that errs.
std::optional<SegmentStart> FindSegmentStart(std::span<const std::uint8_t> bytes, std::size_t from);

}  // namespace kvmpd::app
