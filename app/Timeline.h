// Decides, packet by packet, what goes into the recording: where it starts, where it ends, what is repeated and what is
// missing. Times are microseconds of the stream's own clock (its decode times), moved to go on where that begins anew.
// Plain values; no thread, no libav.

#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "app/Gap.h"

namespace kvmpd::app {

class Timeline {
  public:
    enum class Verdict {
        kWrite,
        kRepeated,    // not later than what the track has already: media that was delivered again
        kBeyondLimit  // after the end that was asked for
    };

    // limitUs: length of media to record; none: without end.
    explicit Timeline(std::optional<std::int64_t> limitUs) : m_limitUs(limitUs) {}

    // The recording's time 0: the earlier of the two tracks' first decode times. One origin for both keeps sound and
    // picture together.
    void Begin(std::int64_t firstVideoUs, std::int64_t firstAudioUs) {
        m_originUs = firstVideoUs < firstAudioUs ? firstVideoUs : firstAudioUs;
    }
    std::int64_t OriginUs() const { return m_originUs; }

    Verdict Admit(Track track, std::int64_t decodeUs, std::int64_t durationUs);
    // Packets that somebody else knows to have come a second time.
    void CountRepeated(Track track, std::int64_t packets) {
        m_tracks[static_cast<std::size_t>(IndexOf(track))].state.repeated += packets;
    }
    // The gap in front of the packet last given to Admit; its cause is for others to say.
    const std::optional<Gap>& LastGap() const { return m_lastGap; }

    // The packet of the track that was admitted last has no use: it counts as missing, however short it is. Once a
    // packet.
    Gap SpoilEnd(Track track);

    // No more packets come. What the track lacks against the other one counts as a gap, and so does what is known to be
    // lost behind its end, up to the end that was asked for.
    void EndTrack(Track track, std::int64_t lostUs = 0);

    // Both tracks have reached the end that was asked for, the second one as nearly as its packets allow.
    bool LimitReached() const;

    struct TrackState {
        std::int64_t packets = 0;   // admitted
        std::int64_t repeated = 0;  // refused as repeated
        std::int64_t gaps = 0;
        std::int64_t missingUs = 0;  // sum of the gaps
        std::int64_t endUs = 0;      // end of the last packet admitted, from the origin
        bool atLimit = false;
    };
    const TrackState& Of(Track track) const { return m_tracks[static_cast<std::size_t>(IndexOf(track))].state; }

  private:
    struct Entry {
        TrackState state;
        std::int64_t lastDecodeUs = 0;
    };

    void NoteGap(Track track, std::int64_t toUs, std::int64_t smallestUs);

    const std::optional<std::int64_t> m_limitUs;
    std::optional<Gap> m_lastGap;
    std::int64_t m_originUs = 0;
    std::array<Entry, kTracks> m_tracks;
};

}  // namespace kvmpd::app
