#include <cstdlib>

#include "tests/net/NetFixture.h"
#include "tests/support/TestCa.h"

namespace kvmpd::test {
namespace {

constexpr const char* kCaVariable = "KAVOTRA_MPDSOURCE_CA_FILE";

class Https : public BothTwins {
  protected:
    void SetUp() override {
        m_ca.WriteCertificate(m_dir.Path() / "ca.pem");
        setenv(kCaVariable, (m_dir.Path() / "ca.pem").c_str(), /*overwrite=*/1);
    }
    void TearDown() override { unsetenv(kCaVariable); }

    TempDir m_dir;
    TestCa m_ca;
};
KV_FOR_BOTH_TWINS(Https);

TEST_P(Https, ABodyIsDeliveredOverTls) {
    ScriptedPeer peer(m_ca.ServerWrap());
    peer.On("/s", PeerReply::Ok(std::string(300'000, 's')));
    NetKernelBase client;
    EXPECT_EQ(Open(client, peer.Url("/s"), &m_stream), S_OK);
    EXPECT_TRUE(m_stream.body == std::string(300'000, 's'));
}

TEST_P(Https, ACertificateThatIsNotForTheHostFails) {
    ScriptedPeer peer(m_ca.ServerWrap({.host = "elsewhere.example"}));
    LogCapture log(3);
    NetKernelBase client;
    EXPECT_EQ(Open(client, peer.Url("/s"), &m_stream), E_FAIL);
    EXPECT_TRUE(log.Contains(Text("[Error] NetKernelBase::SendUrlRequestImpl@ SendHttpReq failed, last error: 12038")));
    EXPECT_EQ(peer.RequestCount(), 0u);
}

}  // namespace
}  // namespace kvmpd::test
