// Recording, where the stream's clock begins anew.

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <limits>
#include <span>
#include <utility>

#include "app/Recording.h"

namespace kvmpd::app {
namespace {

constexpr AVRational kMicroseconds{1, 1'000'000};
// How much of one track waits for the other one on a new clock. A track whose clock began anew alone goes on then.
constexpr std::int64_t kMostWaitingUs = 20'000'000;
// Fragments of a track: half a minute or a minute, mostly.
constexpr std::size_t kMostDoubtful = 32;
// Fragments that follow each other so closely are of one clock.
constexpr std::int64_t kNoBreakUs = 1'000'000;
constexpr std::size_t kMostRestartsListed = 1000;

std::int64_t StartUs(const DemuxedFragment& fragment) {
    return av_rescale_q(fragment.packets.front()->dts, fragment.timeBase, kMicroseconds);
}

std::int64_t EndUs(const DemuxedFragment& fragment) {
    const AVPacket& last = *fragment.packets.back();
    return av_rescale_q(last.dts + last.duration, fragment.timeBase, kMicroseconds);
}

// FNV-1a over the first packet. The later ones may lack where a fragment was damaged when it first came.
std::uint64_t MarkOf(const DemuxedFragment& fragment) {
    const AVPacket& packet = *fragment.packets.front();
    std::uint64_t hash = 0xCBF29CE484222325u;
    for (const std::uint8_t byte : std::span(packet.data, static_cast<std::size_t>(packet.size))) {
        hash = (hash ^ byte) * 0x100000001B3u;
    }
    return hash;
}

ClockWatch::Piece PieceOf(Track track, const DemuxedFragment& fragment) {
    return {track, StartUs(fragment), EndUs(fragment), MarkOf(fragment)};
}

}  // namespace

void Recording::SourceBegins() {
    const std::lock_guard lock(m_mutex);
    m_watch.SourceBegins(m_nextReachUs);
    DropDoubtful(Track::kVideo);
    DropDoubtful(Track::kAudio);
}

Recording::Result Recording::AddBeforeBegun(Track track, DemuxedFragment&& fragment) {
    const auto index = static_cast<std::size_t>(IndexOf(track));
    const ClockWatch::Piece piece = PieceOf(track, fragment);
    if (IsOfTheClockLeft(track, piece)) {
        return Result::kGoOn;
    }
    switch (m_watch.Judge(piece)) {
        case ClockWatch::Verdict::kLater:
            break;
        case ClockWatch::Verdict::kAgain:
        case ClockWatch::Verdict::kEarlier:
            LeaveOut(track, fragment);
            return Result::kGoOn;
        case ClockWatch::Verdict::kNewClock:
            LeaveClock();
            break;
    }
    m_watch.Take(piece);
    m_waiting[index].push_back(std::move(fragment));
    BoundWaiting(m_waiting[index]);
    if (m_waiting[0].empty() || m_waiting[1].empty()) {
        return Result::kGoOn;
    }
    return Begin() ? WriteWaiting() : Result::kOutputFailed;
}

// The recording begins with the new clock then.
void Recording::LeaveClock() {
    for (const std::vector<DemuxedFragment>& waiting : m_waiting) {
        if (!waiting.empty()) {
            m_leftClock = Span{StartUs(waiting.front()), EndUs(waiting.back())};
        }
    }
    m_watch = ClockWatch();
    m_waiting = {};
}

// The track that has shown the new clock may be ahead of the other one, whose first media is of the old clock then. To
// begin with the two would put as much between them as there is between the clocks.
bool Recording::IsOfTheClockLeft(Track track, const ClockWatch::Piece& piece) const {
    const std::vector<DemuxedFragment>& other = m_waiting[1 - static_cast<std::size_t>(IndexOf(track))];
    if (!m_leftClock || other.empty()) {
        return false;
    }
    const auto distance = [&](std::int64_t fromUs, std::int64_t toUs) {
        return std::max({std::int64_t{0}, fromUs - piece.startUs, piece.startUs - toUs});
    };
    return distance(m_leftClock->fromUs, m_leftClock->toUs) < distance(StartUs(other.front()), EndUs(other.back()));
}

Recording::Result Recording::AddWhenBegun(Track track, DemuxedFragment&& fragment) {
    const auto index = static_cast<std::size_t>(IndexOf(track));
    const ClockWatch::Piece piece = PieceOf(track, fragment);
    ClockWatch::Verdict verdict = m_watch.Judge(piece);
    if (verdict != ClockWatch::Verdict::kLater && track == Track::kAudio && m_clock[index] != m_newestClock) {
        verdict = ClockWatch::Verdict::kNewClock;  // the video has told
    }
    switch (verdict) {
        case ClockWatch::Verdict::kNewClock:
            if (track == Track::kAudio && m_clock[index] == m_newestClock &&
                !(m_doubtful[0].empty() && m_doubtful[1].empty())) {
                break;  // so is what came before it, as the video will tell
            }
            return Join(track, piece, std::move(fragment));
        case ClockWatch::Verdict::kLater:
            if (m_clock[index] == m_newestClock) {
                DropDoubtful(track);  // it has caught up
            }
            return TakeIn(track, piece, std::move(fragment));
        case ClockWatch::Verdict::kAgain:
            if (track == Track::kVideo) {
                DropDoubtful(Track::kVideo);
                DropDoubtful(Track::kAudio);
                LeaveOut(track, fragment);
                return Result::kGoOn;
            }
            break;
        case ClockWatch::Verdict::kEarlier:
            break;
    }
    std::vector<DemuxedFragment>& doubtful = m_doubtful[index];
    doubtful.push_back(std::move(fragment));
    if (doubtful.size() > kMostDoubtful) {
        LeaveOut(track, doubtful.front());
        doubtful.erase(doubtful.begin());
    }
    return Result::kGoOn;
}

// The fragment goes on on its track's clock.
Recording::Result Recording::TakeIn(Track track, const ClockWatch::Piece& piece, DemuxedFragment&& fragment) {
    const auto index = static_cast<std::size_t>(IndexOf(track));
    m_watch.Take(piece);
    if (m_clock[index] != m_newestClock || m_newestShiftUs) {
        return WriteFragment(track, fragment);
    }
    std::vector<DemuxedFragment>& waiting = m_waiting[index];
    waiting.push_back(std::move(fragment));
    const bool bothThere = !m_waiting[0].empty() && !m_waiting[1].empty();
    const bool tooLong = EndUs(waiting.back()) - StartUs(waiting.front()) > kMostWaitingUs;
    return bothThere || tooLong ? GoOnAtTheEnd() : Result::kGoOn;
}

// The fragment is the track's first on the newest clock, of which it may be the first sign.
Recording::Result Recording::Join(Track track, const ClockWatch::Piece& piece, DemuxedFragment&& fragment) {
    const auto index = static_cast<std::size_t>(IndexOf(track));
    Result result = Result::kGoOn;
    if (m_clock[index] == m_newestClock) {
        result = GoOnAtTheEnd();
        ++m_newestClock;
        m_newestShiftUs.reset();
    }
    m_clock[index] = m_newestClock;
    m_shiftUs[index] = m_newestShiftUs.value_or(m_shiftUs[index]);
    m_watch.BeginClock(track);
    if (track == Track::kVideo && result == Result::kGoOn) {
        result = JoinDoubtful(piece.startUs);
    }
    return result == Result::kGoOn ? TakeIn(track, piece, std::move(fragment)) : result;
}

// The video has joined the newest clock at this time. So have those before it without a break, and the sound from
// there.
Recording::Result Recording::JoinDoubtful(std::int64_t fromUs) {
    std::vector<DemuxedFragment>& video = m_doubtful[0];
    auto first = video.end();
    while (first != video.begin() && std::abs(EndUs(*std::prev(first)) - fromUs) < kNoBreakUs) {
        fromUs = StartUs(*--first);
    }
    std::vector<DemuxedFragment> joining(std::make_move_iterator(first), std::make_move_iterator(video.end()));
    video.erase(first, video.end());
    Result result = Result::kGoOn;
    for (DemuxedFragment& fragment : joining) {
        if (result == Result::kGoOn) {
            result = TakeIn(Track::kVideo, PieceOf(Track::kVideo, fragment), std::move(fragment));
        }
    }
    for (DemuxedFragment& fragment : std::exchange(m_doubtful[1], {})) {
        const ClockWatch::Piece piece = PieceOf(Track::kAudio, fragment);
        if (piece.startUs < fromUs - kNoBreakUs) {
            LeaveOut(Track::kAudio, fragment);
        } else if (result == Result::kGoOn) {
            result = m_clock[1] != m_newestClock ? Join(Track::kAudio, piece, std::move(fragment))
                                                 : TakeIn(Track::kAudio, piece, std::move(fragment));
        }
    }
    DropDoubtful(Track::kVideo);
    return result;
}

void Recording::DropDoubtful(Track track) {
    for (const DemuxedFragment& fragment : std::exchange(m_doubtful[static_cast<std::size_t>(IndexOf(track))], {})) {
        LeaveOut(track, fragment);
    }
}

// What waits on a new clock follows at the end of the tracks that wait: the earlier of both there, the other one as far
// behind as it is on their clock. A track that waits alone does not make up for what the other one has more.
Recording::Result Recording::GoOnAtTheEnd() {
    if (m_waiting[0].empty() && m_waiting[1].empty()) {
        return Result::kGoOn;
    }
    std::int64_t firstUs = std::numeric_limits<std::int64_t>::max();
    std::int64_t endUs = 0;
    std::int64_t shiftBeforeUs = 0;
    for (std::size_t i = 0; i < kTracks; ++i) {
        if (m_waiting[i].empty()) {
            continue;
        }
        firstUs = std::min(firstUs, StartUs(m_waiting[i].front()));
        endUs = std::max(endUs, m_timeline.Of(static_cast<Track>(i)).endUs);
        shiftBeforeUs = m_shiftUs[i];
    }
    const ClockRestart restart{.atUs = endUs, .fromUs = endUs + m_timeline.OriginUs() - shiftBeforeUs, .toUs = firstUs};
    m_newestShiftUs = endUs + m_timeline.OriginUs() - firstUs;
    for (std::size_t i = 0; i < kTracks; ++i) {
        if (!m_waiting[i].empty()) {
            m_shiftUs[i] = *m_newestShiftUs;
            m_loss[i] = m_loss[i] == LossCause::kAbsent ? LossCause::kNewClock : m_loss[i];
        }
    }
    if (m_clockRestarts.size() < kMostRestartsListed) {
        m_clockRestarts.push_back(restart);
        m_newClockRestarts.push_back(restart);
    }
    return WriteWaiting();
}

void Recording::LeaveOut(Track track, const DemuxedFragment& fragment) {
    m_timeline.CountRepeated(track, static_cast<std::int64_t>(fragment.packets.size()));
}

}  // namespace kvmpd::app
