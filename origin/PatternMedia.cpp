#include "origin/PatternMedia.h"

#include <utility>

#include "origin/Noise.h"

namespace kvmpd::origin {

namespace {

constexpr std::uint64_t kWord = 8;

}  // namespace

PatternMedia::PatternMedia(PatternOptions options)
    : sets_(options.sets.empty() ? DefaultSets() : std::move(options.sets)), size_(std::move(options.size)) {}

std::vector<MediaSet> PatternMedia::DefaultSets() {
    return {{"audio/mp4", {{1, 128'000, 0, 0, "", "mp4a.40.2", 48'000, 2, ".m4a"}}},
            {"video/mp4",
             {{360, 800'000, 640, 360, "25", "avc1.64001e", 0, 0, ".mp4"},
              {720, 2'000'000, 1280, 720, "25", "avc1.64001f", 0, 0, ".mp4"},
              {1080, 4'000'000, 1920, 1080, "25", "avc1.640028", 0, 0, ".mp4"}}}};
}

std::string PatternMedia::Range(int representationId, std::int64_t number, std::uint64_t offset, std::size_t length) {
    const std::uint64_t seed = Noise(static_cast<std::uint64_t>(representationId), static_cast<std::uint64_t>(number));
    std::string bytes(length, '\0');
    std::uint64_t word = 0;
    for (std::size_t i = 0; i < length; ++i) {
        const std::uint64_t position = offset + i;
        if (i == 0 || position % kWord == 0) {
            word = Noise(seed, position / kWord);
        }
        bytes[i] = static_cast<char>(static_cast<unsigned char>(word >> (position % kWord * 8)));
    }
    return bytes;
}

std::size_t PatternMedia::Size(int representationId, const SegmentTime& segment) const {
    if (size_) {
        return size_(representationId, segment);
    }
    for (const MediaSet& set : sets_) {
        for (const Representation& representation : set.representations) {
            if (representation.id == representationId) {
                return static_cast<std::size_t>(std::uint64_t{representation.bandwidth} * segment.durationMs / 8000);
            }
        }
    }
    return 0;
}

Bytes PatternMedia::Segment(int representationId, const SegmentTime& segment) {
    for (const MediaSet& set : sets_) {
        for (const Representation& representation : set.representations) {
            if (representation.id == representationId) {
                return std::make_shared<const std::string>(
                    Range(representationId, segment.number, 0, Size(representationId, segment)));
            }
        }
    }
    return nullptr;
}

}  // namespace kvmpd::origin
