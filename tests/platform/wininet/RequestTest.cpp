#include "tests/platform/wininet/WininetExchange.h"

namespace kvmpd::test {
namespace {

TEST(HttpSendRequest, SendsTheRequestLineTheAgentAndTheHost) {
    ScriptedPeer peer;
    peer.On("/a", PeerReply::Ok("x"));
    Exchange exchange(peer.Port(), "/a?b=c/d");
    ASSERT_EQ(exchange.Send(), 0u);
    const PeerRequest request = peer.WaitForRequest(0);
    EXPECT_EQ(request.raw.substr(0, request.raw.find("\r\n")), "GET /a?b=c/d HTTP/1.1");
    EXPECT_EQ(request.Header("User-Agent"), "agent/1");
    EXPECT_EQ(request.Header("Host"), "127.0.0.1:" + std::to_string(peer.Port()));
}

TEST(HttpSendRequest, AddsNoHeaderNobodyAskedFor) {
    ScriptedPeer peer;
    peer.On("/a", PeerReply::Ok("x"));
    Exchange exchange(peer.Port(), "/a");
    ASSERT_EQ(exchange.Send(), 0u);
    for (const char* name : {"Accept", "Accept-Encoding", "Expect", "Cookie", "Content-Type", "Referer"}) {
        EXPECT_FALSE(peer.WaitForRequest(0).HasHeader(name)) << name;
    }
}

TEST(HttpSendRequest, TheCallersHeadersAreSentAsGiven) {
    ScriptedPeer peer;
    peer.On("/a", PeerReply::Ok("x"));
    Exchange exchange(peer.Port(), "/a");
    ASSERT_EQ(exchange.Send("Host: other.example\r\nX-One: 1\r\nAccept: text/xml\r\n\r\n"), 0u);
    const PeerRequest request = peer.WaitForRequest(0);
    EXPECT_EQ(request.Header("Host"), "other.example");
    EXPECT_EQ(request.Header("X-One"), "1");
    EXPECT_EQ(request.Header("Accept"), "text/xml");
}

TEST(HttpSendRequest, AHostWithoutAValueLeavesTheRealOne) {
    ScriptedPeer peer;
    peer.On("/a", PeerReply::Ok("x"));
    Exchange exchange(peer.Port(), "/a");
    ASSERT_EQ(exchange.Send("Host: \r\nX-One: 1\r\n"), 0u);
    const PeerRequest request = peer.WaitForRequest(0);
    EXPECT_EQ(request.Header("X-One"), "1");
    if (UnderWine()) {
        GTEST_SKIP() << kWineSendsAnEmptyHost;
    }
    EXPECT_EQ(request.Header("Host"), "127.0.0.1:" + std::to_string(peer.Port()));
}

TEST(HttpSendRequest, ALengthOfMinusOneMeansTerminatedText) {
    ScriptedPeer peer;
    peer.On("/a", PeerReply::Ok("x"));
    Exchange exchange(peer.Port(), "/a");
    ASSERT_TRUE(HttpSendRequestA(exchange.request.get(), "X-One: 1\r\n", static_cast<DWORD>(-1), nullptr, 0));
    EXPECT_EQ(peer.WaitForRequest(0).Header("X-One"), "1");
}

TEST(HttpSendRequest, AnEmptyPathIsTheRoot) {
    ScriptedPeer peer;
    peer.On("/", PeerReply::Ok("root"));
    Exchange exchange(peer.Port(), "");
    ASSERT_EQ(exchange.Send(), 0u);
    EXPECT_EQ(exchange.Body(), "root");
}

TEST(HttpSendRequest, APathKeepsItsEscapes) {
    ScriptedPeer peer;
    Exchange exchange(peer.Port(), "/b/c%20d%2Fe");
    ASSERT_EQ(exchange.Send(), 0u);
    EXPECT_EQ(peer.WaitForRequest(0).target, "/b/c%20d%2Fe");
}

TEST(HttpSendRequest, APathKeepsItsDots) {
    if (UnderWine()) {
        GTEST_SKIP() << "Wine takes the dots out of a path";
    }
    ScriptedPeer peer;
    Exchange exchange(peer.Port(), "/a/../b/./c");
    ASSERT_EQ(exchange.Send(), 0u);
    EXPECT_EQ(peer.WaitForRequest(0).target, "/a/../b/./c");
}

TEST(HttpSendRequest, BlanksInAPathAreEscaped) {
    ScriptedPeer peer;
    Exchange exchange(peer.Port(), "/a b");
    ASSERT_EQ(exchange.Send(), 0u);
    EXPECT_EQ(peer.WaitForRequest(0).target, "/a%20b");
}

TEST(HttpSendRequest, OptionalDataIsTheBody) {
    ScriptedPeer peer;
    peer.On("/p", PeerReply::Ok("thanks"));
    Exchange exchange(peer.Port(), "/p", "POST");
    ASSERT_EQ(exchange.Send("", "some data"), 0u);
    const PeerRequest request = peer.WaitForRequest(0);
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.Header("Content-Length"), "9");
    EXPECT_EQ(request.body, "some data");
    EXPECT_EQ(exchange.Body(), "thanks");
}

TEST(HttpSendRequest, HeadHasNoBody) {
    ScriptedPeer peer;
    peer.On("/h", PeerReply::Head(100));
    Exchange exchange(peer.Port(), "/h", "HEAD");
    ASSERT_EQ(exchange.Send(), 0u);
    EXPECT_EQ(peer.WaitForRequest(0).method, "HEAD");
    EXPECT_EQ(exchange.Body(), "");
}

TEST(HttpSendRequest, AnotherVerbIsSentAsGiven) {
    ScriptedPeer peer;
    Exchange exchange(peer.Port(), "/h", "PROPFIND");
    ASSERT_EQ(exchange.Send(), 0u);
    EXPECT_EQ(peer.WaitForRequest(0).method, "PROPFIND");
}

TEST(HttpSendRequest, TheWideTwinSendsTheSame) {
    ScriptedPeer peer;
    peer.On("/w", PeerReply::Ok("wide"));
    const Internet session(InternetOpenW(L"agent/W", INTERNET_OPEN_TYPE_PRECONFIG, nullptr, nullptr, 0));
    const Internet connection(
        InternetConnectW(session.get(), L"127.0.0.1", peer.Port(), nullptr, nullptr, INTERNET_SERVICE_HTTP, 0, 1));
    const Internet request(HttpOpenRequestW(connection.get(), L"GET", L"/w", nullptr, nullptr, nullptr, 0, 1));
    ASSERT_TRUE(HttpSendRequestW(request.get(), L"X-One: 1\r\n", static_cast<DWORD>(-1), nullptr, 0));
    EXPECT_EQ(peer.WaitForRequest(0).Header("User-Agent"), "agent/W");
    EXPECT_EQ(peer.WaitForRequest(0).Header("X-One"), "1");
}

TEST(HttpSendRequest, ReturnsWhenTheHeadersAreThere) {
    ScriptedPeer peer;
    peer.On("/s", PeerReply::Head(5).Stall().Send("later"));
    Exchange exchange(peer.Port(), "/s");
    ASSERT_EQ(exchange.Send(), 0u);
    EXPECT_EQ(exchange.Status(), 200u);
    peer.Release();
    EXPECT_EQ(exchange.Body(), "later");
}

TEST(HttpSendRequest, AnInterimResponseIsNotTheResponse) {
    if (UnderWine()) {
        GTEST_SKIP() << "Wine takes an interim response for the response";
    }
    ScriptedPeer peer;
    peer.On("/i", PeerReply::Raw("HTTP/1.1 103 Early Hints\r\nX-Early: 1\r\n\r\n"
                                 "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok"));
    Exchange exchange(peer.Port(), "/i");
    ASSERT_EQ(exchange.Send(), 0u);
    EXPECT_EQ(exchange.Status(), 200u);
    EXPECT_EQ(exchange.Body(), "ok");
}

TEST(HttpSendRequest, EachRequestHasAConnectionOfItsOwn) {
    ScriptedPeer peer;
    peer.On("/c", PeerReply::Ok("x"));
    for (size_t i = 1; i <= 3; ++i) {
        {
            Exchange exchange(peer.Port(), "/c");
            ASSERT_EQ(exchange.Send(), 0u);
            EXPECT_EQ(exchange.Body(), "x");
        }
        EXPECT_TRUE(peer.WaitForClosed(i));
    }
}

}  // namespace
}  // namespace kvmpd::test
