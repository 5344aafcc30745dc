// What the client asks of the platform, and what it makes of a platform that fails.
#include "tests/net/PlatformCalls.h"

#include "tests/net/NetFixture.h"
#include "tests/support/LogLevels.h"

namespace kvmpd::test {
namespace {

constexpr DWORD kProxyOption = 38;
constexpr DWORD kReceiveTimeoutOption = 6;
constexpr DWORD kSendTimeoutOption = 5;
constexpr DWORD kSomeError = 12004;

class Calls : public BothTwins {
  protected:
    HRESULT OpenA(const RequestOptions& options = {}) { return Open(m_client, m_peer.Url("/a"), &m_stream, options); }
    std::string Host() const { return "127.0.0.1 " + std::to_string(m_peer.Port()); }
    static HWND Window() { return reinterpret_cast<HWND>(static_cast<std::uintptr_t>(0x10010)); }

    PlatformCalls m_calls;
    LogCapture m_log{6};
    RecordingProgress m_progress;
    NetKernelBase m_client{Window(), &m_progress};
};
KV_FOR_BOTH_TWINS(Calls);

TEST_P(Calls, OfAPlainRequest) {
    m_peer.On("/a", PeerReply::Ok("abc"));
    EXPECT_EQ(OpenA(), S_OK);
    EXPECT_EQ(m_calls.calls,
              (std::vector<std::string>{"InternetOpen KV-NetKernel 0", "InternetConnect " + Host() + " 3 0 1",
                                        "HttpOpenRequest GET /a 0x00080800 1", "option 6 = 30000", "close request",
                                        "close connection", "close session"}));
    EXPECT_EQ(m_calls.headers, std::vector<std::string>{"Host: 127.0.0.1\r\n\r\n"});
}

TEST_P(Calls, OfASecureRequest) {
    m_calls.openRequestError = kSomeError;
    EXPECT_EQ(Open(m_client, "https://127.0.0.1/a", &m_stream), E_FAIL);
    EXPECT_TRUE(m_calls.Called("InternetConnect 127.0.0.1 443 3 0 1"));
    EXPECT_TRUE(m_calls.Called("HttpOpenRequest GET /a 0x00880800 1"));
}

TEST_P(Calls, GivenHeadersWithoutAHostGetItsNameInFront) {
    OpenA({.headers = "X-One: 1\r\n"});
    OpenA({.headers = "X-One: 1\r\nHost: other.example\r\n"});
    EXPECT_EQ(m_calls.headers,
              (std::vector<std::string>{"Host: \r\nX-One: 1\r\n", "X-One: 1\r\nHost: other.example\r\n"}));
}

TEST_P(Calls, TheReceiveTimeOutIs30000UnlessSet) {
    m_client.SetReceiveTimeout(0);
    OpenA();
    m_client.SetReceiveTimeout(1234);
    OpenA();
    EXPECT_TRUE(m_calls.Called("option 6 = 30000"));
    EXPECT_TRUE(m_calls.Called("option 6 = 1234"));
    EXPECT_EQ(m_calls.CountPrefix("option 5"), 0u) << "the send time-out is the platform's unless set";
}

TEST_P(Calls, AReceiveTimeOutThatCannotBeSetIsNotTold) {
    m_peer.On("/a", PeerReply::Ok("abc"));
    m_calls.optionErrors[kReceiveTimeoutOption] = kSomeError;
    EXPECT_EQ(OpenA(), S_OK);
    EXPECT_EQ(m_log.Lines().size(), 1u);
}

TEST_P(Calls, ASendTimeOutThatCannotBeSetIsToldAndNotMinded) {
    m_peer.On("/a", PeerReply::Ok("abc"));
    m_client.SetSendTimeout(77);
    m_calls.optionErrors[kSendTimeoutOption] = kSomeError;
    EXPECT_EQ(OpenA(), S_OK);
    EXPECT_TRUE(m_calls.Called("option 5 = 77"));
    EXPECT_TRUE(m_log.Contains(Text(" NetKernelBase::SendUrlRequestImpl@ Set send timeout to: 77 Success: False")));
}

TEST_P(Calls, AProxyThatCannotBeDisabledIsToldAndNotMinded) {
    m_peer.On("/a", PeerReply::Ok("abc"));
    m_calls.optionErrors[kProxyOption] = kSomeError;
    EXPECT_EQ(OpenA({.disableProxy = 1}), S_OK);
    EXPECT_TRUE(m_calls.Called("proxy 1"));
    EXPECT_TRUE(m_log.Contains(Text(" NetKernelBase::SendUrlRequestImpl@ Disable proxy. Success: False")));
}

TEST_P(Calls, ANamedProxyThatCannotBeSetFails) {
    m_calls.optionErrors[kProxyOption] = kSomeError;
    EXPECT_EQ(OpenA({.proxy = L"127.0.0.1:1"}), E_FAIL);
    EXPECT_TRUE(m_calls.Called("proxy 3 127.0.0.1:1"));
    EXPECT_EQ(m_calls.CountPrefix("option"), 0u);
    EXPECT_EQ(m_calls.CountPrefix("close"), 3u);
    EXPECT_EQ(m_peer.RequestCount(), 0u);
}

TEST_P(Calls, ASessionThatCannotBeOpenedFails) {
    m_calls.openError = kSomeError;
    EXPECT_EQ(OpenA(), E_FAIL);
    EXPECT_TRUE(
        m_log.Contains(Text("[Error] NetKernelBase::PrepareConnection@ InternetOpen failed, last error: 12004")));
    EXPECT_EQ(m_calls.calls, std::vector<std::string>{"InternetOpen KV-NetKernel 0"});
}

TEST_P(Calls, ARequestThatCannotBeOpenedFailsAndClosesTheOthers) {
    m_calls.openRequestError = kSomeError;
    EXPECT_EQ(OpenA(), E_FAIL);
    EXPECT_TRUE(
        m_log.Contains(Text("[Error] NetKernelBase::PrepareConnection@ HttpOpenRequest failed, last error: 12004")));
    EXPECT_EQ(std::vector<std::string>(m_calls.calls.end() - 2, m_calls.calls.end()),
              (std::vector<std::string>{"close connection", "close session"}));
}

/// By a proxy that answers.
class ProxyCalls : public Calls {
  protected:
    HRESULT OpenByProxy() {
        m_peer.On("/x", PeerReply::Ok("by the proxy"));
        const std::wstring address = L"127.0.0.1:" + std::to_wstring(m_peer.Port());
        return Open(m_client, "http://far.example/x", &m_stream, {.proxy = address.c_str()});
    }
};
KV_FOR_BOTH_TWINS(ProxyCalls);

TEST_P(ProxyCalls, TheDialogIsShownInTheWindowWithTheLastError) {
    SetLastError(0);
    EXPECT_EQ(OpenByProxy(), S_OK);
    EXPECT_TRUE(m_calls.Called("InternetErrorDlg 65552 0 7"));
}

TEST_P(ProxyCalls, ADialogThatAsksForAnotherAttemptLetsItThrough) {
    m_calls.dialogAnswer = 12032;
    EXPECT_EQ(OpenByProxy(), S_OK);
    EXPECT_EQ(m_stream.body, "by the proxy");
    EXPECT_TRUE(m_log.Contains(Text(" NetKernelBase::SendHttpReq@ InternetErrorDlg result: 0x00002F00")));
}

TEST_P(ProxyCalls, AnyOtherAnswerSendsNothing) {
    for (const DWORD answer : {1u, 1223u, 12031u, 12033u}) {
        m_calls.dialogAnswer = answer;
        EXPECT_EQ(OpenByProxy(), E_FAIL) << answer;
    }
    EXPECT_EQ(m_peer.RequestCount(), 0u);
    EXPECT_TRUE(m_calls.headers.empty());
}

TEST(PlatformCallLevels, OfWhatCannotBeOpened) {
    ExpectLevels({{3, "[Error] NetKernelBase::PrepareConnection InternetOpen failed, last error: 12004"},
                  {3, "[Error] NetKernelBase::PrepareConnection HttpOpenRequest failed, last error: 12004"},
                  {4, " NetKernelBase::SendUrlRequestImpl Disable proxy. Success: False"},
                  {5, " NetKernelBase::SetSendTimeout to: 7"},
                  {4, " NetKernelBase::SendUrlRequestImpl Set send timeout to: 7 Success: False"},
                  {3, " NetKernelBase::OpenUrl open URL: *"},
                  {3, "[Error] NetKernelBase::OpenUrl Fail to send URL request: *"}},
                 {"NetKernelBase::"}, [] {
                     const ScriptedPeer peer;
                     PlatformCalls calls;
                     NetKernelBase client;
                     client.SetSendTimeout(7);
                     calls.optionErrors = {{kProxyOption, kSomeError}, {kSendTimeoutOption, kSomeError}};
                     const auto open = [&] {
                         client.OpenUrl(peer.Url("/").c_str(), "GET", nullptr, /*disableProxy=*/1, nullptr, nullptr,
                                        nullptr, 0, nullptr);
                     };
                     open();
                     calls.openRequestError = kSomeError;
                     open();
                     calls.openError = kSomeError;
                     open();
                 });
}

// Whether there is a response is for the response to say.

TEST_P(Calls, ASendThatFailedIsNotMindedWhenThereIsAResponse) {
    m_peer.On("/a", PeerReply::Ok("abc"));
    m_calls.sendError = kSomeError;
    EXPECT_EQ(OpenA(), S_OK);
    EXPECT_EQ(m_stream.body, "abc");
    EXPECT_TRUE(
        m_log.Contains(Text("[Error] NetKernelBase::SendUrlRequestImpl@ SendHttpReq failed, last error: 12004")));
    EXPECT_EQ(m_progress.completions, 1);
}

TEST_P(Calls, AResponseWithoutAStatusFails) {
    m_peer.On("/a", PeerReply::Ok("abc"));
    m_calls.statusError = kSomeError;
    EXPECT_EQ(OpenA(), E_FAIL);
    EXPECT_TRUE(m_log.Contains("[Error] NetKernelBase::QueryResponseInfo Status code query failed, error code: 12004"));
    EXPECT_TRUE(m_log.Contains(Text("[Error] NetKernelBase::SendUrlRequestImpl@ QueryResponseInfo failed.")));
    EXPECT_TRUE(m_stream.calls.empty());
}

TEST_P(Calls, AnUploadCountsAsSentAlsoWithoutAStatus) {
    m_peer.On("/a", PeerReply::Ok("thanks"));
    m_stream.hasUpload = true;
    m_stream.upload = "data";
    m_calls.statusError = kSomeError;
    EXPECT_EQ(OpenA(), S_OK);
    EXPECT_TRUE(m_log.Contains(Text("[Error] NetKernelBase::SendUrlRequestImpl@ QueryResponseInfo failed.")));
    EXPECT_EQ(m_stream.body, "thanks");
    EXPECT_EQ(m_stream.calls, std::vector<std::string>{"complete"});
    EXPECT_EQ(m_progress.statusCode, 0u);
}

TEST_P(Calls, PostDataDoesNotCountAsSentWithoutAStatus) {
    m_peer.On("/a", PeerReply::Ok("thanks"));
    m_calls.statusError = kSomeError;
    EXPECT_EQ(OpenA({.postData = "data"}), E_FAIL);
}

}  // namespace
}  // namespace kvmpd::test
