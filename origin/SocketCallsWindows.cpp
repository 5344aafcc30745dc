#include <winsock2.h>
#include <ws2tcpip.h>

#include <algorithm>

#include "origin/SocketCalls.h"

namespace kvmpd::origin {

namespace {

bool WaitFor(socket_t socket, short events, int limitMs) {
    WSAPOLLFD entry{socket, events, 0};
    return WSAPoll(&entry, 1, limitMs) > 0;
}

// These calls take and give an int.
int Bounded(size_t size) {
    return static_cast<int>(std::min<size_t>(size, 1 << 20));
}

}  // namespace

void PrepareListener(socket_t socket) {
    // SO_REUSEADDR means here what SO_REUSEPORT means elsewhere.
    const BOOL on = TRUE;
    setsockopt(socket, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, reinterpret_cast<const char*>(&on), sizeof(on));
}

void Prepare(socket_t socket) {
    const BOOL on = TRUE;
    setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&on), sizeof(on));
    u_long nonBlocking = 1;
    ioctlsocket(socket, static_cast<long>(FIONBIO), &nonBlocking);
}

bool WaitReadable(socket_t socket, int limitMs) {
    // A shutdown by another thread does not wake the poll everywhere; it shows in what a look at the socket answers.
    constexpr int kSliceMs = 20;
    for (int waited = 0; waited < limitMs; waited += kSliceMs) {
        if (WaitFor(socket, POLLRDNORM, kSliceMs)) {
            return true;
        }
        char byte = 0;
        if (recv(socket, &byte, 1, MSG_PEEK) >= 0 || WSAGetLastError() != WSAEWOULDBLOCK) {
            return true;
        }
    }
    return false;
}

bool WaitWritable(socket_t socket, int limitMs) {
    return WaitFor(socket, POLLWRNORM, limitMs);
}

ssize_t ReceiveSome(socket_t socket, char* data, size_t size) {
    return recv(socket, data, Bounded(size), 0);
}

ssize_t SendSome(socket_t socket, const char* data, size_t size) {
    const int sent = send(socket, data, Bounded(size), 0);
    return sent < 0 && WSAGetLastError() == WSAEWOULDBLOCK ? 0 : sent;
}

void ShutDown(socket_t socket) {
    shutdown(socket, SD_BOTH);
}

void Close(socket_t socket) {
    closesocket(socket);
}

}  // namespace kvmpd::origin
