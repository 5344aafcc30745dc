#include "tests/platform/wininet/WininetExchange.h"

namespace kvmpd::test {
namespace {

constexpr char kWineTakesNonsense[] = "Wine takes whatever comes for a response";

DWORD ErrorOf(const PeerReply& reply) {
    ScriptedPeer peer;
    peer.On("/e", reply);
    Exchange exchange(peer.Port(), "/e");
    return exchange.Send();
}

TEST(HttpSendRequestErrors, NobodyListens) {
    Exchange exchange(RefusedPort(), "/");
    EXPECT_EQ(exchange.Send(), ERROR_INTERNET_CANNOT_CONNECT);
}

TEST(HttpSendRequestErrors, ANameThatCannotExistIsNotResolved) {
    const std::string host = std::string(64, 'a') + ".invalid";  // a label too long for the name service to be asked
    Exchange exchange(80, "/", "GET", 0, host.c_str());
    EXPECT_EQ(exchange.Send(), ERROR_INTERNET_NAME_NOT_RESOLVED);
}

TEST(HttpSendRequestErrors, AServerThatSaysNothingTimesOut) {
    if (UnderWine()) {
        GTEST_SKIP() << kWineTellsSocketErrors;
    }
    ScriptedPeer peer;
    peer.On("/e", PeerReply::StallAtOnce());
    Exchange exchange(peer.Port(), "/e");
    ASSERT_EQ(exchange.SetTimeout(INTERNET_OPTION_RECEIVE_TIMEOUT, 80), 0u);
    EXPECT_EQ(exchange.Send(), ERROR_INTERNET_TIMEOUT);
}

TEST(HttpSendRequestErrors, AServerThatStopsInTheHeadersTimesOut) {
    if (UnderWine()) {
        GTEST_SKIP() << "Wine takes headers that stop half-way for the whole of them";
    }
    ScriptedPeer peer;
    peer.On("/e", PeerReply::Raw("HTTP/1.1 200 OK\r\nContent-").Stall());
    Exchange exchange(peer.Port(), "/e");
    ASSERT_EQ(exchange.SetTimeout(INTERNET_OPTION_RECEIVE_TIMEOUT, 80), 0u);
    EXPECT_EQ(exchange.Send(), ERROR_INTERNET_TIMEOUT);
}

TEST(HttpSendRequestErrors, AConnectionClosedWithoutAByteIsAborted) {
    if (UnderWine()) {
        GTEST_SKIP() << kWineTakesAClosedConnectionForAResponse;
    }
    EXPECT_EQ(ErrorOf(PeerReply::CloseAtOnce()), ERROR_INTERNET_CONNECTION_ABORTED);
}

TEST(HttpSendRequestErrors, AConnectionResetWithoutAByteIsReset) {
    if (UnderWine()) {
        GTEST_SKIP() << kWineTellsSocketErrors;
    }
    EXPECT_EQ(ErrorOf(PeerReply::ResetAtOnce()), ERROR_INTERNET_CONNECTION_RESET);
}

TEST(HttpSendRequestErrors, GarbageIsAnInvalidResponse) {
    if (UnderWine()) {
        GTEST_SKIP() << kWineTakesNonsense;
    }
    EXPECT_EQ(ErrorOf(PeerReply::Raw("\x01\x02 this is no status line at all\r\n\r\nand so on")),
              ERROR_HTTP_INVALID_SERVER_RESPONSE);
}

TEST(HttpSendRequestErrors, ALengthThatIsNoNumberIsAnInvalidResponse) {
    if (UnderWine()) {
        GTEST_SKIP() << kWineTakesNonsense;
    }
    EXPECT_EQ(ErrorOf(PeerReply::Raw("HTTP/1.1 200 OK\r\nContent-Length: -5\r\n\r\nabc")),
              ERROR_HTTP_INVALID_SERVER_RESPONSE);
}

TEST(HttpSendRequestErrors, HeadersWithoutEndAreAnInvalidResponse) {
    if (UnderWine()) {
        GTEST_SKIP() << kWineTakesNonsense;
    }
    std::string text = "HTTP/1.1 200 OK\r\n";
    for (int i = 0; i < 40'000; ++i) {
        text += "X-Filler: more and more\r\n";
    }
    EXPECT_EQ(ErrorOf(PeerReply::Raw(text)), ERROR_HTTP_INVALID_SERVER_RESPONSE);
}

TEST(HttpSendRequestErrors, AfterAFailureThereIsNoStatus) {
    Exchange exchange(RefusedPort(), "/");
    EXPECT_NE(exchange.Send(), 0u);
    if (UnderWine()) {
        GTEST_SKIP() << kWineAnswersFailedRequests;
    }
    DWORD status = 0;
    DWORD size = sizeof(status);
    EXPECT_FALSE(HttpQueryInfoA(exchange.request.get(), HTTP_QUERY_STATUS_CODE | HTTP_QUERY_FLAG_NUMBER, &status, &size,
                                nullptr));
}

TEST(HttpSendRequestErrors, AHostThatWouldChangeTheUrlIsRefused) {
    if (UnderWine()) {
        GTEST_SKIP() << "Wine takes any text for a host until it looks it up";
    }
    const Internet session(InternetOpenA("a", INTERNET_OPEN_TYPE_PRECONFIG, nullptr, nullptr, 0));
    for (const char* host : {"a/b", "user@host", "a?b", "a#b", "a b"}) {
        const Internet connection(
            InternetConnectA(session.get(), host, 80, nullptr, nullptr, INTERNET_SERVICE_HTTP, 0, 1));
        EXPECT_FALSE(connection) << host;
        EXPECT_EQ(GetLastError(), ERROR_INTERNET_INVALID_URL) << host;
    }
}

}  // namespace
}  // namespace kvmpd::test
