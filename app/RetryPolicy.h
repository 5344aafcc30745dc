// When a live source that failed is tried again, and how: exponential back-off with jitter, bounded below so that no
// server is hammered and above so that a stream that comes back is noticed soon.
//
// A plain value. It has no clock, no thread and no source: it is told what happened and when, and answers what is to be
// done and when to ask again. Standard library only; any host may copy it.

#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <optional>

namespace kvmpd::app {

class RetryPolicy {
  public:
    using Time = std::chrono::steady_clock::time_point;
    using Length = std::chrono::milliseconds;

    struct Options {
        Length shortest{1'000};  // between two tries; above 0
        Length longest{30'000};
        // How long nothing may come before the source is given up; none: for ever.
        std::optional<Length> giveUpBeforeMedia = Length{30'000};
        std::optional<Length> giveUpAfterMedia;
        // A source that brings no media for so long is replaced although it reports no failure; doubled for each
        // replacement that brought none either, up to four times the longest back-off where it is not longer itself.
        // Never less than the shortest back-off, nor than three of the stream's segments. None: such a source is left
        // alone, as it must be where the host pauses the stream.
        std::optional<Length> stallLimit;
        std::uint64_t seed = 0;  // of the jitter
    };

    enum class Action {
        kNothing,
        kWake,     // the source has had a manifest: tell its loader to ask for it again
        kReplace,  // nothing wakes it: make a new one
        kGiveUp    // the last answer; it is repeated from then on
    };
    enum class Trouble {
        kManifestFailed,
        kSourceFailed,
        kWakeRefused,
        kStalled,
        kStillClosing  // sources that were replaced before have not ended yet, so that no other is to be made now
    };

    // A try that was decided upon.
    struct Retry {
        Trouble trouble = Trouble::kManifestFailed;
        Action action = Action::kNothing;  // kWake or kReplace
        int attempt = 1;                   // in a row
        Length wait{0};                    // from now
    };

    RetryPolicy(const Options& options, Time start)
        : m_options(options), m_start(start), m_busyUntil(start), m_quietSince(start), m_random(options.seed) {}

    // The source loaded a manifest with new segments, the newest of which lasts `segment`.
    void ManifestLoaded(Time now, Length segment) {
        m_manifestHeld = true;
        m_segment = segment;
        m_wakeAsked = false;
        if (m_manifestFailures > 0) {
            m_quietSince = now;  // its downloads begin only now
        }
        m_manifestFailures = 0;
        if (IsPending() && m_pending.trouble == Trouble::kManifestFailed) {
            m_pending = {};
        }
    }

    // The source could not load its manifest and waits to be told to try again. Nothing when a try is due already.
    std::optional<Retry> ManifestFailed(Time now) {
        m_wakeAsked = false;
        if (IsPending()) {
            m_heldUp = Trouble::kManifestFailed;
            return std::nullopt;
        }
        const int attempt = ++m_manifestFailures;
        return Plan(now, Trouble::kManifestFailed, m_manifestHeld ? Action::kWake : Action::kReplace, attempt,
                    Backoff(attempt));
    }

    // The source said that the delay set to wake it changes nothing: it has lost its manifest, to a seek or a switched
    // quality. Nothing when no wake had been asked for; then the host set the delay.
    std::optional<Retry> WakeRefused(Time now) {
        if (!m_wakeAsked) {
            return std::nullopt;
        }
        m_wakeAsked = false;
        m_manifestHeld = false;
        return Plan(now, Trouble::kWakeRefused, Action::kReplace, m_manifestFailures, Length{0});
    }

    // The source cannot be read or could not be made.
    std::optional<Retry> SourceFailed(Time now) {
        if (m_pending.action == Action::kReplace) {
            m_heldUp = Trouble::kSourceFailed;
            return std::nullopt;
        }
        const int attempt = ++m_sourceFailures;
        return Plan(now, Trouble::kSourceFailed, Action::kReplace, attempt, Backoff(attempt));
    }

    // The source that Next wanted, for this trouble, cannot be made before others have ended; in any case after `most`,
    // if that is known.
    Retry ReplaceHeldUp(Time now, Trouble because, std::optional<Length> most) {
        if (because != Trouble::kStillClosing) {
            m_heldUp = because;
        }
        const int attempt = ++m_sourceFailures;
        const Length wait = Backoff(attempt);
        return Plan(now, Trouble::kStillClosing, Action::kReplace, attempt, most ? std::min(wait, *most) : wait);
    }

    // The host got media that it had not had before.
    void MediaArrived(Time now) {
        m_lastMedia = now;
        m_quietSince = now;
        m_sourceFailures = 0;
        m_stalls = 0;
        if (IsPending() && m_pending.trouble == Trouble::kStillClosing && m_heldUp == Trouble::kStalled) {
            m_pending = {};  // it is no stall any more
        }
    }

    // The host was not ready to take media until now, so that none could arrive: that time does not count.
    void HostWasBusy(Time now) {
        m_busyUntil = now;
        m_quietSince = now;
    }

    struct Decision {
        Action action = Action::kNothing;
        Trouble trouble = Trouble::kManifestFailed;
    };

    // What is to be done now. It is taken as done.
    Decision Next(Time now) {
        if (const auto end = GiveUpAt(); m_givenUp || (end && now >= *end)) {
            m_givenUp = true;
            return {Action::kGiveUp, Trouble::kStalled};
        }
        if (IsPending()) {
            if (now < m_due) {
                return {};
            }
            const Decision decision{m_pending.action, m_pending.trouble};
            m_pending = {};
            Acted(now, decision.action);
            return decision;
        }
        if (const auto stalled = StalledAt(); stalled && now >= *stalled) {
            ++m_stalls;
            Acted(now, Action::kReplace);
            return {Action::kReplace, Trouble::kStalled};
        }
        return {};
    }

    // When Next may have something to say again; none: not before something happens.
    std::optional<Time> NextAt() const {
        const std::optional<Time> act = IsPending() ? std::optional(m_due) : StalledAt();
        const std::optional<Time> end = GiveUpAt();
        return act && end ? std::min(*act, *end) : act ? act : end;
    }

    bool MediaFlowed() const { return m_lastMedia.has_value(); }
    std::optional<Time> LastMedia() const { return m_lastMedia; }

  private:
    bool IsPending() const { return m_pending.action != Action::kNothing; }

    Retry Plan(Time now, Trouble trouble, Action action, int attempt, Length wait) {
        m_pending = Retry{trouble, action, attempt, wait};
        m_due = now + wait;
        m_quietSince = now;
        return m_pending;
    }

    void Acted(Time now, Action action) {
        m_quietSince = now;
        m_manifestHeld = m_manifestHeld && action != Action::kReplace;
        // A wake that has not been answered goes with the source that was woken: of the next one, it would be taken for
        // refused as soon as that is given its delay.
        m_wakeAsked = action == Action::kWake;
    }

    // Doubled with every try in a row; jitter takes up to a half away, so that hosts which lost the same server at the
    // same moment do not come back together.
    Length Backoff(int attempt) {
        constexpr int kMostDoublings = 20;
        const std::int64_t doubled = m_options.shortest.count() << std::min(attempt, kMostDoublings);
        const std::int64_t most = std::max(m_options.shortest.count(), std::min(m_options.longest.count(), doubled));
        const std::int64_t least = std::max(m_options.shortest.count(), most / 2);
        const auto range = static_cast<std::uint64_t>(most - least + 1);
        return Length{least + static_cast<std::int64_t>(Random() % range)};
    }

    // SplitMix64 (Steele, Lea, Flood 2014): small, and the same on every platform for the same seed.
    std::uint64_t Random() {
        std::uint64_t z = m_random += 0x9E3779B97F4A7C15u;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
        return z ^ (z >> 31);
    }

    std::optional<Time> GiveUpAt() const {
        const auto& limit = m_lastMedia ? m_options.giveUpAfterMedia : m_options.giveUpBeforeMedia;
        return limit ? std::optional(std::max(m_lastMedia.value_or(m_start), m_busyUntil) + *limit) : std::nullopt;
    }

    std::optional<Time> StalledAt() const {
        if (!m_options.stallLimit) {
            return std::nullopt;
        }
        Length limit = std::max({*m_options.stallLimit, m_options.shortest, 3 * m_segment});
        const Length most = std::max(limit, 4 * m_options.longest);
        for (int stall = 0; stall < m_stalls && limit < most; ++stall) {
            limit = std::min(2 * limit, most);
        }
        return m_quietSince + limit;
    }

    Options m_options;
    Time m_start;
    Time m_busyUntil;
    Time m_quietSince;  // since then neither media came nor anything was done about it
    std::optional<Time> m_lastMedia;
    Retry m_pending{};                     // kNothing: nothing is
    Trouble m_heldUp = Trouble::kStalled;  // why the source is needed whose making is held up
    Time m_due{};
    Length m_segment{0};
    std::uint64_t m_random;
    int m_manifestFailures = 0;  // in a row
    int m_sourceFailures = 0;
    int m_stalls = 0;
    bool m_manifestHeld = false;  // the present source has loaded one
    bool m_wakeAsked = false;     // and has not answered yet
    bool m_givenUp = false;
};

}  // namespace kvmpd::app
