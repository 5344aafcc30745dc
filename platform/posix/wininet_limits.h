// The measures of an HTTP request.
#ifndef PLATFORM_POSIX_WININET_LIMITS_H_
#define PLATFORM_POSIX_WININET_LIMITS_H_

#include <chrono>
#include <cstddef>

namespace kvmpd::platform::internet {

/// What curl reads from a socket at once.
constexpr long kSocketRead = 64 * 1024;

/// Body bytes kept between two reads. One read of the socket fits whole; curl keeps what is beyond it (a TLS record or
/// one more read of the socket), so that a request never holds more than 256 KiB.
constexpr size_t kHeldLimit = 64 * 1024;

/// As on Windows: how long name look-up, connection and handshake may take together.
constexpr std::chrono::milliseconds kConnectTimeout{60000};

/// The longest single waits: while curl connects it has clocks of its own, and none of its waits is unbounded.
constexpr std::chrono::milliseconds kConnectingPoll{1000};
constexpr std::chrono::milliseconds kLongestPoll{60000};

constexpr long kMostRedirects = 10;

}  // namespace kvmpd::platform::internet

#endif  // PLATFORM_POSIX_WININET_LIMITS_H_
