// An HTTP server on loopback whose answers are lists of pieces with pauses between them: one thread for any number of
// connections, so that stalled and trickling ones cost nothing and count as nobody's threads.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <string>
#include <thread>

namespace kvmpd::test {

struct Answer {
    struct Piece {
        std::chrono::milliseconds pause{0};  // before it is sent
        std::string bytes;
    };
    std::deque<Piece> pieces;  // of the whole response, status line included
    bool reset = false;        // ends the connection with a TCP reset instead of an orderly close
};

class AnswerLoop {
  public:
    /// Called on the loop's thread with the request's path; must not block.
    using Handler = std::function<Answer(const std::string& path)>;

    /// Listens on 127.0.0.1, on a port that the system picks. Throws std::system_error.
    explicit AnswerLoop(Handler handler);
    ~AnswerLoop();
    AnswerLoop(const AnswerLoop&) = delete;
    AnswerLoop& operator=(const AnswerLoop&) = delete;

    std::uint16_t Port() const { return m_port; }
    std::size_t Connections() const { return m_open; }
    /// Processor time of the loop's thread so far.
    std::chrono::microseconds CpuTime() const { return std::chrono::microseconds(m_cpuMicroseconds); }

  private:
    using Clock = std::chrono::steady_clock;
    struct Connection {
        int socket = -1;
        std::string head;
        bool answering = false;
        Answer answer;
        std::size_t sent = 0;  // of the first piece
        Clock::time_point due{};
    };

    void Run();
    void Accept();
    /// Both: whether the connection goes on.
    bool Receive(Connection& connection);
    bool Send(Connection& connection, Clock::time_point now);
    void Close(Connection& connection, bool reset);

    const Handler m_handler;
    int m_listener = -1;
    std::uint16_t m_port = 0;
    std::list<Connection> m_connections;  // the loop's thread only
    std::atomic<std::size_t> m_open{0};
    std::atomic<std::int64_t> m_cpuMicroseconds{0};
    std::atomic<bool> m_ending{false};
    std::thread m_thread;
};

}  // namespace kvmpd::test
