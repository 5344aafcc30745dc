// Every line of this room at its verbosity. Lines that only a failing platform brings forth are in PlatformFaultTest.
#include "tests/support/LogLevels.h"

#include <thread>

#include "common/Log.h"
#include "tests/stream/RingTestAccess.h"
#include "tests/stream/StreamTest.h"

namespace kvmpd::test {
namespace {

constexpr char kHeld[] = " KVMPDStream::PushSegmentToCache buffer is full. Start to wait!";

// What an engine writes that is made, lent to a reader and closed, whatever happens in between.
const std::vector<LineAtLevel> kLife{
    {6, " KVMPDStream::KVMPDStream "},          {3, " KVMPDStream::StopNow : 0"},
    {4, " KVMPDStream::CloseThread "},          {6, " KVMPDStream::~KVMPDStream "},
    {6, " KVMPDStream::~KVMPDStream complete"}, {6, " BufferHandler::~BufferHandler "}};

class StreamLogLevels : public StreamTest {
  protected:
    /// Runs `scenario` with a new engine for each verbosity.
    void Expect(std::vector<LineAtLevel> table, const std::function<void(LONG level)>& scenario) {
        table.insert(table.end(), kLife.begin(), kLife.end());
        ExpectLevels(table, {"KVMPDStream::", "BufferHandler::", "CRingBuffer::"}, LinesAt([&](LONG level) {
                         LogTestHooks::SetLevel(0);
                         m_stream.reset();
                         m_log.Clear();
                         LogTestHooks::SetLevel(level);
                         m_filter.state = State_Running;
                         m_stream = std::make_unique<KVMPDStream>(std::make_unique<ScriptedManifests>(m_manifests),
                                                                  std::make_unique<ScriptedHttp>(m_media));
                         Stream().SetFilter(&m_filter);
                         Stream().StopNow(0);
                         scenario(level);
                         return m_log.Lines();
                     }));
    }
    /// As StreamTest::Publish, which listens to lines of level 6.
    void PublishSilently(LONGLONG firstNumber, size_t count, DWORD duration) {
        m_manifests->Set(MakeManifest(firstNumber, count, duration));
        EXPECT_EQ(Loader().Init(L"http://origin/live.mpd", Access::Queue(Stream())), S_OK);
        while (!Loader().CurrentMpd()) {
            std::this_thread::yield();
        }
        Loader().CloseThread();
    }
    void Close() { m_stream.reset(); }
};

TEST_F(StreamLogLevels, OfSettings) {
    Expect({{4, " KVMPDStream::Init : "},
            {3, " KVMPDStream::Init skip load due to url is the same"},
            {4, " KVMPDStream::CreateBuffer create 100 size"},
            {4, " KVMPDStream::CreateBuffer allocate audio buffer size 100 success"},
            {6, " CRingBuffer::CRingBuffer "},
            {6, " CRingBuffer::Destroy "},
            {4, " KVMPDStream::SetMaxCacheTime : 2"},
            {5, " KVMPDStream::SetRenderComplete : 1"},
            {3, " KVMPDStream::SetPreferDelaySegment : *"},
            {3, " KVMPDStream::SetPreferDelaySegment prefer delay does not change"},
            {5, " KVMPDStream::SetPreferDelaySegment target segment is 106"},
            {4, "[Error] KVMPDStream::GetSegmentIdByDelayCount GetSegmentRange failed"},
            {4, " KVMPDStream::SetCallback set callback: 0x00000000"},
            {6, " KVMPDStream::UpdateCacheSegmentInfo "},
            {3, " KVMPDStream::SetVideoQualityID : 1"},
            {5, " KVMPDStream::releaseBuffer "},
            {6, " BufferHandler::Clear "},
            {6, " CRingBuffer::Clear "},
            {6, " KVMPDStream::resetSegmentCache "},
            {3, " KVMPDStream::SetVideoQualityID  loader and downloader are already released"},
            {5, " KVMPDStream::Run reset position by seek to 0"}},
           [this](LONG) {
               Access::SegmentIdByDelayCount(Stream(), 1);
               Stream().Init(L"");
               Stream().CreateBuffer(100);
               Stream().SetMaxCacheTime(2);
               Stream().SetRenderComplete(1);
               PublishSilently(100, 10, 60000);
               Stream().SetPreferDelaySegment(3);
               Stream().SetPreferDelaySegment(3);
               Stream().SetCallback(nullptr);
               Stream().SetVideoQualityID(1);
               Loader().pauseParse(1);
               Stream().Run();
               Access::ReleaseDownloader(Stream());
               Stream().SetVideoQualityID(2);
               Close();
           });
}

TEST_F(StreamLogLevels, OfTheFeedThread) {
    Expect({{6, " KVMPDStream::ThreadProc "}, {4, " KVMPDStream::ThreadProc finish."}}, [this](LONG) {
        Stream().StartThread();
        Close();
    });
}

TEST_F(StreamLogLevels, OfTheCache) {
    Expect({{3, " KVMPDStream::StopNow : 1"},
            {4, "[Error] KVMPDStream::PushSegmentToCache get strange segment 7. duration: 0, total size: 0."},
            {6, " KVMPDStream::PushSegmentToCache push segment *"},
            {5, " KVMPDStream::PushSegmentToCache drop segment 8 of an earlier url"},
            {6, " KVMPDStream::PushSegmentToCache total segment cache become * milliseconds"},
            {6, kHeld},
            {4, " KVMPDStream::SetMaxCacheTime : *"},
            {3,
             " KVMPDStream::PushSegmentToCache does not release cache exceed cache size when playing. Current index "
             "is 0 and total count is *"},
            {6, " KVMPDStream::PushSegmentToCache release segment cache * due to total cache duration is *"},
            {3, " KVMPDStream::PushSegmentToCache cache is full. change target segment to 100"},
            {4, "[Error] KVMPDStream::PushSegmentToCache Unexpected tha m_cacheSegment is empty!!"},
            {6, " KVMPDStream::UpdateCacheSegmentInfo "},
            {5, " KVMPDStream::releaseBuffer "},
            {6, " BufferHandler::Clear "},
            {6, " KVMPDStream::resetSegmentCache "}},
           [this](LONG level) {
               Stream().StopNow(1);
               Push(CountingSegment(7, 0));
               const std::shared_ptr<Segment> old = CountingSegment(8, 1000);
               old->m_generation = 9;
               Push(old);
               Stream().SetMaxCacheTime(1);
               Push(CountingSegment(100, 1000));
               std::thread pusher([this] { Push(CountingSegment(101, 1000)); });
               // At a verbosity at which the line is not to be expected, time enough to see one that is written anyway.
               m_log.WaitForPrefix(kHeld, 1, level >= 6 ? 20000 : 50);
               Stream().releaseBuffer();
               pusher.join();
               m_filter.state = State_Paused;
               Push(CountingSegment(102, 1000));
               Stream().resetSegmentCache(true);
               Push(CountingSegment(103, 1000));
               Access::SetCacheIndex(Stream(), 2);
               Stream().SetMaxCacheTime(0);
               Push(CountingSegment(104, 1000));
               Close();
           });
}

TEST_F(StreamLogLevels, OfSeeks) {
    Expect({{3, " KVMPDStream::SeekToTargetSegment : *"},
            {4, " KVMPDStream::IsSegmentInCache  cache is empty"},
            {4, " KVMPDStream::IsSegmentInCache start: 100, size:3, target: 101"},
            {3, " KVMPDStream::SeekToTargetSegment find new start segment in cache"},
            {6,
             " KVMPDStream::SeekToTargetSegment get lock to find segment index and update cache info. Original cache "
             "start: *, length: 3000, video total bytes: 30, audio total bytes: 15"},
            {6,
             " KVMPDStream::SeekToTargetSegment update cache start: -1000, size: 3000. video range: -10~20, audio "
             "range: -5~10"},
            {4, " KVMPDStream::SeekToTargetSegment : release buffer to access segment index to 1"},
            {3, " KVMPDStream::SeekToTargetSegment the new segment index is 1 of 3 caches"},
            {5, " KVMPDStream::SeekToTargetSegment callback position changed."},
            {3, " KVMPDStream::SeekToTargetSegment reset cache due to segment is not in cache"},
            {3, " KVMPDStream::PushSegmentToCache download file complete for seek!"},
            {6, " KVMPDStream::PushSegmentToCache push segment *"},
            {6, " KVMPDStream::PushSegmentToCache total segment cache become * milliseconds"},
            {6, " KVMPDStream::UpdateCacheSegmentInfo "},
            {6, " KVMPDStream::UpdateCacheSegmentInfo OnBuffering: start: -1000, cache total: 2000, total: 2000"},
            {4, " KVMPDStream::SetCallback set callback: 0x00000000"},
            {4, " KVMPDStream::SetPosition : *"},
            {6, "[Error] KVMPDStream::SetPosition llPosition out of cache. start: -1000, size:3000"},
            {6, " KVMPDStream::SetPosition find 1500 position in cache"},
            {6, " KVMPDStream::SetPosition mpd support seek. Length: 0"},
            {5, " KVMPDStream::releaseBuffer "},
            {6, " BufferHandler::Clear "},
            {6, " KVMPDStream::resetSegmentCache "}},
           [this](LONG) {
               Stream().SeekToTargetSegment(500);
               Push(CountingSegment(500, 1000));  // the one that the restart lets be discarded
               Push(CountingSegment(501, 1000));
               Stream().resetSegmentCache(true);
               Stream().SetPosition(0);
               PushCounting(100, 3, 1000, 10, 5);
               Stream().SeekToTargetSegment(101);
               Stream().SetPosition(5000);
               Stream().SetPosition(500);  // finds 101 again
               EXPECT_EQ(Stream().SetCallback(&m_host), S_OK);
               Stream().UpdateCacheSegmentInfo();
               Close();
           });
}

TEST_F(StreamLogLevels, OfFeedAndReads) {
    Expect(
        {{4, " KVMPDStream::CreateBuffer create 100 size"},
         {4, " KVMPDStream::CreateBuffer allocate audio buffer size 100 success"},
         {6, " CRingBuffer::CRingBuffer "},
         {6, " CRingBuffer::Destroy "},
         {6, " KVMPDStream::PushSegmentToCache push segment *"},
         {6, " KVMPDStream::PushSegmentToCache total segment cache become * milliseconds"},
         {6, " KVMPDStream::UpdateCacheSegmentInfo "},
         {6, " CRingBuffer::WriteBinaryFromFile ReadFile success: 50 bytes. First byte is 0x000000* to position 0"},
         {6, " CRingBuffer::WriteBinaryFromFile ReadFile success: * bytes. First byte is 0x000000* to position *"},
         {6,
          " KVMPDStream::ReadSegmentCacheToBuffer 100 segment write video binary 50 bytes from position 50. result: "
          "0x00000000."},
         {6,
          " KVMPDStream::ReadSegmentCacheToBuffer * segment write video binary * bytes from position *. result: "
          "0x00000000."},
         {6,
          " KVMPDStream::ReadSegmentCacheToBuffer 100 segment write audio binary 20 bytes from position 20. result: "
          "0x00000000."},
         {6,
          " KVMPDStream::ReadSegmentCacheToBuffer * segment write audio binary * bytes from position *. result: "
          "0x00000000."},
         {6, " KVMPDStream::ReadSegmentCacheToBuffer read segment * complete"},
         {6, " KVMPDStream::ReadSegmentCacheToBuffer wait next segment to write. Segment remain data: 1ll"},
         {6, " KVMPDStream::ReadSegmentCacheToBuffer wait next segment to write. Segment remain audio data: 61ll."},
         {6, " BufferHandler::WriteBinaryFromFile max write size is 49. Need to free 0."},
         {6, " BufferHandler::WriteBinaryFromFile max write size is *. Need to free *."},
         {6,
          " BufferHandler::WriteBinaryFromFile does not read buffer due to last access position is 0 and buffer start "
          "position is 0"},
         {6, " BufferHandler::WriteBinaryFromFile increase 1 start position from 0"},
         {6, " CRingBuffer::ReadBinary finish. m_iReadPtr become 1 after read 1 data"},
         {3, " BufferHandler::ReadBuffer position: 0, length: 40"},
         {3, " BufferHandler::ReadBuffer position: *, length: *"},
         {6, " KVMPDStream::ReadBuffer read 40 bytes. First byte is 0x000000*"},
         {3,
          "[Error] BufferHandler::ReadBuffer failed to get data from buffer for data in 9999 that buffer range is in "
          "1 ~ 100"},
         {3,
          "[Error] BufferHandler::ReadBuffer failed to get data from buffer for data in * that buffer range is in * "
          "~ *"},
         {3, " KVMPDStream::ReadCacheFromByte data is not cached yet. The end position is in 100"},
         {3, "[Error] KVMPDStream::ReadCacheFromByte too early data which is released. Start from earliest cache data"},
         {6, "[Error] KVMPDStream::ReadCacheFromByte failed to read buffer from cache file"},
         {3, "[Error] KVMPDStream::WriteBinaryFromFile Create file fail, error code: 2"},
         {3, "[Error] KVMPDStream::WriteBinaryFromFile failed to seek file"},
         {3, "[Error] KVMPDStream::WriteBinaryFromFile read file failed"},

         {5, " KVMPDStream::releaseBuffer "},
         {6, " BufferHandler::Clear "},
         {6, " CRingBuffer::Clear "},
         {6, " KVMPDStream::resetSegmentCache "}},
        [this](LONG) {
            Stream().CreateBuffer(100);
            PushSegments(100, 2, 1000, 50, 20);
            Stream().ReadSegmentCacheToBuffer();  // one byte of the second video does not fit
            ReadVideo(0, 40);
            Stream().ReadSegmentCacheToBuffer();
            ReadVideo(9999, 40);
            ReadVideo(-1, 1);
            BYTE byte = 0;
            Access::ReadFileRange(Stream(), (m_dir.Path() / "100.mp4").wstring(), 0xFFFFFFFF, &byte, 1);
            Access::ReadFileRange(Stream(), (m_dir.Path() / "100.mp4").wstring(), 50, &byte, 1);
            std::filesystem::remove(m_dir.Path() / "101.mp4");
            ReadVideo(50, 50);
            Stream().releaseBuffer();
            Stream().ReadSegmentCacheToBuffer();
            Stream().releaseBuffer();
            Stream().resetSegmentCache(true);
            PushSegments(200, 1, 1000, 1, 160);
            Stream().ReadSegmentCacheToBuffer();
            Close();
        });
}

TEST(BufferLogLevels, OfWhatTheEngineDoesNotBringForth) {
    const PatternFile file(64);
    ExpectLevels(
        {{6, " CRingBuffer::CRingBuffer "},
         {6, " CRingBuffer::Destroy "},
         {6, " CRingBuffer::WriteBinaryFromFile ReadFile success: 3 bytes. First byte is 0x00000001 to position 0"},
         {3, "[Error] CRingBuffer::WriteBinaryFromFile Create file fail, error code: 2"},
         {6, " BufferHandler::~BufferHandler "},
         {3, " BufferHandler::ReadBuffer position: *, length: *"},
         {6, " BufferHandler::ReadBuffer does not read data for dwMaxReadSize is 0"},
         {3, "[Error] BufferHandler::ReadBuffer failed to read 3 from buffer. result: 0x80004005"},
         {6, " BufferHandler::WriteBinaryFromFile max write size is 12. Need to free -8."},
         {3, "[Error] BufferHandler::WriteBinaryFromFile failed to read binary 88 to free buffer -8"}},
        {"BufferHandler::", "CRingBuffer::"}, [&file] {
            BufferHandler handler;
            handler.Init(16);
            BYTE bytes[16];
            BufferHandlerTestAccess::SetEnd(handler, 100);  // more than there is
            handler.ReadBuffer(0, bytes, 10);
            DWORD written = 0;
            handler.WriteBinaryFromFile(file.Name(), 0, 3, written);
            handler.ReadBuffer(2, bytes, 10);
            handler.StartAt(8);
            BufferHandlerTestAccess::SetLastAccess(handler, 0);
            handler.WriteBinaryFromFile(file.NoSuchFile(), 0, 100, written);
        });
}

}  // namespace
}  // namespace kvmpd::test
