#include "app/Timeline.h"

#include <algorithm>

namespace kvmpd::app {
namespace {

// Durations are rounded to the track's clock, and a sound frame is some 20 ms: what is shorter is no loss.
constexpr std::int64_t kSmallestGapUs = 100'000;
// Sound and picture of a segment rarely begin or end at the same instant: by so much the tracks may differ at both ends
// of the recording.
constexpr std::int64_t kNearLimitUs = 150'000;

}  // namespace

Timeline::Verdict Timeline::Admit(Track track, std::int64_t decodeUs, std::int64_t durationUs) {
    Entry& entry = m_tracks[static_cast<std::size_t>(IndexOf(track))];
    TrackState& state = entry.state;
    m_lastGap.reset();
    if (state.packets > 0 && decodeUs <= entry.lastDecodeUs) {
        ++state.repeated;
        return Verdict::kRepeated;
    }
    const std::int64_t sinceOrigin = decodeUs - m_originUs;
    if (m_limitUs && sinceOrigin >= *m_limitUs) {
        if (!state.atLimit) {
            NoteGap(track, *m_limitUs, kNearLimitUs);
        }
        state.atLimit = true;
        return Verdict::kBeyondLimit;
    }
    NoteGap(track, sinceOrigin, state.packets > 0 ? kSmallestGapUs : kNearLimitUs);
    ++state.packets;
    entry.lastDecodeUs = decodeUs;
    state.endUs = sinceOrigin + durationUs;
    if (m_limitUs && state.endUs >= *m_limitUs) {
        state.atLimit = true;
    }
    return Verdict::kWrite;
}

// From the end of what the track has; at first that is the recording's beginning.
void Timeline::NoteGap(Track track, std::int64_t toUs, std::int64_t smallestUs) {
    TrackState& state = m_tracks[static_cast<std::size_t>(IndexOf(track))].state;
    if (toUs - state.endUs < smallestUs) {
        return;
    }
    ++state.gaps;
    state.missingUs += toUs - state.endUs;
    m_lastGap = Gap{.track = track, .fromUs = state.endUs, .toUs = toUs};
}

Gap Timeline::SpoilEnd(Track track) {
    Entry& entry = m_tracks[static_cast<std::size_t>(IndexOf(track))];
    const Gap gap{.track = track, .fromUs = entry.lastDecodeUs - m_originUs, .toUs = entry.state.endUs};
    ++entry.state.gaps;
    entry.state.missingUs += gap.toUs - gap.fromUs;
    return gap;
}

void Timeline::EndTrack(Track track, std::int64_t lostUs) {
    m_lastGap.reset();
    const Track other = track == Track::kVideo ? Track::kAudio : Track::kVideo;
    const std::int64_t lostUntil = Of(track).endUs + lostUs;
    NoteGap(track, std::max(Of(other).endUs, m_limitUs ? std::min(lostUntil, *m_limitUs) : lostUntil), kNearLimitUs);
}

bool Timeline::LimitReached() const {
    if (!m_limitUs) {
        return false;
    }
    bool oneAtLimit = false;
    for (const Entry& entry : m_tracks) {
        oneAtLimit = oneAtLimit || entry.state.atLimit;
        if (!entry.state.atLimit && entry.state.endUs + kNearLimitUs < *m_limitUs) {
            return false;
        }
    }
    return oneAtLimit;
}

}  // namespace kvmpd::app
