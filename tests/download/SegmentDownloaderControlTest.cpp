// What the engine's control threads do to the downloader: the folder, clear, and closing in every state.
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "download/SegmentDownloader.h"
#include "tests/common/Allocations.h"
#include "tests/download/DownloaderFixture.h"
#include "tests/download/LogLevel.h"
#include "tests/support/Environment.h"
#include "tests/support/LogCapture.h"

namespace kvmpd {
namespace {

using test::Body;
using test::Gate;
using test::LevelOf;
using test::LogCapture;

using Lines = std::vector<std::string>;
using Numbers = std::vector<LONGLONG>;
constexpr LONGLONG kEndMarker = 0;

class SegmentDownloaderFolder : public test::FakeDownloaderTest {
  protected:
    /// Where the next segment's audio would lie. Its bodies are empty, so that no file is made there.
    std::wstring AudioFileOfNextSegment() {
        m_client->Once(Audio(1234), {S_OK, {}});
        m_client->Once(Video(1234), {S_OK, {}});
        m_downloader->Init(m_queue);
        Push(1234);
        return m_receiver.AwaitSegments(1).front()->m_audioFile;
    }
};

TEST_F(SegmentDownloaderFolder, IsLoggedAtLevelFourAndTaken) {
    {
        const LogCapture log(4);
        EXPECT_EQ(m_downloader->SetCacheFileFolder("C:\\cache"), 0);
        EXPECT_EQ(log.Lines(), Lines{" SegmentDownloader::SetCacheFileFolder C:\\cache"});
    }
    EXPECT_EQ(AudioFileOfNextSegment(), L"C:\\cache\\1234.m4a");
    EXPECT_EQ(LevelOf(" SegmentDownloader::SetCacheFileFolder x", [this] { m_downloader->SetCacheFileFolder("x"); }),
              4);
}

TEST_F(SegmentDownloaderFolder, IsUtf8) {
    EXPECT_EQ(m_downloader->SetCacheFileFolder("/tmp/na\xC3\xAFve \xE2\x82\xAC"), 0);
    EXPECT_EQ(AudioFileOfNextSegment(), L"/tmp/na\u00EFve \u20AC\\1234.m4a");
}

TEST_F(SegmentDownloaderFolder, IsUsedAsGiven) {
    EXPECT_EQ(m_downloader->SetCacheFileFolder("C:\\cache\\"), 0);
    EXPECT_EQ(AudioFileOfNextSegment(), L"C:\\cache\\\\1234.m4a");
}

TEST_F(SegmentDownloaderFolder, ThatWasNeverSetGivesNamesAtTheRoot) {
    EXPECT_EQ(AudioFileOfNextSegment(), L"\\1234.m4a");
}

TEST_F(SegmentDownloaderFolder, ThatIsEmptyGivesNamesAtTheRoot) {
    EXPECT_EQ(m_downloader->SetCacheFileFolder(""), 0);
    EXPECT_EQ(AudioFileOfNextSegment(), L"\\1234.m4a");
}

TEST_F(SegmentDownloaderFolder, ThatCannotBeConvertedIsRefusedAndTheOldOneStays) {
    m_downloader->SetCacheFileFolder("C:\\cache");
    {
        const LogCapture log(4);
        EXPECT_EQ(m_downloader->SetCacheFileFolder(nullptr), E_FAIL);
        EXPECT_TRUE(log.Contains("[Error] SegmentDownloader::SetCacheFileFolder MultiByteToWideChar return 0"));
    }
    EXPECT_EQ(AudioFileOfNextSegment(), L"C:\\cache\\1234.m4a");
    EXPECT_EQ(LevelOf("[Error] SegmentDownloader::SetCacheFileFolder MultiByteToWideChar return 0",
                      [this] { m_downloader->SetCacheFileFolder(nullptr); }),
              4);
}

class SegmentDownloaderClear : public test::FakeDownloaderTest {};

TEST_F(SegmentDownloaderClear, DropsWhatIsQueuedAndTheSegmentInHandButNotTheNext) {
    const LogCapture log(6);
    Gate gate{Gate::State::kClosed};
    m_client->Once(Audio(1), Body("sound"));
    m_client->Once(Video(1), {S_OK, {"pictures"}, true, [&gate] { gate.Pass(); }});
    Serve(2);
    Serve(3, "123", "1234");
    Start();
    Push(1);
    Push(2);
    gate.WaitForArrivals(1);
    m_downloader->clear();
    Push(3);
    gate.Open();
    Finish();

    EXPECT_EQ(m_receiver.Numbers(), (Numbers{3, kEndMarker}));
    EXPECT_EQ(m_client->Urls(), (std::vector<std::string>{"a/1", "v/1", "a/3", "v/3"}));
    EXPECT_TRUE(log.Contains(" SegmentDownloader::ThreadProc discard segment 1."));
    EXPECT_EQ(log.CountPrefix(" SegmentDownloader::ThreadProc discard segment"), 1u);
    EXPECT_FALSE(log.Contains(" SegmentDownloader::ThreadProc download segment 1 success. Result: 0x00000000"));
    EXPECT_EQ(m_downloader->AudioBytes(), 3);
    EXPECT_EQ(m_downloader->VideoBytes(), 4);
    EXPECT_FALSE(Exists("1.m4a")) << "a discarded segment takes its files with it";
    EXPECT_FALSE(Exists("1.mp4"));
}

TEST_F(SegmentDownloaderClear, DiscardsAFailedSegmentWithoutReportingIt) {
    const LogCapture log(6);
    Gate gate{Gate::State::kClosed};
    m_client->Once(Audio(1), {E_FAIL, {}, false, [&gate] { gate.Pass(); }});
    Start();
    Push(1);
    gate.WaitForArrivals(1);
    m_downloader->clear();
    gate.Open();
    Finish();
    EXPECT_EQ(m_receiver.Failures(), 0);
    EXPECT_TRUE(log.Contains(" SegmentDownloader::ThreadProc discard segment 1."));
    EXPECT_EQ(log.CountPrefix("[Error] SegmentDownloader::ThreadProc"), 0u);
}

// A segment that the receiver does not want any more.

class SegmentDownloaderUnwanted : public test::FakeDownloaderTest {};

TEST_F(SegmentDownloaderUnwanted, IsNeitherFetchedNorHandedOnNorReported) {
    const LogCapture log(5);
    m_receiver.Refuse(1);
    Serve(1);
    Serve(2);
    Start();
    Push(1);
    Push(2);
    Finish();
    EXPECT_EQ(m_client->Urls(), (std::vector<std::string>{"a/2", "v/2"}));
    EXPECT_EQ(m_receiver.Numbers(), (Numbers{2, kEndMarker}));
    EXPECT_EQ(m_receiver.Failures(), 0);
    EXPECT_TRUE(log.Contains(" SegmentDownloader::ThreadProc skip segment 1 of an earlier url"));
}

TEST_F(SegmentDownloaderUnwanted, UsesUpTheClearThatMeantIt) {
    m_receiver.Refuse(1);
    Serve(2);
    m_downloader->clear();
    Start();
    Push(1);
    Push(2);
    Finish();
    EXPECT_EQ(m_receiver.Numbers(), (Numbers{2, kEndMarker}));
}

TEST_F(SegmentDownloaderUnwanted, IsFinishedWhenItsTransferRunsAlready) {
    Gate gate{Gate::State::kClosed};
    m_client->Once(Audio(1), {S_OK, {"sound"}, true, [&gate] { gate.Pass(); }});
    m_client->Once(Video(1), Body("pictures"));
    Start();
    Push(1);
    gate.WaitForArrivals(1);
    m_receiver.Refuse(1);
    gate.Open();
    Finish();
    EXPECT_EQ(m_receiver.Numbers(), (Numbers{1, kEndMarker})) << "whoever receives it decides";
}

// There is one flag, so a clear while nothing is in hand falls on the next segment that is finished.
TEST_F(SegmentDownloaderClear, OfAnIdleDownloaderDiscardsTheNextFinishedSegment) {
    Serve(1);
    Serve(2);
    Start();
    m_downloader->clear();
    Push(1);
    Push(2);
    Finish();
    EXPECT_EQ(m_receiver.Numbers(), (Numbers{2, kEndMarker}));
}

TEST_F(SegmentDownloaderClear, SeveralDiscardOneSegment) {
    Serve(1);
    Serve(2);
    Start();
    m_downloader->clear();
    m_downloader->clear();
    Push(1);
    Push(2);
    Finish();
    EXPECT_EQ(m_receiver.Numbers(), (Numbers{2, kEndMarker}));
}

TEST_F(SegmentDownloaderClear, ZeroesTheCounters) {
    Serve(1);
    Start();
    Push(1);
    m_receiver.AwaitSegments(1);
    EXPECT_EQ(m_downloader->AudioBytes(), 5);
    m_downloader->clear();
    EXPECT_EQ(m_downloader->AudioBytes(), 0);
    EXPECT_EQ(m_downloader->VideoBytes(), 0);
}

TEST_F(SegmentDownloaderClear, LeavesTheEndMarkerAlone) {
    Start();
    m_downloader->clear();
    Finish();
    EXPECT_EQ(m_receiver.Numbers(), Numbers{kEndMarker});
}

TEST_F(SegmentDownloaderClear, BeforeInitNeedsNoQueue) {
    const LogCapture log(3);
    m_downloader->clear();
    EXPECT_EQ(log.Lines(), Lines{" SegmentDownloader::clear "});
    EXPECT_EQ(LevelOf(" SegmentDownloader::clear ", [this] { m_downloader->clear(); }), 3);
}

TEST_F(SegmentDownloaderClear, IsUsedUpByWhoeverTakesItFirst) {
    const LogCapture log(6);
    const Segment segment;
    EXPECT_FALSE(m_downloader->TakeDiscard(segment));
    m_downloader->clear();
    EXPECT_TRUE(m_downloader->TakeDiscard(segment));
    EXPECT_FALSE(m_downloader->TakeDiscard(segment));
    EXPECT_EQ(log.Count(" SegmentDownloader::ThreadProc discard segment 0."), 1u);
}

class SegmentDownloaderClose : public test::FakeDownloaderTest {};

TEST_F(SegmentDownloaderClose, NeverStarted) {
    const LogCapture log(4);
    EXPECT_EQ(m_downloader->CloseThread(), 0);
    EXPECT_EQ(log.Lines(), (Lines{" SegmentDownloader::CloseThread ", " WorkerProcessor::CloseThread ",
                                  " WorkerProcessor::CloseThread Finish"}));
}

TEST_F(SegmentDownloaderClose, WhileTheThreadWaitsForASegmentHandsOnTheMarker) {
    Start();
    while (m_queue->WaitingThreads() == 0) {
        std::this_thread::yield();
    }
    EXPECT_EQ(m_downloader->CloseThread(), 0);
    EXPECT_FALSE(m_downloader->IsThreadRunning());
    EXPECT_EQ(m_receiver.Numbers(), Numbers{kEndMarker});
    EXPECT_TRUE(m_receiver.Segments().front()->IsEndMarker());
}

TEST_F(SegmentDownloaderClose, WithoutMemoryForTheMarkerEndsTheThreadAllTheSame) {
    Start();
    while (m_queue->WaitingThreads() == 0) {
        std::this_thread::yield();
    }
    {
        const test::NoMemory none;
        m_downloader->CloseThread();
    }
    EXPECT_FALSE(m_downloader->IsThreadRunning());
    EXPECT_EQ(m_receiver.Numbers(), Numbers{});
}

TEST_F(SegmentDownloaderClose, InTheMiddleOfADownloadFinishesThatSegmentAndTakesNoOther) {
    const LogCapture log(6);
    Gate gate{Gate::State::kClosed};
    m_client->Once(Audio(1), {S_OK, {"sound"}, true, [&gate] { gate.Pass(); }});
    m_client->Once(Video(1), Body("pictures"));
    Serve(2);
    Start();
    Push(1);
    Push(2);
    gate.WaitForArrivals(1);
    std::jthread closer([this] { EXPECT_EQ(m_downloader->CloseThread(), 0); });
    ASSERT_TRUE(log.WaitForPrefix(" WorkerProcessor::CloseThread "));
    EXPECT_TRUE(m_downloader->IsThreadRunning());
    gate.Open();
    closer.join();
    EXPECT_EQ(m_receiver.Numbers(), Numbers{1});
    EXPECT_EQ(m_client->Urls(), (std::vector<std::string>{"a/1", "v/1"}));
    EXPECT_TRUE(log.Contains(" SegmentDownloader::ThreadProc finish"));
    EXPECT_FALSE(log.Contains(" SegmentDownloader::ThreadProc  get end segment. stop thread!!"));
}

TEST_F(SegmentDownloaderClose, WaitsWhileTheReceiverHoldsASegment) {
    const LogCapture log(6);
    Gate gate{Gate::State::kClosed};
    m_receiver.AtPush([&gate] { gate.Pass(); });
    Serve(1);
    Start();
    Push(1);
    gate.WaitForArrivals(1);
    std::jthread closer([this] { m_downloader->CloseThread(); });
    ASSERT_TRUE(log.WaitForPrefix(" WorkerProcessor::CloseThread "));
    EXPECT_FALSE(log.Contains(" WorkerProcessor::CloseThread Finish"));
    gate.Open();
    closer.join();
    EXPECT_EQ(m_receiver.Numbers(), Numbers{1});
}

TEST_F(SegmentDownloaderClose, SecondCallLogsItsLineAndReturnsAtOnce) {
    Start();
    m_downloader->CloseThread();
    const LogCapture log(6);
    EXPECT_EQ(m_downloader->CloseThread(), 0);
    EXPECT_EQ(log.Lines(), Lines{" SegmentDownloader::CloseThread "});
    EXPECT_EQ(LevelOf(" SegmentDownloader::CloseThread ", [this] { m_downloader->CloseThread(); }), 4);
}

TEST_F(SegmentDownloaderClose, AfterTheThreadEndedByItselfReturnsAtOnce) {
    const LogCapture log(6);
    Start();
    m_queue->close();
    ASSERT_TRUE(log.WaitForPrefix(" SegmentDownloader::ThreadProc finish"));
    EXPECT_EQ(m_downloader->CloseThread(), 0);
    EXPECT_FALSE(log.Contains(" WorkerProcessor::CloseThread "));
    m_downloader.reset();  // joins what is left of the thread
    EXPECT_TRUE(log.Contains(" WorkerProcessor::CloseThread Finish"));
}

TEST_F(SegmentDownloaderClose, IsForGood) {
    Start();
    m_downloader->CloseThread();
    const LogCapture log(6);
    Serve(1);
    Push(1);
    EXPECT_EQ(m_downloader->Init(m_queue), 0);
    ASSERT_TRUE(log.WaitForPrefix(" SegmentDownloader::ThreadProc finish"));
    EXPECT_EQ(log.Lines(), (Lines{" SegmentDownloader::Init ", " SegmentDownloader::ThreadProc ",
                                  " SegmentDownloader::ThreadProc finish"}));
    EXPECT_EQ(m_client->Calls().size(), 0u);
}

TEST_F(SegmentDownloaderClose, DestructorDoesItAndLogs) {
    Start();
    while (m_queue->WaitingThreads() == 0) {
        std::this_thread::yield();
    }
    const LogCapture log(4);
    m_downloader.reset();
    EXPECT_EQ(m_receiver.Numbers(), Numbers{kEndMarker});
    const Lines lines = log.Lines();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[0], " SegmentDownloader::~SegmentDownloader ");
    EXPECT_EQ(lines[1], " SegmentDownloader::CloseThread ");
    // Once for the downloader, once for its base.
    EXPECT_EQ(log.Count(" WorkerProcessor::CloseThread Finish"), 2u);
    EXPECT_EQ(m_queue.use_count(), 1) << "the queue is let go";
}

TEST_F(SegmentDownloaderClose, RacesWithTheFirstSegmentAndTheStart) {
    Serve(1);
    Start();
    std::jthread pusher([this] { Push(1); });
    EXPECT_EQ(m_downloader->CloseThread(), 0);
    EXPECT_FALSE(m_downloader->IsThreadRunning());
}

// A clear empties the queue in which a close has just put its marker; without a marker the thread would sleep in pop
// for ever and the close with it.
TEST(SegmentDownloaderCloseRace, AClearMeanwhileDoesNotTakeTheMarkerAway) {
    const int rounds = test::UnderWine() ? 50 : 500;  // starting and ending a thread takes 20 ms there
    for (int i = 0; i < rounds; ++i) {
        test::FakeReceiver receiver;
        SegmentDownloader downloader(receiver, std::make_unique<test::FakeNetKernel>());
        const auto queue = std::make_shared<SegmentQueue>(0);
        ASSERT_EQ(downloader.Init(queue), 0);
        std::atomic<bool> closed{false};
        std::thread clearer([&] {
            while (!closed) {
                downloader.clear();
            }
        });
        EXPECT_EQ(downloader.CloseThread(), 0);
        closed = true;
        clearer.join();
    }
}

TEST(SegmentDownloaderLife, LogsConstructionInitAndDestructionAtLevelFour) {
    test::FakeReceiver receiver;
    const auto live = [&receiver] {
        SegmentDownloader downloader(receiver);
        downloader.Init(std::make_shared<SegmentQueue>(0));
        downloader.CloseThread();
    };
    for (const char* line : {" SegmentDownloader::SegmentDownloader ", " SegmentDownloader::Init ",
                             " SegmentDownloader::~SegmentDownloader ", " SegmentDownloader::ThreadProc ",
                             " SegmentDownloader::ThreadProc finish"}) {
        EXPECT_EQ(LevelOf(line, live), 4) << line;
    }
}

TEST_F(SegmentDownloaderClear, LinesOfASegmentAreAtLevelSix) {
    Start();
    for (LONG level : {5, 6}) {
        const LogCapture log(level);
        const LONGLONG number = 10 * level;
        Serve(number);
        Push(number);
        m_receiver.AwaitSegments(level == 5 ? 1 : 3);
        m_downloader->clear();
        Serve(number + 1);
        Serve(number + 2);
        Push(number + 1);
        Push(number + 2);
        m_receiver.AwaitSegments(level == 5 ? 2 : 4);
        const size_t written = level == 5 ? 0 : 1;
        const std::string text = " SegmentDownloader::ThreadProc download segment " + std::to_string(number);
        EXPECT_EQ(log.CountPrefix(text + " audio success"), written);
        EXPECT_EQ(log.CountPrefix(text + " video success"), written);
        EXPECT_EQ(log.CountPrefix(text + " success"), written);
        EXPECT_EQ(log.CountPrefix(" SegmentDownloader::ThreadProc discard segment"), written);
    }
}

TEST_F(SegmentDownloaderClose, LinesThatSayWhyTheThreadStopsAreAtLevelFive) {
    for (LONG level : {4, 5}) {
        const LogCapture log(level);
        SegmentDownloader ended(m_receiver, std::make_unique<test::FakeNetKernel>());
        const auto queue = std::make_shared<SegmentQueue>(0);
        queue->push(std::make_shared<Segment>());
        ended.Init(queue);
        ASSERT_TRUE(log.WaitForPrefix(" SegmentDownloader::ThreadProc finish"));
        SegmentDownloader closed(m_receiver, std::make_unique<test::FakeNetKernel>());
        queue->close();
        closed.Init(queue);
        ASSERT_TRUE(log.WaitForPrefix(" SegmentDownloader::ThreadProc finish", 2));
        const size_t written = level == 4 ? 0 : 1;
        EXPECT_EQ(log.Count(" SegmentDownloader::ThreadProc  get end segment. stop thread!!"), written);
        EXPECT_EQ(log.Count("[Error] SegmentDownloader::ThreadProc cannot get segment. stop thread!!"), written);
    }
}

}  // namespace
}  // namespace kvmpd
