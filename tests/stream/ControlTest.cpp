// The byte stream's small operations, the settings, and what restarts the stream.
#include <limits>

#include "tests/stream/StreamTest.h"

namespace kvmpd::test {
namespace {

class Control : public StreamTest {};

static_assert(AUDIO_POSITION_BASE == 0x3FFFFFFFFFFFFFFF);

TEST_F(Control, TheConstructorAndTheDestructorLogTheirSteps) {
    m_log.Clear();
    { const KVMPDStream stream; }
    const std::vector<std::string> expected = {" KVMPDStream::KVMPDStream ",
                                               " MpdLoader::MpdLoader ",
                                               " SegmentDownloader::SegmentDownloader ",
                                               " SegmentQueue::SegmentQueue ",
                                               " KVMPDStream::~KVMPDStream ",
                                               " KVMPDStream::CloseThread ",
                                               " KVMPDStream::~KVMPDStream complete",
                                               " MPDEventHandler::~MPDEventHandler ",
                                               " MPDEventHandler::~MPDEventHandler finish",
                                               " BufferHandler::~BufferHandler ",
                                               " BufferHandler::~BufferHandler ",
                                               " SegmentQueue::~SegmentQueue ",
                                               " SegmentDownloader::~SegmentDownloader ",
                                               " MpdLoader::~MpdLoader "};
    std::vector<std::string> found;
    for (const std::string& line : m_log.Lines()) {
        if (std::find(expected.begin(), expected.end(), line) != expected.end()) {
            found.push_back(line);
        }
    }
    EXPECT_EQ(found, expected);
}

TEST_F(Control, LogsItsLifeAtLevelSix) {
    ExpectLevel(6, " KVMPDStream::KVMPDStream ", [] { const KVMPDStream stream; });
    ExpectLevel(6, " KVMPDStream::~KVMPDStream ", [] { const KVMPDStream stream; });
    ExpectLevel(6, " KVMPDStream::~KVMPDStream complete", [] { const KVMPDStream stream; });
    ExpectLevel(4, " KVMPDStream::CloseThread ", [] { const KVMPDStream stream; });
}

TEST_F(Control, PointersAreStored) {
    EXPECT_EQ(Stream().SetPointer(-5), S_OK);
    EXPECT_EQ(Stream().SetAudioPointer(0x123456789ABC), S_OK);
    EXPECT_EQ(Access::VideoPointer(Stream()), -5);
    EXPECT_EQ(Access::AudioPointer(Stream()), 0x123456789ABC);
}

TEST_F(Control, AReadReportsTheRequestedCountUnlessItFails) {
    PushSegments(100, 1, 1000, 300, 30);
    std::vector<BYTE> bytes(400);
    DWORD count = 7;
    EXPECT_EQ(Stream().Read(bytes.data(), 300, TRUE, &count), S_OK);
    EXPECT_EQ(count, 300u);
    EXPECT_EQ(Stream().Read(bytes.data(), 301, FALSE, &count), S_FALSE);
    EXPECT_EQ(count, 301u);
    Stream().SetPointer(-1);
    count = 7;
    EXPECT_EQ(Stream().Read(bytes.data(), 10, FALSE, &count), E_ACCESSDENIED);
    EXPECT_EQ(count, 7u);
    EXPECT_EQ(Stream().ReadAudio(bytes.data(), 30, FALSE, &count), S_OK);
    EXPECT_EQ(count, 30u);
    EXPECT_EQ(Stream().ReadAudio(bytes.data(), 31, FALSE, &count), S_FALSE);
    EXPECT_EQ(count, 31u);
    Stream().SetAudioPointer(-1);
    count = 7;
    EXPECT_EQ(Stream().ReadAudio(bytes.data(), 10, FALSE, &count), E_ACCESSDENIED);
    EXPECT_EQ(count, 7u);
}

TEST_F(Control, AReadWithoutAPlaceForTheCountIsServed) {
    PushSegments(100, 1, 1000, 300, 30);
    std::vector<BYTE> bytes(10);
    EXPECT_EQ(Stream().Read(bytes.data(), 10, FALSE, nullptr), S_OK);
    EXPECT_EQ(Stream().ReadAudio(bytes.data(), 10, FALSE, nullptr), S_OK);
}

TEST_F(Control, SizesAreTheBufferedRanges) {
    Stream().CreateBuffer(1000);
    PushSegments(100, 1, 1000, 300, 30);
    Stream().ReadSegmentCacheToBuffer();
    LONGLONG start = -1;
    LONGLONG end = -1;
    EXPECT_EQ(Stream().Size(&start, &end), S_OK);
    EXPECT_EQ(start, 0);
    EXPECT_EQ(end, 300);
    EXPECT_EQ(Stream().SizeAudio(&start, &end), S_OK);
    EXPECT_EQ(start, 0);
    EXPECT_EQ(end, 30);
}

TEST_F(Control, TheLengthHasNoEnd) {
    LONGLONG total = 0;
    LONGLONG available = 0;
    EXPECT_EQ(Stream().Length(&total, &available), S_OK);
    EXPECT_EQ(total, 0x7FFFFFFFFFFFFFFF);
    EXPECT_EQ(available, 0x7FFFFFFFFFFFFFFF);
    EXPECT_EQ(Stream().Alignment(), 1u);
}

TEST_F(Control, LockKeepsOtherThreadsOutAndMayBeTakenAgain) {
    Stream().Lock();
    Stream().Lock();
    Gate started;
    Gate entered;
    std::thread other([&] {
        started.Pass();
        Stream().Lock();
        entered.Pass();
        Stream().Unlock();
    });
    started.WaitForArrivals(1);
    Stream().Unlock();
    EXPECT_FALSE(entered.ArriveWithin(1, kGrace));
    Stream().Unlock();
    entered.WaitForArrivals(1);
    other.join();
}

TEST_F(Control, IsBornStopped) {
    KVMPDStream fresh;
    BYTE byte = 0;
    DWORD count = 7;
    EXPECT_EQ(fresh.IsStopped(), 1);
    EXPECT_EQ(fresh.Read(&byte, 1, FALSE, &count), E_FAIL);
    EXPECT_EQ(count, 7u);
    fresh.StopNow(0);
    EXPECT_EQ(fresh.IsStopped(), 0);
    EXPECT_EQ(fresh.Read(&byte, 1, FALSE, &count), S_FALSE);
}

TEST_F(Control, AStoppedEngineFailsItsReads) {
    PushSegments(100, 1, 1000, 300, 30);
    std::vector<BYTE> bytes(10);
    DWORD count = 7;
    Stream().StopNow(1);
    EXPECT_EQ(Stream().Read(bytes.data(), 10, FALSE, &count), E_FAIL);
    EXPECT_EQ(Stream().ReadAudio(bytes.data(), 10, FALSE, &count), E_FAIL);
    EXPECT_EQ(count, 7u);
    EXPECT_EQ(Stream().ReadBuffer(bytes.data(), 10), S_OK);  // the bytes stay where they are
    Stream().StopNow(0);
    EXPECT_EQ(ReadVideo(0, 300), S_OK);
    EXPECT_EQ(ReadAudio(0, 30), S_OK);
}

TEST_F(Control, TheStopFlagIsLoggedAndAsked) {
    Stream().StopNow(0);
    EXPECT_EQ(Stream().IsStopped(), 0);
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::StopNow : 0"));
    Stream().StopNow(1);
    EXPECT_EQ(Stream().IsStopped(), 1);
    ExpectLevel(3, " KVMPDStream::StopNow : 1", [this] { Stream().StopNow(1); });
}

TEST_F(Control, TheCacheLimitIsGivenInSeconds) {
    EXPECT_EQ(Stream().SetMaxCacheTime(60), S_OK);
    EXPECT_EQ(Access::MaxCacheTime(Stream()), 60000u);
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::SetMaxCacheTime : 60"));
    EXPECT_EQ(Stream().SetMaxCacheTime(0), S_OK);
    EXPECT_EQ(Access::MaxCacheTime(Stream()), 0u);
    ExpectLevel(4, " KVMPDStream::SetMaxCacheTime : 60", [this] { Stream().SetMaxCacheTime(60); });
}

TEST_F(Control, ACompleteRendererIsOnlyLogged) {
    ExpectLevel(5, " KVMPDStream::SetRenderComplete : 1", [this] { Stream().SetRenderComplete(1); });
}

TEST_F(Control, ThePreferredHeightGoesToTheLoader) {
    Stream().SetPreferQuality(360);
    EXPECT_EQ(Loader().PreferQuality(), 360u);
}

TEST_F(Control, TheCacheFolderGoesToTheDownloader) {
    EXPECT_EQ(Stream().SetCacheFileFolder("somewhere"), S_OK);
    EXPECT_TRUE(m_log.Contains(" SegmentDownloader::SetCacheFileFolder somewhere"));
    EXPECT_EQ(Stream().SetCacheFileFolder(nullptr), E_FAIL);
}

TEST_F(Control, ACallbackIsHeldAndLetGo) {
    EXPECT_EQ(Stream().SetCallback(&m_host), S_OK);
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::SetCallback set callback: 0x00000000"));
    EXPECT_EQ(m_host.References(), 1);
    EXPECT_EQ(Stream().SetCallback(nullptr), S_OK);
    EXPECT_EQ(m_host.References(), 0);
}

TEST_F(Control, BuffersAreMadeOnce) {
    EXPECT_EQ(Stream().CreateBuffer(1000), S_OK);
    EXPECT_EQ(Access::BufferSize(Stream()), 1000);
    EXPECT_TRUE(Access::IsBufferEventSet(Stream()));
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::CreateBuffer create 1000 size"));
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::CreateBuffer allocate audio buffer size 1000 success"));
    EXPECT_EQ(m_log.Count(" CRingBuffer::CRingBuffer "), 2u);
    EXPECT_EQ(Stream().CreateBuffer(5000), S_OK);
    EXPECT_EQ(m_log.Count(" CRingBuffer::CRingBuffer "), 2u);
    EXPECT_EQ(Access::BufferSize(Stream()), 5000);
    ExpectLevel(4, " KVMPDStream::CreateBuffer create 10 size", [this] { Stream().CreateBuffer(10); });
    ExpectLevel(4, " KVMPDStream::CreateBuffer allocate audio", [this] { Stream().CreateBuffer(10); });
}

// Run.

TEST_F(Control, RunDoesNothingUnlessTheLoaderIsPaused) {
    Publish(100, 3, 60000);
    PushCounting(100, 2, 1000);
    m_log.Clear();
    Stream().Run();
    EXPECT_TRUE(m_log.Lines().empty());
    EXPECT_EQ(Access::CacheSize(Stream()), 2u);
}

TEST_F(Control, RunAfterAPauseRestartsTheStream) {
    Publish(100, 3, 60000);
    Stream().CreateBuffer(1000);
    PushSegments(100, 2, 1000, 300, 30);
    Stream().ReadSegmentCacheToBuffer();
    Loader().pauseParse(1);
    ListenAsHost();
    m_log.Clear();
    Stream().Run();
    EXPECT_FALSE(Loader().IsPaused());
    EXPECT_EQ(Loader().CurrentMpd(), nullptr);
    EXPECT_TRUE(Cache().numbers.empty());
    EXPECT_EQ(Cache().videoEnd, 0);
    LONGLONG start = -1;
    LONGLONG end = -1;
    Stream().Size(&start, &end);
    EXPECT_EQ(end, 0);
    EXPECT_EQ(Heard(), std::vector<std::string>{"8(1,0)"});
    std::vector<std::string> lines = m_log.Lines();
    std::erase_if(lines, [](const std::string& line) {
        return line.starts_with(" Segment::") || line.starts_with(" BufferHandler") || line.starts_with(" CRing") ||
               line == " MPDEventHandler::ThreadProc ";
    });
    lines.resize(7);
    EXPECT_EQ(lines, (std::vector<std::string>{
                         " MpdLoader::pauseParse : 0", " MpdLoader::resetStart ", " SegmentDownloader::clear ",
                         " KVMPDStream::resetSegmentCache ", " KVMPDStream::releaseBuffer ",
                         " MPDEventHandler::OnStreamDwordEvent Call to client event: 8 param1: 1 param2: 0",
                         " KVMPDStream::Run reset position by seek to 0"}));
}

TEST_F(Control, RunLogsItsEndAtLevelFive) {
    ExpectLevel(5, " KVMPDStream::Run reset position by seek to 0", [this] {
        Loader().pauseParse(1);
        Stream().Run();
    });
}

// The preferred delay in segments.

TEST_F(Control, AnUnchangedDelayIsToldToTheHost) {
    Publish(100, 10, 60000);
    ListenAsHost();
    m_log.Clear();
    EXPECT_EQ(Stream().SetPreferDelaySegment(0), 1);
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::SetPreferDelaySegment : 0"));
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::SetPreferDelaySegment prefer delay does not change"));
    EXPECT_EQ(Heard(), std::vector<std::string>{"8(0,0)"});
}

TEST_F(Control, ANewDelayNamesItsSegment) {
    Publish(100, 10, 60000);
    ListenAsHost();
    EXPECT_EQ(Stream().SetPreferDelaySegment(3), 1);
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::SetPreferDelaySegment target segment is 106"));
    EXPECT_EQ(Loader().Preference().delaySegment, 3u);
    EXPECT_TRUE(Heard().empty());
}

TEST_F(Control, ANewDelayWithoutAManifestCountsAsUnchangedButIsKept) {
    ListenAsHost();
    EXPECT_EQ(Stream().SetPreferDelaySegment(3), 1);
    EXPECT_EQ(Loader().Preference().delaySegment, 3u);
    EXPECT_EQ(Heard(), std::vector<std::string>{"8(0,0)"});
}

TEST_F(Control, TheSegmentOfADelayIsZeroWithoutAManifest) {
    EXPECT_EQ(Access::SegmentIdByDelayCount(Stream(), 3), 0);
    EXPECT_TRUE(m_log.Contains("[Error] KVMPDStream::GetSegmentIdByDelayCount GetSegmentRange failed"));
    ExpectLevel(4, "[Error] KVMPDStream::GetSegmentIdByDelayCount",
                [this] { Access::SegmentIdByDelayCount(Stream(), 3); });
}

TEST_F(Control, TheSegmentOfADelayIsCountedFromTheNewest) {
    Publish(100, 10, 60000);
    EXPECT_EQ(Access::SegmentIdByDelayCount(Stream(), 0), 109);
    EXPECT_EQ(Access::SegmentIdByDelayCount(Stream(), 9), 100);
    EXPECT_EQ(Access::SegmentIdByDelayCount(Stream(), 20), 89);
}

TEST_F(Control, ADelayIsLoggedAtItsLevels) {
    Publish(100, 10, 60000);
    DWORD count = 10;
    ExpectLevel(3, " KVMPDStream::SetPreferDelaySegment : ", [&] { Stream().SetPreferDelaySegment(++count); });
    ExpectLevel(5, " KVMPDStream::SetPreferDelaySegment target", [&] { Stream().SetPreferDelaySegment(++count); });
    ExpectLevel(3, " KVMPDStream::SetPreferDelaySegment prefer", [&] { Stream().SetPreferDelaySegment(count); });
}

// The video quality.

TEST_F(Control, AnotherQualityRestartsTheStream) {
    Publish(100, 3, 60000);
    Stream().CreateBuffer(1000);
    PushSegments(100, 2, 1000, 300, 30);
    Stream().ReadSegmentCacheToBuffer();
    m_log.Clear();
    EXPECT_EQ(Stream().SetVideoQualityID(1), 1);
    EXPECT_EQ(Loader().TargetVideoQualityID(), 1u);
    EXPECT_EQ(Loader().CurrentMpd(), nullptr);
    EXPECT_TRUE(Cache().numbers.empty());
    std::vector<std::string> lines = m_log.Lines();
    std::erase_if(lines, [](const std::string& line) {
        return line.starts_with(" Segment::") || line.starts_with(" BufferHandler") || line.starts_with(" CRing");
    });
    EXPECT_EQ(lines, (std::vector<std::string>{" KVMPDStream::SetVideoQualityID : 1", " KVMPDStream::releaseBuffer ",
                                               " KVMPDStream::resetSegmentCache ", " SegmentDownloader::clear ",
                                               " MpdLoader::resetStart "}));
    ExpectLevel(3, " KVMPDStream::SetVideoQualityID : 1", [this] { Stream().SetVideoQualityID(1); });
}

TEST_F(Control, TheSameQualityChangesNothing) {
    Publish(100, 3, 60000);
    PushCounting(100, 2, 1000);
    EXPECT_EQ(Stream().SetVideoQualityID(0), 1);
    EXPECT_EQ(Access::CacheSize(Stream()), 2u);
    EXPECT_NE(Loader().CurrentMpd(), nullptr);
}

TEST_F(Control, AQualityIsRefusedOnceADownloaderIsGone) {
    Access::ReleaseDownloader(Stream());
    EXPECT_EQ(Stream().SetVideoQualityID(1), 0);
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::SetVideoQualityID  loader and downloader are already released"));
    EXPECT_EQ(m_log.Count(" KVMPDStream::SetVideoQualityID : 1"), 0u);
    ExpectLevel(3, " KVMPDStream::SetVideoQualityID  loader", [this] { Stream().SetVideoQualityID(1); });
}

TEST_F(Control, AQualityIsRefusedOnceTheLoaderIsGone) {
    Access::ReleaseLoader(Stream());
    EXPECT_EQ(Stream().SetVideoQualityID(1), 0);
    EXPECT_EQ(Stream().GetUrl(), L"");
}

}  // namespace
}  // namespace kvmpd::test
