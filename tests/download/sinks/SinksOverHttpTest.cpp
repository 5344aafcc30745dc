// The sinks at the end of real requests.
#include <gtest/gtest.h>

#include <filesystem>

#include "download/DownloadNetKernelStream.h"
#include "download/FileDownloadStream.h"
#include "net/HttpLimits.h"
#include "net/NetKernelBase.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ScriptedPeer.h"
#include "tests/support/TempDir.h"
#include "tests/support/Wine.h"

namespace kvmpd::test {
namespace {

HRESULT Get(const std::string& url, INetKernelContentStream& sink) {
    NetKernelBase client;
    return client.OpenUrl(url.c_str(), "GET", nullptr, 0, nullptr, nullptr, nullptr, 0, &sink);
}

TEST(SinksOverHttp, ABodyWithoutLengthIsReceivedIntoMemory) {
    ScriptedPeer peer;
    peer.On("/m", PeerReply::NoLength(std::string(100, 'x')));
    LogCapture log;
    DownloadNetKernelStream sink;
    EXPECT_EQ(Get(peer.Url("/m"), sink), S_OK);
    EXPECT_EQ(sink.Written(), 100u);
    EXPECT_TRUE(log.Contains(
        "[Error] DownloadNetKernelStream::OnWriteComplete download unexpected size 100. expected: 5242880"));
}

TEST(SinksOverHttp, ABodyWithoutLengthThatIsTooLargeForMemoryFails) {
    ScriptedPeer peer;
    peer.On("/m", PeerReply::NoLength(std::string(DownloadNetKernelStream::kAssumedLength + 1, 'x')));
    LogCapture log;
    DownloadNetKernelStream sink;
    EXPECT_EQ(Get(peer.Url("/m"), sink), E_FAIL);
    EXPECT_EQ(log.CountPrefix("[Error] DownloadNetKernelStream::WriteInputStream Get too large buffer: "), 1u);
    EXPECT_EQ(log.CountPrefix(" DownloadNetKernelStream::OnWriteComplete "), 0u);
}

TEST(SinksOverHttp, ABodyThatAnnouncesTooMuchForMemoryIsReadNoFurther) {
    if (UnderWine()) {
        GTEST_SKIP() << kWineKnowsNoLength;
    }
    ScriptedPeer peer;
    peer.On("/m", PeerReply::Truncated(std::string(100, 'x'), kLargestBodyInMemory + 1));
    LogCapture log(3);
    DownloadNetKernelStream sink;
    EXPECT_EQ(Get(peer.Url("/m"), sink), E_FAIL);
    EXPECT_EQ(
        log.CountPrefix("[Error] DownloadNetKernelStream::OnContentLength announced length is too large: 67108865"),
        1u);
    EXPECT_TRUE(sink.Buffer().empty());
}

TEST(SinksOverHttp, ABodyGoesToItsFile) {
    ScriptedPeer peer;
    peer.On("/f", PeerReply::Ok(std::string(300'000, 'x')));
    TempDir dir;
    const std::filesystem::path path = dir.Path() / "f";
    FileDownloadStream sink(path.wstring());
    EXPECT_EQ(Get(peer.Url("/f"), sink), S_OK);
    EXPECT_EQ(sink.Written(), 300'000u);
    EXPECT_EQ(std::filesystem::file_size(path), 300'000u);
}

TEST(SinksOverHttp, AnEmptyBodySucceedsWithoutAFile) {
    ScriptedPeer peer;
    peer.On("/f", PeerReply::Ok(""));
    TempDir dir;
    LogCapture log(3);
    FileDownloadStream sink((dir.Path() / "f").wstring());
    EXPECT_EQ(Get(peer.Url("/f"), sink), S_OK);
    EXPECT_FALSE(std::filesystem::exists(dir.Path() / "f"));
    EXPECT_TRUE(log.Contains("[Error] FileDownloadStream::OnWriteComplete The file did not ready!!"));
}

TEST(SinksOverHttp, ATruncatedBodyLeavesItsBytesInAClosedFile) {
    ScriptedPeer peer;
    peer.On("/f", PeerReply::Truncated("abc", 10));
    TempDir dir;
    LogCapture log(3);
    FileDownloadStream sink((dir.Path() / "f").wstring());
    const HRESULT result = Get(peer.Url("/f"), sink);
    EXPECT_EQ(std::filesystem::file_size(dir.Path() / "f"), 3u);
    // The next attempt finds the file in its way.
    EXPECT_EQ(Get(peer.Url("/f"), sink), E_FAIL);
    EXPECT_TRUE(log.Contains("[Error] OpenFileAndSeek Create file fail, error code: 80"));
    if (UnderWine()) {
        GTEST_SKIP() << kWineEndsAShortBody << "; " << kWineKnowsNoLength;
    }
    EXPECT_EQ(result, E_FAIL);
}

TEST(SinksOverHttp, AnAttemptThatFailedBeforeTheBodyLeavesNoFile) {
    ScriptedPeer peer;
    peer.Once("/f", PeerReply::CloseAtOnce());
    peer.On("/f", PeerReply::Ok("abc"));
    TempDir dir;
    FileDownloadStream sink((dir.Path() / "f").wstring());
    const HRESULT result = Get(peer.Url("/f"), sink);
    EXPECT_FALSE(std::filesystem::exists(dir.Path() / "f"));
    EXPECT_EQ(Get(peer.Url("/f"), sink), S_OK);
    EXPECT_EQ(std::filesystem::file_size(dir.Path() / "f"), 3u);
    if (UnderWine()) {
        GTEST_SKIP() << kWineTakesAClosedConnectionForAResponse;
    }
    EXPECT_EQ(result, E_FAIL);
}

}  // namespace
}  // namespace kvmpd::test
