#include "tests/platform/wininet/WininetExchange.h"

namespace kvmpd::test {
namespace {

class HttpQueryInfo : public testing::Test {
  protected:
    void SetUp() override {
        m_peer.On("/q", PeerReply::Ok("0123456789", {{"Content-Type", "text/plain"},
                                                     {"ETag", "\"tag\""},
                                                     {"X-Twice", "first"},
                                                     {"X-Twice", "second"},
                                                     {"X-Blank", ""}}));
        ASSERT_EQ(m_exchange.Send(), 0u);
    }

    /// The text of a query with a buffer of `size`; the last error when it fails.
    DWORD Text(DWORD query, std::string& text, DWORD size = 100, DWORD* index = nullptr) {
        text.resize(size);
        m_length = size;
        if (HttpQueryInfoA(m_exchange.request.get(), query, text.data(), &m_length, index) == 0) {
            return GetLastError();
        }
        text.resize(m_length);
        return 0;
    }

    DWORD Custom(std::string name, std::string& value, DWORD* index = nullptr) {
        value = std::move(name);
        value.resize(100);
        m_length = 100;
        if (HttpQueryInfoA(m_exchange.request.get(), HTTP_QUERY_CUSTOM, value.data(), &m_length, index) == 0) {
            return GetLastError();
        }
        value.resize(m_length);
        return 0;
    }

    ScriptedPeer m_peer;
    Exchange m_exchange{m_peer.Port(), "/q"};
    DWORD m_length = 0;
};

TEST_F(HttpQueryInfo, TheStatusCodeIsANumberOrAText) {
    EXPECT_EQ(m_exchange.Status(), 200u);
    std::string text;
    EXPECT_EQ(Text(HTTP_QUERY_STATUS_CODE, text), 0u);
    EXPECT_EQ(text, "200");
}

TEST_F(HttpQueryInfo, TheContentLengthIsA64BitNumber) {
    if (UnderWine()) {
        GTEST_SKIP() << kWineKnowsNoLength;
    }
    ULONGLONG length = 0;
    DWORD size = sizeof(length);
    EXPECT_TRUE(HttpQueryInfoA(m_exchange.request.get(), HTTP_QUERY_CONTENT_LENGTH | HTTP_QUERY_FLAG_NUMBER64, &length,
                               &size, nullptr));
    EXPECT_EQ(length, 10u);
    EXPECT_EQ(size, sizeof(length));
}

TEST_F(HttpQueryInfo, ANumberNeedsItsWholeSize) {
    if (UnderWine()) {
        GTEST_SKIP() << kWineKnowsNoLength;
    }
    ULONGLONG length = 0;
    DWORD size = 4;
    EXPECT_FALSE(HttpQueryInfoA(m_exchange.request.get(), HTTP_QUERY_CONTENT_LENGTH | HTTP_QUERY_FLAG_NUMBER64, &length,
                                &size, nullptr));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INSUFFICIENT_BUFFER});
}

TEST_F(HttpQueryInfo, TextComesWithItsLengthWithoutTheTerminator) {
    std::string text;
    EXPECT_EQ(Text(HTTP_QUERY_CONTENT_TYPE, text), 0u);
    EXPECT_EQ(text, "text/plain");
    EXPECT_EQ(m_length, 10u);
    EXPECT_EQ(Text(HTTP_QUERY_ETAG, text), 0u);
    EXPECT_EQ(text, "\"tag\"");
}

TEST_F(HttpQueryInfo, ASmallBufferIsToldTheSizeWithTheTerminator) {
    std::string text;
    EXPECT_EQ(Text(HTTP_QUERY_CONTENT_TYPE, text, 10), DWORD{ERROR_INSUFFICIENT_BUFFER});
    EXPECT_EQ(m_length, 11u);
    EXPECT_EQ(Text(HTTP_QUERY_CONTENT_TYPE, text, 11), 0u);
}

TEST_F(HttpQueryInfo, ACustomHeaderIsFoundInAnyCase) {
    std::string value;
    EXPECT_EQ(Custom("x-TWICE", value), 0u);
    EXPECT_EQ(value, "first");
}

TEST_F(HttpQueryInfo, TheIndexGoesThroughRepeatedHeaders) {
    DWORD index = 0;
    std::string value;
    EXPECT_EQ(Custom("X-Twice", value, &index), 0u);
    EXPECT_EQ(value, "first");
    EXPECT_EQ(index, 1u);
    EXPECT_EQ(Custom("X-Twice", value, &index), 0u);
    EXPECT_EQ(value, "second");
    EXPECT_EQ(Custom("X-Twice", value, &index), ERROR_HTTP_HEADER_NOT_FOUND);
}

TEST_F(HttpQueryInfo, AMissingHeaderIsNotFound) {
    std::string value;
    EXPECT_EQ(Custom("X-None", value), ERROR_HTTP_HEADER_NOT_FOUND);
}

TEST(HttpQueryInfoLength, AResponseWithoutLengthHasNone) {
    ScriptedPeer peer;
    peer.On("/q", PeerReply::NoLength("abc"));
    Exchange exchange(peer.Port(), "/q");
    ASSERT_EQ(exchange.Send(), 0u);
    ULONGLONG length = 77;
    DWORD size = sizeof(length);
    EXPECT_FALSE(HttpQueryInfoA(exchange.request.get(), HTTP_QUERY_CONTENT_LENGTH | HTTP_QUERY_FLAG_NUMBER64, &length,
                                &size, nullptr));
    EXPECT_EQ(GetLastError(), ERROR_HTTP_HEADER_NOT_FOUND);
    EXPECT_EQ(length, 77u);
}

TEST(HttpQueryInfoLength, ALengthBeyond32BitsIsWhole) {
    if (UnderWine()) {
        GTEST_SKIP() << kWineKnowsNoLength;
    }
    ScriptedPeer peer;
    peer.On("/q", PeerReply::Head(0x123456789AULL).Stall());
    Exchange exchange(peer.Port(), "/q");
    ASSERT_EQ(exchange.Send(), 0u);
    ULONGLONG length = 0;
    DWORD size = sizeof(length);
    EXPECT_TRUE(HttpQueryInfoA(exchange.request.get(), HTTP_QUERY_CONTENT_LENGTH | HTTP_QUERY_FLAG_NUMBER64, &length,
                               &size, nullptr));
    EXPECT_EQ(length, 0x123456789AULL);
}

}  // namespace
}  // namespace kvmpd::test
