// The measures of the matrix: what a live stream does in seconds is done here in tenths, and what a patient user waits
// for in half a minute, in less than one second.
#pragma once

#include <chrono>

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

/// How long the component waits for a byte in the cells with stalls; it is 30 s otherwise.
inline constexpr milliseconds kShortReceiveTimeout{600 * kTimeFactor};
static_assert(kFaultTime > 4 * kShortReceiveTimeout,
              "a stall has to outlast a segment's three attempts, or it loses nothing");
/// "One byte per second".
inline constexpr milliseconds kTricklePace{10};
inline constexpr int kTrickledBytes = 40;
/// A stall that ends in time: twice in a body nothing comes for so long.
inline constexpr milliseconds kPause{150};
inline constexpr int kPauses = 2;

/// How long the reference host waits before it wakes the loader or makes a new source. Not less than the rate's window:
/// what the host asks for is not the component's doing.
inline constexpr milliseconds kHostBackOff{1000};
/// Two manifests a second at most; this one is real time, not compressed. A system's clock may tick in steps of 16 ms.
inline constexpr milliseconds kRateWindow{1000 - 20};
static_assert(kHostBackOff >= kRateWindow);

/// What a stop may take beyond the transfers that are running: threads have to be scheduled.
inline constexpr milliseconds kStopSlack{1000 * kTimeFactor};
/// A cell that has not come to its end by then hangs.
inline constexpr milliseconds kCellLimit{25000 * kTimeFactor};
/// A stop that has not ended by then never will.
inline constexpr milliseconds kStopLimit{60000 * kTimeFactor};

}  // namespace kvmpd::test
