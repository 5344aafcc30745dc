// Keeping the cache within its time limit.
#include "tests/stream/StreamTest.h"

namespace kvmpd::test {
namespace {

class CacheTrim : public StreamTest {
  protected:
    CacheTrim() { Stream().SetFilter(&m_filter); }

    /// A push that the limit would hold back goes through: something has just been consumed.
    void PushAfterARead(std::shared_ptr<Segment> segment) {
        Stream().releaseBuffer();
        Push(std::move(segment));
    }
};

TEST_F(CacheTrim, SettlesAtTheLimitWhileTheReaderKeepsUp) {
    for (int i = 0; i < 150; ++i) {
        Push(CountingSegment(1000 + i, 2000, 10, 5));
        Access::SetCacheIndex(Stream(), static_cast<DWORD>(i + 1));
    }
    EXPECT_EQ(Cache().duration, 300000u);
    EXPECT_EQ(Cache().numbers.size(), 150u);
    m_log.Clear();
    Push(CountingSegment(1150, 2000, 10, 5));
    const Access::Cache cache = Cache();
    EXPECT_EQ(cache.numbers.size(), 150u);
    EXPECT_EQ(cache.numbers.front(), 1001);
    EXPECT_EQ(cache.firstId, 1001);
    EXPECT_EQ(cache.duration, 300000u);
    EXPECT_EQ(cache.start, 2000);
    EXPECT_EQ(cache.videoStart, 10);
    EXPECT_EQ(cache.videoEnd, 1510);
    EXPECT_EQ(cache.audioStart, 5);
    EXPECT_EQ(cache.audioEnd, 755);
    EXPECT_EQ(cache.index, 149u);
    EXPECT_TRUE(m_log.Contains(
        " KVMPDStream::PushSegmentToCache release segment cache 1000 due to total cache duration is 302000"));
}

TEST_F(CacheTrim, ReleasesAsManyAsItTakes) {
    PushCounting(1, 10, 1000);
    Access::SetCacheIndex(Stream(), 10);
    Stream().SetMaxCacheTime(5);
    Push(CountingSegment(11, 1000));
    EXPECT_EQ(Cache().numbers, (std::vector<LONGLONG>{7, 8, 9, 10, 11}));
    EXPECT_EQ(Cache().index, 4u);
    EXPECT_EQ(Cache().start, 6000);
}

TEST_F(CacheTrim, StopsWhileRunningOnceFewerThanThreeCopiedSegmentsAreLeft) {
    PushCounting(1, 10, 1000);
    Access::SetCacheIndex(Stream(), 5);
    Stream().SetMaxCacheTime(1);
    PushAfterARead(CountingSegment(11, 1000));
    EXPECT_EQ(Cache().numbers.front(), 4);
    EXPECT_EQ(Cache().numbers.size(), 8u);
    EXPECT_EQ(Cache().index, 2u);
    EXPECT_TRUE(m_log.Contains(
        " KVMPDStream::PushSegmentToCache does not release cache exceed cache size when playing. Current index is 2 "
        "and total count is 8"));
}

struct IndexCase {
    DWORD index;
    size_t left;
};

class CacheTrimByIndex : public CacheTrim, public testing::WithParamInterface<IndexCase> {};

TEST_P(CacheTrimByIndex, WhileRunningReleasesOnlyDownToIndexTwo) {
    PushCounting(1, 9, 1000);
    Access::SetCacheIndex(Stream(), GetParam().index);
    Stream().SetMaxCacheTime(0);
    PushAfterARead(CountingSegment(10, 1000));
    EXPECT_EQ(Access::CacheSize(Stream()), GetParam().left);
}

INSTANTIATE_TEST_SUITE_P(Indexes, CacheTrimByIndex,
                         testing::Values(IndexCase{0, 10}, IndexCase{1, 10}, IndexCase{2, 10}, IndexCase{3, 9},
                                         IndexCase{4, 8}, IndexCase{9, 3}));

struct StateCase {
    const char* name;
    FILTER_STATE state;
    HRESULT result;
    bool paused;
};

class CacheTrimByState : public CacheTrim, public testing::WithParamInterface<StateCase> {};

TEST_P(CacheTrimByState, OnlyAFilterThatSaysSoIsPaused) {
    m_filter.state = GetParam().state;
    m_filter.result = GetParam().result;
    PushCounting(1, 3, 1000);
    Access::SetCacheIndex(Stream(), 2);
    Stream().SetMaxCacheTime(3);
    PushAfterARead(CountingSegment(4, 1000));
    EXPECT_EQ(Access::CacheSize(Stream()), GetParam().paused ? 3u : 4u);
}

INSTANTIATE_TEST_SUITE_P(States, CacheTrimByState,
                         testing::Values(StateCase{"Running", State_Running, S_OK, false},
                                         StateCase{"Stopped", State_Stopped, S_OK, false},
                                         StateCase{"Paused", State_Paused, S_OK, true},
                                         StateCase{"PausedWithoutPictures", State_Paused, S_FALSE, true},
                                         StateCase{"Failed", State_Paused, E_FAIL, false}),
                         [](const auto& state) { return state.param.name; });

TEST_F(CacheTrim, WithoutAFilterCountsAsNotPaused) {
    Stream().SetFilter(nullptr);
    PushCounting(1, 3, 1000);
    Access::SetCacheIndex(Stream(), 2);
    Stream().SetMaxCacheTime(3);
    PushAfterARead(CountingSegment(4, 1000));
    EXPECT_EQ(Access::CacheSize(Stream()), 4u);
}

TEST_F(CacheTrim, WhileRunningWithTheReaderStuckOnTheFirstSegmentNothingIsReleased) {
    Stream().SetMaxCacheTime(2);
    for (int i = 0; i < 10; ++i) {
        PushAfterARead(CountingSegment(100 + i, 1000));
    }
    EXPECT_EQ(Access::CacheSize(Stream()), 10u);
    EXPECT_EQ(m_log.CountPrefix(" KVMPDStream::PushSegmentToCache release segment"), 0u);
}

TEST_F(CacheTrim, ALimitOfZeroWhileRunningLeavesTwoCopiedSegmentsAndTheNewest) {
    Stream().SetMaxCacheTime(0);
    for (int i = 0; i < 20; ++i) {
        PushAfterARead(CountingSegment(100 + i, 1000));
        Access::SetCacheIndex(Stream(), static_cast<DWORD>(Access::CacheSize(Stream())));
    }
    EXPECT_EQ(Cache().numbers, (std::vector<LONGLONG>{117, 118, 119}));
    EXPECT_EQ(Cache().index, 3u);
    EXPECT_EQ(Cache().start, 17000);
}

TEST_F(CacheTrim, DoesNotTrimWhatHasNoDuration) {
    Stream().SetMaxCacheTime(0);
    for (int i = 0; i < 5; ++i) {
        Push(CountingSegment(100 + i, 0, 10));
    }
    EXPECT_EQ(Access::CacheSize(Stream()), 5u);
}

TEST_F(CacheTrim, ANewLimitTakesEffectAtTheNextPush) {
    PushCounting(1, 6, 1000);
    Access::SetCacheIndex(Stream(), 6);
    Stream().SetMaxCacheTime(4);
    EXPECT_EQ(Access::CacheSize(Stream()), 6u);
    Push(CountingSegment(7, 1000));
    EXPECT_EQ(Access::CacheSize(Stream()), 4u);
}

TEST_F(CacheTrim, LogsAtItsLevels) {
    Stream().SetMaxCacheTime(2);
    LONGLONG number = 100;
    const auto push = [&] { PushAfterARead(CountingSegment(++number, 1000)); };
    PushCounting(1, 2, 1000);
    ExpectLevel(3, " KVMPDStream::PushSegmentToCache does not release cache exceed cache size when playing.", push);
    Access::SetCacheIndex(Stream(), 4);
    ExpectLevel(6, " KVMPDStream::PushSegmentToCache release segment cache", [&] {
        Access::SetCacheIndex(Stream(), static_cast<DWORD>(Access::CacheSize(Stream())));
        push();
        push();
    });
    ExpectLevel(6, " KVMPDStream::PushSegmentToCache total segment cache become", push);
    m_filter.state = State_Paused;
    ExpectLevel(3, " KVMPDStream::PushSegmentToCache cache is full. change target segment to", [&] {
        Access::SetCacheIndex(Stream(), 0);
        push();
        push();
    });
}

// Paused: nobody reads.

class CacheTrimWhilePaused : public CacheTrim {
  protected:
    CacheTrimWhilePaused() {
        m_filter.state = State_Paused;
        Publish(100, 3, 60000);
        Stream().SetMaxCacheTime(3);
    }
};

TEST_F(CacheTrimWhilePaused, ReleasesCopiedSegmentsBelowTheThree) {
    PushCounting(100, 3, 1000);
    Access::SetCacheIndex(Stream(), 2);
    Push(CountingSegment(103, 1000));
    EXPECT_EQ(Cache().numbers, (std::vector<LONGLONG>{101, 102, 103}));
    EXPECT_EQ(Cache().index, 1u);
    EXPECT_FALSE(Loader().IsPaused());
}

TEST_F(CacheTrimWhilePaused, DroppingTheSegmentBeingCopiedSendsTheLoaderBackToItAndPausesIt) {
    PushCounting(100, 3, 1000);
    m_log.Clear();
    Push(CountingSegment(103, 1000));
    EXPECT_EQ(Cache().numbers, (std::vector<LONGLONG>{101, 102, 103}));
    EXPECT_EQ(Loader().Preference().segmentId, 100);
    EXPECT_TRUE(Loader().IsPaused());
    EXPECT_TRUE(m_log.Contains(" MpdLoader::SetPreferSegmentID : 100"));
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::PushSegmentToCache cache is full. change target segment to 100"));
    EXPECT_TRUE(m_log.Contains(" MpdLoader::pauseParse : 1"));
}

TEST_F(CacheTrimWhilePaused, SendingTheLoaderBackClearsTheOtherPreferences) {
    LONGLONG ignored = 0;
    Loader().SetPreferDelayTime(5000, ignored);
    PushCounting(100, 4, 1000);
    EXPECT_EQ(Loader().Preference().segmentId, 100);
    EXPECT_EQ(Loader().Preference().delayTime, 0u);
    EXPECT_EQ(Loader().Preference().delaySegment, 0u);
}

TEST_F(CacheTrimWhilePaused, SendingTheLoaderBackReportsNothingAndWakesNobody) {
    ListenAsHost();
    Push(CountingSegment(100, 5000));
    EXPECT_TRUE(Heard().empty());
    EXPECT_FALSE(Access::IsSegmentEventSet(Stream()));
    EXPECT_EQ(m_log.CountPrefix(" KVMPDStream::UpdateCacheSegmentInfo"), 0u);
    EXPECT_EQ(m_log.CountPrefix(" KVMPDStream::PushSegmentToCache total"), 0u);
    EXPECT_TRUE(Cache().numbers.empty());
    EXPECT_EQ(m_log.CountPrefix("[Error]"), 0u);
}

TEST_F(CacheTrimWhilePaused, SendingTheLoaderBackLeavesASeekPending) {
    ListenAsHost();
    Stream().SeekToTargetSegment(500);
    Push(CountingSegment(499, 1000));  // the one that the seek lets be discarded
    Push(CountingSegment(500, 5000));
    EXPECT_TRUE(Cache().seekPending);
}

TEST_F(CacheTrimWhilePaused, ReleasesTheSegmentsInFrontFirstAndThenTheOneBeingCopied) {
    PushCounting(100, 3, 1000);
    Access::SetCacheIndex(Stream(), 2);
    Push(CountingSegment(103, 5000));
    EXPECT_EQ(Cache().numbers, std::vector<LONGLONG>{103});
    EXPECT_EQ(Loader().Preference().segmentId, 102);
    EXPECT_EQ(Cache().start, 3000);
}

TEST_F(CacheTrimWhilePaused, ALimitOfZeroReleasesEvenTheNewest) {
    Stream().SetMaxCacheTime(0);
    Push(CountingSegment(100, 1000));
    EXPECT_TRUE(Cache().numbers.empty());
    EXPECT_EQ(Loader().Preference().segmentId, 100);
}

TEST_F(CacheTrimWhilePaused, SaysWhenTheLastCopiedSegmentWasTheLastOfAll) {
    // Cannot happen by pushes alone, because a pushed segment is not copied yet.
    PushCounting(100, 1, 1000);
    Stream().SetMaxCacheTime(0);
    Access::SetCacheIndex(Stream(), 2);
    Push(CountingSegment(101, 1000));
    EXPECT_TRUE(Cache().numbers.empty());
    EXPECT_TRUE(m_log.Contains("[Error] KVMPDStream::PushSegmentToCache Unexpected tha m_cacheSegment is empty!!"));
    EXPECT_FALSE(Loader().IsPaused());
}

TEST_F(CacheTrimWhilePaused, NothingIsCopiedBehindASegmentThatIsGone) {
    Stream().CreateBuffer(1000);
    PushSegments(100, 3, 1000, 2000, 20);
    Stream().ReadSegmentCacheToBuffer();
    EXPECT_EQ(Cache().videoWritten, 999);
    Push(MakeSegment(103, 1000, 2000, 20));
    EXPECT_EQ(Loader().Preference().segmentId, 100);

    // What is buffered of the dropped segment is still served, and what is cached too, but nothing in between.
    EXPECT_EQ(ReadVideo(0, 900), S_OK);
    EXPECT_EQ(Bytes(), MediaBytes(100, true, 900));
    Stream().ReadSegmentCacheToBuffer();
    LONGLONG start = 0;
    LONGLONG end = 0;
    Stream().Size(&start, &end);
    EXPECT_EQ(end, 999);
    EXPECT_EQ(ReadVideo(1500, 100), E_ACCESSDENIED);
    EXPECT_EQ(ReadVideo(2000, 300), S_OK);
    EXPECT_EQ(Bytes(), MediaBytes(101, true, 300));
    Stream().ReadSegmentCacheToBuffer();
    EXPECT_EQ(ReadVideo(2000, 300), S_OK);
    EXPECT_EQ(Bytes(), MediaBytes(101, true, 300));

    // A seek goes on from what is cached.
    EXPECT_EQ(Stream().SeekToTargetSegment(102), 1);
    Stream().ReadSegmentCacheToBuffer();
    EXPECT_EQ(ReadVideo(0, 500), S_OK);
    EXPECT_EQ(Bytes(), MediaBytes(102, true, 500));
    Stream().Size(&start, &end);
    EXPECT_EQ(end, 999);
}

TEST_F(CacheTrimWhilePaused, RunFeedsTheStreamAgainFromItsNewBeginning) {
    Stream().CreateBuffer(1000);
    PushSegments(100, 4, 1000, 2000, 20);
    EXPECT_TRUE(Loader().IsPaused());
    m_filter.state = State_Running;
    Stream().Run();
    EXPECT_FALSE(Loader().IsPaused());
    Push(MakeSegment(99, 1000, 10, 10));  // the one that the restart lets be discarded
    Push(MakeSegment(200, 1000, 400, 20));
    Stream().ReadSegmentCacheToBuffer();
    LONGLONG start = 0;
    LONGLONG end = 0;
    Stream().Size(&start, &end);
    EXPECT_EQ(end, 400);
}

}  // namespace
}  // namespace kvmpd::test
