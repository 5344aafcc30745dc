#include "tests/platform/wininet/ScopedVariable.h"
#include "tests/platform/wininet/WininetExchange.h"

namespace kvmpd::test {
namespace {

/// Answers for any host, and tells that it did.
class Proxies : public testing::Test {
  protected:
    void SetUp() override {
        m_proxy.On("/x", PeerReply::Ok("by the proxy"));
        m_server.On("/x", PeerReply::Ok("by the server"));
    }
    std::string ProxyUrl() const { return "http://127.0.0.1:" + std::to_string(m_proxy.Port()); }
    std::wstring ProxyAddress() const { return L"127.0.0.1:" + std::to_wstring(m_proxy.Port()); }

    static DWORD SetProxy(const Exchange& exchange, DWORD accessType, const wchar_t* proxy, const wchar_t* bypass) {
        INTERNET_PROXY_INFO info{accessType, proxy, bypass};
        return InternetSetOptionW(exchange.session.get(), INTERNET_OPTION_PROXY, &info, sizeof(info)) != 0
                   ? 0
                   : GetLastError();
    }

    ScriptedPeer m_proxy;
    ScriptedPeer m_server;
    Exchange m_exchange{m_server.Port(), "/x"};
};

TEST_F(Proxies, ComeFromTheEnvironment) {
    const ScopedVariable variable("http_proxy", ProxyUrl());
    ASSERT_EQ(m_exchange.Send(), 0u);
    EXPECT_EQ(m_exchange.Body(), "by the proxy");
    EXPECT_EQ(m_proxy.WaitForRequest(0).target, m_server.Url("/x"));
}

TEST_F(Proxies, AreNotAskedForHostsThatTheEnvironmentExcepts) {
    const ScopedVariable variable("http_proxy", ProxyUrl());
    const ScopedVariable exception("no_proxy", "127.0.0.1");
    ASSERT_EQ(m_exchange.Send(), 0u);
    EXPECT_EQ(m_exchange.Body(), "by the server");
}

TEST_F(Proxies, DirectAccessPassesTheEnvironmentBy) {
    const ScopedVariable variable("http_proxy", ProxyUrl());
    ASSERT_EQ(SetProxy(m_exchange, INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr), 0u);
    ASSERT_EQ(m_exchange.Send(), 0u);
    EXPECT_EQ(m_exchange.Body(), "by the server");
}

TEST_F(Proxies, ANamedOneIsUsedWhateverTheEnvironmentExcepts) {
    const ScopedVariable exception("no_proxy", "127.0.0.1");
    ASSERT_EQ(SetProxy(m_exchange, INTERNET_OPEN_TYPE_PROXY, ProxyAddress().c_str(), nullptr), 0u);
    ASSERT_EQ(m_exchange.Send(), 0u);
    EXPECT_EQ(m_exchange.Body(), "by the proxy");
}

TEST_F(Proxies, AListIsReadForTheScheme) {
    const std::wstring list = L"https=127.0.0.1:1;http=" + ProxyAddress();
    ASSERT_EQ(SetProxy(m_exchange, INTERNET_OPEN_TYPE_PROXY, list.c_str(), nullptr), 0u);
    ASSERT_EQ(m_exchange.Send(), 0u);
    EXPECT_EQ(m_exchange.Body(), "by the proxy");
}

TEST_F(Proxies, ANamedOneIsPassedByForItsExceptions) {
    ASSERT_EQ(SetProxy(m_exchange, INTERNET_OPEN_TYPE_PROXY, ProxyAddress().c_str(), L"a.example;127.0.0.1"), 0u);
    ASSERT_EQ(m_exchange.Send(), 0u);
    EXPECT_EQ(m_exchange.Body(), "by the server");
}

TEST_F(Proxies, TheNarrowOptionTakesNarrowText) {
    const std::string address = "127.0.0.1:" + std::to_string(m_proxy.Port());
    INTERNET_PROXY_INFO info{INTERNET_OPEN_TYPE_PROXY, reinterpret_cast<const wchar_t*>(address.c_str()), nullptr};
    ASSERT_TRUE(InternetSetOptionA(m_exchange.session.get(), INTERNET_OPTION_PROXY, &info, sizeof(info)));
    ASSERT_EQ(m_exchange.Send(), 0u);
    EXPECT_EQ(m_exchange.Body(), "by the proxy");
}

TEST_F(Proxies, AnAccessTypeWithoutItsProxyIsRefused) {
    EXPECT_EQ(SetProxy(m_exchange, INTERNET_OPEN_TYPE_PROXY, nullptr, nullptr), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(SetProxy(m_exchange, 77, nullptr, nullptr), DWORD{ERROR_INVALID_PARAMETER});
}

TEST_F(Proxies, OneWhereNobodyListensCannotBeConnected) {
    const std::wstring address = L"127.0.0.1:" + std::to_wstring(RefusedPort());
    ASSERT_EQ(SetProxy(m_exchange, INTERNET_OPEN_TYPE_PROXY, address.c_str(), nullptr), 0u);
    EXPECT_EQ(m_exchange.Send(), ERROR_INTERNET_CANNOT_CONNECT);
}

}  // namespace
}  // namespace kvmpd::test
