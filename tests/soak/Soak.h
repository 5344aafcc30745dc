// What the sources of a soak run share: the options, the origin, the totals, and the verdict.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "tests/soak/SoakOrigin.h"

namespace kvmpd::test {

using SoakClock = std::chrono::steady_clock;

struct SoakOptions {
    std::uint64_t seed = 0;
    std::chrono::milliseconds length{60'000};
    unsigned sources = 2;
    std::uint32_t segmentMs = 100;
    unsigned faultPercent = 100;
    bool quiet = false;     // no host actions but starts and stops
    unsigned patience = 1;  // times by which all limits of time are longer: sanitizers slow everything but the clock
    bool progress = false;
};

struct Totals {
    std::atomic<std::uint64_t> segments{0};
    std::atomic<std::uint64_t> bytes{0};
    std::atomic<std::uint64_t> errorPages{0};
    std::atomic<std::uint64_t> lostFailed{0};
    std::atomic<std::uint64_t> lostHole{0};
    std::atomic<std::uint64_t> empty{0};  // neither of their files had a byte
    std::atomic<std::uint64_t> neverOffered{0};
    std::atomic<std::uint64_t> stretches{0};
    std::atomic<std::uint64_t> fellBehind{0};
    std::atomic<std::uint64_t> actions{0};
    std::atomic<std::uint64_t> wakes{0};
    std::atomic<std::uint64_t> replaced{0};  // URLs or sources made anew because nothing else helped
    std::atomic<std::uint64_t> failedManifests{0};
    std::atomic<std::uint64_t> sessions{0};
    std::atomic<std::uint64_t> mostCacheFiles{0};
    std::atomic<std::uint64_t> leftFiles{0};
};

class Soak {
  public:
    explicit Soak(const SoakOptions& options)
        : m_options(options),
          m_end(SoakClock::now() + options.length),
          m_origin({options.seed, options.segmentMs, options.faultPercent}) {}

    const SoakOptions& Options() const { return m_options; }
    SoakOrigin& Origin() { return m_origin; }
    Totals& Sums() { return m_totals; }

    /// Whether the run is over, by time or because something was found.
    bool Over() const { return m_failed || SoakClock::now() >= m_end; }
    bool Failed() const { return m_failed; }
    /// Reports once, for the first that comes; every source ends then.
    void Fail(const std::string& what, const std::deque<std::string>& lastActions);

    void NoteStop(std::chrono::milliseconds took);
    std::vector<std::chrono::milliseconds> StopTimes() const;
    void NoteAction(const std::string& kind);
    std::map<std::string, std::uint64_t> Actions() const;
    void NoteDelivered(unsigned source) { ++m_delivered[source]; }
    /// Segments delivered, by source.
    std::map<unsigned, std::uint64_t> Delivered() const;
    void AddSource(unsigned source) { m_delivered[source] = 0; }

  private:
    const SoakOptions m_options;
    const SoakClock::time_point m_end;
    SoakOrigin m_origin;
    Totals m_totals;
    std::atomic<bool> m_failed{false};
    std::map<unsigned, std::atomic<std::uint64_t>> m_delivered;  // its keys are set before the sources start
    mutable std::mutex m_mutex;                                  // guards what follows
    std::vector<std::chrono::milliseconds> m_stopTimes;
    std::map<std::string, std::uint64_t> m_actions;
};

}  // namespace kvmpd::test
