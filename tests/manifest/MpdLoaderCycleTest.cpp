// What one reload cycle does with a manifest that was fetched.
#include <algorithm>
#include <cstdio>
#include <limits>
#include <thread>

#include "tests/manifest/LoaderHarness.h"

namespace kvmpd::test {
namespace {

using MpdLoaderStart = MpdLoaderTest;
using MpdLoaderFollow = MpdLoaderTest;
using MpdLoaderChoice = MpdLoaderTest;
using MpdLoaderSegments = MpdLoaderTest;

constexpr const wchar_t* kQualities =
    L"{11:{'height': 720,'width': 0,'bandwidth': 0,'frameRate': 0}, "
    L"12:{'height': 1080,'width': 0,'bandwidth': 0,'frameRate': 0}}";

const HostEvent kQualityList{.id = kEventQualityList, .text = kQualities};
const HostEvent kQuality11{.id = kEventQualityChosen, .param1 = 11};
const HostEvent kQuality12{.id = kEventQualityChosen, .param1 = 12};
const HostEvent kLoaded{.id = kEventManifest, .param1 = kManifestLoaded, .param2 = kTenMinutes};

TEST_F(MpdLoaderStart, ByDelayInSegments) {
    m_loader->SetPreferDelaySegment(3);
    Init();
    News(LiveManifest(100, 10));
    EXPECT_EQ(TakeQueuedNumbers(), (Numbers{106, 107, 108, 109}));
    EXPECT_EQ(m_loader->LastSegment(), 109);
    EXPECT_TRUE(m_log.Contains(" MpdLoader::ThreadProc start play from segment 106. The 6 segment from 10 segments"));
}

TEST_F(MpdLoaderStart, ByDelayInSegmentsLongerThanTheTimeline) {
    m_loader->SetPreferDelaySegment(50);
    Init();
    News(LiveManifest(100, 3));
    EXPECT_EQ(TakeQueuedNumbers(), (Numbers{100, 101, 102}));
}

TEST_F(MpdLoaderStart, ByNumberBeginsOneSegmentEarlier) {
    m_loader->SetPreferSegmentID(104);
    Init();
    News(LiveManifest(100, 10));
    EXPECT_EQ(TakeQueuedNumbers().front(), 103);
}

TEST_F(MpdLoaderStart, ByDelayTime) {
    LONGLONG start = 0;
    m_loader->SetPreferDelayTime(kTenMinutes * 5 / 2, start);
    Init();
    News(LiveManifest(100, 10));
    EXPECT_EQ(TakeQueuedNumbers().front(), 107);
}

TEST_F(MpdLoaderStart, ByDelayTimeOfTheWholeTimeline) {
    LONGLONG start = 0;
    m_loader->SetPreferDelayTime(kTenMinutes * 10, start);
    Init();
    News(LiveManifest(100, 10));
    EXPECT_EQ(TakeQueuedNumbers().front(), 100);
}

TEST_F(MpdLoaderStart, TellsTheHostTheQualitiesTheChoiceAndTheManifest) {
    Init();
    News(LiveManifest(100, 10));
    EXPECT_EQ(m_host.Await(3), (Events{kQualityList, kQuality11, kLoaded}));
}

TEST_F(MpdLoaderStart, TellsNothingToANobody) {
    m_owner.m_events.SetCallback(nullptr);
    Init();
    News(LiveManifest(100, 10));
    EXPECT_EQ(TakeQueuedNumbers(), Numbers{109});
    EXPECT_EQ(m_log.CountPrefix(" MPDEventHandler::On"), 0u);
    EXPECT_EQ(m_log.CountPrefix(" MPDEventHandler::on"), 0u);
}

TEST_F(MpdLoaderStart, HappensAgainAfterAReset) {
    Init();
    News(LiveManifest(100, 10));
    m_loader->SetPreferSegmentID(103);
    m_loader->resetStart();
    NextFetch();
    News(LiveManifest(100, 10));
    EXPECT_EQ(TakeQueuedNumbers(), (Numbers{109, 102, 103, 104, 105, 106, 107, 108, 109}));
    EXPECT_EQ(m_host.Await(6), (Events{kQualityList, kQuality11, kLoaded, kQualityList, kQuality11, kLoaded}));
}

TEST_F(MpdLoaderStart, AtNumberOneWithNothingQueuedIsMadeAgain) {
    // Number 0 "queued last" is how a loader remembers that it has not started.
    MPD silent = LiveManifest(1, 1);
    silent.m_adaptationSets.erase(silent.m_adaptationSets.begin());
    Init();
    News(silent);
    NextFetch();
    News(LiveManifest(1, 2));
    EXPECT_EQ(TakeQueuedNumbers(), Numbers{2});
}

TEST_F(MpdLoaderFollow, QueuesOnlyWhatIsNewer) {
    Init();
    News(LiveManifest(100, 10));
    EXPECT_EQ(TakeQueuedNumbers(), Numbers{109});
    NextFetch();
    News(LiveManifest(102, 10));
    EXPECT_EQ(TakeQueuedNumbers(), (Numbers{110, 111}));
    EXPECT_EQ(m_loader->LastSegment(), 111);
    EXPECT_EQ(m_loader->TotalQueuedDuration(), 3 * kTenMinutes);
    EXPECT_EQ(m_loader->CurrentMpd()->m_startNumber, 102);
}

TEST_F(MpdLoaderFollow, QueuesAWindowThatHasMovedPastEverything) {
    Init();
    News(LiveManifest(100, 3));
    NextFetch();
    News(LiveManifest(200, 3));
    EXPECT_EQ(TakeQueuedNumbers(), (Numbers{102, 200, 201, 202}));
}

TEST_F(MpdLoaderFollow, KeepsTheChoiceAndReportsNeitherItNorTheQualitiesAgain) {
    Init();
    News(LiveManifest(100, 3));
    NextFetch();
    News(LiveManifest(100, 4));
    EXPECT_EQ(m_host.Await(4), (Events{kQualityList, kQuality11, kLoaded, kLoaded}));
    EXPECT_EQ(m_log.Count(" MpdLoader::ChoiceStream "), 2u);
    EXPECT_EQ(m_log.Count(" MpdLoader::CallbackQuality "), 1u);
}

TEST_F(MpdLoaderFollow, ReportsTheDurationOfTheNewestSegment) {
    Init();
    News(LiveManifest(100, 3));
    NextFetch();
    MPD next = LiveManifest(100, 4);
    next.m_segmentDurations.back() = 123'456;
    News(next);
    EXPECT_EQ(m_host.Await(4).back(), (HostEvent{.id = kEventManifest, .param1 = 0, .param2 = 123'456}));
    EXPECT_TRUE(m_log.Contains(" MpdLoader::ThreadProc parse success and send callback. duration: 123456"));
}

TEST_F(MpdLoaderFollow, IgnoresAManifestThatEndsWhereTheLastOneDid) {
    Init();
    News(LiveManifest(100, 3));
    const auto current = m_loader->CurrentMpd();
    NextFetch();
    NoNews(LiveManifest(101, 2));
    EXPECT_EQ(TakeQueuedNumbers(), Numbers{102});
    EXPECT_EQ(m_loader->CurrentMpd(), current);
    EXPECT_EQ(m_owner.Updates(), 1);
    EXPECT_EQ(m_host.Await(3).size(), 3u);
    EXPECT_EQ(m_log.Count(" MpdLoader::ChoiceStream "), 1u);
}

TEST_F(MpdLoaderFollow, IgnoresAManifestOlderThanTheLastOne) {
    Init();
    News(LiveManifest(100, 3));
    NextFetch();
    NoNews(LiveManifest(50, 3));
    EXPECT_EQ(m_loader->CurrentMpd()->m_startNumber, 100);
}

TEST_F(MpdLoaderFollow, TakesNumbersBelowZeroForTheHighestThereAre) {
    // Ends of the timeline are compared as unsigned numbers.
    Init();
    News(LiveManifest(-5, 3));
    const auto current = m_loader->CurrentMpd();
    NextFetch();
    NoNews(LiveManifest(100, 3));
    EXPECT_EQ(m_loader->CurrentMpd(), current);
    EXPECT_EQ(m_owner.Updates(), 1);
    EXPECT_EQ(TakeQueuedNumbers(), Numbers{-3});
}

/// The wait in the one line that announces it; the cycle's own time, surely under 100 s, is taken off it.
DWORD AnnouncedWait(const std::vector<std::string>& lines) {
    unsigned wait = 0;
    for (const std::string& line : lines) {
        std::sscanf(line.c_str(), " MpdLoader::ThreadProc wait %u millisecond to reload playlist", &wait);
        if (line.ends_with("to reload playlist")) {
            return wait;
        }
    }
    return 0;
}

void ExpectAWholePeriod(const std::vector<std::string>& lines) {
    const DWORD wait = AnnouncedWait(lines);
    EXPECT_GT(wait, kTenMinutes - 100'000);
    EXPECT_LE(wait, kTenMinutes);
}

TEST_F(MpdLoaderFollow, WaitsForTheDurationOfTheNewestSegment) {
    Init();
    News(LiveManifest(100, 3));
    ExpectAWholePeriod(m_log.Lines());
}

TEST_F(MpdLoaderFollow, WaitsForHalfOfItWithoutNews) {
    Init();
    News(LiveManifest(100, 3));
    NextFetch();
    m_log.Clear();
    NoNews(LiveManifest(100, 3));
    const DWORD wait = AnnouncedWait(m_log.Lines());
    EXPECT_GT(wait, kTenMinutes / 2 - 100'000);
    EXPECT_LE(wait, kTenMinutes / 2);
}

TEST_F(MpdLoaderFollow, ReloadsByItselfWhenTheWaitIsOver) {
    // The one test here that waits for time, the shortest period that there is: one second.
    Init();
    News(LiveManifest(100, 3, 0));
    EXPECT_EQ(m_script.Await(), L"http://origin/live.mpd");
    EXPECT_EQ(m_script.Count(), 2);
    EXPECT_TRUE(m_log.Contains(" MpdLoader::ThreadProc wait " + std::to_string(AnnouncedWait(m_log.Lines())) +
                               " millisecond complete. result: 258"));
}

TEST_F(MpdLoaderChoice, OfATargetTakesEffectWithTheNextNews) {
    Init();
    News(LiveManifest(100, 3));
    m_loader->SetTargetVideoQualityID(12);
    NextFetch();
    News(LiveManifest(100, 4));
    const auto queued = TakeQueued();
    EXPECT_EQ(queued.at(0)->m_videoUrl, "v720/102.m4s");
    EXPECT_EQ(queued.at(1)->m_videoUrl, "v1080/103.m4s");
    EXPECT_EQ(m_host.Await(5), (Events{kQualityList, kQuality11, kLoaded, kQuality12, kLoaded}));
}

TEST_F(MpdLoaderChoice, OfATargetWithAResetStartsTheStreamAgain) {
    Init();
    News(LiveManifest(100, 3));
    NextFetch();
    {
        CritSecLock publication(m_loader->Publication());
        m_loader->SetTargetVideoQualityID(12);
        m_queue->clear();
        m_loader->resetStart();
    }
    News(LiveManifest(100, 3));
    const auto queued = TakeQueued();
    ASSERT_EQ(queued.size(), 1u);
    EXPECT_EQ(queued[0]->m_videoUrl, "v1080/102.m4s");
}

TEST_F(MpdLoaderChoice, IsKeptByPlaceWhenTheSetsChangeOrder) {
    Init();
    News(LiveManifest(100, 3));
    TakeQueued();
    MPD swapped = LiveManifest(100, 4);
    std::swap(swapped.m_adaptationSets[0], swapped.m_adaptationSets[1]);
    NextFetch();
    News(swapped);
    const auto queued = TakeQueued();
    EXPECT_EQ(queued.at(0)->m_audioUrl, "v720/103.m4s");
    EXPECT_EQ(queued.at(0)->m_videoUrl, "a/103.m4s");
}

TEST_F(MpdLoaderChoice, IsKeptByPlaceWhenTheRepresentationsChangeOrder) {
    Init();
    News(LiveManifest(100, 3));
    TakeQueued();
    MPD swapped = LiveManifest(100, 4);
    std::swap(swapped.m_adaptationSets[1].m_representations[0], swapped.m_adaptationSets[1].m_representations[1]);
    NextFetch();
    News(swapped);
    EXPECT_EQ(TakeQueued().at(0)->m_videoUrl, "v1080/103.m4s");
}

TEST_F(MpdLoaderChoice, WithoutAPlaceInALaterManifestGivesSegmentsWithoutUrls) {
    Init();
    News(LiveManifest(100, 3));
    TakeQueued();
    MPD bare = Timeline(100, std::vector<DWORD>(4, kTenMinutes));
    NextFetch();
    News(bare);
    const auto queued = TakeQueued();
    ASSERT_EQ(queued.size(), 1u);
    EXPECT_EQ(queued[0]->m_videoUrl, "");
    EXPECT_EQ(queued[0]->m_audioUrl, "");
    EXPECT_EQ(queued[0]->m_segmentNumber, 103);
}

TEST_F(MpdLoaderChoice, WithoutAudioQueuesNothingButIsNewsAll) {
    MPD silent = LiveManifest(100, 3);
    silent.m_adaptationSets.erase(silent.m_adaptationSets.begin());
    Init();
    News(silent);
    EXPECT_EQ(TakeQueuedNumbers(), Numbers());
    EXPECT_TRUE(m_log.Contains("[Error] MpdLoader::ThreadProc failed to get vidoe and audio segment!"));
    EXPECT_EQ(m_host.Await(3), (Events{kQualityList, kQuality11, kLoaded}));
    EXPECT_NE(m_loader->CurrentMpd(), nullptr);
    EXPECT_EQ(m_loader->LastSegment(), 101);
    ExpectAWholePeriod(m_log.Lines());
}

TEST_F(MpdLoaderChoice, WithoutVideoQueuesNothingAndReportsNoQuality) {
    MPD radio = LiveManifest(100, 3);
    radio.m_adaptationSets.pop_back();
    Init();
    News(radio);
    EXPECT_EQ(TakeQueuedNumbers(), Numbers());
    EXPECT_TRUE(m_log.Contains("[Error] MpdLoader::CallbackQuality failed to find video quality"));
    EXPECT_EQ(m_host.Await(1), Events{kLoaded});
    ExpectAWholePeriod(m_log.Lines());
}

TEST_F(MpdLoaderChoice, IsMadeByALaterManifestWhenTheFirstHadNoAudio) {
    MPD silent = LiveManifest(100, 3);
    silent.m_adaptationSets.erase(silent.m_adaptationSets.begin());
    Init();
    News(silent);
    NextFetch();
    News(LiveManifest(100, 4));
    EXPECT_EQ(TakeQueuedNumbers(), (Numbers{102, 103}));
}

TEST_F(MpdLoaderChoice, DescribesTheFirstVideoSetAndPlaysTheLast) {
    MPD two = LiveManifest(100, 1);
    two.m_adaptationSets.push_back(Set("video/mp4", {Quality(31, 720, "second/")}));
    two.m_adaptationSets[2].m_representations[0].m_mediaUrls = {"x"};
    Init();
    News(two);
    EXPECT_EQ(TakeQueued().at(0)->m_videoUrl, "second/x");
    EXPECT_EQ(m_host.Await(3), (Events{kQualityList, HostEvent{.id = kEventQualityChosen, .param1 = 31}, kLoaded}));
}

TEST_F(MpdLoaderChoice, ReportsAnEmptyQualityListForAVideoSetWithoutRepresentations) {
    MPD empty = LiveManifest(100, 1);
    empty.m_adaptationSets[1].m_representations.clear();
    Init();
    News(empty);
    EXPECT_EQ(m_host.Await(2), (Events{HostEvent{.id = kEventQualityList, .text = L"{}"}, kLoaded}));
    EXPECT_EQ(TakeQueuedNumbers(), Numbers());
}

TEST_F(MpdLoaderSegments, CarryUrlsDurationNumberAndGeneration) {
    Init();
    News(LiveManifest(100, 1, 4321));
    const auto queued = TakeQueued();
    ASSERT_EQ(queued.size(), 1u);
    EXPECT_EQ(queued[0]->m_videoUrl, "v720/100.m4s");
    EXPECT_EQ(queued[0]->m_audioUrl, "a/100.m4s");
    EXPECT_EQ(queued[0]->m_duration, 4321);
    EXPECT_EQ(queued[0]->m_segmentNumber, 100);
    EXPECT_EQ(queued[0]->m_generation, 1u);
}

TEST_F(MpdLoaderSegments, WithoutAMediaNameHaveNoUrl) {
    MPD mpd = LiveManifest(100, 2);
    mpd.m_adaptationSets[0].m_representations[0].m_mediaUrls = {"100.m4s"};
    mpd.m_adaptationSets[1].m_representations[0].m_mediaUrls = {};
    m_loader->SetPreferDelaySegment(1);
    Init();
    News(mpd);
    const auto queued = TakeQueued();
    ASSERT_EQ(queued.size(), 2u);
    EXPECT_EQ(queued[0]->m_audioUrl, "a/100.m4s");
    EXPECT_EQ(queued[1]->m_audioUrl, "");
    EXPECT_EQ(queued[1]->m_videoUrl, "");
    EXPECT_EQ(queued[1]->m_segmentNumber, 101);
}

TEST_F(MpdLoaderSegments, ThatWouldEndTheDownloaderAreLeftOutAndKeepTheirNumber) {
    MPD mpd = LiveManifest(100, 3);
    mpd.m_segmentDurations = {kTenMinutes, 0, kTenMinutes};
    RepresentationInfo& video = mpd.m_adaptationSets[1].m_representations[0];
    video.m_baseUrl.clear();
    video.m_mediaUrls = {"100.m4s", "", "102.m4s"};
    m_loader->SetPreferDelaySegment(2);
    Init();
    News(mpd);
    EXPECT_EQ(TakeQueuedNumbers(), (Numbers{100, 102}));
    EXPECT_TRUE(m_log.Contains("[Error] MpdLoader::ThreadProc segment 101 has neither a video URL nor a duration"));
    EXPECT_EQ(m_loader->LastSegment(), 102);
    EXPECT_EQ(m_loader->TotalQueuedDuration(), 2 * kTenMinutes);
}

TEST_F(MpdLoaderSegments, AreCountedBeforeTheyAreQueued) {
    m_queue = std::make_shared<SegmentQueue>(1);  // Holds the cycle inside its second push.
    m_loader->SetPreferDelaySegment(1);
    Init();
    m_script.Await();
    m_script.Give({.mpd = LiveManifest(100, 2)});
    while (m_queue->WaitingThreads() == 0) {
        std::this_thread::yield();
    }
    EXPECT_EQ(m_loader->TotalQueuedDuration(), 2 * kTenMinutes);
    EXPECT_EQ(m_loader->LastSegment(), 101);
    EXPECT_EQ(m_queue->pop()->m_segmentNumber, 100);
    EXPECT_EQ(m_queue->pop()->m_segmentNumber, 101);
    ASSERT_TRUE(m_owner.AwaitUpdates(1));
    EXPECT_EQ(m_loader->TotalQueuedDuration(), 2 * kTenMinutes);
}

TEST_F(MpdLoaderSegments, OfDurationZeroWithAUrlAreQueued) {
    Init();
    News(LiveManifest(100, 1, 0));
    EXPECT_EQ(TakeQueuedNumbers(), Numbers{100});
}

TEST_F(MpdLoaderSegments, WithNumbersAtTheEndOfTheRangeAreSurvived) {
    Init();
    News(LiveManifest(std::numeric_limits<LONGLONG>::max(), 2));
    NextFetch();
    NoNews(LiveManifest(std::numeric_limits<LONGLONG>::min(), 1));
    EXPECT_NE(m_loader->CurrentMpd(), nullptr);
}

}  // namespace
}  // namespace kvmpd::test
