#include "tests/soak/StreamLedger.h"

#include <algorithm>
#include <array>
#include <utility>

namespace kvmpd::test {
namespace {

constexpr unsigned kAttempts = 3;

bool IsAudio(int representation) {
    return representation == kAudioRepresentation;
}

/// Whether the answer makes a file, if none stands in its way; an empty one counts.
bool MakesAFile(SegmentFault fault) {
    return fault != SegmentFault::kCloseAtOnce && fault != SegmentFault::kReset &&
           fault != SegmentFault::kResetMidBody && fault != SegmentFault::kTruncated;
}

}  // namespace

void StreamLedger::Answer(const Manifest& manifest) {
    m_backTo.reset();
    if (!manifest.taken) {
        return;
    }
    const bool mayStart = std::exchange(m_startDue, m_restarting);
    if (manifest.backwards) {
        m_backTo = manifest.last;
        if (mayStart) {
            Forget(manifest.last);
        }
    }
    for (std::int64_t number = manifest.first; number <= manifest.last; ++number) {
        // To whoever plays on, a list that goes backwards offers only what no list had reached before.
        if (!manifest.backwards || number > m_newestNamed) {
            Segment& segment = m_segments[number];
            segment.named = segment.named || manifest.hole != number;
            segment.holed = segment.holed || (manifest.hole && *manifest.hole <= number);
        }
    }
    if (manifest.hole) {
        ++m_holes;
        if (manifest.last > m_newestNamed) {
            m_unnamed.insert(manifest.last);
        }
    }
    m_newestNamed = std::max(m_newestNamed, manifest.last);
}

void StreamLedger::RestartBegins() {
    m_restarting = m_startDue = true;
    if (m_backTo) {
        Forget(*m_backTo);
    }
}

void StreamLedger::RestartEnds() {
    RestartBegins();
    m_restarting = false;
}

/// A client that starts with a list up to `last` need not be offered again what newer ones named before.
void StreamLedger::Forget(std::int64_t last) {
    for (auto segment = m_segments.upper_bound(last); segment != m_segments.end(); ++segment) {
        segment->second.named = false;
    }
}

unsigned StreamLedger::Ask(const BodyName& name) {
    m_newestAsked = std::max(m_newestAsked, name.number);
    const bool another = m_round.number != name.number || (m_round.video != 0 && m_round.video != name.representation);
    if (another) {
        m_round = {.number = name.number};
        if (!IsAudio(name.representation) && !m_wrong) {
            m_wrong = Describe(name) + " was asked for without its audio";
        }
    }
    Segment& segment = m_segments[name.number];
    if (!IsAudio(name.representation) && m_round.video == 0) {
        m_round.video = name.representation;
        m_round.attempts = 0;
        m_round.had = false;
        if (m_round.failed) {
            segment.failedWith.insert(m_round.video);
        }
    }
    CheckAttempt(name);
    return segment.attempts[name.representation]++;
}

void StreamLedger::CheckAttempt(const BodyName& name) {
    const bool isVideo = !IsAudio(name.representation);
    if (++m_round.attempts > kAttempts && !m_wrong) {
        m_wrong = Describe(name) + " was asked for " + std::to_string(m_round.attempts) + " times in a row";
    }
    // Behind a hole a segment is stored under the number before its own.
    const bool blocked = std::ranges::any_of(std::array{name.number - 1, name.number, name.number + 1},
                                             [&](std::int64_t number) { return IsPartial(number, isVideo); });
    if (m_round.had && !blocked && !m_wrong) {
        m_wrong = Describe(name) + " was asked for again although it had been sent";
    }
    // The answers are such that a third attempt is made in vain.
    if (m_round.attempts == kAttempts) {
        m_failed += m_round.failed ? 0 : 1;
        m_round.failed = true;
        if (isVideo) {
            m_segments[name.number].failedWith.insert(name.representation);
        }
    }
}

void StreamLedger::Send(const BodyName& name, SegmentFault fault) {
    Segment& segment = m_segments[name.number];
    m_round.had = MakesAFile(fault);
    if (fault == SegmentFault::kResetMidBody || fault == SegmentFault::kTruncated) {
        segment.partial.insert(name.representation);
    }
    if (fault != SegmentFault::kEmptyBody) {
        return;
    }
    segment.empty.insert(name.representation);
    if (IsAudio(name.representation)) {
        m_round.audioEmpty = true;
    } else if (m_round.audioEmpty) {
        segment.emptyWith.insert(name.representation);
    }
}

std::optional<Missing> StreamLedger::WhyMissing(int video, std::int64_t number) const {
    const auto found = m_segments.find(number);
    if (found == m_segments.end()) {
        return Missing::kNotOffered;
    }
    const Segment& segment = found->second;
    if (segment.failedWith.contains(video)) {
        return Missing::kFailed;
    }
    if (segment.emptyWith.contains(video)) {
        return Missing::kEmpty;
    }
    if (segment.holed) {
        return Missing::kHole;
    }
    return segment.named ? std::nullopt : std::optional(Missing::kNotOffered);
}

bool StreamLedger::WasEmpty(const BodyName& name) const {
    const auto found = m_segments.find(name.number);
    return found != m_segments.end() && found->second.empty.contains(name.representation);
}

bool StreamLedger::IsPartial(std::int64_t number, bool isVideo) const {
    const auto found = m_segments.find(number);
    return found != m_segments.end() && std::ranges::any_of(found->second.partial, [isVideo](int representation) {
               return IsAudio(representation) != isVideo;
           });
}

bool StreamLedger::MayHaveLeft(std::int64_t number, bool isVideo) const {
    return IsPartial(number, isVideo) || IsPartial(number + 1, isVideo);
}

std::string StreamLedger::History(std::int64_t number) const {
    const auto found = m_segments.find(number);
    if (found == m_segments.end()) {
        return "nothing is known of it";
    }
    std::string text = found->second.named ? "named" : "not named";
    for (const auto& [representation, attempts] : found->second.attempts) {
        text +=
            ", representation " + std::to_string(representation) + " asked for " + std::to_string(attempts) + " times";
    }
    return text + "; the newest named is " + std::to_string(m_newestNamed);
}

StreamLedger::Losses StreamLedger::LossesSoFar() const {
    const auto passed = std::ranges::count_if(m_unnamed, [this](std::int64_t last) { return last < m_newestAsked; });
    return {m_failed, static_cast<std::uint64_t>(passed), m_unnamed.size() - static_cast<std::uint64_t>(passed),
            m_holes};
}

}  // namespace kvmpd::test
