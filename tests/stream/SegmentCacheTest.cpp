// Taking segments in, reporting the playable range, and emptying.
#include "tests/stream/StreamTest.h"

namespace kvmpd::test {
namespace {

class SegmentCache : public StreamTest {};

TEST_F(SegmentCache, IsBornEmpty) {
    const Access::Cache cache = Cache();
    EXPECT_TRUE(cache.numbers.empty());
    EXPECT_EQ(cache.duration, 0u);
    EXPECT_EQ(cache.videoEnd, 0);
    EXPECT_EQ(Access::MaxCacheTime(Stream()), 300000u);
    EXPECT_FALSE(Access::IsSegmentEventSet(Stream()));
    EXPECT_FALSE(Access::IsBufferEventSet(Stream()));
}

TEST_F(SegmentCache, CountsWhatIsPushed) {
    Push(CountingSegment(100, 2000, 1000, 100));
    Push(CountingSegment(101, 1500, 700, 50));
    const Access::Cache cache = Cache();
    EXPECT_EQ(cache.numbers, (std::vector<LONGLONG>{100, 101}));
    EXPECT_EQ(cache.firstId, 100);
    EXPECT_EQ(cache.duration, 3500u);
    EXPECT_EQ(cache.start, 0);
    EXPECT_EQ(cache.videoStart, 0);
    EXPECT_EQ(cache.videoEnd, 1700);
    EXPECT_EQ(cache.audioStart, 0);
    EXPECT_EQ(cache.audioEnd, 150);
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::PushSegmentToCache push segment 100"));
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::PushSegmentToCache push segment 101"));
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::PushSegmentToCache total segment cache become 3500 milliseconds"));
}

TEST_F(SegmentCache, SignalsThatItGainedASegment) {
    Push(CountingSegment(100, 2000));
    EXPECT_TRUE(Access::IsSegmentEventSet(Stream()));
}

TEST_F(SegmentCache, RejectsASegmentWithNeitherDurationNorVideo) {
    Push(CountingSegment(7, 0, 0, 500));
    EXPECT_TRUE(
        m_log.Contains("[Error] KVMPDStream::PushSegmentToCache get strange segment 7. duration: 0, total size: 0."));
    EXPECT_TRUE(Cache().numbers.empty());
    EXPECT_EQ(Cache().audioEnd, 0);
    EXPECT_FALSE(Access::IsSegmentEventSet(Stream()));
    EXPECT_EQ(m_log.CountPrefix(" KVMPDStream::PushSegmentToCache"), 0u);
}

TEST_F(SegmentCache, RejectsTheEndMarker) {
    Push(std::make_shared<Segment>());
    EXPECT_TRUE(Cache().numbers.empty());
}

TEST_F(SegmentCache, AcceptsVideoWithoutADuration) {
    Push(CountingSegment(7, 0, 1));
    EXPECT_EQ(Access::CacheSize(Stream()), 1u);
}

TEST_F(SegmentCache, AcceptsADurationWithoutVideo) {
    Push(CountingSegment(7, 1, 0));
    EXPECT_EQ(Access::CacheSize(Stream()), 1u);
}

TEST_F(SegmentCache, TakesADurationAsUnsigned) {
    Stream().releaseBuffer();  // so that the push is not held back
    Push(CountingSegment(7, -1, 0));
    EXPECT_EQ(Access::CacheSize(Stream()), 1u);
    EXPECT_EQ(Cache().duration, 0xFFFFFFFFu);
}

TEST_F(SegmentCache, LogsARejectionAtLevelFourAndAPushAtSix) {
    ExpectLevel(4, "[Error] KVMPDStream::PushSegmentToCache get strange segment 7. duration: 0, total size: 0.",
                [this] { Push(CountingSegment(7, 0, 0)); });
    ExpectLevel(6, " KVMPDStream::PushSegmentToCache push segment 8", [this] { Push(CountingSegment(8, 0, 1)); });
}

TEST_F(SegmentCache, AsksTheFilterForItsStateWithoutWaiting) {
    Stream().SetFilter(&m_filter);
    Push(CountingSegment(7, 1, 0));
    EXPECT_EQ(m_filter.asked, 1);
    EXPECT_EQ(m_filter.timeout, 0u);
}

TEST_F(SegmentCache, HoldsNoReferenceOnTheFilter) {
    Stream().SetFilter(&m_filter);
    Push(CountingSegment(7, 1, 0));
    EXPECT_EQ(m_filter.references, 1);
    Stream().SetFilter(nullptr);
    EXPECT_EQ(m_filter.references, 1);
}

TEST_F(SegmentCache, DropsASegmentThatARestartOvertookOnItsWay) {
    Access::Downloader(Stream()).clear();
    m_log.Clear();
    Push(CountingSegment(7, 2000, 10, 10));
    EXPECT_TRUE(Cache().numbers.empty());
    EXPECT_TRUE(m_log.Contains(" SegmentDownloader::ThreadProc discard segment 7."));
    Push(CountingSegment(8, 2000, 10, 10));
    EXPECT_EQ(Cache().numbers, std::vector<LONGLONG>{8});
}

TEST_F(SegmentCache, DropsASegmentOfAnEarlierUrl) {
    Publish(100, 3, 60000);
    std::shared_ptr<Segment> old = CountingSegment(7, 2000, 10, 10);
    old->m_generation = 1;
    Push(old);
    EXPECT_EQ(Access::CacheSize(Stream()), 1u);
    EXPECT_EQ(Loader().Init(L"http://origin/other.mpd", Access::Queue(Stream())), S_OK);
    Loader().CloseThread();
    std::shared_ptr<Segment> late = CountingSegment(8, 2000, 10, 10);
    late->m_generation = 1;
    Push(late);
    EXPECT_EQ(Access::CacheSize(Stream()), 1u);
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::PushSegmentToCache drop segment 8 of an earlier url"));
}

TEST_F(SegmentCache, ResettingItForgetsEverything) {
    PushCounting(100, 5, 2000, 10, 5);
    Access::SetCacheIndex(Stream(), 3);
    m_log.Clear();
    Stream().resetSegmentCache(true);
    const Access::Cache cache = Cache();
    EXPECT_TRUE(cache.numbers.empty());
    EXPECT_EQ(cache.index, 0u);
    EXPECT_EQ(cache.duration, 0u);
    EXPECT_EQ(cache.firstId, 0);
    EXPECT_EQ(cache.videoEnd, 0);
    EXPECT_EQ(cache.audioEnd, 0);
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::resetSegmentCache "));
}

TEST_F(SegmentCache, APartialResetKeepsTheClockAndThePositions) {
    PushCounting(100, 5, 2000, 10, 5);
    Stream().resetSegmentCache(false);
    const Access::Cache cache = Cache();
    EXPECT_TRUE(cache.numbers.empty());
    EXPECT_EQ(cache.duration, 0u);
    EXPECT_EQ(cache.firstId, 100);
    EXPECT_EQ(cache.videoEnd, 50);
    EXPECT_EQ(cache.audioEnd, 25);
}

TEST_F(SegmentCache, DeletesTheFilesOfWhatItForgets) {
    std::shared_ptr<Segment> segment = MakeSegment(100, 2000, 10, 5);
    const std::weak_ptr<Segment> observed = segment;
    Push(std::move(segment));
    EXPECT_TRUE(std::filesystem::exists(m_dir.Path() / "100.mp4"));
    EXPECT_FALSE(observed.expired());
    Stream().resetSegmentCache(true);
    EXPECT_TRUE(observed.expired());
    EXPECT_TRUE(std::filesystem::is_empty(m_dir.Path()));
}

TEST_F(SegmentCache, ReleasingTheBuffersEmptiesThemAndWakesWhoeverWaits) {
    Stream().CreateBuffer(1000);
    PushSegments(100, 2, 2000, 300, 30);
    Stream().ReadSegmentCacheToBuffer();
    Access::SetWritten(Stream(), 7, 8);
    Access::ResetBufferEvent(Stream());
    m_log.Clear();
    Stream().releaseBuffer();
    LONGLONG start = -1;
    LONGLONG end = -1;
    Stream().Size(&start, &end);
    EXPECT_EQ(start, 0);
    EXPECT_EQ(end, 0);
    Stream().SizeAudio(&start, &end);
    EXPECT_EQ(end, 0);
    EXPECT_EQ(Cache().videoWritten, 0);
    EXPECT_EQ(Cache().audioWritten, 0);
    EXPECT_TRUE(Access::IsBufferEventSet(Stream()));
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::releaseBuffer "));
    EXPECT_EQ(m_log.Count(" BufferHandler::Clear "), 2u);
}

// The report to the host.

TEST_F(SegmentCache, ReportsNothingWithoutAHost) {
    Stream().UpdateCacheSegmentInfo();
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::UpdateCacheSegmentInfo "));
    EXPECT_EQ(m_log.CountPrefix(" KVMPDStream::UpdateCacheSegmentInfo OnBuffering"), 0u);
}

TEST_F(SegmentCache, ReportsTheManifestsRangeWhileItReachesFurtherThanTheCache) {
    Publish(100, 5, 2000);
    EXPECT_EQ(Loader().TotalQueuedDuration(), 2000u);
    ListenAsHost();
    PushCounting(104, 1, 2000);
    EXPECT_TRUE(m_log.Contains(
        " KVMPDStream::UpdateCacheSegmentInfo OnBuffering: start: -8000, cache total: 2000, total: 2000"));
    EXPECT_EQ(Heard(), std::vector<std::string>{"buffering(-8000,2000,2000)"});
}

TEST_F(SegmentCache, ReportsTheManifestsRangeWhenBothReachEquallyFar) {
    Publish(100, 1, 2000);
    ListenAsHost();
    PushCounting(100, 1, 2000);
    EXPECT_EQ(Heard(), std::vector<std::string>{"buffering(0,2000,2000)"});
}

TEST_F(SegmentCache, ReportsItsOwnRangeWhenItReachesFurtherThanTheManifest) {
    Publish(100, 1, 2000);
    ListenAsHost();
    PushCounting(100, 2, 2000);
    EXPECT_EQ(Heard(), (std::vector<std::string>{"buffering(0,2000,2000)", "buffering(0,4000,4000)"}));
}

TEST_F(SegmentCache, ReportsItsOwnRangeWithoutAManifest) {
    ListenAsHost();
    PushCounting(100, 1, 2000);
    EXPECT_EQ(Heard(), std::vector<std::string>{"buffering(0,2000,2000)"});
}

TEST_F(SegmentCache, TellsAHostOfADownloadThatFailed) {
    ListenAsHost();
    Access::TellSegmentFailed(Stream());
    EXPECT_EQ(Heard(), std::vector<std::string>{"9(0,0)"});
}

TEST_F(SegmentCache, TellsNobodyOfAFailedDownloadWithoutAHost) {
    Access::TellSegmentFailed(Stream());
    EXPECT_EQ(m_log.CountPrefix(" MPDEventHandler::"), 0u);
}

}  // namespace
}  // namespace kvmpd::test
