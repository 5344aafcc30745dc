#include <fstream>

#include "tests/platform/wininet/ScopedVariable.h"
#include "tests/platform/wininet/WininetExchange.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestCa.h"

namespace kvmpd::test {
namespace {

constexpr const char* kCaVariable = "KAVOTRA_MPDSOURCE_CA_FILE";

class Tls : public testing::Test {
  protected:
    Tls() { m_ca.WriteCertificate(m_file); }

    DWORD ErrorWith(const ServerClaims& claims) {
        ScriptedPeer peer(m_ca.ServerWrap(claims));
        const ScopedVariable trusted(kCaVariable, m_file.string());
        Exchange exchange(peer.Port(), "/s", "GET", INTERNET_FLAG_SECURE);
        return exchange.Send();
    }

    TempDir m_dir;
    TestCa m_ca;
    std::filesystem::path m_file = m_dir.Path() / "ca.pem";
};

TEST_F(Tls, ACertificateOfATrustedAuthorityIsAccepted) {
    ScriptedPeer peer(m_ca.ServerWrap());
    peer.On("/s", PeerReply::Ok(std::string(500'000, 's')));
    const ScopedVariable trusted(kCaVariable, m_file.string());
    Exchange exchange(peer.Port(), "/s", "GET", INTERNET_FLAG_SECURE);
    ASSERT_EQ(exchange.Send(), 0u);
    EXPECT_TRUE(exchange.Body() == std::string(500'000, 's'));
}

TEST_F(Tls, AnUnknownAuthorityIsRefused) {
    ScriptedPeer peer(m_ca.ServerWrap());
    Exchange exchange(peer.Port(), "/s", "GET", INTERNET_FLAG_SECURE);
    EXPECT_EQ(exchange.Send(), ERROR_INTERNET_INVALID_CA);
    EXPECT_EQ(peer.RequestCount(), 0u);
}

TEST_F(Tls, AnotherAuthorityThanTheTrustedOneIsRefused) {
    const TestCa other;
    ScriptedPeer peer(other.ServerWrap());
    const ScopedVariable trusted(kCaVariable, m_file.string());
    Exchange exchange(peer.Port(), "/s", "GET", INTERNET_FLAG_SECURE);
    EXPECT_EQ(exchange.Send(), ERROR_INTERNET_INVALID_CA);
}

TEST_F(Tls, ACertificateForAnotherNameIsRefused) {
    EXPECT_EQ(ErrorWith({.host = "elsewhere.example"}), ERROR_INTERNET_SEC_CERT_CN_INVALID);
    EXPECT_EQ(ErrorWith({.host = "127.0.0.2"}), ERROR_INTERNET_SEC_CERT_CN_INVALID);
}

TEST_F(Tls, AnExpiredCertificateIsRefused) {
    EXPECT_EQ(ErrorWith({.validFromDays = -2, .validToDays = -1}), ERROR_INTERNET_SEC_CERT_DATE_INVALID);
}

TEST_F(Tls, ACertificateOfTomorrowIsRefused) {
    EXPECT_EQ(ErrorWith({.validFromDays = 1, .validToDays = 2}), ERROR_INTERNET_SEC_CERT_DATE_INVALID);
}

TEST_F(Tls, AnUnreadableAuthorityFileIsRefused) {
    ScriptedPeer peer(m_ca.ServerWrap());
    const ScopedVariable trusted(kCaVariable, (m_dir.Path() / "none.pem").string());
    Exchange exchange(peer.Port(), "/s", "GET", INTERNET_FLAG_SECURE);
    EXPECT_EQ(exchange.Send(), ERROR_INTERNET_INVALID_CA);
}

TEST_F(Tls, AnAuthorityFileThatChangesIsReadAgain) {
    const TestCa later;
    const ScopedVariable trusted(kCaVariable, m_file.string());
    ScriptedPeer peer(later.ServerWrap());
    {
        Exchange exchange(peer.Port(), "/s", "GET", INTERNET_FLAG_SECURE);
        EXPECT_EQ(exchange.Send(), ERROR_INTERNET_INVALID_CA);
    }
    std::filesystem::remove(m_file);
    later.WriteCertificate(m_file);
    Exchange exchange(peer.Port(), "/s", "GET", INTERNET_FLAG_SECURE);
    EXPECT_EQ(exchange.Send(), 0u);
}

TEST_F(Tls, AServerThatSpeaksNoTlsIsASecurityChannelError) {
    ScriptedPeer peer([](Socket& socket) -> std::unique_ptr<ByteConnection> {
        socket.Send("HTTP/1.1 400 Speak plainly\r\n\r\n");
        char byte = 0;
        while (socket.Receive(&byte, 1) != 0) {
        }
        return nullptr;
    });
    Exchange exchange(peer.Port(), "/s", "GET", INTERNET_FLAG_SECURE);
    EXPECT_EQ(exchange.Send(), ERROR_INTERNET_SECURITY_CHANNEL_ERROR);
}

TEST_F(Tls, AHandshakeThatIsNeverAnsweredTimesOut) {
    ScriptedPeer peer([](Socket& socket) -> std::unique_ptr<ByteConnection> {
        char byte = 0;
        while (socket.Receive(&byte, 1) != 0) {
        }
        return nullptr;
    });
    Exchange exchange(peer.Port(), "/s", "GET", INTERNET_FLAG_SECURE);
    ASSERT_EQ(exchange.SetTimeout(INTERNET_OPTION_RECEIVE_TIMEOUT, 100), 0u);
    EXPECT_EQ(exchange.Send(), ERROR_INTERNET_TIMEOUT);
}

TEST_F(Tls, ATruncatedBodyIsAborted) {
    ScriptedPeer peer(m_ca.ServerWrap());
    peer.On("/s", PeerReply::Truncated("abc", 10));
    const ScopedVariable trusted(kCaVariable, m_file.string());
    Exchange exchange(peer.Port(), "/s", "GET", INTERNET_FLAG_SECURE);
    ASSERT_EQ(exchange.Send(), 0u);
    std::string body;
    EXPECT_EQ(exchange.ReadAll(body), ERROR_INTERNET_CONNECTION_ABORTED);
    EXPECT_EQ(body, "abc");
}

TEST_F(Tls, AResetInTheBodyIsAReset) {
    ScriptedPeer peer(m_ca.ServerWrap());
    peer.On("/s", PeerReply::Head(10).Stall().Reset());
    const ScopedVariable trusted(kCaVariable, m_file.string());
    Exchange exchange(peer.Port(), "/s", "GET", INTERNET_FLAG_SECURE);
    ASSERT_EQ(exchange.Send(), 0u);
    peer.Release();
    std::string body;
    EXPECT_EQ(exchange.ReadAll(body), ERROR_INTERNET_CONNECTION_RESET);
}

TEST_F(Tls, RedirectsLeadFromPlainToSecureAndBack) {
    ScriptedPeer secure(m_ca.ServerWrap());
    ScriptedPeer plain;
    plain.On("/a", PeerReply::Redirect(secure.Url("/b")));
    secure.On("/b", PeerReply::Redirect(plain.Url("/c")));
    plain.On("/c", PeerReply::Ok("there"));
    const ScopedVariable trusted(kCaVariable, m_file.string());
    Exchange exchange(plain.Port(), "/a");
    ASSERT_EQ(exchange.Send(), 0u);
    EXPECT_EQ(exchange.Body(), "there");
}

TEST_F(Tls, AServerThatIsGoneWhileTheBodyIsUnreadHarmsNobody) {
    ScriptedPeer peer(m_ca.ServerWrap());
    peer.On("/s", PeerReply::Head(1'000'000).Send(std::string(300'000, 'x')).Reset());
    const ScopedVariable trusted(kCaVariable, m_file.string());
    Exchange exchange(peer.Port(), "/s", "GET", INTERNET_FLAG_SECURE);
    const DWORD sent = exchange.Send();
    EXPECT_TRUE(peer.WaitForClosed(1));
    std::string body;
    EXPECT_NE(sent != 0 ? sent : exchange.ReadAll(body), 0u);
}

}  // namespace
}  // namespace kvmpd::test
