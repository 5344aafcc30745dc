// Reads both streams of a source from their beginning, checks every byte, and starts again when the host moves the
// positions.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <utility>

#include "common/ComPtr.h"
#include "platform/com.h"
#include "tests/soak/Soak.h"

namespace kvmpd::test {

/// What the host has set and the reader goes by. A read that a change overlaps says nothing and is not looked at.
class Turns {
  public:
    struct Expectation {
        std::uint32_t stream = 0;
        int video = 0;             // representation
        bool stopped = false;      // reads fail
        bool paused = false;       // what was not read may leave the cache, and nothing need come
        bool mayBeBehind = false;  // a pause may have let go of what was not read, or the positions may be the old ones
        std::uint64_t restarts = 0;  // of the positions, possible ones included
        SoakClock::time_point restartedAt{};
        std::uint64_t version = 0;
    };

    /// The host is about to change something: what is read from now on until `End` does not count.
    void Begin();
    /// `change` edits what is expected from now on.
    void End(const std::function<void(Expectation&)>& change);
    /// Waits until nothing is being changed.
    Expectation Wait();
    bool Unchanged(const Expectation& since) const;
    /// The reader has taken segment `number`.
    void Deliver(const Expectation& turn, std::int64_t number);
    /// Which it has taken last; nothing since the positions started again.
    std::optional<std::int64_t> LastDelivered() const;

  private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_changing = false;
    Expectation m_expectation;
    std::int64_t m_delivered = 0;
    std::uint64_t m_deliveredIn = 0;  // after so many restarts
};

class SoakReader {
  public:
    using Fail = std::function<void(const std::string&)>;
    /// `fail` may be called from the reader's thread; the reader ends then.
    SoakReader(Soak& soak, unsigned source, Turns& turns, ComPtr<IAsyncReader> reader, std::uint64_t seed, Fail fail);
    /// Joins; to be called when reads fail or come to an end soon.
    void Join();
    void End() { m_ending = true; }

    /// The reader has lost its place in the cache: the host is to restart the stream. Asked once each time.
    bool TakeLost() { return m_lost.exchange(false); }
    /// How many segments were missing between delivered ones because they could not be downloaded. After Join.
    std::size_t LostFailed() const { return m_lostFailed.size(); }

  private:
    enum class Result { kDone, kAgain, kDenied, kFailed };
    struct Place {  // in the present stretch, that is since the positions last started again
        LONGLONG video = 0;
        LONGLONG audio = 0;
        std::optional<BodyName> nextVideo;  // read, and not yet paired with its audio
        std::optional<BodyName> nextAudio;
        std::optional<std::int64_t> last;
    };

    void Run();
    void TakeTurn(const Turns::Expectation& turn);
    Result ReadNext(const Turns::Expectation& turn);
    Result ReadSegment(const Turns::Expectation& turn, bool isVideo, LONGLONG& position, std::optional<BodyName>& name);
    Result ReadBytes(const Turns::Expectation& turn, LONGLONG position, std::string& bytes, bool mustBeThere);
    bool CheckOrder(std::int64_t number, const Turns::Expectation& turn);
    bool Deliver(std::int64_t number, const BodyName& expected, std::optional<BodyName>& next);
    void OnDenied(const Turns::Expectation& turn);
    Result Failed(const std::string& what);
    void CheckPatience(const Turns::Expectation& turn);
    void MaybeNap();

    Soak& m_soak;
    const unsigned m_source;
    Turns& m_turns;
    ComPtr<IAsyncReader> m_reader;  // released on the reader's thread
    std::mt19937_64 m_random;
    const Fail m_fail;
    const unsigned m_laziness;
    std::atomic<bool> m_ending{false};
    std::atomic<bool> m_lost{false};

    // The reader's thread only.
    std::set<std::pair<std::uint32_t, std::int64_t>> m_lostFailed;  // stream and number: a seek may come by again
    std::uint64_t m_restarts = 0;
    Place m_place;
    bool m_waitsForRestart = false;
    bool m_napped = false;  // in this stretch, or still waited for a byte of the one before when it began
    SoakClock::time_point m_lastProgress = SoakClock::now();
    std::thread m_thread;
};

}  // namespace kvmpd::test
