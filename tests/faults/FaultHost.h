// One source as a host has it: made through the module's exports, with a callback that keeps what it hears and tells it
// to the supervisor, and reads by position.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <string>

#include "app/SourceSupervisor.h"
#include "tests/support/TestSource.h"

namespace kvmpd::test {

/// What the component has reported so far.
struct Heard {
    size_t news = 0;  ///< Events 0 with 0, 1 and 2.
    size_t malformed = 0;
    size_t failed = 0;
    size_t segmentsLost = 0;  ///< Events 9.
    size_t unexpected = 0;    ///< Events that no part of the matrix causes.
    LONGLONG buffered = 0;    ///< The end of what is downloaded, in milliseconds, of the last report.

    size_t ManifestFailures() const { return malformed + failed; }
};

class HeardByCallback final : public OutlivingCallback {
  public:
    /// `supervisor` is told of the events as of source `id`.
    HeardByCallback(app::SourceSupervisor& supervisor, std::uint64_t id) : m_supervisor(supervisor), m_id(id) {}

    HRESULT STDMETHODCALLTYPE OnStreamEvent(DWORD id, void* param1, void* param2) override;
    HRESULT STDMETHODCALLTYPE OnBuffering(LONGLONG play, LONGLONG buffered, LONGLONG total) override;

    Heard SoFar() const;

  private:
    void Tell(DWORD id, LONG first, LONG second);

    app::SourceSupervisor& m_supervisor;
    const std::uint64_t m_id;
    mutable std::mutex m_mutex;
    Heard m_heard;  // guarded by m_mutex
};

class FaultHost {
  public:
    /// `callback` outlives this.
    FaultHost(HeardByCallback& callback, const std::filesystem::path& folder, DWORD delaySegments);
    ~FaultHost();
    FaultHost(const FaultHost&) = delete;
    FaultHost& operator=(const FaultHost&) = delete;

    void Load(const std::string& url);
    /// How much of the stream is kept in the cache folder.
    void KeepInCache(DWORD seconds);
    /// Makes the loader fetch again after a failure. Needs a manifest that was loaded before.
    void Wake();
    /// Ends reads that wait.
    void EndReads();
    /// Reads `bytes.size()` bytes at `position`; waits for them as the pin does.
    HRESULT Read(LONGLONG position, std::string& bytes);
    /// Releases everything; returns when the last thread of the source has ended. Ends the program when that never
    /// comes: nothing that follows could be trusted.
    void Stop(const std::string& name);

  private:
    TestSource m_source;
    DWORD m_delaySegments;
};

}  // namespace kvmpd::test
