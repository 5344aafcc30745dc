// Reads by position: from the buffers, else from the cached files.
#include "tests/stream/StreamTest.h"

namespace kvmpd::test {
namespace {

class CacheRead : public StreamTest {
  protected:
    HRESULT FromFiles(LONGLONG position, bool isVideo, LONG length) {
        m_read.assign(static_cast<size_t>(length > 0 ? length : 1), 0);
        return Stream().ReadCacheFromByte(position, isVideo, m_read.data(), length);
    }
    DWORD FileRange(const std::wstring& file, LONGLONG offset, DWORD length) {
        m_read.assign(length + 1, 0);
        return Access::ReadFileRange(Stream(), file, offset, m_read.data(), length);
    }

    std::vector<BYTE> m_read;
};

TEST_F(CacheRead, AnswersNotYetWhileNothingIsCached) {
    EXPECT_EQ(ReadVideo(0, 1), S_FALSE);
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::ReadCacheFromByte data is not cached yet. The end position is in 0"));
    EXPECT_EQ(ReadAudio(0, 1), S_FALSE);
}

TEST_F(CacheRead, ServesUpToTheLastCachedByteAndNotOneFurther) {
    PushSegments(100, 2, 1000, 300, 30);
    EXPECT_EQ(ReadVideo(500, 100), S_OK);
    EXPECT_EQ(Bytes(), Slice(MediaBytes(101, true, 300), 200, 100));
    m_log.Clear();
    EXPECT_EQ(ReadVideo(500, 101), S_FALSE);
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::ReadCacheFromByte data is not cached yet. The end position is in 600"));
    EXPECT_EQ(ReadAudio(50, 10), S_OK);
    EXPECT_EQ(ReadAudio(50, 11), S_FALSE);
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::ReadCacheFromByte data is not cached yet. The end position is in 60"));
}

TEST_F(CacheRead, RefusesWhatTheCacheHasReleased) {
    PushSegments(100, 5, 1000, 300, 30);
    Access::SetCacheIndex(Stream(), 5);
    Stream().SetMaxCacheTime(5);
    Push(MakeSegment(105, 1000, 300, 30));
    EXPECT_EQ(Cache().videoStart, 300);
    m_log.Clear();
    EXPECT_EQ(ReadVideo(299, 10), E_ACCESSDENIED);
    EXPECT_TRUE(m_log.Contains(
        "[Error] KVMPDStream::ReadCacheFromByte too early data which is released. Start from earliest cache data"));
    EXPECT_EQ(ReadVideo(300, 10), S_OK);
    EXPECT_EQ(Bytes(), MediaBytes(101, true, 10));
    EXPECT_EQ(ReadAudio(29, 1), E_ACCESSDENIED);
    EXPECT_EQ(ReadAudio(30, 1), S_OK);
}

// A reader that has not found its range in the ring waits for the cache, while a feed pass copies the range and a push
// releases it.
TEST_F(CacheRead, ServesWhatWasCopiedAndReleasedBetweenItsTwoLooks) {
    Stream().CreateBuffer(10000);
    for (const bool isVideo : {true, false}) {
        Stream().resetSegmentCache(true);
        Stream().SetMaxCacheTime(10);
        PushSegments(100, 5, 1000, 300, 30);
        std::vector<BYTE> bytes;
        HRESULT result = E_FAIL;
        std::thread reader;
        {
            const CritSecLock cache(Access::CacheLock(Stream()));
            Stream().releaseBuffer();
            Access::ResetBufferEvent(Stream());
            reader = std::thread([&] { result = ReadAt(isVideo, 5, 20, bytes); });
            while (!Access::IsBufferEventSet(Stream())) {  // set with the first look
                std::this_thread::yield();
            }
            Stream().ReadSegmentCacheToBuffer();
            Stream().SetMaxCacheTime(2);
            Push(MakeSegment(105, 1000, 300, 30));
            EXPECT_GT(Cache().videoStart, 25);
        }
        reader.join();
        EXPECT_EQ(result, S_OK) << isVideo;
        EXPECT_EQ(bytes, Slice(MediaBytes(100, isVideo, 30), 5, 20)) << isVideo;
    }
}

TEST_F(CacheRead, LooksAtTheEndBeforeTheBeginning) {
    PushSegments(100, 1, 1000, 300, 30);
    Stream().SeekToTargetSegment(101);
    EXPECT_EQ(ReadVideo(-301, 302), S_FALSE);
    EXPECT_EQ(ReadVideo(-301, 301), E_ACCESSDENIED);
}

TEST_F(CacheRead, SpansSegmentsInOrder) {
    PushSegments(100, 4, 1000, 300, 30);
    EXPECT_EQ(ReadVideo(250, 700), S_OK);
    EXPECT_EQ(Bytes(), Slice(Concatenation(100, 4, true, 300), 250, 700));
    EXPECT_EQ(ReadAudio(29, 62), S_OK);
    EXPECT_EQ(Bytes(), Slice(Concatenation(100, 4, false, 30), 29, 62));
}

TEST_F(CacheRead, AtASegmentsEndContinuesWithTheNext) {
    PushSegments(100, 3, 1000, 300, 30);
    EXPECT_EQ(ReadVideo(300, 300), S_OK);
    EXPECT_EQ(Bytes(), MediaBytes(101, true, 300));
    EXPECT_EQ(ReadVideo(600, 1), S_OK);
    EXPECT_EQ(Bytes(), MediaBytes(102, true, 1));
}

TEST_F(CacheRead, PassesOverSegmentsWithoutBytes) {
    Push(MakeSegment(100, 1000, 300, 0));
    Push(MakeSegment(101, 1000, 0, 0));
    Push(MakeSegment(102, 1000, 300, 40));
    EXPECT_EQ(ReadVideo(290, 20), S_OK);
    EXPECT_EQ(Slice(Bytes(), 10, 10), MediaBytes(102, true, 10));
    EXPECT_EQ(ReadAudio(0, 40), S_OK);
    EXPECT_EQ(Bytes(), MediaBytes(102, false, 40));
}

TEST_F(CacheRead, OfNothingFails) {
    EXPECT_EQ(FromFiles(0, true, 0), E_FAIL);  // the end of an empty list
    PushSegments(100, 1, 1000, 300, 30);
    EXPECT_EQ(FromFiles(0, true, 0), E_FAIL);
    EXPECT_EQ(FromFiles(301, true, 0), S_FALSE);
}

TEST_F(CacheRead, TakesAnyPosition) {
    PushSegments(100, 1, 1000, 300, 30);
    constexpr LONGLONG least = std::numeric_limits<LONGLONG>::min();
    constexpr LONGLONG most = std::numeric_limits<LONGLONG>::max();
    Stream().CreateBuffer(100);
    EXPECT_EQ(ReadVideo(most, 10), S_FALSE);
    EXPECT_EQ(ReadVideo(least, 10), E_ACCESSDENIED);
    Stream().ReadSegmentCacheToBuffer();
    EXPECT_EQ(ReadAudio(most, 10), S_FALSE);
    EXPECT_EQ(ReadAudio(least, 10), E_ACCESSDENIED);
    Stream().ReadSegmentCacheToBuffer();
}

TEST_F(CacheRead, IsNotReadyWhenACachedFileCannotBeRead) {
    PushSegments(100, 2, 1000, 300, 30);
    std::filesystem::remove(m_dir.Path() / "101.mp4");
    EXPECT_EQ(ReadVideo(0, 300), S_OK);
    EXPECT_EQ(ReadVideo(0, 301), S_FALSE);
    EXPECT_TRUE(m_log.Contains("[Error] KVMPDStream::ReadCacheFromByte failed to read buffer from cache file"));
    EXPECT_TRUE(m_log.Contains("[Error] KVMPDStream::WriteBinaryFromFile Create file fail, error code: 2"));
}

TEST_F(CacheRead, IsNotReadyWhenACachedFileIsTooShort) {
    PushSegments(100, 2, 1000, 300, 30);
    std::filesystem::resize_file(m_dir.Path() / "100.mp4", 200);
    EXPECT_EQ(ReadVideo(100, 101), S_FALSE);
    EXPECT_TRUE(m_log.Contains("[Error] KVMPDStream::WriteBinaryFromFile read file failed"));
    EXPECT_EQ(ReadVideo(100, 100), S_OK);
}

TEST_F(CacheRead, LogsAtTheLevelsThatTheLinesHave) {
    ExpectLevel(3, " KVMPDStream::ReadCacheFromByte data is not cached yet.", [this] { ReadVideo(0, 1); });
    PushSegments(100, 1, 1000, 300, 30);
    ExpectLevel(3, "[Error] KVMPDStream::ReadCacheFromByte too early data", [this] { ReadVideo(-1, 1); });
    std::filesystem::resize_file(m_dir.Path() / "100.mp4", 200);
    ExpectLevel(3, "[Error] KVMPDStream::WriteBinaryFromFile read file failed", [this] { ReadVideo(0, 300); });
    ExpectLevel(6, "[Error] KVMPDStream::ReadCacheFromByte failed to read buffer", [this] { ReadVideo(0, 300); });
    std::filesystem::remove(m_dir.Path() / "100.mp4");
    ExpectLevel(3, "[Error] KVMPDStream::WriteBinaryFromFile Create file fail", [this] { ReadVideo(0, 300); });
}

// From the buffers.

TEST_F(CacheRead, IsServedFromTheBufferWhenThatHoldsTheRange) {
    Stream().CreateBuffer(1000);
    PushSegments(100, 2, 1000, 300, 30);
    Stream().ReadSegmentCacheToBuffer();
    std::filesystem::remove(m_dir.Path() / "100.mp4");
    m_log.Clear();
    EXPECT_EQ(ReadVideo(10, 400), S_OK);
    EXPECT_EQ(Bytes(), Slice(Concatenation(100, 2, true, 300), 10, 400));
    EXPECT_EQ(m_log.CountPrefix(" KVMPDStream::ReadCacheFromByte"), 0u);
    char line[100];
    std::snprintf(line, sizeof line, " KVMPDStream::ReadBuffer read 400 bytes. First byte is 0x%08X", Bytes()[0]);
    EXPECT_TRUE(m_log.Contains(line));
    ExpectLevel(6, " KVMPDStream::ReadBuffer read", [this] { ReadVideo(10, 400); });
}

TEST_F(CacheRead, DoesNotLogAnAudioReadFromTheBuffer) {
    Stream().CreateBuffer(1000);
    PushSegments(100, 1, 1000, 300, 30);
    Stream().ReadSegmentCacheToBuffer();
    m_log.Clear();
    EXPECT_EQ(ReadAudio(0, 20), S_OK);
    EXPECT_EQ(Bytes(), MediaBytes(100, false, 20));
    EXPECT_EQ(m_log.CountPrefix(" KVMPDStream::"), 0u);
}

TEST_F(CacheRead, ComesFromTheFilesAfterTheBuffersWereReleasedUntilTheyAreFed) {
    Stream().CreateBuffer(1000);
    PushSegments(100, 1, 1000, 300, 30);
    Stream().ReadSegmentCacheToBuffer();
    Stream().releaseBuffer();
    Access::SetCacheIndex(Stream(), 0);
    m_log.Clear();
    EXPECT_EQ(ReadVideo(0, 100), S_OK);
    EXPECT_EQ(Bytes(), MediaBytes(100, true, 100));
    EXPECT_EQ(m_log.CountPrefix(" KVMPDStream::ReadBuffer read"), 0u);
    Stream().ReadSegmentCacheToBuffer();
    EXPECT_EQ(ReadVideo(0, 100), S_OK);
    EXPECT_EQ(m_log.CountPrefix(" KVMPDStream::ReadBuffer read"), 1u);
}

TEST_F(CacheRead, EveryAttemptWakesTheFeedAndTheThrottledDownloader) {
    for (const bool isVideo : {true, false}) {
        Access::ResetBufferEvent(Stream());
        EXPECT_EQ(isVideo ? ReadVideo(0, 10) : ReadAudio(0, 10), S_FALSE);
        EXPECT_TRUE(Access::IsBufferEventSet(Stream()));
    }
    Stream().CreateBuffer(1000);
    PushSegments(100, 1, 1000, 300, 30);
    Stream().ReadSegmentCacheToBuffer();
    for (const bool isVideo : {true, false}) {
        Access::ResetBufferEvent(Stream());
        EXPECT_EQ(isVideo ? ReadVideo(0, 10) : ReadAudio(0, 10), S_OK);
        EXPECT_TRUE(Access::IsBufferEventSet(Stream()));
    }
}

// Ranges of one file.

TEST_F(CacheRead, ReadsARangeOfAFile) {
    const std::shared_ptr<Segment> segment = MakeSegment(100, 1000, 300, 30);
    EXPECT_EQ(FileRange(segment->m_videoFile, 0, 300), 300u);
    m_read.pop_back();
    EXPECT_EQ(m_read, MediaBytes(100, true, 300));
    EXPECT_EQ(FileRange(segment->m_videoFile, 120, 50), 50u);
    m_read.pop_back();
    EXPECT_EQ(m_read, Slice(MediaBytes(100, true, 300), 120, 50));
}

TEST_F(CacheRead, CountsWhatItGotOfAFileThatEnds) {
    const std::shared_ptr<Segment> segment = MakeSegment(100, 1000, 300, 30);
    EXPECT_EQ(FileRange(segment->m_videoFile, 290, 50), 10u);
    EXPECT_TRUE(m_log.Contains("[Error] KVMPDStream::WriteBinaryFromFile read file failed"));
    EXPECT_EQ(FileRange(segment->m_videoFile, 300, 1), 0u);
}

TEST_F(CacheRead, ReadsNothingOfAnEmptyRange) {
    const std::shared_ptr<Segment> segment = MakeSegment(100, 1000, 300, 30);
    EXPECT_EQ(FileRange(segment->m_videoFile, 120, 0), 0u);
    EXPECT_EQ(m_log.CountPrefix("[Error]"), 0u);
}

TEST_F(CacheRead, SaysThatAFileCannotBePositioned) {
    const std::shared_ptr<Segment> segment = MakeSegment(100, 1000, 300, 30);
    EXPECT_EQ(FileRange(segment->m_videoFile, 0xFFFFFFFF, 1), 0u);
    EXPECT_TRUE(m_log.Contains("[Error] KVMPDStream::WriteBinaryFromFile failed to seek file"));
    ExpectLevel(3, "[Error] KVMPDStream::WriteBinaryFromFile failed to seek file",
                [&] { FileRange(segment->m_videoFile, 0xFFFFFFFF, 1); });
}

}  // namespace
}  // namespace kvmpd::test
