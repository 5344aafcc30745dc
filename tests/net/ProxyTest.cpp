#include "tests/net/NetFixture.h"

namespace kvmpd::test {
namespace {

class Proxy : public BothTwins {
  protected:
    void SetUp() override { m_proxy.On("/x", PeerReply::Ok("by the proxy")); }

    /// Some window: the platform asks for one wherever it might show a dialog.
    static HWND Window() { return reinterpret_cast<HWND>(static_cast<std::uintptr_t>(0x10010)); }

    ScriptedPeer m_proxy;
    std::wstring m_address = L"127.0.0.1:" + std::to_wstring(m_proxy.Port());
};
KV_FOR_BOTH_TWINS(Proxy);

TEST_P(Proxy, ANamedOneIsUsedAfterTheDialogAllowedIt) {
    if (UnderWine()) {
        GTEST_SKIP() << kWineHasNoProxyOption;
    }
    LogCapture log(3);
    NetKernelBase client(Window(), nullptr);
    SetLastError(0);
    EXPECT_EQ(Open(client, "http://far.example/x", &m_stream, {.proxy = m_address.c_str()}), S_OK);
    EXPECT_EQ(m_stream.body, "by the proxy");
    EXPECT_EQ(m_proxy.WaitForRequest(0).target, "http://far.example/x");
    EXPECT_TRUE(log.Contains(Text(" NetKernelBase::SendHttpReq@ PyNetKernel::SendHttpReq Use proxy in thread: ") +
                             std::to_string(GetCurrentThreadId())));
    EXPECT_EQ(log.CountPrefix(Text(" NetKernelBase::SendHttpReq@ Last error before internet error dialog: 0x")), 1u);
    EXPECT_TRUE(log.Contains(Text(" NetKernelBase::SendHttpReq@ InternetErrorDlg result: 0x00000000")));
}

TEST_P(Proxy, WithoutAWindowForTheDialogANamedOneFails) {
    LogCapture log(3);
    NetKernelBase client;
    EXPECT_EQ(Open(client, "http://far.example/x", &m_stream, {.proxy = m_address.c_str()}), E_FAIL);
    EXPECT_EQ(m_proxy.RequestCount(), 0u);
    if (UnderWine()) {
        GTEST_SKIP() << kWineHasNoProxyOption;
    }
    EXPECT_TRUE(log.Contains(Text(" NetKernelBase::SendHttpReq@ InternetErrorDlg result: 0x00000006")));
}

TEST_P(Proxy, DisablingGoesBeforeANamedOne) {
    m_peer.On("/x", PeerReply::Ok("directly"));
    LogCapture log(4);
    NetKernelBase client;
    EXPECT_EQ(Open(client, m_peer.Url("/x"), &m_stream, {.proxy = m_address.c_str(), .disableProxy = 1}), S_OK);
    EXPECT_EQ(m_stream.body, "directly");
    if (UnderWine()) {
        GTEST_SKIP() << kWineHasNoProxyOption;
    }
    EXPECT_TRUE(log.Contains(Text(" NetKernelBase::SendUrlRequestImpl@ Disable proxy. Success: True")));
}

TEST_P(Proxy, DisablingIsToldAtLevel4) {
    m_peer.On("/x", PeerReply::Ok("directly"));
    LogCapture log(3);
    NetKernelBase client;
    EXPECT_EQ(Open(client, m_peer.Url("/x"), &m_stream, {.disableProxy = 1}), S_OK);
    EXPECT_EQ(log.Lines().size(), 1u);
}

}  // namespace
}  // namespace kvmpd::test
