// Where playback of a live stream starts.
#pragma once

#include "manifest/Mpd.h"

namespace kvmpd {

/// How the host wants to start. At most one is in force; whoever sets one clears the others.
struct StartPreference {
    LONGLONG segmentId = 0;  ///< Segment number; below 1: not set.
    DWORD delayTime = 0;     ///< Milliseconds of media behind the live end; 0: not set.
    DWORD delaySegment = 0;  ///< Segments behind the newest one; 0: the newest one.
};

/// Index on the timeline at which playback starts, from 0 to count - 1. Logs which preference decided. The precedence
/// is number, delay time, delay in segments. Whatever lies outside the timeline starts at its nearer end.
///
/// A number on the timeline starts one segment earlier, which is kept because hosts see one segment of lead-in before
/// the one they asked for. The first number on the timeline has none before it and starts at itself.
///
/// `mpd` must have at least one segment.
size_t ChooseStartIndex(const MPD& mpd, const StartPreference& preference);

/// How many of the newest segments fit whole into `delayTime` milliseconds, counted from the live end; the count of all
/// segments when every one fits. The segment before those is the one that the delay points into.
size_t SegmentsWithinDelay(const MPD& mpd, DWORD delayTime);

}  // namespace kvmpd
