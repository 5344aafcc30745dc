#include "tests/net/NetFixture.h"

namespace kvmpd::test {
namespace {

using Failures = BothTwins;
KV_FOR_BOTH_TWINS(Failures);

TEST_P(Failures, AnUnknownSchemeFailsAtTheConnection) {
    LogCapture log(3);
    NetKernelBase client;
    EXPECT_EQ(Open(client, "ftp://x", &m_stream), E_FAIL);
    EXPECT_EQ(log.Lines(), (std::vector<std::string>{
                               Text(" NetKernelBase::OpenUrl@ open URL: ftp://x"),
                               Text("[Error] NetKernelBase::PrepareConnection@ InternetConnect failed, last error: 87"),
                               Text("[Error] NetKernelBase::OpenUrl@ Fail to send URL request: ftp://x")}));
    EXPECT_TRUE(m_stream.calls.empty());
}

TEST_P(Failures, NobodyListens) {
    const std::string url = "http://127.0.0.1:" + std::to_string(RefusedPort()) + "/";
    LogCapture log(3);
    NetKernelBase client;
    const HRESULT result = Open(client, url, &m_stream);
    EXPECT_TRUE(log.Contains(Text("[Error] NetKernelBase::SendUrlRequestImpl@ SendHttpReq failed, last error: 12029")));
    if (UnderWine()) {
        GTEST_SKIP() << kWineAnswersFailedRequests;
    }
    EXPECT_EQ(result, E_FAIL);
    EXPECT_EQ(log.CountPrefix("[Error] NetKernelBase::QueryResponseInfo Status code query failed, error code: "), 1u);
    EXPECT_TRUE(log.Contains(Text("[Error] NetKernelBase::SendUrlRequestImpl@ QueryResponseInfo failed.")));
    EXPECT_TRUE(log.Contains(Text("[Error] NetKernelBase::OpenUrl@ Fail to send URL request: ") + url));
    EXPECT_TRUE(m_stream.calls.empty());
}

TEST_P(Failures, AServerThatClosesResetsOrTalksNonsenseFailsWithItsCause) {
    if (UnderWine()) {
        GTEST_SKIP() << "Wine takes a connection that closes without a byte, and nonsense, for a response, and tells a "
                        "reset as 12030";
    }
    const std::vector<std::pair<PeerReply, std::string>> cases{
        {PeerReply::CloseAtOnce(), "12030"},
        {PeerReply::ResetAtOnce(), "12031"},
        {PeerReply::Raw("nonsense without end\r\n\r\n"), "12152"}};
    for (const auto& [reply, error] : cases) {
        m_peer.Once("/a", reply);
        LogCapture log(3);
        NetKernelBase client;
        EXPECT_EQ(Open(client, m_peer.Url("/a"), &m_stream), E_FAIL);
        EXPECT_TRUE(
            log.Contains(Text("[Error] NetKernelBase::SendUrlRequestImpl@ SendHttpReq failed, last error: ") + error));
    }
}

TEST_P(Failures, ASilentServerEndsWithTheReceiveTimeOut) {
    m_peer.On("/a", PeerReply::StallAtOnce());
    LogCapture log;
    NetKernelBase client;
    client.SetReceiveTimeout(80);
    const HRESULT result = Open(client, m_peer.Url("/a"), &m_stream);
    EXPECT_TRUE(log.Contains(" NetKernelBase::SetReceiveTimeout to: 80"));
    EXPECT_EQ(log.CountPrefix(Text("[Error] NetKernelBase::SendUrlRequestImpl@ SendHttpReq failed, last error: ")), 1u);
    if (UnderWine()) {
        GTEST_SKIP() << kWineTellsSocketErrors << "; " << kWineAnswersFailedRequests;
    }
    EXPECT_EQ(result, E_FAIL);
    EXPECT_TRUE(log.Contains(Text("[Error] NetKernelBase::SendUrlRequestImpl@ SendHttpReq failed, last error: 12002")));
}

TEST_P(Failures, ABodyShorterThanItsLengthFailsAfterItsCompletion) {
    m_peer.On("/a", PeerReply::Truncated("abc", 10));
    LogCapture log(4);
    NetKernelBase client;
    const HRESULT result = Open(client, m_peer.Url("/a"), &m_stream);
    EXPECT_EQ(m_stream.body, "abc");
    EXPECT_EQ(m_stream.calls.back(), "complete");
    if (UnderWine()) {
        GTEST_SKIP() << kWineEndsAShortBody << "; " << kWineKnowsNoLength;
    }
    EXPECT_EQ(result, E_FAIL);
    EXPECT_TRUE(
        log.Contains("[Error] NetKernelBase::ReceiveResponseToStream InternetReadFile failed. Last error: 12030"));
    EXPECT_TRUE(
        log.Contains(" NetKernelBase::ReceiveUrlDataImpl Does not receive response data correctly. Fail return."));
    EXPECT_TRUE(log.Contains(Text("[Error] NetKernelBase::OpenUrl@ Fail to receive URL request: ") + m_peer.Url("/a")));
}

TEST_P(Failures, TheReceiveFailureIsToldAtLevel4) {
    m_peer.On("/a", PeerReply::Truncated("abc", 10));
    LogCapture log(3);
    NetKernelBase client;
    Open(client, m_peer.Url("/a"), &m_stream);
    EXPECT_FALSE(
        log.Contains(" NetKernelBase::ReceiveUrlDataImpl Does not receive response data correctly. Fail return."));
}

TEST_P(Failures, ABodyThatStopsEndsWithTheReceiveTimeOut) {
    m_peer.On("/a", PeerReply::Head(10).Send("abc").Stall());
    LogCapture log(3);
    NetKernelBase client;
    client.SetReceiveTimeout(80);
    const HRESULT result = Open(client, m_peer.Url("/a"), &m_stream);
    EXPECT_EQ(m_stream.calls.back(), "complete");
    if (UnderWine()) {
        GTEST_SKIP() << kWineTellsSocketErrors << "; " << kWineKnowsNoLength;
    }
    EXPECT_EQ(result, E_FAIL);
    EXPECT_TRUE(
        log.Contains("[Error] NetKernelBase::ReceiveResponseToStream InternetReadFile failed. Last error: 12002"));
}

TEST_P(Failures, AStreamThatRefusesABlockEndsWithoutACompletion) {
    m_peer.On("/a", PeerReply::Ok("abc"));
    m_stream.writeResult = 0;
    NetKernelBase client;
    EXPECT_EQ(Open(client, m_peer.Url("/a"), &m_stream), E_FAIL);
    EXPECT_EQ(m_stream.body, "abc");
    EXPECT_NE(m_stream.calls.back(), "complete");
}

TEST_P(Failures, AResponseFileNameThatIsTooLongIsReportedAndUsedRegardless) {
    m_peer.On("/a", PeerReply::Ok("abc"));
    const std::string name(261, 'f');
    LogCapture log(3);
    NetKernelBase client;
    EXPECT_EQ(Open(client, m_peer.Url("/a"), &m_stream, {.responseFile = Utf8ToWide(name)}), S_OK);
    EXPECT_TRUE(log.Contains(
        (GetParam() == Twin::kNarrow
             ? "[Error] NetKernelBase::OpenUrl  Response file length too long (261): '"
             : "[Error] NetKernelBase::OpenUrlW [NetKernelBase][Error] NetKernelBase::OpenUrlW Response file length "
               "too long (261): '") +
        name + "' "));
}

TEST_P(Failures, AResponseFileNameOf260CharactersIsNotTooLong) {
    m_peer.On("/a", PeerReply::Ok("abc"));
    LogCapture log(3);
    NetKernelBase client;
    EXPECT_EQ(Open(client, m_peer.Url("/a"), &m_stream, {.responseFile = std::wstring(260, L'f')}), S_OK);
    EXPECT_EQ(log.Lines(), std::vector<std::string>{Text(" NetKernelBase::OpenUrl@ open URL: ") + m_peer.Url("/a")});
}

TEST_P(Failures, AnAbortedRequestFailsAfterItsBody) {
    m_peer.On("/a", PeerReply::Ok("abc"));
    RecordingProgress progress;
    NetKernelBase client(nullptr, &progress);
    m_stream.atComplete = [&client] { NetKernelBaseTestAccess::Abort(client); };
    LogCapture log(3);
    EXPECT_EQ(Open(client, m_peer.Url("/a"), &m_stream), E_FAIL);
    EXPECT_EQ(m_stream.body, "abc");
    EXPECT_EQ(progress.completions, 0);
    EXPECT_EQ(log.CountPrefix("[Error]"), 0u);
}

TEST_P(Failures, AnAbortIsForgottenByTheNextRequest) {
    m_peer.On("/a", PeerReply::Ok("abc"));
    NetKernelBase client;
    NetKernelBaseTestAccess::Abort(client);
    EXPECT_EQ(Open(client, m_peer.Url("/a"), &m_stream), S_OK);
}

TEST_P(Failures, AFailedRequestIsNotRetried) {
    m_peer.On("/a", PeerReply::CloseAtOnce());
    NetKernelBase client;
    const HRESULT result = Open(client, m_peer.Url("/a"), &m_stream);
    EXPECT_EQ(m_peer.RequestCount(), 1u);
    if (UnderWine()) {
        GTEST_SKIP() << kWineTakesAClosedConnectionForAResponse;
    }
    EXPECT_EQ(result, E_FAIL);
}

TEST_P(Failures, TheClientServesAgainAfterAFailure) {
    m_peer.Once("/a", PeerReply::CloseAtOnce());
    m_peer.Once("/a", PeerReply::Truncated("abc", 10));
    m_peer.On("/a", PeerReply::Ok("abc"));
    NetKernelBase client;
    const HRESULT afterClose = Open(client, m_peer.Url("/a"), &m_stream);
    const HRESULT afterShortBody = Open(client, m_peer.Url("/a"), &m_stream);
    EXPECT_EQ(Open(client, m_peer.Url("/a"), &m_stream), S_OK);
    if (UnderWine()) {
        GTEST_SKIP() << kWineTakesAClosedConnectionForAResponse << "; " << kWineEndsAShortBody;
    }
    EXPECT_EQ(afterClose, E_FAIL);
    EXPECT_EQ(afterShortBody, E_FAIL);
}

}  // namespace
}  // namespace kvmpd::test
