#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "origin/LiveTimeline.h"
#include "origin/MediaSource.h"

namespace kvmpd::origin {

// Ways in which manifests met in the field differ from the plainest one.
struct ManifestStyle {
    // In front of every media name, for example "sq/".
    std::string mediaPrefix{};
    // Between a representation's own part of its BaseURL and the final "/", already escaped, for example
    // "expire/17%2C3/".
    std::string basePadding{};
    // Media time of the first segment as attribute t, so that players that place segments by media time find them.
    bool firstSegmentTime = true;
    // Attributes with a foreign prefix on some S elements; the prefix is declared on the root only when asked for.
    bool foreignAttributes = false;
    bool declareForeignPrefix = true;
    // Set after the others; their representations list the same segments.
    std::vector<MediaSet> extraSets{};
};

// One state of a live stream.
struct Manifest {
    std::vector<MediaSet> sets;
    std::int64_t startNumber = 1;
    std::vector<SegmentTime> segments;
    std::chrono::system_clock::time_point availabilityStart;
    std::uint32_t minimumUpdatePeriodMs = 2000;
    // 0: the list grows.
    std::int64_t timeShiftBufferDepthMs = 0;
    // Absolute URL ending in "/"; a representation's BaseURL is this, its id, "/" and the padding.
    std::string mediaBase;
};

// Writes the manifest: one Period whose own SegmentList (startNumber, timescale 1000, an S for every segment) stands
// before the AdaptationSets, and one SegmentURL for every S in every representation (ISO/IEC 23009-1).
std::string WriteManifest(const Manifest& manifest, const ManifestStyle& style = {});

struct LargeManifestOptions {
    std::size_t segments = 3600;
    std::size_t representations = 15;  // of all sets together, at least 3
    std::int64_t startNumber = 81'000'000;
    std::uint32_t nominalMs = 2000;
    std::size_t baseUrlLength = 700;
    std::uint64_t seed = 1;
};

// A manifest as a two-hour window really looks: durations that scatter around the nominal one, representations in no
// order of height, media names with slashes, long escaped base URLs over https, foreign attributes with a prefix that
// nothing declares, sets of other types behind the ones that matter. The same options give the same bytes.
std::string MakeLargeManifest(const LargeManifestOptions& options = {});

}  // namespace kvmpd::origin
