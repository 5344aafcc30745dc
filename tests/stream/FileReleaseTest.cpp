// The engine lets go of a segment's files before it lets go of the segment, which deletes them: Windows deletes no file
// that is open. A buffer keeps the file of a failed read open for a while; everything else closes what it opens.
#include <functional>

#include "tests/stream/RingTestAccess.h"
#include "tests/stream/StreamTest.h"

namespace kvmpd::test {
namespace {

/// Looks, before its files are deleted, whether a buffer holds one open.
class WatchedSegment final : public Segment {
  public:
    WatchedSegment(KVMPDStream& stream, bool& wasHeld) : m_stream(stream), m_wasHeld(wasHeld) {}
    ~WatchedSegment() override { m_wasHeld = KVMPDStreamTestAccess::HoldsFailedFile(m_stream); }

  private:
    KVMPDStream& m_stream;
    bool& m_wasHeld;
};

class FileRelease : public StreamTest, public testing::WithParamInterface<bool> {
  protected:
    static constexpr LONGLONG kNumber = 100;

    FileRelease() {
        Stream().CreateBuffer(1000);
        m_filter.state = State_Paused;
        Stream().SetFilter(&m_filter);
    }

    /// Caches a segment one of whose files ends too early, so that a buffer holds that file when the feed has tried it.
    void CacheASegmentThatCannotBeRead() {
        m_made = MakeSegment(kNumber, 1000, 300, 30);
        std::filesystem::resize_file(m_dir.Path() / (IsVideo() ? "100.mp4" : "100.m4a"), 20);
        auto watched = std::make_shared<WatchedSegment>(Stream(), m_wasHeld);
        watched->m_segmentNumber = kNumber;
        watched->m_duration = 1000;
        watched->m_videoSize = std::exchange(m_made->m_videoSize, 0);  // the files are the watched segment's now
        watched->m_audioSize = std::exchange(m_made->m_audioSize, 0);
        watched->m_videoFile = m_made->m_videoFile;
        watched->m_audioFile = m_made->m_audioFile;
        m_watched = watched;
        Push(std::move(watched));
        Stream().ReadSegmentCacheToBuffer();
        ASSERT_TRUE(Access::HoldsFailedFile(Stream()));
    }
    void ExpectReleased() {
        EXPECT_TRUE(m_watched.expired());
        EXPECT_FALSE(m_wasHeld);
        EXPECT_FALSE(std::filesystem::exists(m_dir.Path() / "100.mp4"));
        EXPECT_FALSE(std::filesystem::exists(m_dir.Path() / "100.m4a"));
    }
    static bool IsVideo() { return GetParam(); }

    bool m_wasHeld = true;
    std::shared_ptr<Segment> m_made;
    std::weak_ptr<Segment> m_watched;
};

INSTANTIATE_TEST_SUITE_P(VideoAndAudio, FileRelease, testing::Bool());

TEST_P(FileRelease, BeforeATrim) {
    CacheASegmentThatCannotBeRead();
    Stream().SetMaxCacheTime(1);
    Push(CountingSegment(kNumber + 1, 1000));
    ExpectReleased();
}

TEST_P(FileRelease, BeforeASeekOutsideTheCache) {
    CacheASegmentThatCannotBeRead();
    Stream().SeekToTargetSegment(500);
    ExpectReleased();
}

TEST_P(FileRelease, BeforeARun) {
    CacheASegmentThatCannotBeRead();
    Loader().pauseParse(1);
    Stream().Run();
    ExpectReleased();
}

TEST_P(FileRelease, BeforeAnotherQuality) {
    CacheASegmentThatCannotBeRead();
    Stream().SetVideoQualityID(2);
    ExpectReleased();
}

TEST_P(FileRelease, BeforeAReset) {
    CacheASegmentThatCannotBeRead();
    Stream().resetSegmentCache(true);
    ExpectReleased();
}

TEST_P(FileRelease, ASeekInsideTheCacheClosesItToo) {
    CacheASegmentThatCannotBeRead();
    Stream().SeekToTargetSegment(kNumber);
    EXPECT_FALSE(Access::HoldsFailedFile(Stream()));
    Stream().resetSegmentCache(true);  // while there is an engine for the segment to look at
}

TEST_P(FileRelease, AtTheEnd) {
    m_made = MakeSegment(kNumber, 1000, 300, 30);
    std::filesystem::resize_file(m_made->m_videoFile, 20);
    Push(std::exchange(m_made, nullptr));
    Stream().ReadSegmentCacheToBuffer();
    EXPECT_TRUE(Access::HoldsFailedFile(Stream()));
    m_log.Clear();
    m_stream.reset();
    EXPECT_TRUE(m_log.Contains(" Segment::~Segment delete file: 1"));
    EXPECT_TRUE(std::filesystem::is_empty(m_dir.Path()));
}

}  // namespace
}  // namespace kvmpd::test
