// Starting, pausing, stopping, and that nothing is left over.

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "tests/support/LogCapture.h"
#include "tests/support/ProcessFootprint.h"
#include "tests/system/LiveSession.h"
#include "tests/system/WaitingReader.h"

namespace kvmpd::test {
namespace {

const EventLog::Event kManifestNews{kEventManifest, kManifestLoaded, 2000, {}};

TEST(PauseAndRun, AfterThePausedCacheWasFullTheStreamRestartsAtTheParkedSegment) {
    TestOrigin origin;
    LiveSession session;
    session.Set(kBackdoorPreferDelaySegments, 3);
    ASSERT_EQ(session.Filter().Pause(), S_OK);
    // A limit below one segment: paused, each segment that arrives is released again and the loader is sent back to it.
    session.Set(kBackdoorMaxCacheTime, 1);
    session.Load(origin.Url());
    for (std::int64_t number = 106; number <= 109; ++number) {
        ASSERT_TRUE(origin.Live().WaitForSegmentRequest(kVideoId, number));
    }
    // The last of them has been released again when its files are gone.
    while (!std::filesystem::is_empty(session.CacheFolder().Path())) {
        std::this_thread::yield();
    }
    session.Set(kBackdoorMaxCacheTime, 300);
    ASSERT_EQ(session.Filter().Run(0), S_OK);
    ASSERT_TRUE(session.Events().WaitFor({kEventPosition, 1, 0, {}}));
    // Parked at 109; playback resumes one segment before it, and the restart uses that one up.
    session.ExpectSegments(origin, kVideoId, 109, 109);
    origin.Live().Advance(2);
    session.FetchManifestNow();
    session.ExpectSegments(origin, kVideoId, 109, 111);
}

TEST(PauseAndRun, WithoutAFullCacheNothingChanges) {
    TestOrigin origin;
    LiveSession session;
    session.Set(kBackdoorPreferDelaySegments, 3);
    session.Load(origin.Url());
    session.ExpectSegments(origin, kVideoId, 106, 109);
    ASSERT_EQ(session.Filter().Pause(), S_OK);
    ASSERT_EQ(session.Filter().Run(0), S_OK);
    session.ExpectSegments(origin, kVideoId, 106, 109);
    EXPECT_EQ(session.Events().Count({kEventPosition, 1, 0, {}}), 0u);
}

TEST(StopAndLoad, AStopEndsReadsAndALoadOfTheSameUrlLetsThemGoOn) {
    TestOrigin origin;
    LiveSession session;
    session.Load(origin.Url());
    session.ExpectSegments(origin, kVideoId, 109, 109);
    ASSERT_EQ(session.Control().Backdoor(kBackdoorStop, nullptr), S_OK);
    EXPECT_EQ(session.ReadResult(0, 10), E_FAIL);
    session.Load(origin.Url());
    session.ExpectSegments(origin, kVideoId, 109, 109);
    EXPECT_EQ(session.Events().Count(kManifestNews), 1u);
}

TEST(StopAndLoad, AStopEndsAReadThatWaitsAtTheLiveEdge) {
    TestOrigin origin;
    LiveSession session;
    session.Load(origin.Url());
    session.ExpectSegments(origin, kVideoId, 109, 109);
    WaitingReader reader(session);
    ASSERT_TRUE(reader.IsWaiting());
    ASSERT_EQ(session.Control().Backdoor(kBackdoorStop, nullptr), S_OK);
    EXPECT_EQ(reader.Result(), E_FAIL);
}

TEST(StopAndLoad, BeforeTheFirstLoadReadsFailAtOnce) {
    LiveSession session;
    EXPECT_EQ(session.ReadResult(0, 10), E_FAIL);
}

TEST(Release, WhileTheDownloaderIsHeldBackByAFullCache) {
    OriginShape shape;
    shape.videoBytes = 3 * 1024 * 1024;
    shape.published = 12;
    TestOrigin origin(shape);
    LiveSession session;
    session.Set(kBackdoorMaxCacheTime, 2);
    session.Set(kBackdoorPreferDelaySegments, 500);
    session.Load(origin.Url());
    ASSERT_TRUE(session.Events().WaitForRange([](const EventLog::Range& range) { return range.buffered >= 12'000; }));
    session.Release();
    EXPECT_TRUE(std::filesystem::is_empty(session.CacheFolder().Path()));
}

TEST(Release, RightAfterTheLoad) {
    TestOrigin origin;
    for (int i = 0; i < 20; ++i) {
        LiveSession session;
        session.Load(origin.Url());
        session.Release();
        EXPECT_EQ(session.Events().References(), 0u);
        EXPECT_TRUE(std::filesystem::is_empty(session.CacheFolder().Path()));
    }
}

TEST(Release, WhileAnotherThreadReads) {
    TestOrigin origin;
    LiveSession session;
    session.Load(origin.Url());
    session.ExpectSegments(origin, kVideoId, 109, 109);
    ComPtr<IKVMPDSource> control(&session.Control());
    WaitingReader reader(session);
    session.Release();
    EXPECT_TRUE(reader.IsWaiting());
    control->Backdoor(kBackdoorStop, nullptr);
    control.Reset();
    EXPECT_EQ(reader.Result(), E_FAIL);  // and the reader's reference was the last
    EXPECT_EQ(session.Events().References(), 0u);
    EXPECT_TRUE(std::filesystem::is_empty(session.CacheFolder().Path()));
}

TEST(StartStop, AHundredTimesLeavesNoThreadDescriptorOrFileBehind) {
    TestOrigin origin;
    const auto cycle = [&origin] {
        LiveSession session;
        session.Set(kBackdoorPreferDelaySegments, 2);
        session.Load(origin.Url());
        ASSERT_TRUE(session.Events().WaitFor(kManifestNews));
        session.ReadVideo(0, 100);
        session.Release();
        EXPECT_EQ(session.Events().References(), 0u);
        EXPECT_TRUE(std::filesystem::is_empty(session.CacheFolder().Path()));
    };
    cycle();  // what a process keeps after its first use is not a leak
    const std::optional<ProcessFootprint> before = ProcessFootprint::Now();
    if (!before) {
        GTEST_SKIP() << "this system does not tell how many threads and descriptors a process has";
    }
    const size_t serverThreads = 16;  // the origin opens its connection threads as they are needed
    for (int i = 0; i < 100; ++i) {
        cycle();
    }
    const std::optional<ProcessFootprint> after = ProcessFootprint::Settled(*before);
    EXPECT_LE(after->threads, before->threads + serverThreads);
    EXPECT_LE(after->descriptors, before->descriptors);
    EXPECT_EQ(DllCanUnloadNow(), S_OK);
}

TEST(TwoStreams, InOneProcessDoNotDisturbEachOther) {
    TestOrigin first;
    OriginShape other;
    other.startNumber = 700;
    TestOrigin second(other);
    LiveSession one;
    LiveSession two;
    one.Set(kBackdoorPreferDelaySegments, 4);
    two.Set(kBackdoorPreferDelaySegments, 5);
    one.Load(first.Url());
    two.Load(second.Url());
    one.ExpectSegments(first, kVideoId, 105, 109);
    two.ExpectSegments(second, kVideoId, 704, 709);
    EXPECT_EQ(DllCanUnloadNow(), S_FALSE);
}

}  // namespace
}  // namespace kvmpd::test
