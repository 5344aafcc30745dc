// Seeking by segment number: inside the cache, and outside of it.
#include <limits>

#include "tests/stream/StreamTest.h"

namespace kvmpd::test {
namespace {

class CacheSeek : public StreamTest {
  protected:
    void FeedAll() { Stream().ReadSegmentCacheToBuffer(); }
};

TEST_F(CacheSeek, AnEmptyCacheHoldsNoSegment) {
    EXPECT_EQ(Stream().IsSegmentInCache(0), FALSE);
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::IsSegmentInCache  cache is empty"));
}

struct TargetCase {
    LONGLONG target;
    BOOL inCache;
};

class CacheSeekTarget : public CacheSeek, public testing::WithParamInterface<TargetCase> {};

TEST_P(CacheSeekTarget, IsInTheCacheUpToOnePastTheNewest) {
    PushCounting(100, 5, 1000);
    EXPECT_EQ(Stream().IsSegmentInCache(GetParam().target), GetParam().inCache);
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::IsSegmentInCache start: 100, size:5, target: " +
                               std::to_string(GetParam().target)));
}

INSTANTIATE_TEST_SUITE_P(Targets, CacheSeekTarget,
                         testing::Values(TargetCase{-1, FALSE}, TargetCase{99, FALSE}, TargetCase{100, TRUE},
                                         TargetCase{104, TRUE}, TargetCase{105, TRUE}, TargetCase{106, FALSE}));

TEST_F(CacheSeek, NumbersAtTheEndOf64BitsAreFoundInTheCache) {
    constexpr LONGLONG kLast = std::numeric_limits<LONGLONG>::max();
    PushCounting(kLast - 2, 3, 1000);
    EXPECT_EQ(Stream().IsSegmentInCache(kLast), TRUE);
    EXPECT_EQ(Stream().IsSegmentInCache(kLast - 2), TRUE);
    EXPECT_EQ(Stream().IsSegmentInCache(kLast - 3), FALSE);
    EXPECT_EQ(Stream().IsSegmentInCache(std::numeric_limits<LONGLONG>::min()), FALSE);
}

TEST_F(CacheSeek, InsideRebasesEveryPositionOnTheTarget) {
    PushCounting(100, 1, 2000, 1000, 100);
    PushCounting(101, 1, 1500, 700, 70);
    PushCounting(102, 1, 1000, 500, 50);
    m_log.Clear();
    EXPECT_EQ(Stream().SeekToTargetSegment(101), 1);
    const Access::Cache cache = Cache();
    EXPECT_EQ(cache.start, -2000);
    EXPECT_EQ(cache.videoStart, -1000);
    EXPECT_EQ(cache.videoEnd, 1200);
    EXPECT_EQ(cache.audioStart, -100);
    EXPECT_EQ(cache.audioEnd, 120);
    EXPECT_EQ(cache.index, 1u);
    EXPECT_EQ(cache.duration, 4500u);
    EXPECT_EQ(cache.firstId, 100);
    EXPECT_FALSE(cache.seekPending);
    for (const char* line :
         {" KVMPDStream::SeekToTargetSegment : 101",
          " KVMPDStream::SeekToTargetSegment find new start segment in cache",
          " KVMPDStream::SeekToTargetSegment get lock to find segment index and update cache info. Original cache "
          "start: 0, length: 4500, video total bytes: 2200, audio total bytes: 220",
          " KVMPDStream::SeekToTargetSegment update cache start: -2000, size: 4500. video range: -1000~1200, audio "
          "range: -100~120",
          " KVMPDStream::SeekToTargetSegment : release buffer to access segment index to 1",
          " KVMPDStream::SeekToTargetSegment the new segment index is 1 of 3 caches",
          " KVMPDStream::SeekToTargetSegment callback position changed."}) {
        EXPECT_TRUE(m_log.Contains(line)) << line;
    }
}

TEST_F(CacheSeek, LogsItsStepsAtTheirLevels) {
    PushCounting(100, 3, 1000, 10, 5);
    const auto seek = [this] { Stream().SeekToTargetSegment(101); };
    ExpectLevel(3, " KVMPDStream::SeekToTargetSegment : 101", seek);
    ExpectLevel(3, " KVMPDStream::SeekToTargetSegment find new start segment in cache", seek);
    ExpectLevel(4, " KVMPDStream::IsSegmentInCache start: 100", seek);
    ExpectLevel(6, " KVMPDStream::SeekToTargetSegment get lock", seek);
    ExpectLevel(6, " KVMPDStream::SeekToTargetSegment update cache start", seek);
    ExpectLevel(4, " KVMPDStream::SeekToTargetSegment : release buffer", seek);
    ExpectLevel(3, " KVMPDStream::SeekToTargetSegment the new segment index is", seek);
    ExpectLevel(5, " KVMPDStream::SeekToTargetSegment callback position changed.", seek);
    const auto seekAway = [this] { Stream().SeekToTargetSegment(1); };
    ExpectLevel(3, " KVMPDStream::SeekToTargetSegment reset cache due to segment is not in cache", seekAway);
    ExpectLevel(4, " KVMPDStream::IsSegmentInCache  cache is empty", seekAway);
    ExpectLevel(6, " KVMPDStream::resetSegmentCache ", seekAway);
    ExpectLevel(5, " KVMPDStream::releaseBuffer ", seekAway);
    ExpectLevel(3, " SegmentDownloader::clear ", seekAway);
}

TEST_F(CacheSeek, ASecondSeekRebasesFromTheFirst) {
    PushCounting(100, 4, 1000, 100, 10);
    Stream().SeekToTargetSegment(102);
    Stream().SeekToTargetSegment(101);
    Access::Cache cache = Cache();
    EXPECT_EQ(cache.start, -1000);
    EXPECT_EQ(cache.videoStart, -100);
    EXPECT_EQ(cache.videoEnd, 300);
    Stream().SeekToTargetSegment(100);
    cache = Cache();
    EXPECT_EQ(cache.start, 0);
    EXPECT_EQ(cache.videoStart, 0);
    EXPECT_EQ(cache.videoEnd, 400);
    EXPECT_EQ(cache.audioEnd, 40);
}

TEST_F(CacheSeek, OnePastTheNewestWaitsForTheNextSegmentAtPositionZero) {
    Stream().CreateBuffer(1000);
    PushSegments(100, 2, 1000, 300, 30);
    Stream().SeekToTargetSegment(102);
    EXPECT_EQ(Cache().index, 2u);
    EXPECT_EQ(Cache().videoEnd, 0);
    EXPECT_EQ(ReadVideo(0, 100), S_FALSE);
    Push(MakeSegment(102, 1000, 300, 30));
    FeedAll();
    EXPECT_EQ(ReadVideo(0, 300), S_OK);
    EXPECT_EQ(Bytes(), MediaBytes(102, true, 300));
    EXPECT_EQ(ReadVideo(-300, 300), S_OK);
    EXPECT_EQ(Bytes(), MediaBytes(101, true, 300));
}

TEST_F(CacheSeek, WithAGapInTheNumbersGoesToTheNextOneThere) {
    PushCounting(100, 1, 1000, 100, 10);
    PushCounting(103, 1, 1000, 100, 10);
    PushCounting(102 + 2, 1, 1000, 100, 10);
    Stream().SeekToTargetSegment(101);
    EXPECT_EQ(Cache().index, 1u);
    EXPECT_EQ(Cache().videoStart, -100);
}

TEST_F(CacheSeek, TellsTheHostThatThePositionChangedAndWhatIsPlayable) {
    PushCounting(100, 3, 1000, 100, 10);
    ListenAsHost();
    Stream().SeekToTargetSegment(102);
    EXPECT_EQ(Heard(), (std::vector<std::string>{"8(0,1)", "buffering(-2000,1000,1000)"}));
}

TEST_F(CacheSeek, EmptiesTheBuffersAndStartsTheVideoOfTheTargetAtItsFirstByte) {
    Stream().CreateBuffer(1000);
    PushSegments(100, 3, 1000, 600, 60);
    FeedAll();
    EXPECT_EQ(Cache().videoWritten, 399);
    Access::ResetBufferEvent(Stream());
    Stream().SeekToTargetSegment(101);
    EXPECT_EQ(Cache().videoWritten, 0);
    LONGLONG start = -1;
    LONGLONG end = -1;
    Stream().Size(&start, &end);
    EXPECT_EQ(start, 0);
    EXPECT_EQ(end, 0);
    // Nobody is woken: the first read after the seek does that.
    EXPECT_FALSE(Access::IsBufferEventSet(Stream()));
    EXPECT_EQ(ReadVideo(0, 100), S_OK);
    EXPECT_EQ(Bytes(), MediaBytes(101, true, 100));
    EXPECT_TRUE(Access::IsBufferEventSet(Stream()));
}

TEST_F(CacheSeek, AnAudioThatWasAheadKeepsItsCountAndItsBytesStayRight) {
    // The video buffer is full in the middle of segment 100 while all its audio is copied.
    Stream().CreateBuffer(1000);
    PushSegments(100, 3, 1000, 2000, 50);
    FeedAll();
    EXPECT_EQ(Cache().audioWritten, 50);
    EXPECT_EQ(Cache().videoWritten, 999);
    Stream().SeekToTargetSegment(101);
    EXPECT_EQ(Cache().audioWritten, 50);
    FeedAll();
    LONGLONG start = -1;
    LONGLONG end = -1;
    Stream().SizeAudio(&start, &end);
    EXPECT_EQ(start, 50);
    EXPECT_EQ(end, 50);
    // The audio before comes from the file, and the next segment's goes into the buffer where it belongs.
    EXPECT_EQ(ReadAudio(0, 50), S_OK);
    EXPECT_EQ(Bytes(), MediaBytes(101, false, 50));
    const std::vector<BYTE> video = Concatenation(101, 2, true, 2000);
    for (size_t position = 0; position + 100 <= video.size(); position += 100) {
        ASSERT_EQ(ReadVideo(static_cast<LONGLONG>(position), 100), S_OK);
        ASSERT_EQ(Bytes(), Slice(video, position, 100)) << position;
        FeedAll();
    }
    Stream().SizeAudio(&start, &end);
    EXPECT_EQ(start, 50);
    EXPECT_EQ(end, 100);
    EXPECT_EQ(ReadAudio(50, 49), S_OK);
    EXPECT_EQ(Bytes(), MediaBytes(102, false, 49));
    EXPECT_EQ(ReadAudio(0, 100), S_OK);
    EXPECT_EQ(Bytes(), Concatenation(101, 2, false, 50));
}

TEST_F(CacheSeek, AnAudioThatWasAheadByMoreThanTheTargetHasStartsTheTargetsSuccessor) {
    Stream().CreateBuffer(1000);
    Push(MakeSegment(100, 1000, 100, 20));
    Push(MakeSegment(101, 1000, 2000, 80));
    Push(MakeSegment(102, 1000, 100, 40));
    FeedAll();
    EXPECT_EQ(Cache().audioWritten, 80);
    Stream().SeekToTargetSegment(100);
    FeedAll();
    LONGLONG start = -1;
    LONGLONG end = -1;
    Stream().SizeAudio(&start, &end);
    EXPECT_EQ(start, 20);
    EXPECT_EQ(end, 100);
    EXPECT_EQ(ReadAudio(20, 79), S_OK);
    EXPECT_EQ(Bytes(), MediaBytes(101, false, 79));
    EXPECT_EQ(ReadAudio(0, 20), S_OK);
    EXPECT_EQ(Bytes(), MediaBytes(100, false, 20));
}

TEST_F(CacheSeek, AudioThatIsPartlyCopiedBeginsInTheMiddleOfTheTarget) {
    // Here the audio buffer is the one that is full.
    Stream().CreateBuffer(1000);
    PushSegments(100, 3, 1000, 50, 3000);
    FeedAll();
    EXPECT_EQ(Cache().audioWritten, 999);
    Stream().SeekToTargetSegment(102);
    FeedAll();
    LONGLONG start = -1;
    LONGLONG end = -1;
    Stream().SizeAudio(&start, &end);
    EXPECT_EQ(start, 999);
    EXPECT_EQ(end, 999 + 999);
    const std::vector<BYTE> audio = MediaBytes(102, false, 3000);
    for (size_t position = 0; position + 100 <= audio.size(); position += 100) {
        ASSERT_EQ(ReadAudio(static_cast<LONGLONG>(position), 100), S_OK);
        ASSERT_EQ(Bytes(), Slice(audio, position, 100)) << position;
        FeedAll();
    }
}

TEST_F(CacheSeek, OutsideThrowsEverythingAwayAndStartsAnew) {
    Publish(100, 5, 60000);
    Stream().CreateBuffer(1000);
    PushSegments(100, 2, 1000, 300, 30);
    FeedAll();
    ListenAsHost();
    m_log.Clear();
    EXPECT_EQ(Stream().SeekToTargetSegment(500), 1);
    const Access::Cache cache = Cache();
    EXPECT_TRUE(cache.numbers.empty());
    EXPECT_EQ(cache.videoEnd, 0);
    EXPECT_TRUE(cache.seekPending);
    EXPECT_EQ(Loader().CurrentMpd(), nullptr);
    EXPECT_EQ(Loader().LastSegment(), 0);
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::SeekToTargetSegment reset cache due to segment is not in cache"));
    EXPECT_TRUE(m_log.Contains(" MpdLoader::resetStart "));
    EXPECT_TRUE(m_log.Contains(" SegmentDownloader::clear "));
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::resetSegmentCache "));
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::releaseBuffer "));
    LONGLONG start = -1;
    LONGLONG end = -1;
    Stream().Size(&start, &end);
    EXPECT_EQ(end, 0);
    EXPECT_EQ(Heard(), std::vector<std::string>{"buffering(0,0,0)"});
}

TEST_F(CacheSeek, OutsideDropsWhatIsQueuedAndWhatIsOnItsWay) {
    Stream().SetCacheFileFolder(m_dir.Path().string().c_str());
    const auto queue = [this](LONGLONG number) {
        std::shared_ptr<Segment> segment = CountingSegment(number, 1000);
        segment->m_videoUrl = VideoUrl(number);
        segment->m_audioUrl = AudioUrl(number);
        Access::Queue(Stream())->push(segment);
    };
    m_media->gate.Close();
    queue(100);
    queue(101);
    Access::Downloader(Stream()).Init(Access::Queue(Stream()));
    m_media->gate.WaitForArrivals(1);
    Stream().SeekToTargetSegment(500);
    queue(500);
    m_media->gate.Open();
    EXPECT_TRUE(m_log.WaitForPrefix(" KVMPDStream::PushSegmentToCache total"));
    EXPECT_TRUE(m_log.Contains(" SegmentDownloader::ThreadProc discard segment 100."));
    EXPECT_EQ(Cache().numbers, std::vector<LONGLONG>{500});
}

TEST_F(CacheSeek, OutsideIsDoneWhenItsFirstSegmentArrives) {
    ListenAsHost();
    Stream().SeekToTargetSegment(500);
    Push(CountingSegment(99, 1000));  // on its way when the seek came: discarded
    EXPECT_TRUE(Cache().seekPending);
    Heard();
    Push(CountingSegment(500, 1000));
    EXPECT_FALSE(Cache().seekPending);
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::PushSegmentToCache download file complete for seek!"));
    EXPECT_EQ(Heard(), (std::vector<std::string>{"buffering(0,1000,1000)", "8(0,1)"}));
    Push(CountingSegment(501, 1000));
    EXPECT_EQ(Heard(), std::vector<std::string>{"buffering(0,2000,2000)"});
}

TEST_F(CacheSeek, LogsThatASeekOutsideIsDoneAtLevelThree) {
    ExpectLevel(3, " KVMPDStream::PushSegmentToCache download file complete for seek!", [this] {
        Stream().SeekToTargetSegment(1);
        Push(CountingSegment(499, 1000));  // discarded
        Push(CountingSegment(500, 1000));
    });
}

TEST_F(CacheSeek, ForgetsThatTheFirstCopyOfTheAudioWasAheadWhenTheStreamStartsAnew) {
    Stream().CreateBuffer(1000);
    PushSegments(100, 2, 1000, 2000, 50);
    FeedAll();
    Stream().SeekToTargetSegment(101);
    Stream().SeekToTargetSegment(500);
    Push(MakeSegment(99, 1000, 10, 10));  // discarded
    Push(MakeSegment(500, 1000, 100, 50));
    FeedAll();
    LONGLONG start = -1;
    LONGLONG end = -1;
    Stream().SizeAudio(&start, &end);
    EXPECT_EQ(start, 0);
    EXPECT_EQ(end, 50);
}

}  // namespace
}  // namespace kvmpd::test
