// Every fault: TLS by OpenSSL, and the receive time-out shortened by a function in front of the platform's.
#include <atomic>
#include <cstdlib>

#include "platform/wininet.h"
#include "tests/faults/PlatformList.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestCa.h"

namespace kvmpd::test {
namespace {

std::atomic<DWORD> g_receiveTimeout{0};  // 0: what the component asks for

/// The authority that the component trusts in this process, and the servers that show its certificates. They live as
/// long as the process: a transfer may read the file at any time.
struct Authority {
    Authority() {
        const std::filesystem::path file = folder.Path() / "authority.pem";
        ca.WriteCertificate(file);
        setenv("KAVOTRA_MPDSOURCE_CA_FILE", file.c_str(), /*overwrite=*/1);
    }
    TempDir folder;
    TestCa ca;
    ConnectionWrap good = ca.ServerWrap();
    ConnectionWrap expired = ca.ServerWrap({.validFromDays = -3, .validToDays = -1});
    ConnectionWrap wrongHost = ca.ServerWrap({.host = "somebody.else.test"});
};

Authority& TheAuthority() {
    static Authority authority;
    return authority;
}

/// Not TLS: a handshake that fails at its first byte.
std::unique_ptr<ByteConnection> NoHandshake(Socket& socket) {
    char byte = 0;
    if (socket.Receive(&byte, 1) != 0) {
        socket.Send("this port speaks no TLS\r\n");
    }
    return nullptr;
}

}  // namespace

std::string_view NotOnThisList(FaultKind /*kind*/, Target /*target*/) {
    return {};
}

size_t MostRedirects() {
    return 10;
}

ConnectionWrap GoodTls() {
    return TheAuthority().good;
}

ConnectionWrap BadTls(FaultKind kind) {
    switch (kind) {
        case FaultKind::kTlsExpired:
            return TheAuthority().expired;
        case FaultKind::kTlsWrongHost:
            return TheAuthority().wrongHost;
        default:
            return NoHandshake;
    }
}

ShortReceiveTimeout::ShortReceiveTimeout(std::chrono::milliseconds timeout) {
    g_receiveTimeout = static_cast<DWORD>(timeout.count());
}

ShortReceiveTimeout::~ShortReceiveTimeout() {
    g_receiveTimeout = 0;
}

}  // namespace kvmpd::test

// The names are the linker's and the compiler's.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
BOOL __real__Z18InternetSetOptionWPvjS_j(HINTERNET handle, DWORD option, LPVOID buffer, DWORD length);

BOOL __wrap__Z18InternetSetOptionWPvjS_j(HINTERNET handle, DWORD option, LPVOID buffer, DWORD length) {
    DWORD timeout = kvmpd::test::g_receiveTimeout;
    if (option == INTERNET_OPTION_RECEIVE_TIMEOUT && timeout != 0) {
        return __real__Z18InternetSetOptionWPvjS_j(handle, option, &timeout, sizeof(timeout));
    }
    return __real__Z18InternetSetOptionWPvjS_j(handle, option, buffer, length);
}
}
// NOLINTEND(bugprone-reserved-identifier)
