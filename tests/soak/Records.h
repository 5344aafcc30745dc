// The bytes of a soak run. Every segment is a row of 16-byte records, each of which tells by itself to which stream,
// representation and segment it belongs and where in it: a reader recognises what it was given wherever it begins, and
// recomputes what it must be.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kvmpd::test {

inline constexpr std::size_t kRecordBytes = 16;
inline constexpr int kAudioRepresentation = 1;
inline constexpr std::array<int, 3> kVideoRepresentations{360, 720, 1080};

/// Mixes any numbers into one that looks random and is the same everywhere.
template <class... Numbers>
std::uint64_t Mix(Numbers... numbers) {
    std::uint64_t z = 0x243F6A8885A308D3u;
    const auto stir = [&z](std::uint64_t number) {
        z += number + 0x9E3779B97F4A7C15u;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
        z ^= z >> 31;
    };
    (stir(static_cast<std::uint64_t>(numbers)), ...);
    return z;
}

/// What a row of records is the body of.
struct BodyName {
    std::uint32_t stream = 0;  // below 2^24
    int representation = 0;
    std::int64_t number = 0;  // of the segment, below 2^40
    bool isPage = false;      // an error page that was sent in the segment's place

    bool operator==(const BodyName&) const = default;
};

/// "stream 3, 720, segment 1234 (error page)".
std::string Describe(const BodyName& name);

std::size_t RecordCount(const BodyName& name);
std::string Body(const BodyName& name);

struct Record {
    BodyName name;
    std::size_t index = 0;
};
/// What `bytes` (kRecordBytes of them) are; nothing when they are no record.
std::optional<Record> Recognise(std::string_view bytes);

}  // namespace kvmpd::test
