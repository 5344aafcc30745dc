#include <winsock2.h>
#include <ws2tcpip.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "tests/support/Sockets.h"

namespace kvmpd::test {
namespace {

[[noreturn]] void Give(const char* call) {
    std::fprintf(stderr, "%s: Winsock error %d\n", call, WSAGetLastError());
    std::abort();
}

SOCKET Native(std::intptr_t native) {
    return static_cast<SOCKET>(native);
}

constexpr std::intptr_t kNone = static_cast<std::intptr_t>(INVALID_SOCKET);

void StartWinsock() {
    static const int result = [] {
        WSADATA data;
        return WSAStartup(MAKEWORD(2, 2), &data);
    }();
    if (result != 0) {
        Give("WSAStartup");
    }
}

/// A TCP socket bound to a free port of 127.0.0.1.
SOCKET BoundSocket(std::uint16_t& port) {
    StartWinsock();
    const SOCKET socket = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    if (socket == INVALID_SOCKET) {
        Give("socket");
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int size = sizeof(address);
    if (::bind(socket, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
        ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        Give("bind");
    }
    port = ntohs(address.sin_port);
    return socket;
}

/// The calls below take an int.
int Bounded(size_t size) {
    return static_cast<int>(std::min<size_t>(size, 1 << 20));
}

}  // namespace

Socket::~Socket() {
    Close(/*reset=*/false);
}

size_t Socket::Receive(char* data, size_t size) {
    const int count = ::recv(Native(m_native), data, Bounded(size), 0);
    return count > 0 ? static_cast<size_t>(count) : 0;
}

bool Socket::Send(std::string_view bytes) {
    while (!bytes.empty()) {
        const int count = ::send(Native(m_native), bytes.data(), Bounded(bytes.size()), 0);
        if (count <= 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<size_t>(count));
    }
    return true;
}

void Socket::Interrupt() {
    ::shutdown(Native(m_native), SD_BOTH);
}

void Socket::Close(bool reset) {
    if (m_native == kNone) {
        return;
    }
    if (reset) {
        const linger atOnce{/*l_onoff=*/1, /*l_linger=*/0};
        ::setsockopt(Native(m_native), SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&atOnce), sizeof(atOnce));
    }
    ::closesocket(Native(m_native));
    m_native = kNone;
}

Listener::Listener() : m_native(static_cast<std::intptr_t>(BoundSocket(m_port))) {
    if (::listen(Native(m_native), 64) != 0) {
        Give("listen");
    }
}

Listener::~Listener() {
    Interrupt();
}

std::unique_ptr<Socket> Listener::Accept() {
    for (;;) {
        const SOCKET accepted = ::accept(Native(m_native), nullptr, nullptr);
        if (accepted != INVALID_SOCKET) {
            return std::make_unique<Socket>(static_cast<std::intptr_t>(accepted));
        }
        if (WSAGetLastError() != WSAECONNRESET) {
            return nullptr;
        }
    }
}

void Listener::Interrupt() {
    // A listening socket cannot be shut down here; closing it is what ends the waiting call.
    if (const std::intptr_t native = m_native.exchange(kNone); native != kNone) {
        ::closesocket(Native(native));
    }
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
