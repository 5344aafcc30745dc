// Cycles that fail: what the host hears, what is kept, and who wakes the loader again.
#include <new>
#include <stdexcept>

#include "tests/manifest/LoaderHarness.h"

namespace kvmpd::test {
namespace {

const HostEvent kMalformed{.id = kEventManifest, .param1 = kManifestMalformed};
const HostEvent kNotLoaded{.id = kEventManifest, .param1 = kManifestFailed};

struct FailureCase {
    const char* name;
    HRESULT result;
    LONG reported;
    const char* line;
};

class MpdLoaderReportsFailure : public MpdLoaderTest, public testing::WithParamInterface<FailureCase> {};

TEST_P(MpdLoaderReportsFailure, ByItsKind) {
    Init();
    Failure(GetParam().result);
    EXPECT_TRUE(m_log.Contains(GetParam().line));
    EXPECT_EQ(m_host.Await(1), (Events{HostEvent{.id = kEventManifest, .param1 = GetParam().reported}}));
    EXPECT_EQ(m_owner.Updates(), 0);
    EXPECT_EQ(m_log.CountPrefix(" MPDEventHandler::OnStreamDwordEvent Call to client event: 0 param1: " +
                                std::to_string(GetParam().reported) + " param2: 0"),
              1u);
}

INSTANTIATE_TEST_SUITE_P(Results, MpdLoaderReportsFailure,
                         testing::Values(FailureCase{"WrongStructure", E_UNEXPECTED, kManifestMalformed,
                                                     "[Error] MpdLoader::ThreadProc failed to get mpd for 0x8000FFFF"},
                                         FailureCase{"DownloadOrXml", E_FAIL, kManifestFailed,
                                                     "[Error] MpdLoader::ThreadProc failed to get mpd for 0x80004005"},
                                         FailureCase{"EmptyTimeline", S_OK, kManifestFailed,
                                                     "[Error] MpdLoader::ThreadProc failed to get mpd for 0x00000000"}),
                         [](const auto& test) { return std::string(test.param.name); });

using MpdLoaderFailure = MpdLoaderTest;

TEST_F(MpdLoaderFailure, WinsOverARecordThatIsFilled) {
    Init();
    Failure(E_FAIL, LiveManifest(100, 3));
    EXPECT_EQ(m_loader->CurrentMpd(), nullptr);
    EXPECT_EQ(TakeQueuedNumbers(), Numbers());
}

TEST_F(MpdLoaderFailure, TellsNobodyWhenThereIsNoCallback) {
    m_owner.m_events.SetCallback(nullptr);
    Init();
    Failure(E_FAIL);
    EXPECT_EQ(m_log.CountPrefix(" MPDEventHandler::OnStreamDwordEvent"), 0u);
}

TEST_F(MpdLoaderFailure, KeepsTheManifestAndTheQueue) {
    Init();
    News(LiveManifest(100, 3));
    const auto current = m_loader->CurrentMpd();
    NextFetch();
    Failure(E_FAIL);
    EXPECT_EQ(m_loader->CurrentMpd(), current);
    EXPECT_EQ(m_loader->LastSegment(), 102);
    EXPECT_EQ(TakeQueuedNumbers(), Numbers{102});
}

TEST_F(MpdLoaderFailure, IsFollowedByAWaitWithoutLimit) {
    Init();
    Failure(E_FAIL);
    m_loader->CloseThread();
    EXPECT_TRUE(m_log.Contains(" MpdLoader::ThreadProc wait -1 millisecond complete. result: 0"));
    EXPECT_EQ(m_script.Count(), 1);
}

TEST_F(MpdLoaderFailure, IsGotOverByWake) {
    Init();
    Failure(E_FAIL);
    NextFetch();
    News(LiveManifest(100, 3));
    EXPECT_EQ(m_log.Count(kWoken), 1u);
    EXPECT_EQ(TakeQueuedNumbers(), Numbers{102});
}

TEST_F(MpdLoaderFailure, IsGotOverByInit) {
    Init();
    Failure(E_FAIL);
    Init();
    m_script.Await();
    EXPECT_EQ(m_log.Count(kWoken), 1u);
}

TEST_F(MpdLoaderFailure, IsGotOverByADelayInSegmentsWhenThereIsAManifest) {
    Init();
    News(LiveManifest(100, 3));
    NextFetch();
    Failure(E_FAIL);
    m_loader->SetPreferDelaySegment(1);
    m_script.Await();
    EXPECT_EQ(m_log.Count(kWoken), 1u);
}

TEST_F(MpdLoaderFailure, IsGotOverByADelayTimeWhenThereIsAManifest) {
    Init();
    News(LiveManifest(100, 3));
    NextFetch();
    Failure(E_FAIL);
    LONGLONG start = 0;
    m_loader->SetPreferDelayTime(1, start);
    m_script.Await();
    EXPECT_EQ(m_log.Count(kWoken), 1u);
}

TEST_F(MpdLoaderFailure, IsGotOverByTheEndOfAPauseWhenThereIsAManifest) {
    Init();
    News(LiveManifest(100, 3));
    NextFetch();
    Failure(E_FAIL);
    m_loader->pauseParse(1);
    ASSERT_TRUE(m_log.WaitForPrefix(kSkipped));
    m_loader->pauseParse(0);
    m_script.Await();
    EXPECT_EQ(m_log.Count(kWoken), 2u);
}

TEST_F(MpdLoaderFailure, IsNotGotOverByPreferencesWithoutAManifest) {
    Init();
    Failure(E_FAIL);
    LONGLONG start = 0;
    m_loader->SetPreferDelaySegment(1);
    m_loader->SetPreferDelayTime(1, start);
    m_loader->SetPreferSegmentID(5);
    ExpectNotWoken(1);
}

TEST_F(MpdLoaderFailure, OfMemoryInTheFetchIsOneLikeAnyOther) {
    Init();
    m_script.Await();
    m_script.Give({.before = [] { throw std::bad_alloc(); }});
    ASSERT_TRUE(m_log.WaitForPrefix("[Error] MpdLoader::ThreadProc failed to get mpd for 0x8007000E"));
    EXPECT_EQ(m_host.Await(1), Events{kNotLoaded});
    NextFetch();
    News(LiveManifest(100, 3));
    EXPECT_EQ(TakeQueuedNumbers(), Numbers{102});
}

TEST_F(MpdLoaderFailure, OfAnotherKindInTheFetchIsOneLikeAnyOther) {
    Init();
    m_script.Await();
    m_script.Give({.before = [] { throw std::runtime_error("fault"); }});
    ASSERT_TRUE(m_log.WaitForPrefix("[Error] MpdLoader::ThreadProc failed to get mpd for 0x80004005"));
    EXPECT_EQ(m_host.Await(1), Events{kNotLoaded});
}

TEST_F(MpdLoaderFailure, OfMemoryBeforeAnythingIsQueuedLeavesTheStartToTheNextCycle) {
    Init();
    m_script.Await();
    m_owner.FailNextEvent(std::make_exception_ptr(std::bad_alloc()));  // Meets the quality list.
    m_script.Give({.mpd = LiveManifest(100, 3)});
    ASSERT_TRUE(m_log.WaitForPrefix("[Error] MpdLoader::ThreadProc failed to get mpd for 0x8007000E"));
    EXPECT_EQ(m_host.Await(1), Events{kNotLoaded});
    EXPECT_EQ(m_loader->CurrentMpd(), nullptr);
    EXPECT_EQ(m_loader->LastSegment(), 0);
    NextFetch();
    News(LiveManifest(100, 3));
    EXPECT_EQ(TakeQueuedNumbers(), Numbers{102});
    EXPECT_EQ(m_host.Await(4).size(), 4u);
}

TEST_F(MpdLoaderFailure, ThatCannotBeReportedIsSurvived) {
    Init();
    m_script.Await();
    m_owner.FailNextEvent(std::make_exception_ptr(std::bad_alloc()));  // Meets the report of the failure.
    m_script.Give({.before = [] { throw std::bad_alloc(); }});
    ASSERT_TRUE(m_log.WaitForPrefix("[Error] MpdLoader::ThreadProc failed to get mpd for 0x8007000E"));
    NextFetch();
    News(LiveManifest(100, 3));
    EXPECT_EQ(TakeQueuedNumbers(), Numbers{102});
}

}  // namespace
}  // namespace kvmpd::test
