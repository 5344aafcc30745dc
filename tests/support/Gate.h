// A gate that threads pass while it is open.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace kvmpd::test {

/// Lets a test hold threads where it wants them. All operations may be called from any thread.
class Gate {
  public:
    enum class State { kOpen, kClosed };
    explicit Gate(State state = State::kOpen) : m_open(state == State::kOpen) {}

    void Close() {
        const std::lock_guard lock(m_mutex);
        m_open = false;
    }
    void Open() {
        const std::lock_guard lock(m_mutex);
        m_open = true;
        m_changed.notify_all();
    }
    /// Counts the thread as arrived, then waits until the gate is open.
    void Pass() {
        std::unique_lock lock(m_mutex);
        ++m_arrivals;
        m_changed.notify_all();
        m_changed.wait(lock, [this] { return m_open; });
    }
    /// Waits until `count` threads have arrived since the construction, whether or not they have passed.
    void WaitForArrivals(int count) {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this, count] { return m_arrivals >= count; });
    }
    /// For threads that are not to arrive: whether `count` of them do within `patience`. That they stay away shows in
    /// nothing but time; too short a time would overlook a thread and never fail correct code.
    bool ArriveWithin(int count, std::chrono::milliseconds patience) {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, patience, [this, count] { return m_arrivals >= count; });
    }
    int Arrivals() const {
        const std::lock_guard lock(m_mutex);
        return m_arrivals;
    }

  private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_open;
    int m_arrivals = 0;
};

}  // namespace kvmpd::test
