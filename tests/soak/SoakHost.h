// One source as a host has it: the component's interfaces, and a callback that keeps what it hears.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>

#include "tests/support/TestSource.h"

namespace kvmpd::test {

/// What the component has reported so far.
struct SoakNews {
    std::uint64_t loaded = 0;  // events 0
    std::uint64_t failed = 0;
    std::uint64_t segmentsLost = 0;              // events 9
    std::uint64_t delayUnchanged = 0;            // events 8 as (0, 0), (1, 0) and (0, 1)
    std::uint64_t leftParking = 0;               //
    std::uint64_t seeksDone = 0;                 //
    LONGLONG play = 0, buffered = 0, total = 0;  // of the last report
};

class SoakCallback final : public OutlivingCallback {
  public:
    HRESULT STDMETHODCALLTYPE OnStreamEvent(DWORD id, void* param1, void* param2) override;
    HRESULT STDMETHODCALLTYPE OnBuffering(LONGLONG play, LONGLONG buffered, LONGLONG total) override;

    SoakNews SoFar() const;
    /// Waits until `wanted` holds for what was heard; false when it does not within `limit`.
    bool WaitFor(const std::function<bool(const SoakNews&)>& wanted, std::chrono::milliseconds limit) const;

  private:
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    SoakNews m_news;  // guarded by m_mutex
};

class SoakHost {
  public:
    SoakHost(const std::filesystem::path& folder, DWORD delaySegments);
    ~SoakHost() { Release(); }
    SoakHost(const SoakHost&) = delete;
    SoakHost& operator=(const SoakHost&) = delete;

    const SoakCallback& Heard() const { return m_callback; }
    ComPtr<IAsyncReader> Reader() const { return m_source.reader; }

    void Load(const std::string& url);
    void Stop() { m_source.control->Backdoor(kBackdoorStop, nullptr); }
    HRESULT Pause() { return m_source.filter->Pause(); }
    HRESULT Run() { return m_source.filter->Run(0); }
    HRESULT Set(DWORD id, DWORD value) { return m_source.control->Backdoor(id, &value); }
    HRESULT Seek(LONGLONG milliseconds) { return m_source.control->Backdoor(kBackdoorPosition, &milliseconds); }
    /// Sets a delay other than the one before, which wakes the manifest loader.
    void ChangeDelay(DWORD segments);
    /// Waits until every event that had been sent by now has been heard; false when that takes longer than `limit`.
    bool HearAll(std::chrono::milliseconds limit);
    /// Releases everything. The reader's own reference must be gone.
    void Release();

  private:
    SoakCallback m_callback;
    TestSource m_source;
    DWORD m_delaySegments;
};

}  // namespace kvmpd::test
