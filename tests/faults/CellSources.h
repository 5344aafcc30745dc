// The host's part of a cell: the sources, one after the other, that kvmpd's own supervisor makes, wakes and replaces.
// Its rules are those that ship; only the longest wait between two tries and the time after which a silent source is
// replaced are compressed.
#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/SourceSupervisor.h"
#include "tests/faults/CompressedTime.h"
#include "tests/faults/FaultHost.h"
#include "tests/faults/FaultOrigin.h"
#include "tests/faults/Oracle.h"
#include "tests/faults/StandIns.h"

namespace kvmpd::test {

/// What is known of one source; it outlives the source.
struct SourceRecord {
    SourceRecord(app::SourceSupervisor& supervisor, std::uint64_t id) : heard(supervisor, id) {}

    HeardByCallback heard;
    Judgement before;  ///< What had surely happened when the stop began. The cell's thread.
    std::chrono::steady_clock::time_point stopBegan;  // written by the thread that closes, before `ended`
    std::chrono::steady_clock::time_point stopEnded;
    std::atomic<bool> ended{false};

    std::chrono::milliseconds StopTook() const { return StopTookFrom(stopBegan); }
    /// The part of the stop that came after `begin`.
    std::chrono::milliseconds StopTookFrom(std::chrono::steady_clock::time_point begin) const {
        return std::chrono::duration_cast<std::chrono::milliseconds>(stopEnded - std::max(stopBegan, begin));
    }
};

/// One thread, the cell's, unless said otherwise.
class CellSources {
  public:
    CellSources(FaultOrigin& origin, const FaultCase& fault, std::string name);

    void Start();
    /// Lets the supervisor do what is due; true when it made another source. `judgement` is what is known of the one
    /// before.
    bool Step(const Judgement& judgement);
    /// Closes all of them and waits for it. Any one thread.
    void Close() { m_supervisor.Close(); }

    FaultHost& Host() { return *m_host; }
    Heard SoFar() const { return m_records.back()->heard.SoFar(); }
    void MediaArrived() { m_supervisor.MediaArrived(); }
    /// All that were made; the last is the current one.
    const std::vector<std::shared_ptr<SourceRecord>>& Records() const { return m_records; }
    int Count() const { return static_cast<int>(m_records.size()); }
    size_t Open() const;
    size_t Wakes() const { return m_wakes; }
    /// Threads of the component in all of them.
    std::optional<size_t> Threads() const { return m_threads.Live(); }

  private:
    class Source;

    std::unique_ptr<app::SupervisedSource> Make(std::uint64_t id);

    FaultOrigin& m_origin;
    const FaultCase m_fault;
    const std::string m_name;
    const ThreadTally m_threads;
    std::vector<std::shared_ptr<SourceRecord>> m_records;
    FaultHost* m_host = nullptr;  // the current one's
    size_t m_wakes = 0;
    app::SourceSupervisor m_supervisor;  // the last: its end ends the sources
};

}  // namespace kvmpd::test
