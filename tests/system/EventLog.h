#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "events/IKVMPDCallback.h"

namespace kvmpd::test {

/// A host's callback that keeps what it hears. Lives on the test's stack: the reference count only tells what is held.
class EventLog final : public IKVMPDCallback {
  public:
    struct Event {
        DWORD id = 0;
        LONG param1 = 0;
        LONG param2 = 0;
        std::wstring text;
        bool operator==(const Event&) const = default;
    };
    struct Range {
        LONGLONG play = 0;
        LONGLONG buffered = 0;
        LONGLONG total = 0;
    };

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_references; }
    ULONG STDMETHODCALLTYPE Release() override { return --m_references; }
    HRESULT STDMETHODCALLTYPE OnStreamEvent(DWORD id, void* param1, void* param2) override;
    HRESULT STDMETHODCALLTYPE OnBuffering(LONGLONG play, LONGLONG buffered, LONGLONG total) override;

    ULONG References() const { return m_references; }
    std::vector<Event> Events() const;
    size_t Count(const Event& event) const;

    /// Waits until `event` has come `count` times in all; false after a limit that only broken code reaches.
    bool WaitFor(const Event& event, size_t count = 1) const;
    bool WaitForId(DWORD id, size_t count = 1) const;
    /// Waits for a buffering report that satisfies `wanted`, looking at every one since the last Clear.
    bool WaitForRange(const std::function<bool(const Range&)>& wanted) const;
    void Clear();

  private:
    bool Wait(const std::function<bool()>& condition) const;

    std::atomic<ULONG> m_references{0};
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    std::vector<Event> m_events;  // guarded by m_mutex
    std::vector<Range> m_ranges;  // guarded by m_mutex
};

}  // namespace kvmpd::test
