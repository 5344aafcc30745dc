// Loading a URL: the first one, the same again, another one.
#include "tests/stream/StreamTest.h"

namespace kvmpd::test {
namespace {

constexpr char kFeedStarted[] = " KVMPDStream::ThreadProc ";

class Init : public StreamTest {
  protected:
    /// What the loader fetches is left open: these tests are about the start alone.
    Init() { m_manifests->Fail(E_FAIL); }
};

TEST_F(Init, StartsLoaderDownloaderAndFeedAndMakesTheBuffers) {
    EXPECT_EQ(Stream().Init(L"http://origin/live.mpd"), S_OK);
    EXPECT_TRUE(Loader().IsThreadRunning());
    EXPECT_TRUE(Access::Downloader(Stream()).IsThreadRunning());
    EXPECT_TRUE(Stream().IsThreadRunning());
    EXPECT_EQ(Access::BufferSize(Stream()), 0x1000000);
    EXPECT_EQ(Stream().GetUrl(), L"http://origin/live.mpd");
    EXPECT_TRUE(m_log.WaitForPrefix(kFeedStarted));
    std::vector<std::string> lines = m_log.Lines();
    std::erase_if(lines, [](const std::string& line) {
        return !line.starts_with(" KVMPDStream::Init") && !line.starts_with(" MpdLoader::Init") &&
               !line.starts_with(" SegmentDownloader::Init") && !line.starts_with(" KVMPDStream::CreateBuffer");
    });
    EXPECT_EQ(lines,
              (std::vector<std::string>{" KVMPDStream::Init : http://origin/live.mpd", " MpdLoader::Init ",
                                        " SegmentDownloader::Init ", " KVMPDStream::CreateBuffer create 16777216 size",
                                        " KVMPDStream::CreateBuffer allocate audio buffer size 16777216 success"}));
}

TEST_F(Init, DoesNotEndAStop) {
    Stream().StopNow(1);
    EXPECT_EQ(Stream().Init(L"http://origin/live.mpd"), S_OK);
    EXPECT_EQ(Stream().IsStopped(), 1);
}

TEST_F(Init, SkipsTheUrlThatIsLoadedWithoutRegardToCase) {
    EXPECT_EQ(Stream().Init(L"http://origin/live.mpd"), S_OK);
    PushCounting(100, 1, 1000);
    m_log.Clear();
    EXPECT_EQ(Stream().Init(L"HTTP://ORIGIN/Live.MPD"), S_OK);
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::Init : HTTP://ORIGIN/Live.MPD"));
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::Init skip load due to url is the same"));
    EXPECT_EQ(Stream().GetUrl(), L"http://origin/live.mpd");
    EXPECT_EQ(Access::CacheSize(Stream()), 1u);
    EXPECT_EQ(m_log.Count(" MpdLoader::Init "), 0u);
}

TEST_F(Init, LogsAtItsLevels) {
    EXPECT_EQ(Stream().Init(L"http://origin/live.mpd"), S_OK);
    ExpectLevel(4, " KVMPDStream::Init : ", [this] { Stream().Init(L"http://origin/live.mpd"); });
    ExpectLevel(3, " KVMPDStream::Init skip", [this] { Stream().Init(L"http://origin/live.mpd"); });
}

TEST_F(Init, AnotherUrlKeepsThreadsAndBuffersAndEmptiesTheCache) {
    EXPECT_EQ(Stream().Init(L"http://origin/live.mpd"), S_OK);
    EXPECT_TRUE(m_log.WaitForPrefix(kFeedStarted));
    PushSegments(100, 2, 1000, 300, 30);
    m_log.Clear();
    EXPECT_EQ(Stream().Init(L"http://origin/other.mpd"), S_OK);
    EXPECT_EQ(Stream().GetUrl(), L"http://origin/other.mpd");
    EXPECT_TRUE(Cache().numbers.empty());
    EXPECT_EQ(Cache().videoEnd, 0);
    LONGLONG start = -1;
    LONGLONG end = -1;
    Stream().Size(&start, &end);
    EXPECT_EQ(end, 0);
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::releaseBuffer "));
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::resetSegmentCache "));
    EXPECT_EQ(m_log.Count(kFeedStarted), 0u);
    EXPECT_EQ(m_log.Count(" SegmentDownloader::Init "), 0u);
    EXPECT_EQ(m_log.Count(" SegmentDownloader::clear "), 0u);
    EXPECT_EQ(m_log.CountPrefix(" KVMPDStream::CreateBuffer"), 0u);
    EXPECT_EQ(m_log.Count(" CRingBuffer::CRingBuffer "), 0u);
}

TEST_F(Init, AnEmptyUrlIsTheOneThatIsLoadedAtFirst) {
    EXPECT_EQ(Stream().GetUrl(), L"");
    EXPECT_EQ(Stream().Init(L""), S_OK);
    EXPECT_FALSE(Loader().IsThreadRunning());
}

TEST_F(Init, ReadsWaitUntilSomethingIsThere) {
    EXPECT_EQ(ReadVideo(0, 10), S_FALSE);
    EXPECT_EQ(Stream().Init(L"http://origin/live.mpd"), S_OK);
    EXPECT_EQ(ReadVideo(0, 10), S_FALSE);
}

}  // namespace
}  // namespace kvmpd::test
