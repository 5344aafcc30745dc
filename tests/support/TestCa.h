// A certificate authority that lives as long as a test, and the server certificates it signs: real TLS on loopback
// without a certificate in the tree.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "tests/support/Sockets.h"

namespace kvmpd::test {

/// What a server certificate claims.
struct ServerClaims {
    std::string host = "127.0.0.1";  ///< the one name (or IPv4 address) it is for
    int validFromDays = -1;          ///< first day of validity, relative to now
    int validToDays = 1;             ///< last day of validity, relative to now
};

class TestCa {
  public:
    TestCa();
    ~TestCa();
    TestCa(const TestCa&) = delete;
    TestCa& operator=(const TestCa&) = delete;

    /// Writes the authority's own certificate (PEM) to `file`.
    void WriteCertificate(const std::filesystem::path& file) const;

    /// For ScriptedPeer: TLS with a fresh certificate that this authority signs.
    ConnectionWrap ServerWrap(const ServerClaims& claims = {}) const;

  private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace kvmpd::test
