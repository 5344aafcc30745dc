// The whole engine at work: from a URL to the bytes that the pin reads.
#include "tests/stream/StreamTest.h"

namespace kvmpd::test {
namespace {

constexpr char kCached[] = " KVMPDStream::PushSegmentToCache total";

class Playback : public StreamTest {
  protected:
    Playback() {
        Stream().SetFilter(&m_filter);
        Stream().CreateBuffer(2500);
        Stream().SetMaxCacheTime(6000);  // more than any of these timelines: the downloader is never held back
        ListenAsHost();
    }

    /// Reads as the pin does: what is not there yet is asked for again.
    void ExpectVideo(LONGLONG position, const std::vector<BYTE>& expected) {
        while (ReadVideo(position, static_cast<DWORD>(expected.size())) == S_FALSE) {
            std::this_thread::yield();
        }
        EXPECT_EQ(Bytes(), expected) << position;
    }
    void ExpectAudio(LONGLONG position, const std::vector<BYTE>& expected) {
        while (ReadAudio(position, static_cast<DWORD>(expected.size())) == S_FALSE) {
            std::this_thread::yield();
        }
        EXPECT_EQ(Bytes(), expected) << position;
    }
};

TEST_F(Playback, DeliversEveryByteOfBothStreamsInOrder) {
    Stream().SetPreferDelaySegment(9);
    Start(100, 10, 60000);
    const std::vector<BYTE> video = Concatenation(100, 10, true, 1000);
    const std::vector<BYTE> audio = Concatenation(100, 10, false, 100);
    for (size_t done = 0; done < video.size(); done += 250) {
        ExpectVideo(static_cast<LONGLONG>(done), Slice(video, done, 250));
        ExpectAudio(static_cast<LONGLONG>(done / 10), Slice(audio, done / 10, 25));
    }
}

TEST_F(Playback, TheFeedFillsTheBuffersBehindTheReader) {
    Stream().SetPreferDelaySegment(9);
    Start(100, 10, 60000);
    EXPECT_TRUE(m_log.WaitForPrefix(" KVMPDStream::ReadSegmentCacheToBuffer wait next segment to write."));
    m_log.Clear();
    ExpectVideo(0, MediaBytes(100, true, 1000));
    EXPECT_EQ(m_log.CountPrefix(" KVMPDStream::ReadBuffer read 1000 bytes."), 1u);
    // The read freed what it passed, and woke the feed.
    EXPECT_TRUE(m_log.WaitForPrefix(" BufferHandler::WriteBinaryFromFile increase"));
    ExpectVideo(2000, MediaBytes(102, true, 1000));
}

TEST_F(Playback, TellsTheHostWhatHappens) {
    Start(100, 10, 60000);
    m_host.WaitFor("0(0,60000)");
    m_host.WaitFor("7(2,0)");
    EXPECT_TRUE(m_log.WaitForPrefix(kCached));
    m_host.WaitFor("qualities");
    m_host.WaitFor("buffering(-540000,60000,60000)");
}

TEST_F(Playback, GoesOnBehindASegmentThatCannotBeDownloaded) {
    m_media->FailUrl(VideoUrl(105));
    Stream().SetPreferDelaySegment(9);
    Start(100, 10, 60000);
    m_host.WaitFor("9(0,0)");
    EXPECT_TRUE(m_log.WaitForPrefix(kCached, 9));
    ExpectVideo(4000, MediaBytes(104, true, 1000));
    ExpectVideo(5000, MediaBytes(106, true, 1000));
    EXPECT_EQ(Access::CacheSize(Stream()), 9u);
}

TEST_F(Playback, ASegmentThatOnlyLacksItsAudioIsDroppedToo) {
    m_media->FailUrl(AudioUrl(109));
    Start(100, 10, 60000);
    m_host.WaitFor("9(0,0)");
    EXPECT_EQ(Access::CacheSize(Stream()), 0u);
}

TEST_F(Playback, ASeekOutsideTheCacheStartsThere) {
    Start(100, 10, 60000);
    EXPECT_TRUE(m_log.WaitForPrefix(kCached));
    m_host.Forget();
    // 300000 ms before the end: number 104; the first segment that arrives after a restart is taken for an old one.
    EXPECT_EQ(Stream().SetPosition(60000 - 300000), 1);
    m_host.WaitFor("8(0,1)");
    EXPECT_TRUE(m_log.WaitForPrefix(kCached, 5));
    ExpectVideo(0, MediaBytes(105, true, 1000));
    ExpectAudio(0, MediaBytes(105, false, 100));
}

TEST_F(Playback, ASeekInsideTheCacheReBasesWhatIsRead) {
    Stream().SetPreferDelaySegment(9);
    Start(100, 10, 60000);
    EXPECT_TRUE(m_log.WaitForPrefix(kCached, 10));
    ExpectVideo(0, MediaBytes(100, true, 1000));
    EXPECT_EQ(Stream().SeekToTargetSegment(104), 1);
    const std::vector<BYTE> video = Concatenation(104, 6, true, 1000);
    const std::vector<BYTE> audio = Concatenation(104, 6, false, 100);
    for (size_t done = 0; done < video.size(); done += 500) {
        ExpectVideo(static_cast<LONGLONG>(done), Slice(video, done, 500));
        ExpectAudio(static_cast<LONGLONG>(done / 10), Slice(audio, done / 10, 50));
    }
    ExpectVideo(-1000, MediaBytes(103, true, 1000));
}

TEST_F(Playback, AnotherQualityStartsTheStreamAgainWithoutWaitingForTheNextReload) {
    Start(100, 10, 60000);
    m_host.WaitFor("7(2,0)");
    EXPECT_TRUE(m_log.WaitForPrefix(kCached));
    EXPECT_EQ(Stream().SetVideoQualityID(1), 1);
    m_host.WaitFor("7(1,0)");
}

TEST_F(Playback, AnotherQualityWakesALoaderThatHadGivenUp) {
    m_manifests->Fail(E_FAIL);
    EXPECT_EQ(Stream().Init(L"http://origin/live.mpd"), S_OK);
    m_host.WaitFor("0(2,0)");
    EXPECT_TRUE(m_log.WaitForPrefix("[Error] MpdLoader::ThreadProc failed to get mpd"));
    Start(100, 10, 60000);  // the same URL: only the manifest is there now
    EXPECT_EQ(Stream().SetVideoQualityID(1), 1);
    m_host.WaitFor("0(0,60000)");
}

// After a failed fetch the loader sleeps without limit, and there is no manifest whose loss would wake it.

class PlaybackAfterAFailure : public Playback {
  protected:
    PlaybackAfterAFailure() {
        m_manifests->Fail(E_FAIL);
        EXPECT_EQ(Stream().Init(L"http://origin/live.mpd"), S_OK);
        EXPECT_TRUE(m_log.WaitForPrefix("[Error] MpdLoader::ThreadProc failed to get mpd"));
        Start(100, 10, 60000);  // the same URL: only the manifest is there now
    }
};

TEST_F(PlaybackAfterAFailure, ASeekWakesTheLoader) {
    EXPECT_EQ(Stream().SeekToTargetSegment(104), 1);
    m_host.WaitFor("0(0,60000)");
}

TEST_F(PlaybackAfterAFailure, RunWakesTheLoader) {
    Loader().pauseParse(1);
    Stream().Run();
    m_host.WaitFor("0(0,60000)");
}

TEST_F(Playback, AnotherUrlFetchesNothingMoreOfTheOldStreamThanWhatIsOnItsWay) {
    Stream().SetPreferDelaySegment(9);
    m_media->gate.Close();
    Start(100, 10, 60000);
    m_media->gate.WaitForArrivals(1);
    m_manifests->Set(MakeManifest(500, 10, 60000));
    EXPECT_EQ(Stream().Init(L"http://origin/other.mpd"), S_OK);
    m_media->gate.Open();
    ExpectVideo(0, MediaBytes(500, true, 1000));
    const std::vector<std::string> urls = m_media->Urls();
    ASSERT_GE(urls.size(), 4u);
    EXPECT_EQ(std::vector<std::string>(urls.begin(), urls.begin() + 4),
              (std::vector<std::string>{AudioUrl(100), VideoUrl(100), AudioUrl(500), VideoUrl(500)}));
}

TEST_F(Playback, AnotherUrlPlaysTheNewStreamAlone) {
    m_media->gate.Close();
    Start(100, 10, 60000);
    m_media->gate.WaitForArrivals(1);
    m_manifests->Set(MakeManifest(500, 10, 60000));
    EXPECT_EQ(Stream().Init(L"http://origin/other.mpd"), S_OK);
    m_media->gate.Open();
    ExpectVideo(0, MediaBytes(509, true, 1000));
    ExpectAudio(0, MediaBytes(509, false, 100));
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::PushSegmentToCache drop segment 109 of an earlier url"));
}

TEST_F(Playback, APausedGraphParksTheStreamAndRunRestartsIt) {
    Stream().SetMaxCacheTime(120);
    m_filter.state = State_Paused;
    Stream().SetPreferDelaySegment(9);
    Start(100, 10, 60000);
    EXPECT_TRUE(m_log.WaitForPrefix(" KVMPDStream::PushSegmentToCache cache is full."));
    EXPECT_TRUE(m_log.WaitForPrefix(" MpdLoader::pauseParse : 1"));
    m_filter.state = State_Running;
    Stream().SetMaxCacheTime(6000);
    m_log.Clear();
    Stream().Run();
    m_host.WaitFor("8(1,0)");
    EXPECT_FALSE(Loader().IsPaused());
    EXPECT_TRUE(m_log.WaitForPrefix(kCached));
    EXPECT_EQ(Cache().start, 0);
}

}  // namespace
}  // namespace kvmpd::test
