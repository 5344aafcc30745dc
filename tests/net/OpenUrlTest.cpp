#include "tests/net/NetFixture.h"

namespace kvmpd::test {
namespace {

using OpenUrl = BothTwins;
KV_FOR_BOTH_TWINS(OpenUrl);

TEST_P(OpenUrl, DeliversTheBodyToTheStream) {
    m_peer.On("/a", PeerReply::Ok(std::string(300'000, 'x'), {{"Content-Type", "video/mp4"}}));
    LogCapture log;
    NetKernelBase client;
    EXPECT_EQ(Open(client, m_peer.Url("/a?b"), &m_stream), S_OK);
    EXPECT_TRUE(m_stream.body == std::string(300'000, 'x'));
    EXPECT_EQ(m_stream.calls, (std::vector<std::string>{"length " + std::to_string(KnownLength(300'000)),
                                                        "type video/mp4", "complete"}));
    EXPECT_EQ(m_stream.blocks, (std::vector<DWORD>{131072, 131072, 37856}));
    EXPECT_EQ(log.Lines(), std::vector<std::string>{Text(" NetKernelBase::OpenUrl@ open URL: ") + m_peer.Url("/a?b")});
}

TEST_P(OpenUrl, SaysWhatItOpensAtLevel3) {
    m_peer.On("/a", PeerReply::Ok("x"));
    LogCapture log(3);
    NetKernelBase client;
    Open(client, m_peer.Url("/a"), &m_stream);
    EXPECT_EQ(log.Lines().size(), 1u);
}

TEST_P(OpenUrl, SendsAPlainGetWithItsHostAndAgent) {
    NetKernelBase client;
    Open(client, m_peer.Url("/a?b=c"), &m_stream);
    const PeerRequest request = m_peer.WaitForRequest(0);
    EXPECT_EQ(request.raw.substr(0, request.raw.find("\r\n")), "GET /a?b=c HTTP/1.1");
    EXPECT_EQ(request.Header("Host"), "127.0.0.1");
    EXPECT_EQ(request.Header("User-Agent"), "KV-NetKernel");
}

TEST_P(OpenUrl, AnErrorStatusIsASuccessWithItsBody) {
    m_peer.On("/a", PeerReply::Respond(404, "no such thing"));
    NetKernelBase client;
    EXPECT_EQ(Open(client, m_peer.Url("/a"), &m_stream), S_OK);
    EXPECT_EQ(m_stream.body, "no such thing");
}

TEST_P(OpenUrl, WithoutContentLengthAnyBodySucceeds) {
    for (const std::string body : {"", "something"}) {
        m_peer.Once("/a", PeerReply::NoLength(body));
        RecordingStream stream;
        NetKernelBase client;
        EXPECT_EQ(Open(client, m_peer.Url("/a"), &stream), S_OK);
        EXPECT_EQ(stream.calls, (std::vector<std::string>{"length 0", "type ", "complete"}));
        EXPECT_EQ(stream.body, body);
    }
}

TEST_P(OpenUrl, AnEmptyBodyIsNoBlock) {
    m_peer.On("/a", PeerReply::Ok(""));
    NetKernelBase client;
    EXPECT_EQ(Open(client, m_peer.Url("/a"), &m_stream), S_OK);
    EXPECT_TRUE(m_stream.blocks.empty());
    EXPECT_EQ(m_stream.calls.back(), "complete");
}

TEST_P(OpenUrl, TheStreamsVerdictOnItsCompletionIsNotAsked) {
    m_peer.On("/a", PeerReply::Ok("abc"));
    m_stream.completeResult = 0;
    NetKernelBase client;
    EXPECT_EQ(Open(client, m_peer.Url("/a"), &m_stream), S_OK);
}

TEST_P(OpenUrl, TheChunkSizeBoundsTheBlocks) {
    m_peer.On("/a", PeerReply::Ok("0123456789"));
    NetKernelBase client;
    client.SetReceiveChunkSize(4);
    EXPECT_EQ(Open(client, m_peer.Url("/a"), &m_stream), S_OK);
    EXPECT_EQ(m_stream.blocks, (std::vector<DWORD>{4, 4, 2}));
}

TEST_P(OpenUrl, TheGivenVerbIsUsed) {
    NetKernelBase client;
    Open(client, m_peer.Url("/a"), &m_stream, {.verb = "PROPFIND"});
    EXPECT_EQ(m_peer.WaitForRequest(0).method, "PROPFIND");
}

TEST_P(OpenUrl, WithoutAVerbItIsGetOrPost) {
    NetKernelBase client;
    Open(client, m_peer.Url("/a"), &m_stream, {.verb = nullptr});
    EXPECT_EQ(m_peer.WaitForRequest(0).method, "GET");
    Open(client, m_peer.Url("/a"), &m_stream, {.verb = ""});
    EXPECT_EQ(m_peer.WaitForRequest(1).method, "GET");
    Open(client, m_peer.Url("/a"), &m_stream, {.verb = "", .postData = "data"});
    EXPECT_EQ(m_peer.WaitForRequest(2).method, "POST");
}

// Bytes and their length make post data, one without the other does not.

TEST_P(OpenUrl, PostDataWithoutALengthIsNone) {
    NetKernelBase client;
    Open(client, m_peer.Url("/a"), &m_stream, {.verb = nullptr, .postBytes = "data", .postLength = 0});
    EXPECT_EQ(m_peer.WaitForRequest(0).method, "GET");
    EXPECT_EQ(m_peer.WaitForRequest(0).body, "");
}

TEST_P(OpenUrl, APostLengthWithoutDataIsNone) {
    NetKernelBase client;
    Open(client, m_peer.Url("/a"), &m_stream, {.verb = nullptr, .postBytes = nullptr, .postLength = 4});
    EXPECT_EQ(m_peer.WaitForRequest(0).method, "GET");
    EXPECT_FALSE(m_peer.WaitForRequest(0).HasHeader("Content-Length"));
}

TEST_P(OpenUrl, NeitherStandsInTheWayOfAnUploadStream) {
    m_stream.hasUpload = true;
    m_stream.upload = "from the stream";
    NetKernelBase client;
    Open(client, m_peer.Url("/a"), &m_stream, {.verb = "PUT", .postBytes = "data", .postLength = 0});
    Open(client, m_peer.Url("/a"), &m_stream, {.verb = "PUT", .postBytes = nullptr, .postLength = 4});
    EXPECT_EQ(m_peer.WaitForRequest(0).body, "from the stream");
    EXPECT_EQ(m_peer.WaitForRequest(1).body, "from the stream");
}

TEST_P(OpenUrl, AnUploadStreamAloneMakesNoPost) {
    m_stream.hasUpload = true;
    m_stream.upload = "from the stream";
    NetKernelBase client;
    Open(client, m_peer.Url("/a"), &m_stream, {.verb = nullptr});
    EXPECT_EQ(m_peer.WaitForRequest(0).method, "GET");
}

TEST_P(OpenUrl, GivenHeadersWithAHostAreSentAsTheyAre) {
    NetKernelBase client;
    Open(client, m_peer.Url("/a"), &m_stream, {.headers = "X-One: 1\r\nHost: other.example\r\n"});
    EXPECT_EQ(m_peer.WaitForRequest(0).Header("Host"), "other.example");
    EXPECT_EQ(m_peer.WaitForRequest(0).Header("X-One"), "1");
}

TEST_P(OpenUrl, GivenHeadersWithoutAHostLeaveItToThePlatform) {
    m_stream.customHeaders = "X-Stream: 1\r\n";  // not asked for
    NetKernelBase client;
    Open(client, m_peer.Url("/a"), &m_stream, {.headers = "X-One: 1\r\n"});
    const PeerRequest request = m_peer.WaitForRequest(0);
    EXPECT_EQ(request.Header("X-One"), "1");
    EXPECT_FALSE(request.HasHeader("X-Stream"));
    if (UnderWine()) {
        GTEST_SKIP() << kWineSendsAnEmptyHost;
    }
    EXPECT_EQ(request.Header("Host"), "127.0.0.1:" + std::to_string(m_peer.Port()));
}

TEST_P(OpenUrl, TheStreamMayGiveTheHeaders) {
    m_stream.customHeaders = "X-Stream: 1\r\nHost: by.stream\r\n";
    NetKernelBase client;
    Open(client, m_peer.Url("/a?b"), &m_stream);
    EXPECT_EQ(m_peer.WaitForRequest(0).Header("X-Stream"), "1");
    EXPECT_EQ(m_peer.WaitForRequest(0).Header("Host"), "by.stream");
    EXPECT_EQ(m_stream.host, "127.0.0.1");
    EXPECT_EQ(m_stream.path, "/a?b");
}

TEST_P(OpenUrl, AnObserverSeesTheStagesAndTheEnd) {
    m_peer.On("/a", PeerReply::Ok("0123456789"));
    RecordingProgress progress;
    NetKernelBase client(nullptr, &progress);
    client.SetReceiveChunkSize(6);
    EXPECT_EQ(Open(client, m_peer.Url("/a"), &m_stream), S_OK);
    const std::uint64_t length = KnownLength(10);
    EXPECT_EQ(progress.reports,
              (std::vector<RecordingProgress::Report>{
                  {"connect", 0, 0}, {"receive", 0, length}, {"receive", 6, length}, {"receive", 10, length}}));
    EXPECT_EQ(progress.completions, 1);
    EXPECT_EQ(progress.statusCode, 200u);
    EXPECT_EQ(progress.length, length);
    EXPECT_FALSE(progress.hadBuffer);
}

TEST_P(OpenUrl, AnObserverIsToldTheLastError) {
    m_peer.On("/a", PeerReply::Ok("abc"));
    m_stream.atComplete = [] { SetLastError(4321); };
    RecordingProgress progress;
    NetKernelBase client(nullptr, &progress);
    EXPECT_EQ(Open(client, m_peer.Url("/a"), &m_stream), S_OK);
    EXPECT_EQ(progress.lastError, 4321u);
}

TEST_P(OpenUrl, AnObserverMayCancelTheConnection) {
    RecordingProgress progress;
    progress.cancelStage = "connect";
    NetKernelBase client(nullptr, &progress);
    EXPECT_EQ(Open(client, m_peer.Url("/a"), &m_stream), E_FAIL);
    EXPECT_EQ(m_peer.RequestCount(), 0u);
    EXPECT_EQ(progress.completions, 0);
}

TEST_P(OpenUrl, AnObserverMayCancelTheBody) {
    m_peer.On("/a", PeerReply::Ok("0123456789"));
    RecordingProgress progress;
    progress.cancelStage = "receive";
    progress.cancelFrom = 4;
    NetKernelBase client(nullptr, &progress);
    client.SetReceiveChunkSize(4);
    const HRESULT result = Open(client, m_peer.Url("/a"), &m_stream);
    EXPECT_EQ(m_stream.body, "0123");
    EXPECT_EQ(m_stream.calls.back(), "complete");
    if (UnderWine()) {
        GTEST_SKIP() << kWineKnowsNoLength;
    }
    EXPECT_EQ(result, E_FAIL);
}

TEST_P(OpenUrl, AnObserverThatCancelsAtTheEndChangesNothing) {
    m_peer.On("/a", PeerReply::Ok("0123456789"));
    RecordingProgress progress;
    progress.cancelStage = "receive";
    progress.cancelFrom = 10;
    NetKernelBase client(nullptr, &progress);
    EXPECT_EQ(Open(client, m_peer.Url("/a"), &m_stream), S_OK);
    EXPECT_EQ(progress.completions, 1);
}

}  // namespace
}  // namespace kvmpd::test
