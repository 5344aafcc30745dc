// Ending the engine, whatever it is doing.
#include "tests/stream/StreamTest.h"

namespace kvmpd::test {
namespace {

constexpr char kFeedEnded[] = " KVMPDStream::ThreadProc finish.";
constexpr char kFeedStuck[] = " KVMPDStream::ReadSegmentCacheToBuffer wait next segment to write.";
constexpr char kThrottled[] = " KVMPDStream::PushSegmentToCache buffer is full. Start to wait!";

class Stop : public StreamTest {
  protected:
    void ExpectAllEnded() {
        EXPECT_FALSE(Loader().IsThreadRunning());
        EXPECT_FALSE(Access::Downloader(Stream()).IsThreadRunning());
        EXPECT_FALSE(Stream().EventHandler().IsThreadRunning());
        EXPECT_FALSE(Stream().IsThreadRunning());
    }
};

TEST_F(Stop, WithoutInitOnlyLogsItsSteps) {
    EXPECT_EQ(Stream().CloseThread(), S_OK);
    EXPECT_TRUE(Access::IsClosing(Stream()));
    EXPECT_TRUE(Access::IsBufferEventSet(Stream()));
    EXPECT_TRUE(Access::IsSegmentEventSet(Stream()));
    std::vector<std::string> lines = m_log.Lines();
    std::erase_if(lines, [](const std::string& line) {
        const bool isStep =
            line.find("::CloseThread") != std::string::npos || line.find("::SetCallback") != std::string::npos;
        return !isStep || line.starts_with(" WorkerProcessor::");
    });
    EXPECT_EQ(lines, (std::vector<std::string>{" KVMPDStream::CloseThread ", " MpdLoader::CloseThread ",
                                               " MpdLoader::CloseThread : 0x00000000",
                                               " SegmentDownloader::CloseThread ", " MPDEventHandler::SetCallback "}));
    ExpectAllEnded();
}

TEST_F(Stop, TwiceIsHarmless) {
    Start(100, 3, 1000);
    EXPECT_EQ(Stream().CloseThread(), S_OK);
    EXPECT_EQ(Stream().CloseThread(), S_OK);
    ExpectAllEnded();
}

TEST_F(Stop, EndsFourThreadsAndLetsTheHostGo) {
    ListenAsHost();
    Start(100, 3, 60000);
    m_host.WaitFor("0(0,60000)");
    EXPECT_EQ(m_host.References(), 1);
    EXPECT_EQ(Stream().CloseThread(), S_OK);
    ExpectAllEnded();
    EXPECT_EQ(m_host.References(), 0);
    EXPECT_TRUE(m_log.Contains(kFeedEnded));
    EXPECT_TRUE(m_log.Contains(" SegmentDownloader::ThreadProc finish"));
    EXPECT_TRUE(m_log.Contains(" MpdLoader::ThreadProc finish."));
}

TEST_F(Stop, WithoutTheWorkersEndsTheFeedAlone) {
    Access::ReleaseLoader(Stream());
    Access::ReleaseDownloader(Stream());
    EXPECT_EQ(Stream().CloseThread(), S_OK);
}

TEST_F(Stop, WhileTheFeedWaitsForItsFirstSegment) {
    m_manifests->Fail(E_FAIL);
    EXPECT_EQ(Stream().Init(L"http://origin/live.mpd"), S_OK);
    EXPECT_TRUE(m_log.WaitForPrefix(" KVMPDStream::ThreadProc "));
    EXPECT_EQ(Stream().CloseThread(), S_OK);
    EXPECT_TRUE(m_log.Contains(kFeedEnded));
}

TEST_F(Stop, WhileTheFeedWaitsForAReader) {
    Stream().CreateBuffer(500);
    Start(100, 3, 60000);
    EXPECT_TRUE(m_log.WaitForPrefix(" KVMPDStream::ReadSegmentCacheToBuffer wait next segment to write."));
    EXPECT_EQ(Stream().CloseThread(), S_OK);
    EXPECT_TRUE(m_log.Contains(kFeedEnded));
}

TEST_F(Stop, WhileTheFeedIsInAPass) {
    Stream().CreateBuffer(1000000);
    PushSegments(100, 300, 10, 300, 30);
    m_log.Clear();
    EXPECT_EQ(Stream().StartThread(), S_OK);
    EXPECT_TRUE(m_log.WaitForPrefix(" KVMPDStream::ReadSegmentCacheToBuffer read segment 100 complete"));
    EXPECT_EQ(Stream().CloseThread(), S_OK);
    ExpectAllEnded();
    EXPECT_TRUE(m_log.Contains(kFeedEnded));
}

TEST_F(Stop, WhileTheDownloaderIsHeldByAFullCache) {
    Stream().CreateBuffer(500);
    Stream().SetMaxCacheTime(2);
    Stream().SetFilter(&m_filter);
    Start(100, 1, 1000);
    EXPECT_TRUE(m_log.WaitForPrefix(" KVMPDStream::ReadSegmentCacheToBuffer wait next segment to write."));
    Cache();  // has the locks of the pass, which has therefore ended
    m_manifests->Set(MakeManifest(100, 3, 1000));
    Loader().Wake();
    EXPECT_TRUE(m_log.WaitForPrefix(kThrottled));
    EXPECT_EQ(Stream().CloseThread(), S_OK);
    ExpectAllEnded();
}

TEST_F(Stop, WhileTheDownloaderWaitsForTheCacheLock) {
    Start(100, 1, 60000);
    std::thread closer;
    {
        const CritSecLock cache(Access::CacheLock(Stream()));
        EXPECT_TRUE(m_log.WaitForPrefix(" SegmentDownloader::ThreadProc download segment 100 success."));
        closer = std::thread([this] { EXPECT_EQ(Stream().CloseThread(), S_OK); });
        EXPECT_TRUE(m_log.WaitForPrefix(" KVMPDStream::CloseThread "));
    }
    closer.join();
    ExpectAllEnded();
}

TEST_F(Stop, WhileATransferRunsCompletesTheTransfer) {
    m_media->gate.Close();
    Start(100, 1, 60000);
    m_media->gate.WaitForArrivals(1);
    std::thread closer([this] { EXPECT_EQ(Stream().CloseThread(), S_OK); });
    EXPECT_TRUE(m_log.WaitForPrefix(" SegmentDownloader::CloseThread "));
    EXPECT_TRUE(Access::Downloader(Stream()).IsThreadRunning());
    m_media->gate.Open();
    closer.join();
    ExpectAllEnded();
}

TEST_F(Stop, ARestartDuringTheCloseDoesNotTakeTheDownloadersEndMarkerAway) {
    m_media->gate.Close();
    Start(100, 1, 60000);
    m_media->gate.WaitForArrivals(1);
    m_log.Clear();
    std::thread closer([this] { EXPECT_EQ(Stream().CloseThread(), S_OK); });
    // The end marker is queued before the base waits for the thread: the third such line, after the loader's two.
    EXPECT_TRUE(m_log.WaitForPrefix(" WorkerProcessor::CloseThread ", 3));
    for (const DWORD quality : {1u, 2u}) {
        Stream().SetVideoQualityID(quality);
        Loader().pauseParse(1);
        Stream().Run();
        Stream().SeekToTargetSegment(500);
    }
    // The transfer keeps the downloader from its queue. A closed queue hands out what it holds and then empty pointers.
    Access::Queue(Stream())->close();
    const std::shared_ptr<Segment> marker = Access::Queue(Stream())->pop();
    EXPECT_TRUE(marker && marker->IsEndMarker());
    m_media->gate.Open();
    closer.join();
    ExpectAllEnded();
}

TEST_F(Stop, ARestartOfAClosingEngineLeavesTheDownloadersQueueAlone) {
    Access::SetClosing(Stream());
    Access::Queue(Stream())->push(std::make_shared<Segment>());
    Stream().SeekToTargetSegment(500);
    Stream().SetVideoQualityID(1);
    EXPECT_EQ(m_log.Count(" SegmentDownloader::clear "), 0u);
    Access::Downloader(Stream()).Init(Access::Queue(Stream()));
    EXPECT_TRUE(m_log.WaitForPrefix(" SegmentDownloader::ThreadProc  get end segment. stop thread!!"));
}

// The queue that could not be cleared still holds segments of the order before the restart.
TEST_F(Stop, ARestartOfAClosingEngineShutsTheCache) {
    Push(CountingSegment(104, 1000, 10, 10));
    Access::SetClosing(Stream());
    Push(CountingSegment(105, 1000, 10, 10));
    EXPECT_EQ(Cache().numbers, (std::vector<LONGLONG>{104, 105}));  // a close alone drops nothing
    Stream().SetVideoQualityID(1);
    Push(CountingSegment(106, 1000, 10, 10));
    Push(CountingSegment(103, 1000, 10, 10));
    EXPECT_TRUE(Cache().numbers.empty());
}

TEST_F(Stop, WhileTheLoaderFetchesCompletesTheFetch) {
    m_manifests->gate.Close();
    Start(100, 1, 60000);
    m_manifests->gate.WaitForArrivals(1);
    std::thread closer([this] { EXPECT_EQ(Stream().CloseThread(), S_OK); });
    EXPECT_TRUE(m_log.WaitForPrefix(" MpdLoader::CloseThread "));
    m_manifests->gate.Open();
    closer.join();
    ExpectAllEnded();
}

TEST_F(Stop, WhileAReaderRetries) {
    Start(100, 1, 60000);
    std::atomic<bool> done{false};
    Gate reading;
    std::thread reader([&] {
        std::vector<BYTE> bytes;
        while (!done) {
            ReadAt(true, 100000, 100, bytes);
            reading.Pass();
        }
    });
    reading.WaitForArrivals(3);
    EXPECT_EQ(Stream().CloseThread(), S_OK);
    ExpectAllEnded();
    done = true;
    reader.join();
}

TEST_F(Stop, FromTwoThreadsAtOnce) {
    Start(100, 3, 1000);
    std::thread other([this] { EXPECT_EQ(Stream().CloseThread(), S_OK); });
    EXPECT_EQ(Stream().CloseThread(), S_OK);
    other.join();
    ExpectAllEnded();
}

TEST_F(Stop, LeavesWhatIsCachedReadable) {
    Start(100, 1, 60000);
    EXPECT_TRUE(m_log.WaitForPrefix(" KVMPDStream::PushSegmentToCache total"));
    Stream().CloseThread();
    EXPECT_EQ(ReadVideo(0, 1000), S_OK);
    EXPECT_EQ(Bytes(), MediaBytes(100, true, 1000));
}

TEST_F(Stop, AnInitAfterwardsIsClosedAgainByTheDestructor) {
    Start(100, 1, 60000);
    Stream().CloseThread();
    EXPECT_EQ(Stream().Init(L"http://origin/other.mpd"), S_OK);
    EXPECT_TRUE(Loader().IsThreadRunning());
    m_stream.reset();
    EXPECT_TRUE(std::filesystem::is_empty(m_dir.Path()));
}

// A pass takes the cache lock: while a test has it, a feed thread that ends has made none.

TEST_F(Stop, BeforeTheFeedBeginsItMakesNoPass) {
    Stream().releaseBuffer();
    Push(CountingSegment(100, 1000, 10));
    Access::SetClosing(Stream());
    const CritSecLock cache(Access::CacheLock(Stream()));
    EXPECT_EQ(Stream().StartThread(), S_OK);
    EXPECT_TRUE(m_log.WaitForPrefix(kFeedEnded));
}

TEST_F(Stop, WhileTheFeedSleepsItMakesNoFurtherPass) {
    Push(CountingSegment(100, 1000, 10));
    EXPECT_EQ(Stream().StartThread(), S_OK);
    EXPECT_TRUE(m_log.WaitForPrefix(kFeedStuck));
    const CritSecLock cache(Access::CacheLock(Stream()));  // has the pass behind it
    Access::SetClosing(Stream());
    Stream().releaseBuffer();  // signals the event
    EXPECT_TRUE(m_log.WaitForPrefix(kFeedEnded));
}

TEST_F(Stop, TheFeedSleepsUntilBothEventsAreSignalled) {
    Push(CountingSegment(100, 1000, 10));
    EXPECT_EQ(Stream().StartThread(), S_OK);
    EXPECT_TRUE(m_log.WaitForPrefix(kFeedStuck));
    EXPECT_TRUE(Access::IsSegmentEventSet(Stream()));
    // A feed that one event satisfied would be back after its pause of 100 ms.
    EXPECT_FALSE(m_log.WaitForPrefix(kFeedStuck, 2, 300));
    Stream().releaseBuffer();
    EXPECT_TRUE(m_log.WaitForPrefix(kFeedStuck, 2));
}

TEST_F(Stop, AHundredStartsAndStopsLeaveNothingBehind) {
    SetLogsOff();
    m_manifests->Set(MakeManifest(100, 3, 60000));
    const auto startAndStop = [this] {
        const TempDir folder;
        for (int i = 0; i < 10; ++i) {
            RecordingHost host;
            {
                KVMPDStream stream(std::make_unique<ScriptedManifests>(m_manifests),
                                   std::make_unique<ScriptedHttp>(m_media));
                EXPECT_EQ(stream.SetCallback(&host), S_OK);
                EXPECT_EQ(stream.SetCacheFileFolder(folder.Path().string().c_str()), S_OK);
                EXPECT_EQ(stream.Init(L"http://origin/live.mpd"), S_OK);
                host.WaitFor("0(0,60000)");
                if (i % 2 == 0) {
                    stream.CloseThread();
                }
            }
            EXPECT_EQ(host.References(), 0);
            EXPECT_TRUE(std::filesystem::is_empty(folder.Path())) << i;
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 10; ++i) {
        threads.emplace_back(startAndStop);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

// The event that a full buffer resets is the event by which the close wakes the feed and the downloader.

TEST_F(Stop, ACloseIsNeverForgottenByAFeedThatResetsItsEvent) {
    SetLogsOff();
    for (int i = 0; i < 300; ++i) {
        m_stream = std::make_unique<KVMPDStream>(std::make_unique<ScriptedManifests>(m_manifests),
                                                 std::make_unique<ScriptedHttp>(m_media));
        Stream().CreateBuffer(10);
        Push(MakeSegment(100, 1000, 300, 30));
        Gate go;
        go.Close();
        std::thread feed([&] {
            go.Pass();
            for (int pass = 0; pass < 20; ++pass) {
                Stream().ReadSegmentCacheToBuffer();
            }
        });
        go.WaitForArrivals(1);
        go.Open();
        Stream().CloseThread();
        feed.join();
        // Whatever the passes did after it, the close is still to be seen.
        ASSERT_TRUE(Access::IsBufferEventSet(Stream())) << i;
    }
}

TEST_F(Stop, ACloseReleasesAPusherThatIsJustAboutToWait) {
    SetLogsOff();
    for (int i = 0; i < 500; ++i) {
        m_stream = std::make_unique<KVMPDStream>(std::make_unique<ScriptedManifests>(m_manifests),
                                                 std::make_unique<ScriptedHttp>(m_media));
        Stream().SetMaxCacheTime(0);
        Stream().CreateBuffer(10);
        Access::ResetBufferEvent(Stream());
        std::thread pusher([&] { PushCounting(100, 3, 1000); });
        std::thread feed([&] {
            for (int pass = 0; pass < 5; ++pass) {
                Stream().ReadSegmentCacheToBuffer();
                Access::WaitForReader(Stream());
            }
        });
        Stream().CloseThread();
        pusher.join();
        feed.join();
    }
}

}  // namespace
}  // namespace kvmpd::test
