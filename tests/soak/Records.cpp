#include "tests/soak/Records.h"

#include <cstring>

namespace kvmpd::test {
namespace {

constexpr unsigned kStreamBits = 24;
constexpr unsigned kRepresentationBits = 12;
constexpr unsigned kNumberBits = 40;
constexpr std::uint32_t kHeavyEvery = 6;
constexpr std::size_t kHeavyWeight = 32;

constexpr std::uint64_t Low(std::uint64_t value, unsigned bits) {
    return value & ((std::uint64_t{1} << bits) - 1);
}

std::uint64_t FirstWord(const BodyName& name, std::size_t index) {
    return name.stream | static_cast<std::uint64_t>(name.representation) << kStreamBits |
           std::uint64_t{name.isPage} << (kStreamBits + kRepresentationBits) |
           static_cast<std::uint64_t>(index) << (kStreamBits + kRepresentationBits + 1);
}

std::uint64_t SecondWord(std::int64_t number, std::uint64_t first) {
    return static_cast<std::uint64_t>(number) | Mix(first, number) << kNumberBits;
}

}  // namespace

std::string Describe(const BodyName& name) {
    return "stream " + std::to_string(name.stream) + ", representation " + std::to_string(name.representation) +
           ", segment " + std::to_string(name.number) + (name.isPage ? " (error page)" : "");
}

std::size_t RecordCount(const BodyName& name) {
    const std::uint64_t dice = Mix(name.stream, name.representation, name.number, name.isPage);
    if (name.isPage) {
        return 4 + dice % 29;
    }
    if (name.representation == kAudioRepresentation) {
        return 16 + dice % 112;
    }
    // Mostly small, so that thousands of them take no time; now and then one that a socket does not swallow at once.
    // Some streams are heavy: a reader that sleeps for a few seconds finds the component's buffers full.
    const std::size_t weight = name.stream % kHeavyEvery == 0 ? kHeavyWeight : 1;
    return dice % 64 == 0 ? 8192 + (dice >> 8) % 8192 : weight * (32 + (dice >> 8) % 1500);
}

std::string Body(const BodyName& name) {
    const std::size_t count = RecordCount(name);
    std::string body(count * kRecordBytes, '\0');
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint64_t first = FirstWord(name, i);
        const std::uint64_t words[] = {first, SecondWord(name.number, first)};
        std::memcpy(body.data() + i * kRecordBytes, words, kRecordBytes);
    }
    return body;
}

std::optional<Record> Recognise(std::string_view bytes) {
    std::uint64_t words[2];
    std::memcpy(words, bytes.data(), kRecordBytes);
    Record record;
    record.name.stream = static_cast<std::uint32_t>(Low(words[0], kStreamBits));
    record.name.representation = static_cast<int>(Low(words[0] >> kStreamBits, kRepresentationBits));
    record.name.isPage = Low(words[0] >> (kStreamBits + kRepresentationBits), 1) != 0;
    record.index = static_cast<std::size_t>(words[0] >> (kStreamBits + kRepresentationBits + 1));
    record.name.number = static_cast<std::int64_t>(Low(words[1], kNumberBits));
    return words[1] == SecondWord(record.name.number, words[0]) ? std::optional(record) : std::nullopt;
}

}  // namespace kvmpd::test
