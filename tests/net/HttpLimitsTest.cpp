// The longest URL and the largest body in memory, and what lies just beyond.
#include "net/HttpLimits.h"

#include "tests/net/NetFixture.h"

namespace kvmpd::test {
namespace {

class HttpLimits : public BothTwins {
  protected:
    /// A URL of the peer's with `length` characters.
    std::string UrlOf(size_t length) const {
        std::string url = m_peer.Url("/a?");
        url.resize(length, 'x');
        return url;
    }
    std::string Line(const std::string& rest) const {
        return std::string("[Error] NetKernelBase::SendUrlRequestImpl") + (GetParam() == Twin::kWide ? "W" : "") + rest;
    }
    NetKernelBase m_client;
};
KV_FOR_BOTH_TWINS(HttpLimits);

TEST_P(HttpLimits, TheLongestUrlIsAskedFor) {
    m_peer.On("/a", PeerReply::Ok("abc"));
    EXPECT_EQ(Open(m_client, UrlOf(kLongestUrl), &m_stream), S_OK);
    EXPECT_EQ(m_stream.body, "abc");
    EXPECT_EQ(m_peer.Url(m_peer.WaitForRequest(0).target).size(), kLongestUrl);
}

TEST_P(HttpLimits, ALongerUrlIsRefusedAndTheNextRequestServed) {
    m_peer.On("/a", PeerReply::Ok("abc"));
    LogCapture log(3);
    EXPECT_EQ(Open(m_client, UrlOf(kLongestUrl + 1), &m_stream), E_FAIL);
    EXPECT_TRUE(log.Contains(Line(" URL is too long: 65537 characters")));
    EXPECT_TRUE(m_stream.calls.empty());
    EXPECT_EQ(m_peer.RequestCount(), 0u);
    EXPECT_EQ(Open(m_client, m_peer.Url("/a"), &m_stream), S_OK);
}

TEST_P(HttpLimits, AnAnnouncedBodyTooLargeForMemoryIsRefused) {
    if (UnderWine()) {
        GTEST_SKIP() << kWineKnowsNoLength;
    }
    m_peer.On("/a", PeerReply::Truncated("abc", kLargestBodyInMemory + 1));
    RecordingProgress progress;
    NetKernelBase client(nullptr, &progress);
    LogCapture log(3);
    EXPECT_EQ(Open(client, m_peer.Url("/a"), nullptr), E_FAIL);
    EXPECT_TRUE(log.Contains("[Error] NetKernelBase::ReceiveResponseToBuffer announced length is too large: 67108865"));
    EXPECT_EQ(progress.completions, 0);
}

}  // namespace
}  // namespace kvmpd::test
