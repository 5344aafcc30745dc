#include <type_traits>

#include "tests/net/NetFixture.h"

namespace kvmpd::test {
namespace {

TEST(NetKernelBase, SettingTimeOutsIsToldAtLevel5) {
    NetKernelBase client;
    {
        LogCapture log(4);
        client.SetReceiveTimeout(1);
        client.SetSendTimeout(2);
        EXPECT_TRUE(log.Lines().empty());
    }
    LogCapture log(5);
    client.SetReceiveTimeout(1000);
    client.SetSendTimeout(2000);
    EXPECT_EQ(log.Lines(), (std::vector<std::string>{" NetKernelBase::SetReceiveTimeout to: 1000",
                                                     " NetKernelBase::SetSendTimeout to: 2000"}));
}

TEST(NetKernelBase, TheSendTimeOutIsSetAtLevel4) {
    ScriptedPeer peer;
    NetKernelBase client;
    client.SetSendTimeout(2000);
    LogCapture log(4);
    RecordingStream stream;
    client.OpenUrl(peer.Url("/").c_str(), "GET", nullptr, 0, nullptr, nullptr, nullptr, 0, &stream);
    EXPECT_TRUE(log.Contains(" NetKernelBase::SendUrlRequestImpl Set send timeout to: 2000 Success: True"));
}

TEST(NetKernelBase, AReceiveTimeOutOfZeroIsTheDefaultAndNotAtOnce) {
    ScriptedPeer peer;
    peer.On("/", PeerReply::Head(2).Drip("ab", 1, std::chrono::milliseconds(20)));
    NetKernelBase client;
    client.SetReceiveTimeout(0);
    RecordingStream stream;
    EXPECT_EQ(client.OpenUrl(peer.Url("/").c_str(), "GET", nullptr, 0, nullptr, nullptr, nullptr, 0, &stream), S_OK);
    EXPECT_EQ(stream.body, "ab");
}

TEST(NetKernelBase, AnIdleClientClosesAndResetsWithoutEffect) {
    NetKernelBase client;
    client.Close();
    client.Close();
    EXPECT_EQ(client.Reset(), 0u);
    EXPECT_EQ(client.GetErrorType(), 0u);
}

TEST(NetKernelBase, ResetForgetsTheObserver) {
    ScriptedPeer peer;
    RecordingProgress progress;
    RecordingStream stream;
    NetKernelBase client(nullptr, &progress);
    client.Reset();
    EXPECT_EQ(client.OpenUrl(peer.Url("/").c_str(), "GET", nullptr, 0, nullptr, nullptr, nullptr, 0, &stream), S_OK);
    EXPECT_TRUE(progress.reports.empty());
    EXPECT_EQ(progress.completions, 0);
}

TEST(NetKernelBase, ReservedPlacesDoNothing) {
    NetKernelBase client;
    EXPECT_EQ(client.Reserved8(), 0u);
    EXPECT_EQ(client.Reserved9(), 0u);
}

TEST(NetKernelBase, ARequestLeavesNoConnectionOpen) {
    ScriptedPeer peer;
    RecordingStream stream;
    NetKernelBase client;
    for (size_t i = 1; i <= 5; ++i) {
        EXPECT_EQ(client.OpenUrl(peer.Url("/").c_str(), "GET", nullptr, 0, nullptr, nullptr, nullptr, 0, &stream),
                  S_OK);
        EXPECT_TRUE(peer.WaitForClosed(i));
    }
    EXPECT_EQ(peer.RequestCount(), 5u);
}

TEST(NetKernelBase, IsDeletedThroughItsInterface) {
    static_assert(std::has_virtual_destructor_v<INetKernelBase>);
    static_assert(!std::is_polymorphic_v<NetKernelDumper> && !std::is_convertible_v<NetKernelBase*, NetKernelDumper*>);
    const std::unique_ptr<INetKernelBase> client = std::make_unique<NetKernelBase>();
    EXPECT_EQ(client->GetErrorType(), 0u);
}

}  // namespace
}  // namespace kvmpd::test
