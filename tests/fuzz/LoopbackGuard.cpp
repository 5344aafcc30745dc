// The two calls by which a client leaves the machine, in front of the system's.
#include "tests/fuzz/LoopbackGuard.h"

#include <dlfcn.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

namespace {

std::atomic<std::uint16_t> g_port{0};
std::atomic<size_t> g_connections{0};

bool IsAllowed(const sockaddr* address, socklen_t size) {
    if (address->sa_family != AF_INET || size < sizeof(sockaddr_in)) {
        return false;
    }
    const auto* internet = reinterpret_cast<const sockaddr_in*>(address);
    return internet->sin_addr.s_addr == htonl(INADDR_LOOPBACK) && internet->sin_port == htons(g_port.load());
}

}  // namespace

namespace kvmpd::test {

void AllowConnectionsTo(std::uint16_t port) {
    g_port = port;
}

size_t AllowedConnections() {
    return g_connections;
}

}  // namespace kvmpd::test

extern "C" {

__attribute__((visibility("default"))) int connect(int socket, const sockaddr* address, socklen_t size);
__attribute__((visibility("default"))) int getaddrinfo(const char* node, const char* service, const addrinfo* hints,
                                                       addrinfo** result);

int connect(int socket, const sockaddr* address, socklen_t size) {
    if (!IsAllowed(address, size)) {
        errno = ECONNREFUSED;
        return -1;
    }
    ++g_connections;
    return static_cast<int>(syscall(SYS_connect, socket, address, size));
}

int getaddrinfo(const char* node, const char* service, const addrinfo* hints, addrinfo** result) {
    using Call = int (*)(const char*, const char*, const addrinfo*, addrinfo**);
    static const auto systems = reinterpret_cast<Call>(dlsym(RTLD_NEXT, "getaddrinfo"));
    addrinfo numeric{};
    if (hints != nullptr) {
        numeric = *hints;
    }
    numeric.ai_flags |= AI_NUMERICHOST;
    return systems(node, service, &numeric, result);
}

}  // extern "C"
