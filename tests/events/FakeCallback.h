#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "events/IKVMPDCallback.h"
#include "platform/win32.h"

namespace kvmpd::test {

/// One call as the host received it.
struct Delivered {
    enum class Kind { kNumbers, kText, kBuffering };

    Kind kind;
    DWORD id;  // of a stream event
    std::vector<LONGLONG> numbers;
    std::wstring text;

    bool operator==(const Delivered&) const = default;
};

inline Delivered NumberEvent(DWORD id, LONG param1, LONG param2) {
    return {Delivered::Kind::kNumbers, id, {param1, param2}, {}};
}
inline Delivered TextEvent(DWORD id, std::wstring text) {
    return {Delivered::Kind::kText, id, {}, std::move(text)};
}
inline Delivered Buffering(LONGLONG play, LONGLONG buffered, LONGLONG total) {
    return {Delivered::Kind::kBuffering, 0, {play, buffered, total}, {}};
}

/// A host. It tells the kinds of stream event apart as hosts do: a null second parameter means text.
class FakeCallback final : public IKVMPDCallback {
  public:
    // IUnknown
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** object) override {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override {
        const std::lock_guard lock(m_mutex);
        ++m_added;
        return ++m_references;
    }
    ULONG STDMETHODCALLTYPE Release() override {
        const std::lock_guard lock(m_mutex);
        return --m_references;
    }

    // IKVMPDCallback
    HRESULT STDMETHODCALLTYPE OnStreamEvent(DWORD id, void* param1, void* param2) override {
        if (param2) {
            return Keep(NumberEvent(id, *static_cast<LONG*>(param1), *static_cast<LONG*>(param2)));
        }
        return Keep(TextEvent(id, static_cast<const wchar_t*>(param1)));
    }
    HRESULT STDMETHODCALLTYPE OnBuffering(LONGLONG play, LONGLONG buffered, LONGLONG total) override {
        return Keep(kvmpd::test::Buffering(play, buffered, total));
    }

    /// Calls from now on wait until Unblock.
    void Block() {
        const std::lock_guard lock(m_mutex);
        m_blocked = true;
    }
    void Unblock() {
        const std::lock_guard lock(m_mutex);
        m_blocked = false;
        m_changed.notify_all();
    }

    std::vector<Delivered> Await(size_t count) {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [&] { return m_delivered.size() >= count; });
        return m_delivered;
    }
    std::vector<Delivered> All() { return Await(0); }
    ULONG References() {
        const std::lock_guard lock(m_mutex);
        return m_references;
    }
    /// How often a reference was taken.
    int Added() {
        const std::lock_guard lock(m_mutex);
        return m_added;
    }
    /// The threads that called, each once.
    std::vector<DWORD> Threads() {
        const std::lock_guard lock(m_mutex);
        return m_threads;
    }
    bool CallsOverlapped() {
        const std::lock_guard lock(m_mutex);
        return m_overlapped;
    }
    void AnswerWith(HRESULT result) {
        const std::lock_guard lock(m_mutex);
        m_result = result;
    }

  private:
    HRESULT Keep(Delivered call) {
        std::unique_lock lock(m_mutex);
        m_overlapped = m_overlapped || m_inside;
        m_inside = true;
        m_delivered.push_back(std::move(call));
        if (m_threads.empty() || m_threads.back() != GetCurrentThreadId()) {
            m_threads.push_back(GetCurrentThreadId());
        }
        m_changed.notify_all();
        m_changed.wait(lock, [this] { return !m_blocked; });
        m_inside = false;
        return m_result;
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<Delivered> m_delivered;
    std::vector<DWORD> m_threads;
    ULONG m_references = 1;
    int m_added = 0;
    bool m_blocked = false;
    bool m_inside = false;
    bool m_overlapped = false;
    HRESULT m_result = S_OK;
};

}  // namespace kvmpd::test
