// How far a manifest may go. A manifest beyond any of these is refused whole, with a logged line, and the one before it
// stays in force; the largest body that is received at all is the download's to say (net/HttpLimits.h).
#pragma once

#include <cstddef>

namespace kvmpd {

/// Elements within each other, the root among them. The XML library reads by recursion, so a manifest decides how much
/// of the loader's stack it takes; the manifests that are understood have six. The library has a bound of its own,
/// which differs from version to version, so this one is looked at before it reads anything.
inline constexpr int kDeepestXml = 98;

/// Opening and closing tags, comments and attributes together, counted as "<" and "=". Each may become a node of some
/// hundred bytes however little text it is. Two hours of one-second segments in eight qualities have about 150,000.
inline constexpr size_t kMostXmlItems = 2'000'000;

/// Segments on the timeline: more than a day of one-second segments. Each S is one segment, a repeat count is not read,
/// so no manifest can ask for more segments than it has text for.
inline constexpr size_t kMostSegments = 100'000;

/// Lists of segment files that the most segments may have: audio and seven video qualities. An S or SegmentURL is two
/// items; the rest of the manifest is left a tenth.
inline constexpr size_t kListsOfMostSegments = 8;
static_assert(kMostSegments * 2 * (1 + kListsOfMostSegments) <= kMostXmlItems - kMostXmlItems / 10,
              "a manifest with the most segments is refused for its tags");

}  // namespace kvmpd
