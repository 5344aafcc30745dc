#include "app/Timeline.h"

namespace kvmpd::app {
namespace {

// Durations are rounded to the track's clock, and a sound frame is some 20 ms: what is shorter is no loss.
constexpr std::int64_t kSmallestGapUs = 100'000;
// Sound and picture of a segment rarely end at the same instant; the last packet may be this far from the limit.
constexpr std::int64_t kNearLimitUs = 150'000;

}  // namespace

Timeline::Verdict Timeline::Admit(Track track, std::int64_t decodeUs, std::int64_t durationUs) {
    Entry& entry = m_tracks[static_cast<std::size_t>(IndexOf(track))];
    TrackState& state = entry.state;
    if (state.packets > 0 && decodeUs <= entry.lastDecodeUs) {
        ++state.repeated;
        return Verdict::kRepeated;
    }
    const std::int64_t sinceOrigin = decodeUs - m_originUs;
    if (m_limitUs && sinceOrigin >= *m_limitUs) {
        state.atLimit = true;
        return Verdict::kBeyondLimit;
    }
    if (state.packets > 0 && sinceOrigin - state.endUs >= kSmallestGapUs) {
        ++state.gaps;
        state.missingUs += sinceOrigin - state.endUs;
    }
    ++state.packets;
    entry.lastDecodeUs = decodeUs;
    state.endUs = sinceOrigin + durationUs;
    if (m_limitUs && state.endUs >= *m_limitUs) {
        state.atLimit = true;
    }
    return Verdict::kWrite;
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
