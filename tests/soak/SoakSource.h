// One place in a soak run: a thread that makes a source, plays host to it for a while with random actions, ends it,
// checks what is left of it, and makes the next one, until the run is over.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tests/soak/Soak.h"
#include "tests/soak/SoakHost.h"
#include "tests/soak/SoakReader.h"
#include "tests/support/TempDir.h"

namespace kvmpd::test {

class SoakSource {
  public:
    SoakSource(Soak& soak, unsigned index);
    /// Starts the thread; Join waits for the run's end.
    void Start();
    void Join() { m_thread.join(); }

  private:
    struct Session;

    void Run();
    void RunSession();
    void Act(Session& session);
    void SeekSomewhere(Session& session);
    void SwitchQuality(Session& session);
    void PauseAndRun(Session& session);
    void StopAndLoad(Session& session);
    void LoadNewStream(Session& session, const std::string& why);
    void ChangeSettings(Session& session);
    void SeeToFailures(Session& session);
    void Idle(Session& session, std::chrono::milliseconds time);
    void EndSession(Session& session);
    void CheckFolder(Session& session);
    void CheckCache(const Session& session);

    /// How many segments have failed by now of which the host must have heard, and of which it may have.
    struct FailureRange {
        std::uint64_t least = 0;
        std::uint64_t most = 0;
    };
    FailureRange Failures(const Session& session) const;
    void CheckReports(const Session& session);
    void BeginTurn(Session& session);
    void EndTurn(Session& session, const std::function<void(Turns::Expectation&)>& change);

    void Note(const std::string& kind, const std::string& details = {});
    void Fail(const std::string& what);
    std::uint64_t Dice(std::uint64_t sides) { return m_random() % sides; }

    Soak& m_soak;
    const unsigned m_index;
    std::mt19937_64 m_random;  // the host's thread only
    std::uint32_t m_streams = 0;
    const SoakClock::time_point m_begin = SoakClock::now();
    std::mutex m_actionsMutex;
    std::deque<std::string> m_lastActions;  // guarded by m_actionsMutex
    std::thread m_thread;
};

}  // namespace kvmpd::test
