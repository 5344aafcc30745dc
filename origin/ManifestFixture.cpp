#include <algorithm>
#include <array>
#include <stdexcept>
#include <string_view>

#include "origin/ManifestWriter.h"
#include "origin/Noise.h"

namespace kvmpd::origin {

namespace {

// One segment in this many is far from the nominal duration, as after a reconnect of the encoder.
constexpr std::uint64_t kOddOneIn = 97;
constexpr std::uint32_t kShortestMs = 101;
constexpr std::uint32_t kLongestMs = 5250;

std::uint32_t ScatteredDuration(std::uint32_t nominalMs, std::uint64_t noise) {
    if (noise % kOddOneIn == 0) {
        return kShortestMs + static_cast<std::uint32_t>((noise >> 8) % (kLongestMs - kShortestMs + 1));
    }
    // Most are exact; the others are off by a frame or so.
    const std::uint64_t kind = (noise >> 32) % 4;
    const auto jitter = static_cast<std::uint32_t>((noise >> 40) % 34);
    return kind == 0 ? nominalMs + jitter : kind == 1 ? nominalMs - std::min(jitter, nominalMs - 1) : nominalMs;
}

std::string EscapedPadding(std::size_t length, std::uint64_t seed) {
    std::string padding = "expire/1700000000/mime/video%2Fmp4/ip/0.0.0.0/sig/";
    static constexpr std::string_view kDigits = "0123456789ABCDEF";
    for (std::uint64_t i = 0; padding.size() + 4 < length; ++i) {
        const std::uint64_t noise = Noise(seed, i);
        padding += noise % 5 == 0 ? "%2C" : std::string(1, kDigits[noise % kDigits.size()]);
    }
    padding += '/';
    return padding;
}

Representation Video(std::size_t index, std::string_view codecs, int firstId) {
    static constexpr std::array<std::uint32_t, 6> kHeights{240, 360, 480, 144, 720, 1080};
    Representation video;
    video.id = firstId + static_cast<int>(index);
    video.height = kHeights[index % kHeights.size()];
    video.width = video.height * 16 / 9;
    video.bandwidth = video.height * video.height * 4;
    video.frameRate = video.height > 480 ? "60" : "30";
    video.codecs = codecs;
    return video;
}

}  // namespace

std::string MakeLargeManifest(const LargeManifestOptions& options) {
    if (options.representations < 3) {
        throw std::invalid_argument("a large manifest needs an audio, a video and another representation at least");
    }
    Manifest manifest;
    manifest.startNumber = options.startNumber;
    manifest.mediaBase = "https://r4---live.origin.example/media/id/";
    manifest.availabilityStart = std::chrono::system_clock::time_point(std::chrono::seconds(1'700'000'000));
    std::int64_t time = 0;
    for (std::size_t i = 0; i < options.segments; ++i) {
        const std::uint32_t duration = ScatteredDuration(options.nominalMs, Noise(options.seed, i));
        manifest.segments.push_back({options.startNumber + static_cast<std::int64_t>(i), time, duration});
        time += duration;
    }

    MediaSet audio{"audio/mp4", {}};
    audio.representations.push_back({140, 144'000, 0, 0, "", "mp4a.40.2", 44'100, 2, ""});
    MediaSet video{"video/mp4", {}};
    MediaSet other{"video/webm", {}};
    const std::size_t others = std::max<std::size_t>(1, (options.representations - 1) / 2);
    const std::size_t videos = options.representations - 1 - others;
    for (std::size_t i = 0; i < videos; ++i) {
        video.representations.push_back(Video(i, "avc1.4d401f", 133));
    }
    for (std::size_t i = 0; i < others; ++i) {
        other.representations.push_back(Video(i, "vp9", 242));
    }
    manifest.sets = {audio, video};

    ManifestStyle style;
    style.firstSegmentTime = false;
    style.foreignAttributes = true;
    style.declareForeignPrefix = false;
    style.mediaPrefix = "sq/";
    const std::size_t ownLength = manifest.mediaBase.size() + 4;
    style.basePadding =
        EscapedPadding(options.baseUrlLength > ownLength ? options.baseUrlLength - ownLength : 0, options.seed);
    style.extraSets = {other};
    return WriteManifest(manifest, style);
}

}  // namespace kvmpd::origin
