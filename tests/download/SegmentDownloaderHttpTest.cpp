// The downloader with the real HTTP client, against a peer on loopback.
#include <algorithm>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "download/SegmentDownloader.h"
#include "tests/download/DownloaderFixture.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ScriptedPeer.h"
#include "tests/support/Wine.h"

namespace kvmpd {
namespace {

using test::LogCapture;
using test::PeerReply;
using test::ScriptedPeer;

using Numbers = std::vector<LONGLONG>;
constexpr LONGLONG kEndMarker = 0;

class SegmentDownloaderHttp : public test::DownloaderTest {
  protected:
    void SetUp() override {
        m_downloader.SetCacheFileFolder(Folder().c_str());
        ASSERT_EQ(m_downloader.Init(m_queue), 0);
    }

    void Push(LONGLONG number, const std::string& audioUrl, const std::string& videoUrl) {
        auto segment = std::make_shared<Segment>();
        segment->m_segmentNumber = number;
        segment->m_duration = 2000;
        segment->m_audioUrl = audioUrl;
        segment->m_videoUrl = videoUrl;
        m_queue->push(std::move(segment));
    }
    /// The segment whose media the peer has at /NUMBER.m4a and /NUMBER.mp4.
    void Push(LONGLONG number) {
        const std::string name = "/" + std::to_string(number);
        Push(number, m_peer.Url(name + ".m4a"), m_peer.Url(name + ".mp4"));
    }
    void Finish() {
        m_queue->push(std::make_shared<Segment>());
        m_receiver.AwaitEndMarker();
        m_downloader.WorkerProcessor::CloseThread();
    }

    ScriptedPeer m_peer;
    SegmentDownloader m_downloader{m_receiver};
};

TEST_F(SegmentDownloaderHttp, FilesHoldTheBytesThatThePeerSent) {
    std::string video(300000, '\0');
    for (size_t i = 0; i < video.size(); ++i) {
        video[i] = static_cast<char>(i * 31 + i / 256);
    }
    m_peer.On("/7.m4a", PeerReply::Ok("sound"));
    m_peer.On("/7.mp4", PeerReply::Ok(video));
    Push(7);
    const auto segment = m_receiver.AwaitSegments(1).front();
    Finish();
    EXPECT_EQ(Content("7.m4a"), "sound");
    EXPECT_TRUE(Content("7.mp4") == video);
    EXPECT_EQ(segment->m_audioSize, 5);
    EXPECT_EQ(segment->m_videoSize, 300000);
    EXPECT_EQ(m_downloader.VideoBytes(), 300000);
    const auto requests = m_peer.Requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].path, "/7.m4a");
    EXPECT_EQ(requests[1].path, "/7.mp4");
    EXPECT_EQ(requests[1].method, "GET");
}

TEST_F(SegmentDownloaderHttp, BodyWithoutLengthIsWhole) {
    m_peer.On("/7.m4a", PeerReply::NoLength("sound"));
    m_peer.On("/7.mp4", PeerReply::NoLength("pictures"));
    Push(7);
    Finish();
    EXPECT_EQ(m_receiver.Numbers(), (Numbers{7, kEndMarker}));
    EXPECT_EQ(Content("7.mp4"), "pictures");
}

// The status is not judged: what the server says instead of media is stored like media.
TEST_F(SegmentDownloaderHttp, ErrorPageIsStoredLikeMedia) {
    m_peer.On("/7.m4a", PeerReply::Ok("sound"));
    m_peer.On("/7.mp4", PeerReply::Respond(404, "no such segment"));
    Push(7);
    Finish();
    EXPECT_EQ(m_receiver.Numbers(), (Numbers{7, kEndMarker}));
    EXPECT_EQ(Content("7.mp4"), "no such segment");
}

TEST_F(SegmentDownloaderHttp, RefusedConnectionIsTriedThreeTimesForEachFile) {
    if (test::UnderWine()) {
        GTEST_SKIP() << test::kWineAnswersFailedRequests;
    }
    const LogCapture log(3);
    const std::string server = "http://127.0.0.1:" + std::to_string(test::RefusedPort());
    Push(7, server + "/7.m4a", server + "/7.mp4");
    Finish();
    EXPECT_EQ(m_receiver.Failures(), 1);
    EXPECT_EQ(log.Count("[Error] NetKernelBase::OpenUrl Fail to send URL request: " + server + "/7.m4a"), 3u);
    EXPECT_EQ(log.Count("[Error] NetKernelBase::OpenUrl Fail to send URL request: " + server + "/7.mp4"), 3u);
    EXPECT_TRUE(log.Contains("[Error] SegmentDownloader::ThreadProc download segment 7 failed. Result: 0x80004005"));
    EXPECT_FALSE(Exists("7.m4a"));
}

TEST_F(SegmentDownloaderHttp, AttemptThatEndedBeforeAnyByteIsRetried) {
    if (test::UnderWine()) {
        GTEST_SKIP() << test::kWineTakesAClosedConnectionForAResponse << "; " << test::kWineAnswersFailedRequests;
    }
    m_peer.Once("/7.m4a", PeerReply::ResetAtOnce());
    m_peer.Once("/7.m4a", PeerReply::CloseAtOnce());
    m_peer.On("/7.m4a", PeerReply::Ok("sound"));
    m_peer.Once("/7.mp4", PeerReply::Head(8).Reset());
    m_peer.On("/7.mp4", PeerReply::Ok("pictures"));
    Push(7);
    m_receiver.AwaitSegments(1);
    Finish();
    EXPECT_EQ(m_receiver.Numbers().front(), 7);
    EXPECT_EQ(Content("7.m4a"), "sound");
    EXPECT_EQ(m_peer.RequestCount("/7.m4a"), 3u);
}

TEST_F(SegmentDownloaderHttp, RetryAfterAShortBodyFailsAtFileCreation) {
    if (test::UnderWine()) {
        GTEST_SKIP() << test::kWineEndsAShortBody << "; " << test::kWineKnowsNoLength;
    }
    const LogCapture log(3);
    m_peer.On("/7.m4a", PeerReply::Ok("sound"));
    m_peer.Once("/7.mp4", PeerReply::Truncated("pict", 8));
    m_peer.On("/7.mp4", PeerReply::Ok("pictures"));
    Push(7);
    Finish();
    EXPECT_EQ(m_receiver.Failures(), 1);
    EXPECT_EQ(m_peer.RequestCount("/7.mp4"), 3u);
    EXPECT_EQ(log.Count("[Error] OpenFileAndSeek Create file fail, error code: 80"), 2u);
    EXPECT_EQ(Content("7.mp4"), "pict");
    EXPECT_FALSE(Exists("7.m4a")) << "the audio was complete and goes with its segment";
}

TEST_F(SegmentDownloaderHttp, FailedSegmentDoesNotHoldUpTheNext) {
    if (test::UnderWine()) {
        GTEST_SKIP() << test::kWineEndsAShortBody << "; " << test::kWineKnowsNoLength;
    }
    m_peer.On("/7.m4a", PeerReply::Truncated("so", 5));
    m_peer.On("/7.mp4", PeerReply::Ok("pictures"));
    m_peer.On("/8.m4a", PeerReply::Ok("sound"));
    m_peer.On("/8.mp4", PeerReply::Ok("pictures"));
    Push(7);
    Push(8);
    Finish();
    EXPECT_EQ(m_receiver.Numbers(), (Numbers{8, kEndMarker}));
    EXPECT_EQ(m_receiver.Failures(), 1);
}

TEST_F(SegmentDownloaderHttp, ClearLetsTheTransferInProgressEndAndDropsIt) {
    const LogCapture log(6);
    m_peer.On("/7.m4a", PeerReply::Ok("sound"));
    m_peer.On("/7.mp4", PeerReply::Head(8).Send("pict").Stall().Send("ures"));
    m_peer.On("/8.m4a", PeerReply::Ok("sound"));
    m_peer.On("/8.mp4", PeerReply::Ok("pictures"));
    Push(7);
    m_peer.WaitForRequest(1);
    m_downloader.clear();
    Push(8);
    m_peer.Release();
    Finish();
    EXPECT_EQ(m_receiver.Numbers(), (Numbers{8, kEndMarker}));
    EXPECT_TRUE(log.Contains(" SegmentDownloader::ThreadProc download segment 7 video success. Result: 0x00000000"));
    EXPECT_TRUE(log.Contains(" SegmentDownloader::ThreadProc discard segment 7."));
}

TEST_F(SegmentDownloaderHttp, CloseWaitsForTheTransferInProgress) {
    const LogCapture log(6);
    m_peer.On("/7.m4a", PeerReply::Ok("sound"));
    m_peer.On("/7.mp4", PeerReply::Head(8).Send("pict").Stall().Send("ures"));
    Push(7);
    m_peer.WaitForRequest(1);
    std::jthread closer([this] { EXPECT_EQ(m_downloader.CloseThread(), 0); });
    ASSERT_TRUE(log.WaitForPrefix(" WorkerProcessor::CloseThread "));
    EXPECT_TRUE(m_downloader.IsThreadRunning());
    m_peer.Release();
    closer.join();
    EXPECT_EQ(m_receiver.Numbers(), Numbers{7});
    EXPECT_EQ(Content("7.mp4"), "pictures");
}

}  // namespace
}  // namespace kvmpd
