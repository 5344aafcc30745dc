// Moving about in a stream: seeks inside and outside of the cache, another quality, another URL.
//
// A restart of the stream (a seek outside of the cache, another quality) lets the downloader drop the segment that it
// finishes next: usually one that was under way for the old position. These tests wait until nothing is under way, so
// that it is always the first segment of the new position.

#include <gtest/gtest.h>

#include <memory>

#include "tests/system/LiveSession.h"

namespace kvmpd::test {
namespace {

const EventLog::Event kSeekDone{kEventPosition, 0, 1, {}};

/// A stream whose cache reaches further back than its manifest: eight segments from 100 on, of which three are listed.
struct LongCache {
    explicit LongCache(size_t videoBytes = 40'000) : origin(Shape(videoBytes)) {
        session.Set(kBackdoorPreferDelaySegments, 500);
        session.Load(origin.Url());
        for (LONGLONG end = 6000; end < 16'000; end += 2000) {
            EXPECT_TRUE(WaitForEnd(end));
            origin.Live().Advance(1);
            session.FetchManifestNow();
        }
        EXPECT_TRUE(WaitForEnd(16'000));
    }
    bool WaitForEnd(LONGLONG end) {
        return session.Events().WaitForRange([end](const EventLog::Range& range) { return range.buffered == end; });
    }
    static OriginShape Shape(size_t videoBytes) {
        OriginShape shape;
        shape.windowSegments = 3;
        shape.published = 3;
        shape.videoBytes = videoBytes;
        return shape;
    }

    TestOrigin origin;
    LiveSession session;
};

TEST(SeekInsideTheCache, StartsBothStreamsAgainAtTheSegmentThatHoldsTheTime) {
    LongCache stream;
    ASSERT_EQ(stream.session.Seek(4000), S_OK);
    EXPECT_TRUE(stream.session.Events().WaitFor(kSeekDone));
    stream.session.ExpectSegments(stream.origin, kVideoId, 102, 107);
}

TEST(SeekInsideTheCache, EarlierBytesLieAtNegativePositions) {
    LongCache stream;
    ASSERT_EQ(stream.session.Seek(4000), S_OK);
    const std::string before = stream.origin.Segment(kVideoId, 101);
    stream.session.ExpectVideo(-static_cast<LONGLONG>(before.size()), before);
}

TEST(SeekInsideTheCache, TheStreamGoesOnWithNewSegments) {
    LongCache stream;
    ASSERT_EQ(stream.session.Seek(10'500), S_OK);
    stream.origin.Live().Advance(2);
    stream.session.FetchManifestNow();
    stream.session.ExpectSegments(stream.origin, kVideoId, 105, 109);
}

TEST(SeekInsideTheCache, ForwardsAndBackwardsManyTimes) {
    LongCache stream;
    LONGLONG cacheStart = 0;  // the time line counts from the last target
    for (const int target : {107, 100, 103, 101, 106, 102}) {
        const LONGLONG time = cacheStart + (target - 100) * 2000;
        ASSERT_EQ(stream.session.Seek(time), S_OK) << "to " << target;
        cacheStart = -(target - 100) * 2000;
        stream.session.ExpectSegments(stream.origin, kVideoId, target, 107);
    }
}

// With segments of 3 MiB the ring is full of video while the audio is copied ahead; after the seek the audio bytes must
// still lie where their file has them.
TEST(SeekInsideTheCache, IsExactWhileTheRingIsFull) {
    LongCache stream(3 * 1024 * 1024);
    ASSERT_EQ(stream.session.Seek(2000), S_OK);
    stream.session.ExpectSegments(stream.origin, kVideoId, 101, 107);
    ASSERT_EQ(stream.session.Seek(-2000), S_OK);
    stream.session.ExpectSegments(stream.origin, kVideoId, 100, 107);
}

TEST(SeekInsideTheCache, ATimeOutsideOfItIsRefusedAndChangesNothing) {
    LongCache stream;
    EXPECT_EQ(stream.session.Seek(16'001), E_FAIL);
    EXPECT_EQ(stream.session.Seek(-1), E_FAIL);
    stream.session.ExpectSegments(stream.origin, kVideoId, 100, 107);
    EXPECT_EQ(stream.session.Events().Count(kSeekDone), 0u);
}

TEST(SeekOutsideTheCache, StartsOverBehindTheAskedTime) {
    TestOrigin origin;
    LiveSession session;
    session.Load(origin.Url());
    session.ExpectSegments(origin, kVideoId, 109, 109);
    ASSERT_TRUE(session.WaitUntilIdle());
    // Queued so far: 2000 ms, so -5000 is 7000 ms behind the edge, in segment 106, which the restart uses up.
    ASSERT_EQ(session.Seek(-5000), S_OK);
    ASSERT_TRUE(session.Events().WaitFor(kSeekDone));
    session.ExpectSegments(origin, kVideoId, 107, 109);
}

TEST(SeekOutsideTheCache, BehindTheEndOfTheManifestIsRefused) {
    TestOrigin origin;
    LiveSession session;
    session.Load(origin.Url());
    session.ExpectSegments(origin, kVideoId, 109, 109);
    EXPECT_EQ(session.Seek(20'000), E_FAIL);
    session.ExpectSegments(origin, kVideoId, 109, 109);
}

TEST(ForcedQuality, RestartsTheStreamInThatQuality) {
    TestOrigin origin;
    LiveSession session;
    session.Set(kBackdoorPreferDelaySegments, 3);
    session.Load(origin.Url());
    session.ExpectSegments(origin, kVideoId, 106, 109);
    ASSERT_TRUE(session.WaitUntilIdle());
    ASSERT_EQ(session.Set(kBackdoorTargetQuality, kHighVideoId), S_OK);
    ASSERT_TRUE(session.Events().WaitFor({kEventQualityChosen, kHighVideoId, 0, {}}));
    session.ExpectSegments(origin, kHighVideoId, 107, 109);
}

TEST(ForcedQuality, BeforeTheLoadChoosesItFromTheFirstSegmentOn) {
    TestOrigin origin;
    LiveSession session;
    ASSERT_EQ(session.Set(kBackdoorTargetQuality, kHighVideoId), S_OK);
    session.Set(kBackdoorPreferDelaySegments, 3);
    session.Load(origin.Url());
    session.ExpectSegments(origin, kHighVideoId, 107, 109);
}

TEST(ForcedQuality, AnIdThatTheManifestDoesNotHaveFallsBackToThePreferredHeight) {
    TestOrigin origin;
    LiveSession session;
    session.Set(kBackdoorTargetQuality, 4711);
    session.Load(origin.Url());
    EXPECT_TRUE(session.Events().WaitFor({kEventQualityChosen, kVideoId, 0, {}}));
}

TEST(NewUrl, TheStreamsBeginAgainWithTheOtherOrigin) {
    TestOrigin first;
    OriginShape other;
    other.startNumber = 500;
    TestOrigin second(other);
    LiveSession session;
    session.Set(kBackdoorPreferDelaySegments, 3);
    session.Load(first.Url());
    session.ExpectSegments(first, kVideoId, 106, 109);
    session.Load(second.Url("other"));
    session.ExpectSegments(second, kVideoId, 506, 509);
}

TEST(NewUrl, ASegmentOfTheOldOneThatWasUnderWayStaysOut) {
    TestOrigin first;
    const auto gate = std::make_shared<origin::ReplyGate>();
    first.Live().SetReplyHook([gate](const origin::OriginRequest& request, origin::OriginReply& reply) {
        if (request.representationId == kVideoId && request.number == 107) {
            reply.holdUntil = gate;
        }
    });
    OriginShape other;
    other.startNumber = 500;
    TestOrigin second(other);
    LiveSession session;
    session.Set(kBackdoorPreferDelaySegments, 3);
    session.Load(first.Url());
    ASSERT_TRUE(first.Live().WaitForSegmentRequest(kVideoId, 107));
    session.Load(second.Url("other"));
    gate->Open();
    session.ExpectSegments(second, kVideoId, 506, 509);
}

}  // namespace
}  // namespace kvmpd::test
