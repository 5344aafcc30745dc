// How far a manifest may go. A manifest beyond any of these is refused whole, with a logged line, and the one before it
// stays in force; the largest body that is received at all is the download's to say (net/HttpLimits.h).
#pragma once

#include <cstddef>

namespace kvmpd {

/// Elements within each other. The bound is the XML library's, which reads by recursion: 100, the document counted and
/// the hundredth refused. It is said here so that a version of the library that reads less does not go unnoticed; one
/// that reads more refuses later.
inline constexpr int kDeepestXml = 98;

/// Opening and closing tags, comments and attributes together, counted as "<" and "=". Each may become a node of some
/// hundred bytes however little text it is. Two hours of one-second segments in eight qualities have about 150,000.
inline constexpr size_t kMostXmlItems = 2'000'000;

/// Segments on the timeline: more than five days of one-second segments. Each S is one segment, a repeat count is not
/// read, so no manifest can ask for more segments than it has text for.
inline constexpr size_t kMostSegments = 500'000;

}  // namespace kvmpd
