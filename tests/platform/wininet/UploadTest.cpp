#include "tests/platform/wininet/WininetExchange.h"

namespace kvmpd::test {
namespace {

/// 0 or the error number.
DWORD SendHead(Exchange& exchange, const std::string& headers, DWORD total) {
    INTERNET_BUFFERSA buffers{};
    buffers.dwStructSize = sizeof(buffers);
    buffers.lpcszHeader = headers.c_str();
    buffers.dwHeadersLength = static_cast<DWORD>(headers.size());
    buffers.dwBufferTotal = total;
    return HttpSendRequestExA(exchange.request.get(), &buffers, nullptr, 0, 0) != 0 ? 0 : GetLastError();
}

DWORD Write(Exchange& exchange, const std::string& data) {
    DWORD written = 0;
    if (InternetWriteFile(exchange.request.get(), data.data(), static_cast<DWORD>(data.size()), &written) == 0) {
        return GetLastError();
    }
    EXPECT_EQ(written, data.size());
    return 0;
}

DWORD End(Exchange& exchange) {
    return HttpEndRequestW(exchange.request.get(), nullptr, 0, 0) != 0 ? 0 : GetLastError();
}

TEST(Uploads, BlocksArriveAsOneBody) {
    ScriptedPeer peer;
    peer.On("/u", PeerReply::Ok("thanks"));
    Exchange exchange(peer.Port(), "/u", "POST");
    const std::string block(100'000, 'x');
    ASSERT_EQ(SendHead(exchange, "X-One: 1\r\n", 300'003), 0u);
    EXPECT_EQ(Write(exchange, block), 0u);
    EXPECT_EQ(Write(exchange, "abc"), 0u);
    EXPECT_EQ(Write(exchange, block + block), 0u);
    ASSERT_EQ(End(exchange), 0u);
    EXPECT_EQ(exchange.Body(), "thanks");
    const PeerRequest request = peer.WaitForRequest(0);
    EXPECT_EQ(request.Header("Content-Length"), "300003");
    EXPECT_EQ(request.Header("X-One"), "1");
    EXPECT_FALSE(request.HasHeader("Expect"));
    EXPECT_TRUE(request.body == block + "abc" + block + block);
}

TEST(Uploads, TheWideTwinSendsTheSame) {
    ScriptedPeer peer;
    peer.On("/u", PeerReply::Ok("thanks"));
    Exchange exchange(peer.Port(), "/u", "PUT");
    INTERNET_BUFFERSW buffers{};
    buffers.dwStructSize = sizeof(buffers);
    buffers.lpcszHeader = L"X-One: 1\r\n";
    buffers.dwHeadersLength = 10;
    buffers.dwBufferTotal = 3;
    ASSERT_TRUE(HttpSendRequestExW(exchange.request.get(), &buffers, nullptr, 0, 0));
    EXPECT_EQ(Write(exchange, "abc"), 0u);
    ASSERT_EQ(End(exchange), 0u);
    const PeerRequest request = peer.WaitForRequest(0);
    EXPECT_EQ(request.method, "PUT");
    EXPECT_EQ(request.Header("X-One"), "1");
    EXPECT_EQ(request.body, "abc");
}

TEST(Uploads, NobodyListens) {
    Exchange exchange(RefusedPort(), "/u", "POST");
    EXPECT_EQ(SendHead(exchange, "", 3), ERROR_INTERNET_CANNOT_CONNECT);
}

TEST(Uploads, AServerThatResetsEndsTheUpload) {
    ScriptedPeer peer;
    peer.On("/u", PeerReply::ResetAtOnce().WithoutReadingBody());
    Exchange exchange(peer.Port(), "/u", "POST");
    constexpr DWORD kMoreThanSocketsHold = 64u << 20;
    DWORD error = SendHead(exchange, "", kMoreThanSocketsHold);
    const std::string block(1 << 20, 'x');
    for (int i = 0; i < 64 && error == 0; ++i) {
        error = Write(exchange, block);
    }
    EXPECT_NE(error, 0u);
    if (UnderWine()) {
        GTEST_SKIP() << kWineTellsSocketErrors;
    }
    EXPECT_TRUE(error == ERROR_INTERNET_CONNECTION_RESET || error == ERROR_INTERNET_CONNECTION_ABORTED) << error;
}

TEST(Uploads, AServerThatDoesNotReadTimesOutByTheSendTimeOut) {
    ScriptedPeer peer;
    peer.On("/u", PeerReply::StallAtOnce().WithoutReadingBody());
    Exchange exchange(peer.Port(), "/u", "POST");
    ASSERT_EQ(exchange.SetTimeout(INTERNET_OPTION_SEND_TIMEOUT, 100), 0u);
    constexpr DWORD kMoreThanSocketsHold = 64u << 20;
    ASSERT_EQ(SendHead(exchange, "", kMoreThanSocketsHold), 0u);
    DWORD error = 0;
    const std::string block(1 << 20, 'x');
    for (int i = 0; i < 64 && error == 0; ++i) {
        error = Write(exchange, block);
    }
    EXPECT_NE(error, 0u);
    if (UnderWine()) {
        GTEST_SKIP() << kWineTellsSocketErrors;
    }
    EXPECT_EQ(error, ERROR_INTERNET_TIMEOUT);
}

TEST(Uploads, WritingAndEndingNeedASentRequest) {
    if (UnderWine()) {
        GTEST_SKIP() << "Wine writes to a connection that is not there, and ends the program";
    }
    Exchange exchange(80, "/u", "POST");
    EXPECT_EQ(Write(exchange, "abc"), ERROR_INTERNET_INCORRECT_HANDLE_STATE);
    EXPECT_EQ(End(exchange), ERROR_INTERNET_INCORRECT_HANDLE_STATE);
}

TEST(Uploads, AStructureOfAnotherSizeIsRefused) {
    if (UnderWine()) {
        GTEST_SKIP() << "Wine does not look at the size of the structure";
    }
    Exchange exchange(80, "/u", "POST");
    INTERNET_BUFFERSA buffers{};
    buffers.dwStructSize = 4;
    EXPECT_FALSE(HttpSendRequestExA(exchange.request.get(), &buffers, nullptr, 0, 0));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

}  // namespace
}  // namespace kvmpd::test
