// The few socket calls that test peers need, in one place: another system's socket library is put under here.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>

namespace kvmpd::test {

/// A stream of bytes to one peer.
class ByteConnection {
  public:
    virtual ~ByteConnection() = default;
    /// Receives up to `size` bytes; 0 at the end of the stream, on an error and after Interrupt.
    virtual size_t Receive(char* data, size_t size) = 0;
    /// Sends all of `bytes`; false when the other side is gone.
    virtual bool Send(std::string_view bytes) = 0;
    /// Ends both directions from another thread: calls that wait in Receive or Send return.
    virtual void Interrupt() = 0;
    /// Ends the connection in order; `reset` throws away what is unsent and sends a TCP reset.
    virtual void Close(bool reset) = 0;
};

/// An accepted TCP connection. Never raises a signal.
class Socket final : public ByteConnection {
  public:
    explicit Socket(std::intptr_t native) : m_native(native) {}
    ~Socket() override;
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    size_t Receive(char* data, size_t size) override;
    bool Send(std::string_view bytes) override;
    void Interrupt() override;
    void Close(bool reset) override;

  private:
    std::intptr_t m_native;
};

/// Listens on 127.0.0.1, on a port that the system picks.
class Listener {
  public:
    Listener();
    ~Listener();
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    std::uint16_t Port() const { return m_port; }
    /// The next connection; null after Interrupt.
    std::unique_ptr<Socket> Accept();
    void Interrupt();

  private:
    std::uint16_t m_port = 0;
    std::atomic<std::intptr_t> m_native;  // made after m_port, which it fills in; Interrupt may end it
};

/// A port of 127.0.0.1 on which nobody listens: it is bound, to this process and to its end, so that no server of a test
/// that runs at the same time is given it.
std::uint16_t RefusedPort();

/// Puts another protocol between a peer and its socket, for example TLS. The socket outlives what is returned. Returns
/// null when the other side did not agree to it.
using ConnectionWrap = std::function<std::unique_ptr<ByteConnection>(Socket& socket)>;

}  // namespace kvmpd::test
