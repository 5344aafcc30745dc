#include <atomic>

#include "tests/platform/wininet/WininetExchange.h"

namespace kvmpd::test {
namespace {

std::string Pattern(size_t size) {
    std::string text(size, '\0');
    for (size_t i = 0; i < size; ++i) {
        text[i] = static_cast<char>((i * 131 + i / 251) & 0xFF);
    }
    return text;
}

TEST(InternetReadFile, DeliversTheBodyByteForByte) {
    const std::string body = Pattern(3'000'001);
    ScriptedPeer peer;
    peer.On("/b", PeerReply::Ok(body));
    for (const DWORD block : {1000u, 4096u, 131072u, 5'000'000u}) {
        Exchange exchange(peer.Port(), "/b");
        ASSERT_EQ(exchange.Send(), 0u);
        std::string received;
        EXPECT_EQ(exchange.ReadAll(received, block), 0u);
        EXPECT_TRUE(received == body) << block;
    }
}

TEST(InternetReadFile, FillsTheBufferUnlessTheBodyEnds) {
    ScriptedPeer peer;
    peer.On("/b", PeerReply::Head(7).Drip("abcdefg", 1, std::chrono::milliseconds(2)));
    Exchange exchange(peer.Port(), "/b");
    ASSERT_EQ(exchange.Send(), 0u);
    std::string block;
    EXPECT_EQ(exchange.Read(5, block), 0u);
    EXPECT_EQ(block, "abcde");
    EXPECT_EQ(exchange.Read(5, block), 0u);
    EXPECT_EQ(block, "fg");
    EXPECT_EQ(exchange.Read(5, block), 0u);
    EXPECT_EQ(block, "");
}

TEST(InternetReadFile, TheEndIsReadAsOftenAsOneLikes) {
    ScriptedPeer peer;
    peer.On("/b", PeerReply::Ok("abc"));
    Exchange exchange(peer.Port(), "/b");
    ASSERT_EQ(exchange.Send(), 0u);
    EXPECT_EQ(exchange.Body(), "abc");
    EXPECT_EQ(exchange.Body(), "");
    EXPECT_EQ(exchange.Body(), "");
}

TEST(InternetReadFile, ReadingNothingSucceeds) {
    ScriptedPeer peer;
    peer.On("/b", PeerReply::Ok("abc"));
    Exchange exchange(peer.Port(), "/b");
    ASSERT_EQ(exchange.Send(), 0u);
    std::string block;
    EXPECT_EQ(exchange.Read(0, block), 0u);
    EXPECT_EQ(exchange.Body(), "abc");
}

TEST(InternetReadFile, WithoutLengthTheBodyEndsWithTheConnection) {
    ScriptedPeer peer;
    peer.On("/b", PeerReply::NoLength(Pattern(100'000)));
    Exchange exchange(peer.Port(), "/b");
    ASSERT_EQ(exchange.Send(), 0u);
    EXPECT_TRUE(exchange.Body() == Pattern(100'000));
}

TEST(InternetReadFile, ChunkedBodiesAreJoined) {
    ScriptedPeer peer;
    peer.On("/b", PeerReply::Chunked({"one ", "two ", "three"}));
    Exchange exchange(peer.Port(), "/b");
    ASSERT_EQ(exchange.Send(), 0u);
    EXPECT_EQ(exchange.Body(), "one two three");
}

TEST(InternetReadFile, CompressedBodiesAreDeliveredAsSent) {
    ScriptedPeer peer;
    peer.On("/b", PeerReply::Ok("\x1f\x8bnot really", {{"Content-Encoding", "gzip"}}));
    Exchange exchange(peer.Port(), "/b");
    ASSERT_EQ(exchange.Send(), 0u);
    EXPECT_EQ(exchange.Body(), "\x1f\x8bnot really");
}

TEST(InternetReadFile, ATruncatedBodyIsDeliveredBeforeItsError) {
    ScriptedPeer peer;
    peer.On("/b", PeerReply::Truncated("abcdef", 100));
    Exchange exchange(peer.Port(), "/b");
    ASSERT_EQ(exchange.Send(), 0u);
    std::string block;
    EXPECT_EQ(exchange.Read(50, block), 0u);
    EXPECT_EQ(block, "abcdef");
    if (UnderWine()) {
        GTEST_SKIP() << kWineEndsAShortBody;
    }
    EXPECT_EQ(exchange.Read(50, block), ERROR_INTERNET_CONNECTION_ABORTED);
    EXPECT_EQ(exchange.Read(50, block), ERROR_INTERNET_CONNECTION_ABORTED);
}

TEST(InternetReadFile, AResetInTheBodyIsAReset) {
    if (UnderWine()) {
        GTEST_SKIP() << "Wine tells a reset in the body as 10054, or ends the body like a whole one";
    }
    ScriptedPeer peer;
    peer.On("/b", PeerReply::Head(100).Stall().Reset());
    Exchange exchange(peer.Port(), "/b");
    ASSERT_EQ(exchange.Send(), 0u);
    peer.Release();
    std::string block;
    EXPECT_EQ(exchange.Read(50, block), ERROR_INTERNET_CONNECTION_RESET);
}

TEST(InternetReadFile, SilenceForTheReceiveTimeOutEndsIt) {
    if (UnderWine()) {
        GTEST_SKIP() << "Wine loses what came before the silence; " << kWineTellsSocketErrors;
    }
    ScriptedPeer peer;
    peer.On("/b", PeerReply::Head(100).Send("abc").Stall());
    Exchange exchange(peer.Port(), "/b");
    ASSERT_EQ(exchange.SetTimeout(INTERNET_OPTION_RECEIVE_TIMEOUT, 100), 0u);
    ASSERT_EQ(exchange.Send(), 0u);
    std::string block;
    EXPECT_EQ(exchange.Read(50, block), 0u);
    EXPECT_EQ(block, "abc");
    EXPECT_EQ(exchange.Read(50, block), ERROR_INTERNET_TIMEOUT);
}

TEST(InternetReadFile, ASlowBodyIsNotSilence) {
    ScriptedPeer peer;
    // Longer than the time-out as a whole, shorter between two bytes, with room for a busy machine.
    peer.On("/b", PeerReply::Head(40).Drip(std::string(40, 'x'), 1, std::chrono::milliseconds(20)));
    Exchange exchange(peer.Port(), "/b");
    ASSERT_EQ(exchange.SetTimeout(INTERNET_OPTION_RECEIVE_TIMEOUT, 600), 0u);
    ASSERT_EQ(exchange.Send(), 0u);
    EXPECT_EQ(exchange.Body(), std::string(40, 'x'));
}

TEST(InternetReadFile, ATimeOutOfTheSessionHoldsForItsRequests) {
    if (UnderWine()) {
        GTEST_SKIP() << "Wine does not hand a session's time-outs down to its requests";
    }
    ScriptedPeer peer;
    peer.On("/b", PeerReply::StallAtOnce());
    const Internet session(InternetOpenA("a", INTERNET_OPEN_TYPE_PRECONFIG, nullptr, nullptr, 0));
    DWORD value = 50;
    ASSERT_TRUE(InternetSetOptionA(session.get(), INTERNET_OPTION_RECEIVE_TIMEOUT, &value, sizeof(value)));
    const Internet connection(
        InternetConnectA(session.get(), "127.0.0.1", peer.Port(), nullptr, nullptr, INTERNET_SERVICE_HTTP, 0, 1));
    const Internet request(HttpOpenRequestA(connection.get(), "GET", "/b", nullptr, nullptr, nullptr, 0, 1));
    EXPECT_FALSE(HttpSendRequestA(request.get(), nullptr, 0, nullptr, 0));
    EXPECT_EQ(GetLastError(), ERROR_INTERNET_TIMEOUT);
}

TEST(InternetReadFile, TheTransferStandsStillWhileNobodyReads) {
    if (UnderWine()) {
        GTEST_SKIP() << "Wine reads on when the handle is closed";
    }
    ScriptedPeer peer;
    std::atomic<bool> allTaken = false;
    constexpr size_t kMoreThanSocketsHold = 64u << 20;
    peer.On("/b", PeerReply::Head(kMoreThanSocketsHold).Send(std::string(kMoreThanSocketsHold, 'x')).Call([&] {
        allTaken = true;
    }));
    {
        Exchange exchange(peer.Port(), "/b");
        ASSERT_EQ(exchange.Send(), 0u);
        std::string block;
        EXPECT_EQ(exchange.Read(1, block), 0u);
    }
    EXPECT_TRUE(peer.WaitForClosed(1));
    EXPECT_FALSE(allTaken);
}

TEST(InternetReadFile, BeforeTheRequestIsSentThereIsNothingToRead) {
    if (UnderWine()) {
        GTEST_SKIP() << "Wine reads an empty body from a request that was not sent";
    }
    Exchange exchange(80, "/");
    std::string block;
    EXPECT_EQ(exchange.Read(10, block), ERROR_INTERNET_INCORRECT_HANDLE_STATE);
}

}  // namespace
}  // namespace kvmpd::test
