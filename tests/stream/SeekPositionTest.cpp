// Seeking by media time.
#include "tests/stream/StreamTest.h"

namespace kvmpd::test {
namespace {

class SeekPosition : public StreamTest {};

// The cache reaches further back than the manifest.

struct CacheCase {
    LONGLONG position;
    LONG result;
    LONGLONG target;  // the segment that becomes position 0; 0: none
};

class SeekPositionInCache : public SeekPosition, public testing::WithParamInterface<CacheCase> {};

TEST_P(SeekPositionInCache, GoesToTheSegmentThatPlaysThen) {
    Publish(200, 2, 1000);
    PushCounting(100, 1, 2000, 10, 1);
    PushCounting(101, 1, 1000, 10, 1);
    PushCounting(102, 1, 3000, 10, 1);
    m_log.Clear();
    EXPECT_EQ(Stream().SetPosition(GetParam().position), GetParam().result);
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::SetPosition : " + std::to_string(GetParam().position)));
    EXPECT_EQ(m_log.Count(" KVMPDStream::SeekToTargetSegment find new start segment in cache"),
              GetParam().target > 0 ? 1u : 0u);
    if (GetParam().target > 0) {
        EXPECT_TRUE(m_log.Contains(" KVMPDStream::SetPosition find " + std::to_string(GetParam().position) +
                                   " position in cache"));
        EXPECT_EQ(Cache().index, static_cast<DWORD>(GetParam().target - 100));
    }
}

INSTANTIATE_TEST_SUITE_P(Positions, SeekPositionInCache,
                         testing::Values(CacheCase{0, 1, 100}, CacheCase{1999, 1, 100}, CacheCase{2000, 1, 101},
                                         CacheCase{2999, 1, 101}, CacheCase{3000, 1, 102}, CacheCase{5999, 1, 102},
                                         CacheCase{6000, 0, 0},  // the end is allowed, and no segment plays then
                                         CacheCase{6001, 0, 0}, CacheCase{-1, 0, 0}));

TEST_F(SeekPosition, OutsideTheCacheSaysWhatTheCacheHolds) {
    PushCounting(100, 3, 2000);
    ExpectLevel(6, "[Error] KVMPDStream::SetPosition llPosition out of cache. start: 0, size:6000",
                [this] { EXPECT_EQ(Stream().SetPosition(6001), 0); });
    ExpectLevel(6, " KVMPDStream::SetPosition find 0 position in cache", [this] { Stream().SetPosition(0); });
    ExpectLevel(4, " KVMPDStream::SetPosition : 6001", [this] { Stream().SetPosition(6001); });
}

TEST_F(SeekPosition, CountsFromWhereTheCacheStarts) {
    PushCounting(100, 4, 1000);
    EXPECT_EQ(Stream().SetPosition(2000), 1);
    EXPECT_EQ(Cache().start, -2000);
    EXPECT_EQ(Stream().SetPosition(-2000), 1);
    EXPECT_EQ(Cache().start, 0);
    EXPECT_EQ(Cache().index, 0u);
    EXPECT_EQ(Stream().SetPosition(-1), 0);
}

TEST_F(SeekPosition, WithoutAManifestTheCacheAloneDecides) {
    PushCounting(100, 2, 1000);
    EXPECT_EQ(Stream().SetPosition(1500), 1);
    EXPECT_EQ(Cache().index, 1u);
}

TEST_F(SeekPosition, RefusesASegmentWithoutANumber) {
    PushCounting(0, 1, 1000);
    PushCounting(-5, 1, 1000);
    EXPECT_EQ(Stream().SetPosition(500), 0);
    EXPECT_EQ(Stream().SetPosition(1500), 0);
    EXPECT_EQ(m_log.CountPrefix(" KVMPDStream::SeekToTargetSegment : "), 0u);
}

TEST_F(SeekPosition, BehindAGapWiderThanTheCacheStartsAnew) {
    PushCounting(100, 1, 1000);
    PushCounting(200, 1, 1000);
    EXPECT_EQ(Stream().SetPosition(1500), 1);
    EXPECT_TRUE(Cache().numbers.empty());
    EXPECT_TRUE(Cache().seekPending);
}

// The manifest reaches at least as far back as the cache.

TEST_F(SeekPosition, InTheManifestCountsTheDelayFromWhatTheLoaderQueued) {
    Publish(100, 10, 2000);  // one segment of 2000 ms queued: number 109
    EXPECT_EQ(Loader().TotalQueuedDuration(), 2000u);
    m_log.Clear();
    EXPECT_EQ(Stream().SetPosition(-5000), 1);
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::SetPosition mpd support seek. Length: 20000"));
    EXPECT_EQ(Loader().Preference().delayTime, 7000u);
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::SeekToTargetSegment : 106"));
    EXPECT_TRUE(Cache().seekPending);
    EXPECT_EQ(Loader().CurrentMpd(), nullptr);
}

TEST_F(SeekPosition, InTheManifestRefusesWhatLiesPastItsLength) {
    Publish(100, 10, 2000);
    m_log.Clear();
    EXPECT_EQ(Stream().SetPosition(20000), 0);
    EXPECT_EQ(Loader().Preference().delayTime, 0u);
    EXPECT_EQ(Stream().SetPosition(19999), 1);
    EXPECT_EQ(Loader().Preference().delayTime, static_cast<DWORD>(2000 - 19999));
}

// Cache, manifest and what was queued are equally long: the manifest counts, and its end is past it.
TEST_F(SeekPosition, InTheManifestWhenAllLengthsAreEqual) {
    Publish(100, 1, 2000);
    PushCounting(100, 1, 2000);
    EXPECT_EQ(Loader().TotalQueuedDuration(), 2000u);
    m_log.Clear();
    EXPECT_EQ(Stream().SetPosition(2000), 0);
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::SetPosition mpd support seek. Length: 2000"));
    EXPECT_EQ(Stream().SetPosition(1999), 1);
    EXPECT_EQ(Loader().Preference().delayTime, 1u);
}

TEST_F(SeekPosition, InTheCacheOnceThatIsLongerByAMillisecond) {
    Publish(100, 1, 2000);
    PushCounting(100, 1, 2001);
    m_log.Clear();
    EXPECT_EQ(Stream().SetPosition(2000), 1);
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::SetPosition find 2000 position in cache"));
    EXPECT_EQ(Loader().Preference().delayTime, 0u);
}

TEST_F(SeekPosition, InTheManifestUsesItsLengthOnceMoreHasBeenQueued) {
    Loader().SetPreferDelaySegment(9);
    Publish(100, 10, 2000);  // 20000 ms queued
    m_manifests->Set(MakeManifest(101, 10, 2000));
    Publish(MakeManifest(101, 10, 2000));
    EXPECT_EQ(Loader().TotalQueuedDuration(), 22000u);
    m_log.Clear();
    EXPECT_EQ(Stream().SetPosition(15000), 1);
    EXPECT_EQ(Loader().Preference().delayTime, 5000u);
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::SeekToTargetSegment : 108"));
}

TEST_F(SeekPosition, InTheManifestMakesNoRangeTestOnceMoreHasBeenQueued) {
    Loader().SetPreferDelaySegment(9);
    Publish(100, 10, 2000);
    Publish(MakeManifest(101, 10, 2000));
    EXPECT_EQ(Stream().SetPosition(21000), 1);
    EXPECT_EQ(Loader().Preference().delayTime, static_cast<DWORD>(-1000));
}

TEST_F(SeekPosition, InTheManifestAnswersOneWhenTheLoaderHasThatDelayAlready) {
    Publish(100, 10, 2000);
    PushCounting(109, 1, 2000);
    EXPECT_EQ(Stream().SetPosition(2000), 1);  // a delay of 0, which is what the loader has
    EXPECT_EQ(m_log.CountPrefix(" KVMPDStream::SeekToTargetSegment : "), 0u);
    EXPECT_EQ(Access::CacheSize(Stream()), 1u);
}

TEST_F(SeekPosition, InTheManifestStaysInTheCacheWhenThatHoldsTheTarget) {
    Publish(100, 10, 2000);
    PushCounting(107, 3, 2000);
    EXPECT_EQ(Stream().SetPosition(-1000), 1);  // 3000 behind: number 108
    EXPECT_EQ(Cache().index, 1u);
    EXPECT_EQ(Cache().numbers.size(), 3u);
    EXPECT_FALSE(Cache().seekPending);
}

TEST_F(SeekPosition, InTheManifestADelayLongerThanItStartsAnewFromItsBeginning) {
    Publish(100, 10, 2000);
    m_log.Clear();
    EXPECT_EQ(Stream().SetPosition(-50000), 1);
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::SeekToTargetSegment : 0"));
    EXPECT_TRUE(Cache().seekPending);
}

TEST_F(SeekPosition, WithNothingAtAllIsPastTheEnd) {
    EXPECT_EQ(Stream().SetPosition(0), 0);
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::SetPosition mpd support seek. Length: 0"));
    ExpectLevel(6, " KVMPDStream::SetPosition mpd support seek.", [this] { Stream().SetPosition(0); });
}

}  // namespace
}  // namespace kvmpd::test
