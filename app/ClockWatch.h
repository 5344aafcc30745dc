// Tells media that comes a second time from media of a clock that began anew, as that of an encoder which was restarted
// does: both come with times that the recording has passed already.
//
// - A source delivers its segments in their order, so times that fall inside of one source are those of another clock.
// - A new source begins a known number of segments behind the live edge. What lies further back than that can reach is
//   of another clock.
// - In between the bytes decide: at a time that was recorded, the same bytes are the same media, and others are not.
//
// Times are microseconds of the stream's own clock. A plain value; no thread, no libav.

#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <limits>
#include <optional>

#include "app/AvTypes.h"

namespace kvmpd::app {

class ClockWatch {
  public:
    // One fragment of a track.
    struct Piece {
        Track track = Track::kVideo;
        std::int64_t startUs = 0;
        std::int64_t endUs = 0;
        std::uint64_t mark = 0;  // of its bytes: the same for the same media
    };

    enum class Verdict {
        kLater,    // goes on where the track is, or after a gap
        kAgain,    // was delivered before
        kEarlier,  // lies before the track's end, and nothing else is known of it: maybe it was lost at its time
        kNewClock  // the clock is another one
    };

    // No bound: whoever moved the stream may have moved it anywhere.
    static constexpr std::int64_t kAnywhere = std::numeric_limits<std::int64_t>::max();

    // What comes from here on is of a new source, or of another place of the same one. reachUs: how far back behind the
    // recording's end it may begin.
    void SourceBegins(std::int64_t reachUs);

    // Each piece once, in the order of delivery.
    Verdict Judge(const Piece& piece);
    // The piece is taken into the recording.
    void Take(const Piece& piece);
    // What is taken of the track from here on is on another clock.
    void BeginClock(Track track);

    // End of what was taken of the track, on its present clock.
    std::int64_t EndUs(Track track) const { return m_tracks[static_cast<std::size_t>(IndexOf(track))].endUs; }

  private:
    struct Taken {
        std::int64_t startUs;
        std::int64_t endUs;
        std::uint64_t mark;
        int clock;
    };
    struct TrackState {
        std::deque<Taken> taken;  // the newest last
        int clock = 0;
        bool begun = false;  // something was taken on the present clock
        std::int64_t endUs = 0;
        std::optional<std::int64_t> sourceUs;  // how far the present source has come
    };

    static bool Knows(const TrackState& state, const Piece& piece, bool earlierClocks);
    static bool Covers(const TrackState& state, std::int64_t timeUs);

    std::int64_t m_reachUs = kAnywhere;
    std::array<TrackState, kTracks> m_tracks;
};

}  // namespace kvmpd::app
