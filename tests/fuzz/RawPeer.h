// One listener and one thread for a whole fuzzing process, that answers each connection with bytes from a list.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "tests/support/Sockets.h"

namespace kvmpd::test {

/// How a connection ends once its bytes are sent.
enum class RawEnd { kClose, kReset };

class RawPeer {
  public:
    RawPeer() : m_thread([this] { Serve(); }) {}
    ~RawPeer() {
        m_listener.Interrupt();
        m_thread.join();
    }
    RawPeer(const RawPeer&) = delete;
    RawPeer& operator=(const RawPeer&) = delete;

    std::uint16_t Port() const { return m_listener.Port(); }

    /// Connection i from now on is sent `replies[i]`, and every one behind the last reply is sent the last. Each in
    /// pieces of `piece` bytes when that is not 0.
    void Answer(std::vector<std::string> replies, RawEnd end, size_t piece) {
        const std::lock_guard lock(m_mutex);
        m_replies = std::move(replies);
        m_end = end;
        m_piece = piece;
        m_next = 0;
    }
    /// Waits until `count` connections have ended since the construction.
    void WaitForEnded(size_t count) {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [&] { return m_ended >= count; });
    }

  private:
    struct Reply {
        std::string bytes;
        RawEnd end = RawEnd::kClose;
        size_t piece = 0;
    };

    Reply Next() {
        const std::lock_guard lock(m_mutex);
        Reply reply{{}, m_end, m_piece};
        if (!m_replies.empty()) {
            reply.bytes = m_replies[m_next < m_replies.size() ? m_next : m_replies.size() - 1];
            ++m_next;
        }
        return reply;
    }

    /// Reads up to the end of the request's head; a client that speaks TLS sends none.
    static void AwaitRequest(Socket& socket) {
        constexpr char kTlsHandshake = 0x16;
        std::string head;
        char block[2048];
        while (head.find("\r\n\r\n") == std::string::npos && !head.starts_with(kTlsHandshake)) {
            const size_t count = socket.Receive(block, sizeof(block));
            if (count == 0) {
                return;
            }
            head.append(block, count);
        }
    }

    void Serve() {
        while (const std::unique_ptr<Socket> socket = m_listener.Accept()) {
            AwaitRequest(*socket);
            const Reply reply = Next();
            const std::string_view bytes = reply.bytes;
            const size_t piece = reply.piece == 0 ? bytes.size() : reply.piece;
            for (size_t sent = 0; sent < bytes.size() && socket->Send(bytes.substr(sent, piece)); sent += piece) {
                std::this_thread::yield();
            }
            socket->Close(reply.end == RawEnd::kReset);
            const std::lock_guard lock(m_mutex);
            ++m_ended;
            m_changed.notify_all();
        }
    }

    Listener m_listener;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<std::string> m_replies;
    RawEnd m_end = RawEnd::kClose;
    size_t m_piece = 0;
    size_t m_next = 0;
    size_t m_ended = 0;
    std::thread m_thread;  // last: it uses what is above
};

}  // namespace kvmpd::test
