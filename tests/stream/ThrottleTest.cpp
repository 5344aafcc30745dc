// Holding the downloader back while the cache is full, and letting it go.
#include "tests/stream/StreamTest.h"

namespace kvmpd::test {
namespace {

constexpr char kWaits[] = " KVMPDStream::PushSegmentToCache buffer is full. Start to wait!";

class Throttle : public StreamTest {
  protected:
    Throttle() {
        Stream().SetFilter(&m_filter);
        Stream().SetMaxCacheTime(2);
    }
    ~Throttle() override {
        // A test that failed must not hang at its end.
        Stream().releaseBuffer();
        m_pusher.join();
    }

    /// Fills the cache over its limit on a thread of its own and waits until that thread is held.
    void PushUntilHeld() {
        m_pusher = std::thread([this] {
            PushCounting(100, 3, 1000);
            m_released.Pass();
        });
        EXPECT_TRUE(m_log.WaitForPrefix(kWaits));
        EXPECT_FALSE(m_released.ArriveWithin(1, kGrace));
    }
    void ExpectReleased() {
        m_released.WaitForArrivals(1);
        EXPECT_EQ(m_log.Lines().back(),
                  " KVMPDStream::PushSegmentToCache total segment cache become 3000 milliseconds");
    }

    std::thread m_pusher;
    Gate m_released;
};

TEST_F(Throttle, HoldsThePusherWhileTheReaderIsStuckAndAVideoReadReleasesIt) {
    PushUntilHeld();
    EXPECT_EQ(Access::CacheSize(Stream()), 3u);
    EXPECT_EQ(m_log.Count(kWaits), 1u);
    ReadVideo(0, 10);
    m_released.WaitForArrivals(1);
}

TEST_F(Throttle, AnAudioReadReleasesIt) {
    PushUntilHeld();
    ReadAudio(0, 10);
    m_released.WaitForArrivals(1);
}

TEST_F(Throttle, ReleasingTheBuffersReleasesIt) {
    PushUntilHeld();
    Stream().releaseBuffer();
    ExpectReleased();
}

TEST_F(Throttle, CreatingTheBuffersReleasesIt) {
    PushUntilHeld();
    Stream().CreateBuffer(100);
    ExpectReleased();
}

TEST_F(Throttle, ChoosingAnotherQualityReleasesIt) {
    PushUntilHeld();
    Stream().SetVideoQualityID(2);
    m_released.WaitForArrivals(1);
}

TEST_F(Throttle, ASeekOutsideTheCacheReleasesIt) {
    PushUntilHeld();
    Stream().SeekToTargetSegment(500);
    m_released.WaitForArrivals(1);
}

TEST_F(Throttle, ClosingReleasesIt) {
    PushUntilHeld();
    Stream().CloseThread();
    m_released.WaitForArrivals(1);
}

TEST_F(Throttle, HoldsNoLockThatAReaderOrTheFeedNeeds) {
    PushUntilHeld();
    Stream().ReadSegmentCacheToBuffer();
    EXPECT_EQ(Stream().IsSegmentInCache(101), TRUE);
    LONGLONG start = 0;
    LONGLONG end = 0;
    EXPECT_EQ(Stream().Size(&start, &end), S_OK);
    EXPECT_FALSE(m_released.ArriveWithin(1, kGrace)) << "the feed consumes nothing";
}

class NoThrottle : public StreamTest {};

TEST_F(NoThrottle, WhileABufferEventIsSignalled) {
    Stream().SetMaxCacheTime(2);
    Stream().releaseBuffer();
    PushCounting(100, 5, 1000);
    EXPECT_EQ(m_log.Count(kWaits), 0u);
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::PushSegmentToCache total segment cache become 5000 milliseconds"));
}

TEST_F(NoThrottle, AtExactlyTheLimit) {
    Stream().SetMaxCacheTime(3);
    PushCounting(100, 3, 1000);
    EXPECT_EQ(m_log.Count(kWaits), 0u);
}

TEST_F(NoThrottle, OfSegmentsWithoutDuration) {
    Stream().SetMaxCacheTime(0);
    PushCounting(100, 3, 0, 10);
    EXPECT_EQ(m_log.Count(kWaits), 0u);
}

TEST_F(NoThrottle, WhilePaused) {
    // What would keep the cache over its limit is released then, and the loader is sent back.
    m_filter.state = State_Paused;
    Stream().SetFilter(&m_filter);
    Publish(100, 1, 60000);
    Stream().SetMaxCacheTime(2);
    PushCounting(100, 5, 1000);
    EXPECT_EQ(m_log.Count(kWaits), 0u);
}

TEST_F(NoThrottle, OnceTheEngineCloses) {
    Stream().SetMaxCacheTime(1);
    Stream().CloseThread();
    PushCounting(100, 5, 1000);
    EXPECT_EQ(m_log.Count(kWaits), 0u);
}

}  // namespace
}  // namespace kvmpd::test
