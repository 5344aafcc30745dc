#include "tests/support/Sockets.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace kvmpd::test {
namespace {

[[noreturn]] void Give(const char* call) {
    std::perror(call);
    std::abort();
}

int Native(std::intptr_t native) {
    return static_cast<int>(native);
}

/// A TCP socket bound to a free port of 127.0.0.1.
int BoundSocket(std::uint16_t& port) {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (socket < 0) {
        Give("socket");
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    if (::bind(socket, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
        ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        Give("bind");
    }
    port = ntohs(address.sin_port);
    return socket;
}

}  // namespace

Socket::~Socket() {
    Close(/*reset=*/false);
}

size_t Socket::Receive(char* data, size_t size) {
    for (;;) {
        const ssize_t count = ::recv(Native(m_native), data, size, 0);
        if (count >= 0) {
            return static_cast<size_t>(count);
        }
        if (errno != EINTR) {
            return 0;
        }
    }
}

bool Socket::Send(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::send(Native(m_native), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<size_t>(count));
    }
    return true;
}

void Socket::Interrupt() {
    ::shutdown(Native(m_native), SHUT_RDWR);
}

void Socket::Close(bool reset) {
    if (m_native < 0) {
        return;
    }
    if (reset) {
        const linger atOnce{/*l_onoff=*/1, /*l_linger=*/0};
        ::setsockopt(Native(m_native), SOL_SOCKET, SO_LINGER, &atOnce, sizeof(atOnce));
    }
    ::close(Native(m_native));
    m_native = -1;
}

Listener::Listener() : m_native(BoundSocket(m_port)) {
    if (::listen(Native(m_native), 64) != 0) {
        Give("listen");
    }
}

Listener::~Listener() {
    ::close(Native(m_native));
}

std::unique_ptr<Socket> Listener::Accept() {
    for (;;) {
        const int accepted = ::accept4(Native(m_native), nullptr, nullptr, SOCK_CLOEXEC);
        if (accepted >= 0) {
            return std::make_unique<Socket>(accepted);
        }
        if (errno != EINTR && errno != ECONNABORTED) {
            return nullptr;
        }
    }
}

void Listener::Interrupt() {
    ::shutdown(Native(m_native), SHUT_RDWR);
}

std::uint16_t RefusedPort() {
    static const std::uint16_t port = [] {
        std::uint16_t bound = 0;
        BoundSocket(bound);  // held to the end of the process
        return bound;
    }();
    return port;
}

}  // namespace kvmpd::test
