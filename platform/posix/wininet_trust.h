// The certificates that https servers are verified against.
#ifndef PLATFORM_POSIX_WININET_TRUST_H_
#define PLATFORM_POSIX_WININET_TRUST_H_

#include <openssl/x509_vfy.h>

#include <memory>

namespace kvmpd::platform::internet {

/// The system's store together with the authorities in the file that KAVOTRA_MPDSOURCE_CA_FILE names. Built by the
/// first request and shared by all (reading it takes longer than a handshake); built anew when the variable or the file
/// has changed. Empty when the file cannot be read: a setting that has no effect would only be found out much later.
/// Any thread; the store may be used by several threads at once.
std::shared_ptr<X509_STORE> TrustStore();

}  // namespace kvmpd::platform::internet

#endif  // PLATFORM_POSIX_WININET_TRUST_H_
