#include "origin/HttpServer.h"

#include <algorithm>
#include <array>

#include "origin/SocketCalls.h"

namespace kvmpd::origin {

namespace {

constexpr int kReadLimitMs = 10'000;
constexpr int kWriteLimitMs = 30'000;
constexpr int kKeepAliveMs = 15'000;

// httplib.h brings the system's socket headers.
template <class NameCall>
void Describe(NameCall call, socket_t socket, std::string& ip, int& port) {
    sockaddr_storage address{};
    socklen_t length = sizeof(address);
    if (call(socket, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        return;
    }
    std::array<char, INET6_ADDRSTRLEN> text{};
    if (address.ss_family == AF_INET) {
        const auto* v4 = reinterpret_cast<const sockaddr_in*>(&address);
        inet_ntop(AF_INET, &v4->sin_addr, text.data(), text.size());
        port = ntohs(v4->sin_port);
    } else if (address.ss_family == AF_INET6) {
        const auto* v6 = reinterpret_cast<const sockaddr_in6*>(&address);
        inet_ntop(AF_INET6, &v6->sin6_addr, text.data(), text.size());
        port = ntohs(v6->sin6_port);
    }
    ip = text.data();
}

// A connection as the library reads and writes it; reads ahead, because the library asks for header lines byte by byte.
class SocketStream final : public httplib::Stream {
  public:
    explicit SocketStream(socket_t socket) : socket_(socket) {}

    bool HasBuffered() const { return begin_ < end_; }

    // httplib::Stream
    bool is_readable() const override { return HasBuffered() || WaitReadable(socket_, kReadLimitMs); }
    bool is_writable() const override { return WaitWritable(socket_, kWriteLimitMs); }
    ssize_t read(char* data, size_t size) override {
        if (!HasBuffered()) {
            if (!is_readable()) {
                return -1;
            }
            const ssize_t got = ReceiveSome(socket_, buffer_.data(), buffer_.size());
            if (got <= 0) {
                return got;
            }
            begin_ = 0;
            end_ = static_cast<size_t>(got);
        }
        const size_t count = std::min(size, end_ - begin_);
        std::copy_n(buffer_.data() + begin_, count, data);
        begin_ += count;
        return static_cast<ssize_t>(count);
    }
    ssize_t write(const char* data, size_t size) override {
        if (!is_writable()) {
            return -1;
        }
        return SendSome(socket_, data, size);
    }
    void get_remote_ip_and_port(std::string& ip, int& port) const override { Describe(getpeername, socket_, ip, port); }
    void get_local_ip_and_port(std::string& ip, int& port) const override { Describe(getsockname, socket_, ip, port); }
    socket_t socket() const override { return socket_; }

  private:
    const socket_t socket_;
    std::array<char, 4096> buffer_{};
    size_t begin_ = 0;
    size_t end_ = 0;
};

}  // namespace

void StoppableServer::CloseConnections() {
    const std::lock_guard lock(mutex_);
    closing_ = true;
    for (const socket_t socket : open_) {
        ShutDown(socket);
    }
}

bool StoppableServer::process_and_close_socket(socket_t socket) {
    Prepare(socket);
    bool answered = Register(socket);
    SocketStream stream(socket);
    bool closed = !answered;
    while (!closed && (stream.HasBuffered() || WaitReadable(socket, kKeepAliveMs))) {
        answered = process_request(stream, /*close_connection=*/false, closed, nullptr);
        closed = closed || !answered;
    }
    CloseAndForget(socket);
    return answered;
}

bool StoppableServer::Register(socket_t socket) {
    const std::lock_guard lock(mutex_);
    if (!closing_) {
        open_.insert(socket);
    }
    return !closing_;
}

void StoppableServer::CloseAndForget(socket_t socket) {
    const std::lock_guard lock(mutex_);
    open_.erase(socket);
    ShutDown(socket);
    Close(socket);
}

}  // namespace kvmpd::origin
