// Media bytes that tell where they belong: whatever part of a stream a reader is given, it can be compared with what
// must be there.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kvmpd::test {

/// A file is a row of groups of this many bytes, the last one cut off where the file ends. Only the first byte of a
/// group has its highest bit set.
inline constexpr size_t kGroupBytes = 8;

/// Byte `offset` of file `id`, which is below 2^21.
constexpr unsigned char MediaByte(bool isVideo, std::uint32_t id, size_t offset) {
    const auto group = static_cast<std::uint32_t>(offset / kGroupBytes);
    const std::uint32_t fields[kGroupBytes] = {
        0x80u | (isVideo ? 1u : 0u), id, id >> 7, id >> 14, group, group >> 7, id * 31 + group * 7, id ^ group};
    return static_cast<unsigned char>(offset % kGroupBytes == 0 ? fields[0] : fields[offset % kGroupBytes] & 0x7F);
}

inline std::string MediaBody(bool isVideo, std::uint32_t id, size_t size) {
    std::string body(size, '\0');
    for (size_t i = 0; i < size; ++i) {
        body[i] = static_cast<char>(MediaByte(isVideo, id, i));
    }
    return body;
}

constexpr bool BeginsGroup(char byte) {
    return (static_cast<unsigned char>(byte) & 0x80) != 0;
}

struct MediaPlace {
    std::uint32_t id = 0;
    size_t offset = 0;
};
/// Where the group at the front of `bytes` belongs; nothing when there is no whole group.
inline std::optional<MediaPlace> Recognise(std::string_view bytes) {
    if (bytes.size() < kGroupBytes || !BeginsGroup(bytes[0])) {
        return std::nullopt;
    }
    for (size_t i = 1; i < kGroupBytes; ++i) {
        if (BeginsGroup(bytes[i])) {
            return std::nullopt;
        }
    }
    const auto field = [bytes](size_t at) { return static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[at])); };
    return MediaPlace{field(1) | field(2) << 7 | field(3) << 14, (field(4) | field(5) << 7) * kGroupBytes};
}

}  // namespace kvmpd::test
