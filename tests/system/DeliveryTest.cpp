// What the pin delivers is, byte for byte, what the origin served.

#include <gtest/gtest.h>

#include <future>

#include "net/HttpLimits.h"
#include "tests/support/Wine.h"
#include "tests/system/LiveSession.h"

namespace kvmpd::test {
namespace {

using Event = EventLog::Event;

/// The manifest with queries at the end of the URLs of segment `number` that make them one character too long at least.
std::string WithLongUrls(std::string manifest, const std::string& number) {
    const std::string begin = "<SegmentURL media=\"";
    for (size_t at = manifest.find(begin); at != manifest.npos; at = manifest.find(begin, at + 1)) {
        const size_t name = at + begin.size();
        const size_t end = manifest.find('"', name);
        if (manifest.substr(name, end - name).find(number) != std::string::npos) {
            manifest.insert(end, "?" + std::string(kLongestUrl, 'x'));
        }
    }
    return manifest;
}

TEST(Delivery, StartsWithTheNewestSegmentAndFollowsTheLiveEdge) {
    TestOrigin origin;
    LiveSession session;
    session.Load(origin.Url());
    session.ExpectSegments(origin, kVideoId, 109, 109);
    for (int reload = 0; reload < 4; ++reload) {
        origin.Live().Advance(2);
        session.FetchManifestNow();
    }
    session.ExpectSegments(origin, kVideoId, 109, 117);
}

TEST(Delivery, StartsTheAskedCountOfSegmentsBehindTheNewest) {
    TestOrigin origin;
    LiveSession session;
    session.Set(kBackdoorPreferDelaySegments, 3);
    session.Load(origin.Url());
    session.ExpectSegments(origin, kVideoId, 106, 109);
}

TEST(Delivery, ADelayLongerThanTheListStartsWithItsFirstSegment) {
    TestOrigin origin;
    LiveSession session;
    session.Set(kBackdoorPreferDelaySegments, 500);
    session.Load(origin.Url());
    session.ExpectSegments(origin, kVideoId, 100, 109);
}

TEST(Delivery, FollowsASlidingListOverManyReloads) {
    OriginShape shape;
    shape.windowSegments = 5;
    TestOrigin origin(shape);
    LiveSession session;
    session.Load(origin.Url());
    ASSERT_TRUE(session.Events().WaitFor({kEventManifest, 0, 2000, {}}));
    for (int reload = 0; reload < 20; ++reload) {
        const size_t loaded = session.Events().Count({kEventManifest, 0, 2000, {}});
        origin.Live().Advance(3);
        session.FetchManifestNow();
        ASSERT_TRUE(session.Events().WaitFor({kEventManifest, 0, 2000, {}}, loaded + 1));
    }
    session.ExpectSegments(origin, kVideoId, 109, 169);
}

TEST(Delivery, TheHostHearsTheQualitiesTheChoiceAndTheManifest) {
    TestOrigin origin;
    LiveSession session;
    session.Load(origin.Url());
    ASSERT_TRUE(session.Events().WaitForId(kEventManifest));
    const std::wstring qualities =
        L"{360:{'height': 360,'width': 640,'bandwidth': 800000,'frameRate': 25}, "
        L"720:{'height': 720,'width': 1280,'bandwidth': 2000000,'frameRate': 25}, "
        L"1080:{'height': 1080,'width': 1920,'bandwidth': 4000000,'frameRate': 25}}";
    const std::vector<Event> expected = {{kEventQualityList, 0, 0, qualities},
                                         {kEventQualityChosen, kVideoId, 0, {}},
                                         {kEventManifest, kManifestLoaded, 2000, {}}};
    const std::vector<Event> heard = session.Events().Events();
    ASSERT_GE(heard.size(), expected.size());
    EXPECT_EQ(std::vector<Event>(heard.begin(), heard.begin() + 3), expected);
}

TEST(Delivery, ThePreferredHeightDecidesTheVideo) {
    TestOrigin origin;
    LiveSession session;
    session.Set(kBackdoorPreferQuality, 1080);
    session.Load(origin.Url());
    session.ExpectSegments(origin, kHighVideoId, 109, 109);
    EXPECT_EQ(session.Events().Count({kEventQualityChosen, kHighVideoId, 0, {}}), 1u);
}

TEST(Delivery, AReadOfBytesThatDoNotExistYetWaitsForThem) {
    TestOrigin origin;
    LiveSession session;
    session.Load(origin.Url());
    session.ExpectSegments(origin, kVideoId, 109, 109);
    const auto end = static_cast<LONGLONG>(origin.Segment(kVideoId, 109).size());
    std::future<std::string> next = std::async(std::launch::async, [&] { return session.ReadVideo(end, 1000); });
    origin.Live().Advance(1);
    session.FetchManifestNow();
    EXPECT_TRUE(next.get() == origin.Segment(kVideoId, 110).substr(0, 1000));
}

TEST(Delivery, AReadThatEndsWithTheLastCachedByteIsServed) {
    TestOrigin origin;
    LiveSession session;
    session.Load(origin.Url());
    const std::string segment = origin.Segment(kVideoId, 109);
    session.ExpectVideo(0, segment);
    session.ExpectVideo(static_cast<LONGLONG>(segment.size()) - 1, segment.substr(segment.size() - 1));
}

// Segments of 3 MiB: five fill the ring. The reader does not read, so the feed stops, the cache exceeds its limit and
// the downloader is held back; what then is read is complete all the same.
TEST(Delivery, AReaderThatStallsUntilTheCacheIsOverItsLimitLosesNothing) {
    OriginShape shape;
    shape.videoBytes = 3 * 1024 * 1024;
    shape.published = 12;
    TestOrigin origin(shape);
    LiveSession session;
    session.Set(kBackdoorMaxCacheTime, 6);
    session.Set(kBackdoorPreferDelaySegments, 500);
    session.Load(origin.Url());
    // The limit is three segments; the fourth to arrive shows that the cache exceeds it rather than drop unread bytes.
    ASSERT_TRUE(session.Events().WaitForRange([](const EventLog::Range& range) { return range.buffered >= 8000; }));
    session.ExpectSegments(origin, kVideoId, 100, 111);
}

TEST(Delivery, BytesThatWereTrimmedAreDeniedAndLaterOnesServed) {
    OriginShape shape;
    shape.videoBytes = 3 * 1024 * 1024;
    shape.published = 12;
    TestOrigin origin(shape);
    LiveSession session;
    session.Set(kBackdoorMaxCacheTime, 6);
    session.Set(kBackdoorPreferDelaySegments, 500);
    session.Load(origin.Url());
    session.ExpectSegments(origin, kVideoId, 100, 111);
    LONGLONG end = 0;
    for (std::int64_t number = 100; number <= 111; ++number) {
        end += static_cast<LONGLONG>(origin.Segment(kVideoId, number).size());
    }
    // Each further segment trims what the feed has copied by the time it arrives.
    std::int64_t newest = 111;
    while (session.ReadResult(0, 100) == S_OK && newest < 150) {
        origin.Live().Advance(1);
        session.FetchManifestNow();
        const std::string segment = origin.Segment(kVideoId, ++newest);
        session.ExpectVideo(end, segment);
        end += static_cast<LONGLONG>(segment.size());
    }
    EXPECT_EQ(session.ReadResult(0, 100), E_ACCESSDENIED);
    session.ExpectVideo(end - 100,
                        origin.Segment(kVideoId, newest).substr(origin.Segment(kVideoId, newest).size() - 100));
}

TEST(Delivery, ASegmentThatCannotBeFetchedIsReportedAndTheStreamGoesOnWithTheNext) {
    if (UnderWine()) {
        GTEST_SKIP() << kWineEndsAShortBody;
    }
    TestOrigin origin;
    origin.Live().SetReplyHook([](const origin::OriginRequest& request, origin::OriginReply& reply) {
        if (request.kind == origin::OriginRequest::Kind::Segment && request.number == 108) {
            reply.truncateAt = 10;
        }
    });
    LiveSession session;
    session.Set(kBackdoorPreferDelaySegments, 2);
    session.Load(origin.Url());
    ASSERT_TRUE(session.Events().WaitFor({kEventDownloadFailed, 0, 0, {}}));
    const std::string video = origin.Segment(kVideoId, 107) + origin.Segment(kVideoId, 109);
    session.ExpectVideo(0, video);
    const std::string audio = origin.Segment(kAudioId, 107) + origin.Segment(kAudioId, 109);
    session.ExpectAudio(0, audio);
}

// The host is told as of any other segment that cannot be had, and the ones around it are whole.
TEST(Delivery, ASegmentWhoseUrlIsTooLongIsReportedAndTheStreamGoesOnWithTheNext) {
    TestOrigin origin;
    origin.Live().SetReplyHook([](const origin::OriginRequest& request, origin::OriginReply& reply) {
        if (request.kind == origin::OriginRequest::Kind::Manifest) {
            reply.body = std::make_shared<const std::string>(WithLongUrls(*reply.body, "108"));
        }
    });
    LiveSession session;
    session.Set(kBackdoorPreferDelaySegments, 2);
    session.Load(origin.Url());
    ASSERT_TRUE(session.Events().WaitFor({kEventDownloadFailed, 0, 0, {}}));
    session.ExpectVideo(0, origin.Segment(kVideoId, 107) + origin.Segment(kVideoId, 109));
    session.ExpectAudio(0, origin.Segment(kAudioId, 107) + origin.Segment(kAudioId, 109));
    origin.Live().Advance(1);
    session.FetchManifestNow();
    const auto end = static_cast<LONGLONG>(origin.Segment(kVideoId, 107).size() + origin.Segment(kVideoId, 109).size());
    session.ExpectVideo(end, origin.Segment(kVideoId, 110));
    EXPECT_EQ(session.Events().Count({kEventDownloadFailed, 0, 0, {}}), 1u);
}

struct ManifestFault {
    const char* name;
    const char* body;
    LONG event;
};

class ManifestFaults : public testing::TestWithParam<ManifestFault> {};

TEST_P(ManifestFaults, AreReportedWithTheirKind) {
    TestOrigin origin;
    origin.Live().SetReplyHook([](const origin::OriginRequest& request, origin::OriginReply& reply) {
        if (request.kind == origin::OriginRequest::Kind::Manifest) {
            reply.body = std::make_shared<const std::string>(GetParam().body);
        }
    });
    LiveSession session;
    session.Load(origin.Url());
    EXPECT_TRUE(session.Events().WaitFor({kEventManifest, GetParam().event, 0, {}}));
}

INSTANTIATE_TEST_SUITE_P(
    All, ManifestFaults,
    testing::Values(ManifestFault{"NotXml", "gateway time-out", kManifestFailed},
                    ManifestFault{"Html", "<html><body>404</body></html>", kManifestMalformed},
                    ManifestFault{"Template",
                                  "<MPD><Period><AdaptationSet><SegmentTemplate media='$Number$.m4s'/>"
                                  "</AdaptationSet></Period></MPD>",
                                  kManifestMalformed},
                    ManifestFault{"EmptyTimeline",
                                  "<MPD><Period><SegmentList startNumber='1'><SegmentTimeline/></SegmentList>"
                                  "</Period></MPD>",
                                  kManifestFailed},
                    ManifestFault{"Empty", "", kManifestFailed}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(Delivery, AServerThatRefusesIsReportedAsAFailedManifest) {
    int port = 0;
    {
        TestOrigin gone;
        port = gone.Live().Port();
    }
    LiveSession session;
    session.Load("http://127.0.0.1:" + std::to_string(port) + "/live.mpd");
    EXPECT_TRUE(session.Events().WaitFor({kEventManifest, kManifestFailed, 0, {}}));
}

}  // namespace
}  // namespace kvmpd::test
