// The measures of the matrix: what a live stream does in seconds is done here in tenths, and what a patient user waits
// for in half a minute, in less than one second.
#pragma once

#include <chrono>
#include <cstddef>

#include "app/RetryPolicy.h"

#ifndef KV_TIME_FACTOR
#define KV_TIME_FACTOR 1
#endif

namespace kvmpd::test {

using std::chrono::milliseconds;

/// Sanitizers make everything slower but the clock.
inline constexpr int kTimeFactor = KV_TIME_FACTOR;

/// A segment of the live stream, in media time.
inline constexpr milliseconds kSegment{250};
/// How many segments the live edge moves with each manifest that is asked for: the reload period, which the component
/// never makes shorter than a second, in segments.
inline constexpr int kSegmentsPerReload = 4;
/// "For 10 s": ten segments, or for requests that take time by themselves the time of ten segments. That time is one of
/// the clock's, as the time-out below is, and so it is stretched with it.
inline constexpr int kFaultSegments = 10;
inline constexpr milliseconds kFaultTime = kFaultSegments * kSegment * kTimeFactor;

/// "For ever": so many segments or manifests, which is more than "10 s" comes to (ten segments, three manifests).
inline constexpr int kForEverSegments = 16;
inline constexpr size_t kForEverManifests = 12;
/// The same where one of them takes a time-out, or three.
inline constexpr int kForEverStalledSegments = 4;
inline constexpr size_t kForEverStalledManifests = 6;

/// How long the component waits for a byte in the cells with stalls; it is 30 s otherwise.
inline constexpr milliseconds kShortReceiveTimeout{600 * kTimeFactor};
static_assert(kFaultTime > 4 * kShortReceiveTimeout,
              "a stall has to outlast a segment's three attempts, or it loses nothing");
/// "One byte per second" at the end of a body.
inline constexpr milliseconds kTricklePace{10};
inline constexpr int kTrickledBytes = 40;
/// "One byte per second" without end: from an eighth of the body on, until the cell's end. Each byte starts the
/// receive time-out anew.
inline constexpr milliseconds kEndlessPace{100 * kTimeFactor};
inline constexpr int kEndlessFrom = 8;
static_assert(kShortReceiveTimeout >= 6 * kEndlessPace, "a scheduler's delay is not to be taken for a stall");
/// How many sources are to trickle where that lasts for ever: beyond two that do not end the host makes fewer.
inline constexpr int kForEverTrickling = 3;
/// How long a name look-up takes that is slow.
inline constexpr milliseconds kSlowLookUp{250};
/// A stall that ends in time: twice in a body nothing comes for so long.
inline constexpr milliseconds kPause{150};
inline constexpr int kPauses = 2;

/// The host's longest wait between two tries; kvmpd's is 30 s. The shortest is kvmpd's own, not compressed: by it the
/// rate of manifests after failures is kept.
inline constexpr milliseconds kLongestBackOff{1200};
/// How long nothing may come before the host replaces a source that reports nothing: only where a transfer has no end.
inline constexpr milliseconds kStallLimit{2000 * kTimeFactor};
/// How much of the stream a source may hold in its cache folder where the fault lasts for ever.
inline constexpr int kCacheSeconds = 2;
inline constexpr size_t kCachedSegments = 1000 * kCacheSeconds / 250;
static_assert(kCachedSegments * kSegment == std::chrono::seconds(kCacheSeconds));

/// Two manifests a second at most; this one is real time, not compressed. A system's clock may tick in steps of 16 ms.
inline constexpr milliseconds kRateWindow{1000 - 20};
static_assert(app::RetryPolicy::Options{}.shortest >= kRateWindow,
              "what the host asks for is not the component's doing");

/// What a stop may take beyond the transfers that are running: threads have to be scheduled.
inline constexpr milliseconds kStopSlack{1000 * kTimeFactor};
/// A cell that has not come to its end by then hangs.
inline constexpr milliseconds kCellLimit{45000 * kTimeFactor};
/// A stop that has not ended by then never will.
inline constexpr milliseconds kStopLimit{60000 * kTimeFactor};

}  // namespace kvmpd::test
