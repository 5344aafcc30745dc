#include "tests/platform/wininet/WininetExchange.h"

namespace kvmpd::test {
namespace {

TEST(Redirects, AreFollowedToTheFinalResponse) {
    ScriptedPeer peer;
    ScriptedPeer other;
    peer.On("/a", PeerReply::Redirect("/b?c"));
    peer.On("/b", PeerReply::Redirect(other.Url("/end"), 307));
    other.On("/end", PeerReply::Ok("there", {{"X-End", "1"}}));
    Exchange exchange(peer.Port(), "/a");
    ASSERT_EQ(exchange.Send(), 0u);
    EXPECT_EQ(exchange.Status(), 200u);
    EXPECT_EQ(exchange.Body(), "there");
    EXPECT_EQ(peer.WaitForRequest(1).target, "/b?c");
}

TEST(Redirects, BodiesOfRedirectsAreNotDelivered) {
    ScriptedPeer peer;
    peer.On("/a", PeerReply::Respond(302, "<a>moved</a>", {{"Location", "/b"}}));
    peer.On("/b", PeerReply::Ok("there"));
    Exchange exchange(peer.Port(), "/a");
    ASSERT_EQ(exchange.Send(), 0u);
    EXPECT_EQ(exchange.Body(), "there");
}

TEST(Redirects, ALoopFails) {
    if (UnderWine()) {
        GTEST_SKIP() << "Wine follows redirects without end";
    }
    ScriptedPeer peer;
    peer.On("/a", PeerReply::Redirect("/b"));
    peer.On("/b", PeerReply::Redirect("/a"));
    Exchange exchange(peer.Port(), "/a");
    EXPECT_EQ(exchange.Send(), ERROR_HTTP_REDIRECT_FAILED);
    EXPECT_LT(peer.RequestCount(), 20u);
}

TEST(Redirects, AnotherSchemeIsNotFollowed) {
    if (UnderWine()) {
        GTEST_SKIP() << "Wine gives the redirect itself for the response";
    }
    for (const char* location : {"ftp://127.0.0.1/x", "file:///etc/hostname", "gopher://127.0.0.1/x"}) {
        ScriptedPeer peer;
        peer.On("/a", PeerReply::Redirect(location));
        Exchange exchange(peer.Port(), "/a");
        EXPECT_EQ(exchange.Send(), ERROR_HTTP_REDIRECT_FAILED) << location;
    }
}

TEST(Redirects, OneWithoutALocationIsTheResponse) {
    ScriptedPeer peer;
    peer.On("/a", PeerReply::Respond(302, "choose"));
    Exchange exchange(peer.Port(), "/a");
    ASSERT_EQ(exchange.Send(), 0u);
    EXPECT_EQ(exchange.Status(), 302u);
    EXPECT_EQ(exchange.Body(), "choose");
}

}  // namespace
}  // namespace kvmpd::test
