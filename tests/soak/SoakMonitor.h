// Watches what the process takes while the sources run, and judges it: bounded during the run, back to where it was
// afterwards.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tests/soak/Soak.h"
#include "tests/support/ProcessFootprint.h"

namespace kvmpd::test {

class SoakMonitor {
  public:
    /// What is taken now is what is to be taken again at the end.
    explicit SoakMonitor(Soak& soak);
    /// Waits until the run is over; prints a line now and then when progress is asked for.
    void Watch();
    /// After the sources have ended.
    void JudgeEnd();
    void PrintSummary() const;

  private:
    /// Nothing where the system does not tell, which is a failure: what is not measured is not judged either.
    std::optional<ProcessFootprint> Measured(const std::optional<ProcessFootprint>& footprint) const;
    void Sample();
    void JudgeTrend() const;
    void PrintProgress() const;
    void Fail(const std::string& what) const { m_soak.Fail(what, {}); }

    Soak& m_soak;
    const SoakClock::time_point m_begin;
    const std::optional<ProcessFootprint> m_measuredBefore;
    const ProcessFootprint m_before;
    const std::size_t m_residentBefore;
    const std::size_t m_allocatedBefore;
    const std::chrono::microseconds m_cpuBefore;
    std::vector<std::size_t> m_resident;  // one each second
    std::size_t m_mostThreads = 0;
    std::size_t m_mostDescriptors = 0;
    std::size_t m_residentAfter = 0;
    std::size_t m_allocatedAfter = 0;
    ProcessFootprint m_after{};
};

}  // namespace kvmpd::test
