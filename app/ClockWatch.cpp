#include "app/ClockWatch.h"

#include <algorithm>

namespace kvmpd::app {
namespace {

// Fragments may overlap a little where an encoder rounds; that is no jump.
constexpr std::int64_t kJumpUs = 1'000'000;
// How far back a packager may list media once more under new numbers.
constexpr std::int64_t kListedAgainUs = 10'000'000;
// No gap is that long: the clock was set, for instance from zero to the time of day.
constexpr std::int64_t kForwardJumpUs = std::int64_t{24} * 3600 * 1'000'000;
// More than the segments of a day, and than a source can begin behind the live edge.
constexpr std::size_t kMostTaken = 70'000;

}  // namespace

void ClockWatch::SourceBegins(std::int64_t reachUs) {
    m_reachUs = reachUs;
    for (TrackState& state : m_tracks) {
        state.sourceUs.reset();
    }
}

bool ClockWatch::Knows(const TrackState& state, const Piece& piece, bool earlierClocks) {
    return std::any_of(state.taken.rbegin(), state.taken.rend(), [&](const Taken& taken) {
        return taken.startUs == piece.startUs && taken.mark == piece.mark &&
               (taken.clock != state.clock) == earlierClocks;
    });
}

bool ClockWatch::Covers(const TrackState& state, std::int64_t timeUs) {
    return std::any_of(state.taken.rbegin(), state.taken.rend(), [&](const Taken& taken) {
        return taken.clock == state.clock && taken.startUs <= timeUs && timeUs < taken.endUs;
    });
}

ClockWatch::Verdict ClockWatch::Judge(const Piece& piece) {
    TrackState& state = m_tracks[static_cast<std::size_t>(IndexOf(piece.track))];
    if (!state.begun) {
        state.sourceUs = piece.endUs;
        return Verdict::kLater;
    }
    if (piece.startUs >= state.endUs - kJumpUs || piece.endUs > state.endUs) {
        const std::int64_t aheadUs = piece.startUs - state.endUs;
        // A new source may reach back to what was recorded before the clock began anew.
        if (aheadUs > kJumpUs && !state.sourceUs && Knows(state, piece, /*earlierClocks=*/true)) {
            return Verdict::kAgain;
        }
        if (aheadUs > kForwardJumpUs) {
            return Verdict::kNewClock;
        }
        state.sourceUs = piece.endUs;
        return Verdict::kLater;
    }
    const bool fell = state.sourceUs && piece.startUs < *state.sourceUs - kJumpUs;
    const std::int64_t from = fell ? *state.sourceUs : state.endUs;
    const std::int64_t reachUs = fell ? kListedAgainUs : m_reachUs;
    if (from - piece.startUs > reachUs) {
        return Verdict::kNewClock;
    }
    if (!Knows(state, piece, /*earlierClocks=*/false) && (fell || Covers(state, piece.startUs))) {
        return Verdict::kNewClock;
    }
    state.sourceUs = piece.endUs;
    return Covers(state, piece.startUs) ? Verdict::kAgain : Verdict::kEarlier;
}

void ClockWatch::Take(const Piece& piece) {
    TrackState& state = m_tracks[static_cast<std::size_t>(IndexOf(piece.track))];
    state.endUs = state.begun ? std::max(state.endUs, piece.endUs) : piece.endUs;
    state.begun = true;
    state.sourceUs = piece.endUs;
    state.taken.push_back({piece.startUs, piece.endUs, piece.mark, state.clock});
    if (state.taken.size() > kMostTaken) {
        state.taken.pop_front();
    }
}

void ClockWatch::BeginClock(Track track) {
    TrackState& state = m_tracks[static_cast<std::size_t>(IndexOf(track))];
    ++state.clock;
    state.begun = false;
    state.sourceUs.reset();
}

}  // namespace kvmpd::app
