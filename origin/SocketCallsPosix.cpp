#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "origin/SocketCalls.h"

namespace kvmpd::origin {

namespace {

bool WaitFor(socket_t socket, short events, int limitMs) {
    pollfd entry{socket, events, 0};
    int ready = 0;
    do {
        ready = poll(&entry, 1, limitMs);
    } while (ready < 0 && errno == EINTR);
    return ready > 0;
}

}  // namespace

void PrepareListener(socket_t socket) {
    const int on = 1;
    setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
}

void Prepare(socket_t socket) {
    const int on = 1;
    setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
}

bool WaitReadable(socket_t socket, int limitMs) {
    return WaitFor(socket, POLLIN, limitMs);
}

bool WaitWritable(socket_t socket, int limitMs) {
    return WaitFor(socket, POLLOUT, limitMs);
}

ssize_t ReceiveSome(socket_t socket, char* data, size_t size) {
    return recv(socket, data, size, 0);
}

ssize_t SendSome(socket_t socket, const char* data, size_t size) {
    const ssize_t sent = send(socket, data, size, MSG_NOSIGNAL | MSG_DONTWAIT);
    return sent < 0 && errno == EAGAIN ? 0 : sent;
}

void ShutDown(socket_t socket) {
    shutdown(socket, SHUT_RDWR);
}

void Close(socket_t socket) {
    close(socket);
}

}  // namespace kvmpd::origin
