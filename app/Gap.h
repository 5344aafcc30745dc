// Media that is missing from a recording, and other breaks in it.

#pragma once

#include <cstdint>

#include "app/AvTypes.h"

namespace kvmpd::app {

// What the reader knows of why media is missing.
enum class LossCause {
    kAbsent,          // it was not delivered; nothing is known of it
    kDownloadFailed,  // the component reported a segment that it could not download
    kNotMedia,        // other bytes came in its place
    kCutShort,        // a segment came without its end
    kDamaged,         // it could not be taken apart
    kLeftCache,       // it had left the cache before it was read
    kNewSource,       // the stream was taken up again by a new source, which began later
    kNewClock         // the stream's clock began anew, and this track had ended before the other one
};

// Times are microseconds from the recording's first media.
struct Gap {
    Track track = Track::kVideo;
    std::int64_t fromUs = 0;
    std::int64_t toUs = 0;
    LossCause cause = LossCause::kAbsent;
};

// The stream's clock began anew, as that of an encoder does which was restarted. What follows is recorded where the
// recording ended; what was lost in between cannot be told. Microseconds.
struct ClockRestart {
    std::int64_t atUs = 0;    // from the recording's first media
    std::int64_t fromUs = 0;  // on the stream's clock: where it ended
    std::int64_t toUs = 0;    // and where it went on
};

}  // namespace kvmpd::app
