#include "tests/net/NetFixture.h"

namespace kvmpd::test {
namespace {

class ResponseHeaders : public BothTwins {
  protected:
    const std::string m_length = "length " + std::to_string(KnownLength(1));
};
KV_FOR_BOTH_TWINS(ResponseHeaders);

TEST_P(ResponseHeaders, TheETagIsToldAndLogged) {
    m_peer.On("/a", PeerReply::Ok("x", {{"ETag", "\"tag-1\""}}));
    LogCapture log(3);
    NetKernelBase client;
    Open(client, m_peer.Url("/a"), &m_stream);
    EXPECT_EQ(m_stream.calls[2], "etag \"tag-1\"");
    EXPECT_TRUE(log.Contains(" NetKernelBase::QueryResponseInfo Response ETag: \"tag-1\""));
}

TEST_P(ResponseHeaders, AnETagThatIsTooLongIsLeftOut) {
    m_peer.On("/a", PeerReply::Ok("x", {{"ETag", std::string(256, 'e')}}));
    NetKernelBase client;
    EXPECT_EQ(Open(client, m_peer.Url("/a"), &m_stream), S_OK);
    EXPECT_EQ(m_stream.calls, (std::vector<std::string>{m_length, "type ", "complete"}));
}

TEST_P(ResponseHeaders, ALongContentTypeIsWhole) {
    for (const size_t length : {259u, 260u, 261u, 2000u}) {
        m_peer.Once("/a", PeerReply::Ok("x", {{"Content-Type", std::string(length, 't')}}));
        RecordingStream stream;
        NetKernelBase client;
        EXPECT_EQ(Open(client, m_peer.Url("/a"), &stream), S_OK);
        EXPECT_EQ(stream.calls[1], "type " + std::string(length, 't'));
    }
}

TEST_P(ResponseHeaders, WantedHeadersAreQueriedByName) {
    m_peer.On("/a", PeerReply::Ok("x", {{"X-One", "1"}, {"X-Long", std::string(1000, 'l')}}));
    m_stream.wantedHeaders = {"X-One", "X-None", "x-long", std::string(400, 'n')};
    LogCapture log(3);
    NetKernelBase client;
    EXPECT_EQ(Open(client, m_peer.Url("/a"), &m_stream), S_OK);
    EXPECT_EQ(m_stream.calls, (std::vector<std::string>{m_length, "type ", "header X-One=1",
                                                        "header x-long=" + std::string(1000, 'l'), "complete"}));
    EXPECT_TRUE(log.Contains(" NetKernelBase::QueryResponseInfo Query header: X-One"));
    EXPECT_TRUE(log.Contains(" NetKernelBase::QueryResponseInfo Query header: X-None"));
}

TEST_P(ResponseHeaders, ALengthBeyond32BitsReachesTheStreamWhole) {
    if (UnderWine()) {
        GTEST_SKIP() << kWineKnowsNoLength;
    }
    m_peer.On("/a", PeerReply::Truncated("x", 0x1234567890ULL));
    NetKernelBase client;
    EXPECT_EQ(Open(client, m_peer.Url("/a"), &m_stream), E_FAIL);
    EXPECT_EQ(m_stream.calls[0], "length 78187493520");
}

}  // namespace
}  // namespace kvmpd::test
