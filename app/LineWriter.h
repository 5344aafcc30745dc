// Lines on their way to standard output or standard error. Writing one never waits: a thread of this object's own
// carries them, so that a reader that pauses, as a pager does, holds up that thread and nobody else.
//
// Threads: Write and Drain may be called from any thread. The queue is guarded by m_mutex; the thread leaves it while
// it writes, and then waits for two things at once, room in the descriptor and the end. m_changed wakes it for a line
// and for the end, both of which are set under m_mutex before; m_taken wakes those who drain.

#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

namespace kvmpd::app {

class LineWriter {
  public:
    using Clock = std::chrono::steady_clock;

    enum class Kind {
        kLine,     // is written, unless nobody takes megabytes of them
        kProgress  // only until there is a newer one
    };

    // most: bytes that may wait to be written.
    explicit LineWriter(std::size_t most = std::size_t{16} << 20);
    // What has not been written by now is not: Drain first.
    ~LineWriter();
    LineWriter(const LineWriter&) = delete;
    LineWriter& operator=(const LineWriter&) = delete;

    // False when there was no room for the line, which is lost then. Descriptors that cannot be written, because their
    // reader is gone or their disk is full, swallow what is written to them.
    bool Write(int descriptor, std::string text, Kind kind);

    // Waits until all is written, at most until then; after that as long as the reader goes on taking something, if
    // patient, at least every `pause`. False: something is left.
    bool Drain(Clock::time_point until, bool patient, std::chrono::milliseconds pause = std::chrono::seconds(1));

  private:
    struct Entry {
        int descriptor;
        Kind kind;
        std::string text;
    };

    void Run();
    void WriteAll(const Entry& entry);
    bool WaitWritable(int descriptor) const;

    const std::size_t m_most;
    int m_quit = -1;  // eventfd, readable when the thread is to end

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::condition_variable m_taken;
    // Guarded by m_mutex:
    std::deque<Entry> m_queue;
    std::size_t m_bytes = 0;  // in the queue
    bool m_writing = false;   // the thread has an entry that it took from the queue
    bool m_closing = false;
    Clock::time_point m_lastTaken{};  // when the reader last took something
    std::thread m_thread;             // begun with the first line, when signals are blocked already
};

}  // namespace kvmpd::app
