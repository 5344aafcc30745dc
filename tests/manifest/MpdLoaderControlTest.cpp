// The loader's life and its control operations.
#include <algorithm>
#include <thread>
#include <tuple>

#include "tests/manifest/LoaderHarness.h"

namespace kvmpd::test {
namespace {

using MpdLoaderLife = MpdLoaderTest;
using MpdLoaderInit = MpdLoaderTest;
using MpdLoaderPreference = MpdLoaderTest;
using MpdLoaderPause = MpdLoaderTest;
using MpdLoaderReset = MpdLoaderTest;

TEST_F(MpdLoaderLife, BeginsIdle) {
    EXPECT_FALSE(m_loader->IsThreadRunning());
    EXPECT_EQ(m_loader->GetUrl(), L"");
    EXPECT_EQ(m_loader->Generation(), 0u);
    EXPECT_EQ(m_loader->CurrentMpd(), nullptr);
    EXPECT_EQ(m_loader->TotalDuration(), 0u);
    EXPECT_EQ(m_loader->TotalQueuedDuration(), 0u);
    EXPECT_EQ(m_loader->LastSegment(), 0);
    EXPECT_EQ(m_loader->TargetVideoQualityID(), 0u);
    EXPECT_EQ(m_loader->PreferQuality(), 720u);
    EXPECT_FALSE(m_loader->IsPaused());
    EXPECT_TRUE(m_log.Contains(" MpdLoader::MpdLoader "));
}

TEST_F(MpdLoaderLife, EndsWithTheParserInsideIt) {
    m_log.Clear();
    { MpdLoader loader(m_owner); }
    const std::vector<std::string> lines = m_log.Lines();
    const auto place = [&lines](const char* text) { return std::ranges::find(lines, text) - lines.begin(); };
    EXPECT_LT(place(" MpdParser::MpdParser "), place(" MpdLoader::MpdLoader "));
    EXPECT_LT(place(" MpdLoader::MpdLoader "), place(" MpdLoader::~MpdLoader "));
    EXPECT_LT(place(" MpdLoader::~MpdLoader "), place(" MpdParser::~MpdParser "));
    EXPECT_LT(place(" MpdParser::~MpdParser "), static_cast<std::ptrdiff_t>(lines.size()));
}

TEST_F(MpdLoaderLife, ClosesWithoutEverStarting) {
    EXPECT_EQ(m_loader->CloseThread(), 0);
    EXPECT_TRUE(m_log.Contains(" MpdLoader::CloseThread "));
    EXPECT_TRUE(m_log.Contains(" WorkerProcessor::CloseThread "));
    EXPECT_TRUE(m_log.Contains(" MpdLoader::CloseThread : 0x00000000"));
}

TEST_F(MpdLoaderLife, ClosesAThreadThatWaits) {
    Init();
    News(LiveManifest(100, 3));
    EXPECT_EQ(m_loader->CloseThread(), 0);
    EXPECT_FALSE(m_loader->IsThreadRunning());
    EXPECT_TRUE(m_log.Contains(" MpdLoader::ThreadProc "));
    EXPECT_TRUE(m_log.Contains(" MpdLoader::ThreadProc finish."));
}

TEST_F(MpdLoaderLife, CompletesARunningFetchBeforeItCloses) {
    Init();
    m_script.Await();
    std::thread closing([this] { m_loader->CloseThread(); });
    ASSERT_TRUE(m_log.WaitForPrefix(" WorkerProcessor::CloseThread "));
    m_script.Give({.mpd = LiveManifest(100, 3)});
    closing.join();
    EXPECT_EQ(TakeQueuedNumbers(), Numbers{102});
    EXPECT_TRUE(m_log.Contains(" MpdLoader::ThreadProc finish."));
    EXPECT_EQ(m_script.Count(), 1);
}

TEST_F(MpdLoaderLife, StartsAgainAfterItWasClosed) {
    Init();
    News(LiveManifest(100, 3));
    m_loader->CloseThread();
    Init();
    News(LiveManifest(100, 5));
    EXPECT_EQ(TakeQueuedNumbers(), (Numbers{102, 103, 104}));
}

TEST_F(MpdLoaderInit, FetchesTheUrl) {
    Init(L"http://origin/a.mpd");
    EXPECT_EQ(m_script.Await(), L"http://origin/a.mpd");
    EXPECT_EQ(m_loader->GetUrl(), L"http://origin/a.mpd");
    EXPECT_EQ(m_loader->Generation(), 1u);
    EXPECT_TRUE(m_loader->IsThreadRunning());
    EXPECT_TRUE(m_log.Contains(" MpdLoader::Init "));
}

TEST_F(MpdLoaderInit, WithTheSameUrlOnlyWakesTheThread) {
    Init(L"http://origin/a.mpd");
    News(LiveManifest(100, 3));
    Init(L"HTTP://ORIGIN/A.mpd");
    EXPECT_EQ(m_script.Await(), L"http://origin/a.mpd");
    EXPECT_EQ(m_loader->LastSegment(), 102);
    EXPECT_NE(m_loader->CurrentMpd(), nullptr);
    EXPECT_EQ(m_loader->Generation(), 1u);
    EXPECT_EQ(m_log.Count(" MpdLoader::resetStart "), 1u);
}

TEST_F(MpdLoaderInit, WithAnotherUrlRestartsTheStream) {
    Init(L"http://origin/a.mpd");
    News(LiveManifest(100, 3));
    Init(L"http://origin/b.mpd");
    EXPECT_EQ(m_script.Await(), L"http://origin/b.mpd");
    EXPECT_EQ(m_loader->LastSegment(), 0);
    EXPECT_EQ(m_loader->CurrentMpd(), nullptr);
    EXPECT_EQ(m_loader->Generation(), 2u);
    EXPECT_EQ(m_log.Count(" MpdLoader::resetStart "), 2u);
}

TEST_F(MpdLoaderInit, TakesANewQueue) {
    Init();
    News(LiveManifest(100, 3));
    const auto oldQueue = std::exchange(m_queue, std::make_shared<SegmentQueue>(0));
    Init();
    News(LiveManifest(100, 4));
    EXPECT_EQ(TakeQueuedNumbers(), Numbers{103});
}

struct Setter {
    const char* name;
    void (*set)(MpdLoader& loader);
    StartPreference result;
    const char* line;
};

void PrintTo(const Setter& setter, std::ostream* out) {
    *out << setter.name;
}

void SetDelayTime(MpdLoader& loader) {
    LONGLONG start = 0;
    loader.SetPreferDelayTime(5000, start);
}

const Setter kSetters[] = {
    {"Segment",
     [](MpdLoader& loader) { loader.SetPreferSegmentID(77); },
     {.segmentId = 77},
     " MpdLoader::SetPreferSegmentID : 77"},
    {"DelayTime", SetDelayTime, {.delayTime = 5000}, " MpdLoader::SetPreferDelayTime : 5000"},
    {"DelaySegment",
     [](MpdLoader& loader) { loader.SetPreferDelaySegment(3); },
     {.delaySegment = 3},
     " MpdLoader::SetPreferDelaySegment : 3"},
};

/// A setter, and another one that was used before it.
class MpdLoaderPreferenceAfter : public MpdLoaderTest,
                                 public testing::WithParamInterface<std::tuple<Setter, Setter>> {};

TEST_P(MpdLoaderPreferenceAfter, AnotherClearsIt) {
    const auto& [setter, before] = GetParam();
    before.set(*m_loader);
    setter.set(*m_loader);
    EXPECT_EQ(m_loader->Preference().segmentId, setter.result.segmentId);
    EXPECT_EQ(m_loader->Preference().delayTime, setter.result.delayTime);
    EXPECT_EQ(m_loader->Preference().delaySegment, setter.result.delaySegment);
    EXPECT_TRUE(m_log.Contains(setter.line));
}

std::string PairName(const testing::TestParamInfo<std::tuple<Setter, Setter>>& test) {
    return std::string(std::get<0>(test.param).name) + "After" + std::get<1>(test.param).name;
}

INSTANTIATE_TEST_SUITE_P(Segment, MpdLoaderPreferenceAfter,
                         testing::Combine(testing::Values(kSetters[0]), testing::Values(kSetters[1], kSetters[2])),
                         PairName);
INSTANTIATE_TEST_SUITE_P(DelayTime, MpdLoaderPreferenceAfter,
                         testing::Combine(testing::Values(kSetters[1]), testing::Values(kSetters[0], kSetters[2])),
                         PairName);
INSTANTIATE_TEST_SUITE_P(DelaySegment, MpdLoaderPreferenceAfter,
                         testing::Combine(testing::Values(kSetters[2]), testing::Values(kSetters[0], kSetters[1])),
                         PairName);

TEST_F(MpdLoaderPreference, OfTheSameDelayInSegmentsChangesNothing) {
    m_loader->SetPreferSegmentID(77);
    EXPECT_EQ(m_loader->SetPreferDelaySegment(0), 0);
    EXPECT_EQ(m_loader->Preference().segmentId, 77);
}

TEST_F(MpdLoaderPreference, OfTheSameDelayTimeChangesNothing) {
    LONGLONG start = 5;
    m_loader->SetPreferSegmentID(77);
    EXPECT_EQ(m_loader->SetPreferDelayTime(0, start), 0);
    EXPECT_EQ(m_loader->Preference().segmentId, 77);
    EXPECT_EQ(start, 5);
}

TEST_F(MpdLoaderPreference, OfADelayTimeNamesNoSegmentWithoutAManifest) {
    LONGLONG start = 5;
    EXPECT_EQ(m_loader->SetPreferDelayTime(5000, start), 1);
    EXPECT_EQ(start, 5);
    EXPECT_EQ(m_log.CountPrefix(" MpdLoader::SetPreferDelayTime set new start segment"), 0u);
}

TEST_F(MpdLoaderPreference, OfADelayInSegmentsAnswersZeroWithoutAManifest) {
    EXPECT_EQ(m_loader->SetPreferDelaySegment(3), 0);
}

TEST_F(MpdLoaderPreference, OfADelayTimeNamesTheSegmentItPointsInto) {
    Init();
    News(LiveManifest(100, 10));
    LONGLONG start = 0;
    EXPECT_EQ(m_loader->SetPreferDelayTime(kTenMinutes * 2 + 1, start), 1);
    EXPECT_EQ(start, 107);
    EXPECT_TRUE(m_log.Contains(" MpdLoader::SetPreferDelayTime set new start segment 107. The last segment is 109"));
}

TEST_F(MpdLoaderPreference, OfADelayTimeBeyondTheTimelineLeavesTheSegmentAsItWas) {
    Init();
    News(LiveManifest(100, 10));
    LONGLONG start = 42;
    EXPECT_EQ(m_loader->SetPreferDelayTime(kTenMinutes * 10, start), 1);
    EXPECT_EQ(start, 42);
    EXPECT_TRUE(m_log.Contains(" MpdLoader::SetPreferDelayTime set new start segment 42. The last segment is 109"));
}

TEST_F(MpdLoaderPreference, OfADelayTimeWakesALoaderThatHasAManifest) {
    Init();
    News(LiveManifest(100, 10));
    LONGLONG start = 0;
    m_loader->SetPreferDelayTime(1, start);
    m_script.Await();
    EXPECT_EQ(m_script.Count(), 2);
}

TEST_F(MpdLoaderPreference, OfADelayInSegmentsWakesALoaderThatHasAManifest) {
    Init();
    News(LiveManifest(100, 10));
    EXPECT_EQ(m_loader->SetPreferDelaySegment(3), 1);
    m_script.Await();
    EXPECT_EQ(m_script.Count(), 2);
}

TEST_F(MpdLoaderPreference, OfASegmentWakesNobody) {
    Init();
    News(LiveManifest(100, 10));
    m_loader->SetPreferSegmentID(103);
    ExpectNotWoken(1);
}

TEST_F(MpdLoaderPreference, DoesNotMoveAStreamThatHasStarted) {
    Init();
    News(LiveManifest(100, 10));
    EXPECT_EQ(TakeQueuedNumbers(), Numbers{109});
    m_loader->SetPreferDelaySegment(5);
    News(LiveManifest(100, 11));
    EXPECT_EQ(TakeQueuedNumbers(), Numbers{110});
}

TEST_F(MpdLoaderPreference, OfAHeightIsUsedAtTheNextChoice) {
    m_loader->SetPreferQuality(1080);
    EXPECT_EQ(m_loader->PreferQuality(), 1080u);
    Init();
    News(LiveManifest(100, 1));
    EXPECT_EQ(TakeQueued().at(0)->m_videoUrl, "v1080/100.m4s");
}

TEST_F(MpdLoaderPause, SkipsTheFetchAndWaitsWithoutLimit) {
    Init();
    News(LiveManifest(100, 3));
    m_loader->pauseParse(1);
    ASSERT_TRUE(m_log.WaitForPrefix(kSkipped));
    EXPECT_TRUE(m_loader->IsPaused());
    m_loader->Wake();
    ASSERT_TRUE(m_log.WaitForPrefix(kSkipped, 2));
    EXPECT_EQ(m_log.Count(kWoken), 1u);
    EXPECT_EQ(m_script.Count(), 1);
    EXPECT_TRUE(m_log.Contains(" MpdLoader::pauseParse : 1"));
}

TEST_F(MpdLoaderPause, EndsWithAFetchWhenThereIsAManifest) {
    Init();
    News(LiveManifest(100, 3));
    m_loader->pauseParse(1);
    ASSERT_TRUE(m_log.WaitForPrefix(kSkipped));
    m_loader->pauseParse(0);
    News(LiveManifest(100, 4));
    EXPECT_EQ(TakeQueuedNumbers(), (Numbers{102, 103}));
    EXPECT_FALSE(m_loader->IsPaused());
}

TEST_F(MpdLoaderPause, BeforeTheStartFetchesNothing) {
    m_loader->pauseParse(1);
    Init();
    ASSERT_TRUE(m_log.WaitForPrefix(kSkipped));
    m_loader->CloseThread();
    EXPECT_EQ(m_script.Count(), 0);
}

TEST_F(MpdLoaderPause, EndsUnnoticedWithoutAManifest) {
    m_loader->pauseParse(1);
    Init();
    ASSERT_TRUE(m_log.WaitForPrefix(kSkipped));
    m_loader->pauseParse(0);
    ExpectNotWoken(0);
    EXPECT_EQ(m_log.Count(kWoken), 1u);  // By ExpectNotWoken, out of the wait of the pause.
}

TEST_F(MpdLoaderPause, OfTheSameValueWakesNobody) {
    Init();
    News(LiveManifest(100, 3));
    m_loader->pauseParse(0);
    ExpectNotWoken(1);
    EXPECT_TRUE(m_log.Contains(" MpdLoader::pauseParse : 0"));
}

TEST_F(MpdLoaderPause, AfterWhichTheStreamIsResetNeedsAWakeUp) {
    Init();
    News(LiveManifest(100, 3));
    m_loader->pauseParse(1);
    ASSERT_TRUE(m_log.WaitForPrefix(kSkipped));
    {
        CritSecLock publication(m_loader->Publication());
        m_loader->resetStart();
        m_queue->clear();
        m_loader->pauseParse(0);
    }
    m_loader->Wake();
    News(LiveManifest(100, 9));
    EXPECT_EQ(TakeQueuedNumbers(), Numbers{108});
}

TEST_F(MpdLoaderReset, ForgetsTheManifestAndWhatWasQueued) {
    Init();
    News(LiveManifest(100, 3));
    EXPECT_EQ(m_loader->TotalDuration(), 3 * kTenMinutes);
    EXPECT_EQ(m_loader->TotalQueuedDuration(), kTenMinutes);
    EXPECT_EQ(m_loader->resetStart(), 1);
    EXPECT_EQ(m_loader->CurrentMpd(), nullptr);
    EXPECT_EQ(m_loader->LastSegment(), 0);
    EXPECT_EQ(m_loader->TotalDuration(), 0u);
    EXPECT_EQ(m_loader->TotalQueuedDuration(), 0u);
    EXPECT_TRUE(m_log.Contains(" MpdLoader::resetStart "));
}

TEST_F(MpdLoaderReset, WakesNobody) {
    Init();
    News(LiveManifest(100, 3));
    m_loader->resetStart();
    ExpectNotWoken(1);
}

TEST_F(MpdLoaderReset, KeepsThePreferences) {
    m_loader->SetPreferSegmentID(101);
    m_loader->SetTargetVideoQualityID(12);
    m_loader->resetStart();
    EXPECT_EQ(m_loader->Preference().segmentId, 101);
    EXPECT_EQ(m_loader->TargetVideoQualityID(), 12u);
}

TEST_F(MpdLoaderReset, LeavesARecordThatSomebodyHoldsAlone) {
    Init();
    News(LiveManifest(100, 3));
    const std::shared_ptr<const MPD> held = m_loader->CurrentMpd();
    m_loader->resetStart();
    EXPECT_EQ(LastSegmentNumber(*held), 102);
}

}  // namespace
}  // namespace kvmpd::test
