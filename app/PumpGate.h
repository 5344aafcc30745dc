// What wakes the reader thread and tells it what changed. Any thread calls the first four; the reader waits.

#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace kvmpd::app {

class PumpGate {
  public:
    // The recording is to end.
    void Stop() {
        m_stopping = true;
        News();
    }
    // No more media will come; what is the matter is for the reader to say.
    void GiveUp() {
        m_givenUp = true;
        News();
    }
    // Byte positions of both tracks start at 0 again.
    void PositionsRestart() {
        ++m_restarts;
        News();
    }
    // There may be something new to read.
    void News() {
        {
            const std::lock_guard lock(m_mutex);
            ++m_news;
        }
        m_changed.notify_all();
    }

    bool Stopping() const { return m_stopping; }
    bool GivenUp() const { return m_givenUp; }
    // The reader takes note of restarts with this; true when there was one since the last call.
    bool TakeRestart() {
        const std::uint64_t now = m_restarts;
        return m_restartsTaken.exchange(now) != now;
    }
    // Whether a read should not be begun: the recording ends, or positions mean something else by now.
    bool Interrupted() const { return m_stopping || m_givenUp || m_restarts != m_restartsTaken; }

    // To be taken before looking for work, so that news that come meanwhile end the wait at once.
    std::uint64_t NewsSeen() const {
        const std::lock_guard lock(m_mutex);
        return m_news;
    }
    void WaitForNewsAfter(std::uint64_t seen, std::chrono::milliseconds longest) {
        std::unique_lock lock(m_mutex);
        m_changed.wait_for(lock, longest, [&] { return m_news != seen; });
    }

  private:
    std::atomic<bool> m_stopping = false;
    std::atomic<bool> m_givenUp = false;
    std::atomic<std::uint64_t> m_restarts = 0;
    std::atomic<std::uint64_t> m_restartsTaken = 0;
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::uint64_t m_news = 0;  // guarded by m_mutex
};

}  // namespace kvmpd::app
