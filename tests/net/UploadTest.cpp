#include "tests/net/NetFixture.h"

namespace kvmpd::test {
namespace {

using PostData = BothTwins;
KV_FOR_BOTH_TWINS(PostData);

TEST_P(PostData, IsSentInBlocksAndReported) {
    m_peer.On("/p", PeerReply::Ok("thanks"));
    RecordingProgress progress;
    NetKernelBase client(nullptr, &progress);
    const std::string data(300'000, 'd');
    EXPECT_EQ(Open(client, m_peer.Url("/p"), &m_stream, {.verb = nullptr, .postData = data}), S_OK);
    const PeerRequest request = m_peer.WaitForRequest(0);
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.Header("Content-Length"), "300000");
    EXPECT_EQ(request.Header("Host"), "127.0.0.1");
    EXPECT_TRUE(request.body == data);
    EXPECT_EQ(m_stream.body, "thanks");
    ASSERT_GE(progress.reports.size(), 4u);
    EXPECT_EQ(progress.reports[1], (RecordingProgress::Report{"transmit", 131072, 300'000}));
    EXPECT_EQ(progress.reports[3], (RecordingProgress::Report{"transmit", 300'000, 300'000}));
}

TEST_P(PostData, GoesBeforeAnUploadStream) {
    m_stream.hasUpload = true;
    m_stream.upload = "from the stream";
    NetKernelBase client;
    Open(client, m_peer.Url("/p"), &m_stream, {.postData = "from the caller"});
    EXPECT_EQ(m_peer.WaitForRequest(0).body, "from the caller");
}

TEST_P(PostData, AFailedStartIsLogged) {
    LogCapture log(3);
    NetKernelBase client;
    EXPECT_EQ(Open(client, "http://127.0.0.1:" + std::to_string(RefusedPort()), &m_stream, {.postData = "x"}), E_FAIL);
    EXPECT_TRUE(
        log.Contains(Text("[Error] NetKernelBase::SendUrlRequestImpl@ HttpSendRequestEx failed, last error: 12029")));
}

TEST_P(PostData, ACancelIsAFailedWrite) {
    RecordingProgress progress;
    progress.cancelStage = "transmit";
    LogCapture log(3);
    NetKernelBase client(nullptr, &progress);
    EXPECT_EQ(Open(client, m_peer.Url("/p"), &m_stream, {.postData = "x"}), E_FAIL);
    EXPECT_TRUE(log.Contains(Text("[Error] NetKernelBase::SendUrlRequestImpl@ Write content failed.")));
}

TEST_P(PostData, AServerThatDoesNotReadEndsWithTheSendTimeOut) {
    m_peer.On("/p", PeerReply::StallAtOnce().WithoutReadingBody());
    LogCapture log;
    NetKernelBase client;
    client.SetSendTimeout(80);
    const std::string moreThanSocketsHold(32u << 20, 'x');
    EXPECT_EQ(Open(client, m_peer.Url("/p"), &m_stream, {.postData = moreThanSocketsHold}), E_FAIL);
    EXPECT_TRUE(log.Contains(" NetKernelBase::SetSendTimeout to: 80"));
    EXPECT_TRUE(log.Contains(Text(" NetKernelBase::SendUrlRequestImpl@ Set send timeout to: 80 Success: True")));
    EXPECT_TRUE(log.Contains(Text("[Error] NetKernelBase::SendUrlRequestImpl@ Write content failed.")));
}

TEST_P(PostData, AServerThatClosesAfterTheBodyFailsTheEnd) {
    if (UnderWine()) {
        GTEST_SKIP() << kWineTakesAClosedConnectionForAResponse;
    }
    m_peer.On("/p", PeerReply::CloseAtOnce());
    LogCapture log(3);
    NetKernelBase client;
    EXPECT_EQ(Open(client, m_peer.Url("/p"), &m_stream, {.postData = "x"}), E_FAIL);
    EXPECT_TRUE(
        log.Contains(Text("[Error] NetKernelBase::SendUrlRequestImpl@ HttpEndRequest failed, last error: 12030")));
}

class UploadStream : public BothTwins {
  protected:
    void SetUp() override { m_stream.hasUpload = true; }
};
KV_FOR_BOTH_TWINS(UploadStream);

TEST_P(UploadStream, IsSentBlockByBlock) {
    m_peer.On("/u", PeerReply::Ok("thanks"));
    m_stream.upload = std::string(200'000, 'u');
    LogCapture log;
    RecordingProgress progress;
    NetKernelBase client(nullptr, &progress);
    EXPECT_EQ(Open(client, m_peer.Url("/u"), &m_stream, {.verb = "PUT"}), S_OK);
    EXPECT_EQ(m_peer.WaitForRequest(0).method, "PUT");
    EXPECT_TRUE(m_peer.WaitForRequest(0).body == m_stream.upload);
    EXPECT_EQ(m_stream.body, "thanks");
    const std::vector<std::string> expected{
        Text(" NetKernelBase::OpenUrl@ open URL: ") + m_peer.Url("/u"),
        Text(" NetKernelBase::SendUrlRequestImpl@ Send request with Content-Length: 200000"),
        " NetKernelBase::WriteStreamContent Write content data from stream buffer with content length: 200000",
        " NetKernelBase::WriteStreamContent Use size to upload in this round: 131072 success written: 131072",
        " NetKernelBase::WriteStreamContent Use size to upload in this round: 68928 success written: 68928",
        " NetKernelBase::WriteStreamContent Write content body from stream.",
        Text(" NetKernelBase::SendUrlRequestImpl@ Write stream content success."),
        Text(" NetKernelBase::SendUrlRequestImpl@ HttpEndRequest success"),
        Text(" NetKernelBase::SendUrlRequestImpl@ Send multi-part request success end.")};
    EXPECT_EQ(log.Lines(), expected);
    EXPECT_EQ(progress.reports[1], (RecordingProgress::Report{"transmit", 131072, 200'000}));
}

TEST_P(UploadStream, RoundsAreToldAtLevel6Only) {
    m_stream.upload = "x";
    LogCapture log(5);
    NetKernelBase client;
    Open(client, m_peer.Url("/u"), &m_stream);
    EXPECT_EQ(log.CountPrefix(" NetKernelBase::WriteStreamContent Use size"), 0u);
    EXPECT_EQ(log.CountPrefix(" NetKernelBase::WriteStreamContent Write content"), 2u);
}

TEST_P(UploadStream, WithoutALengthIsAnError) {
    LogCapture log(3);
    NetKernelBase client;
    EXPECT_EQ(Open(client, m_peer.Url("/u"), &m_stream), E_FAIL);
    EXPECT_TRUE(log.Contains(Text(
        "[Error] NetKernelBase::SendUrlRequestImpl@ Has upload stream but return 0 content length, should be error.")));
}

TEST_P(UploadStream, AFailedStartIsLogged) {
    m_stream.upload = "x";
    LogCapture log(3);
    NetKernelBase client;
    EXPECT_EQ(Open(client, "http://127.0.0.1:" + std::to_string(RefusedPort()), &m_stream), E_FAIL);
    EXPECT_TRUE(
        log.Contains(Text("[Error] NetKernelBase::SendUrlRequestImpl@ HttpSendRequestExA failed, last error: 12029")));
}

TEST_P(UploadStream, ABlockThatCannotBeReadFails) {
    m_stream.upload = "0123456789";
    m_stream.uploadFailsAt = 4;
    LogCapture log(3);
    NetKernelBase client;
    client.SetReceiveChunkSize(4);
    EXPECT_EQ(Open(client, m_peer.Url("/u"), &m_stream), E_FAIL);
    EXPECT_TRUE(
        log.Contains("[Error] NetKernelBase::WriteStreamContent Read buffer instance from NetKernelStream failed."));
    EXPECT_TRUE(log.Contains(Text("[Error] NetKernelBase::SendUrlRequestImpl@ Write stream content failed.")));
}

TEST_P(UploadStream, AStreamThatEndsBeforeItsLengthFails) {
    m_stream.upload = "0123456789";
    m_stream.uploadLength = 20;
    NetKernelBase client;
    EXPECT_EQ(Open(client, m_peer.Url("/u"), &m_stream), E_FAIL);
}

TEST_P(UploadStream, AFailedWriteIsLogged) {
    if (UnderWine()) {
        GTEST_SKIP() << kWineWritesMoreThanAnnounced;
    }
    m_stream.upload = "0123456789";
    m_stream.uploadLength = 4;  // the stream gives more than it announced
    LogCapture log(3);
    NetKernelBase client;
    EXPECT_EQ(Open(client, m_peer.Url("/u"), &m_stream), E_FAIL);
    EXPECT_EQ(log.CountPrefix("[Error] NetKernelBase::WriteStreamContent InternetWriteFile failed. Last error: "), 1u);
}

TEST_P(UploadStream, ACancelFails) {
    m_stream.upload = "0123456789";
    RecordingProgress progress;
    progress.cancelStage = "transmit";
    NetKernelBase client(nullptr, &progress);
    EXPECT_EQ(Open(client, m_peer.Url("/u"), &m_stream), E_FAIL);
}

TEST_P(UploadStream, AServerThatClosesAfterTheBodyFailsTheEnd) {
    if (UnderWine()) {
        GTEST_SKIP() << kWineTakesAClosedConnectionForAResponse;
    }
    m_peer.On("/u", PeerReply::CloseAtOnce());
    m_stream.upload = "x";
    LogCapture log(3);
    NetKernelBase client;
    EXPECT_EQ(Open(client, m_peer.Url("/u"), &m_stream), E_FAIL);
    EXPECT_TRUE(
        log.Contains(Text("[Error] NetKernelBase::SendUrlRequestImpl@ HttpEndRequest failed, last error: 12030")));
}

}  // namespace
}  // namespace kvmpd::test
