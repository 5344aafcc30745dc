// Copying cached files into the buffers.
#include "tests/stream/StreamTest.h"

namespace kvmpd::test {
namespace {

class CacheFeed : public StreamTest {
  protected:
    CacheFeed() { Stream().CreateBuffer(1000); }

    void Feed() { EXPECT_EQ(Stream().ReadSegmentCacheToBuffer(), 0u); }
    LONGLONG VideoEnd() {
        LONGLONG start = 0;
        LONGLONG end = 0;
        Stream().Size(&start, &end);
        return end;
    }
    LONGLONG AudioEnd() {
        LONGLONG start = 0;
        LONGLONG end = 0;
        Stream().SizeAudio(&start, &end);
        return end;
    }
};

TEST_F(CacheFeed, HasNothingToDoWithAnEmptyCache) {
    Feed();
    EXPECT_TRUE(Access::IsBufferEventSet(Stream()));
    EXPECT_EQ(VideoEnd(), 0);
}

TEST_F(CacheFeed, CopiesEverythingThatFitsInOrder) {
    PushSegments(100, 3, 1000, 300, 30);
    m_log.Clear();
    Feed();
    EXPECT_EQ(Cache().index, 3u);
    EXPECT_EQ(VideoEnd(), 900);
    EXPECT_EQ(AudioEnd(), 90);
    EXPECT_EQ(ReadVideo(0, 899), S_OK);
    EXPECT_EQ(Bytes(), Slice(Concatenation(100, 3, true, 300), 0, 899));
    EXPECT_EQ(ReadAudio(0, 89), S_OK);
    EXPECT_EQ(Bytes(), Slice(Concatenation(100, 3, false, 30), 0, 89));
    // Both were served from the buffers.
    EXPECT_EQ(m_log.CountPrefix(" KVMPDStream::ReadCacheFromByte"), 0u);
    EXPECT_TRUE(m_log.Contains(
        " KVMPDStream::ReadSegmentCacheToBuffer 101 segment write video binary 300 bytes from position 300. result: "
        "0x00000000."));
    EXPECT_TRUE(m_log.Contains(
        " KVMPDStream::ReadSegmentCacheToBuffer 101 segment write audio binary 30 bytes from position 30. result: "
        "0x00000000."));
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::ReadSegmentCacheToBuffer read segment 101 complete"));
}

TEST_F(CacheFeed, LeavesTheBufferEventAloneWhenEverythingIsCopied) {
    PushSegments(100, 1, 1000, 300, 30);
    Feed();
    EXPECT_TRUE(Access::IsBufferEventSet(Stream()));
}

TEST_F(CacheFeed, StopsAtAFullVideoBufferAndWaitsForTheReader) {
    PushSegments(100, 2, 1000, 600, 30);
    m_log.Clear();
    Feed();
    EXPECT_EQ(VideoEnd(), 999);
    EXPECT_EQ(Cache().index, 1u);
    EXPECT_EQ(Cache().videoWritten, 399);
    EXPECT_EQ(Cache().audioWritten, 30);
    EXPECT_FALSE(Access::IsBufferEventSet(Stream()));
    EXPECT_TRUE(m_log.Contains(
        " KVMPDStream::ReadSegmentCacheToBuffer wait next segment to write. Segment remain data: 201ll"));
}

TEST_F(CacheFeed, StopsAtAFullAudioBufferAndWaitsForTheReader) {
    PushSegments(100, 2, 1000, 30, 600);
    m_log.Clear();
    Feed();
    EXPECT_EQ(AudioEnd(), 999);
    EXPECT_EQ(Cache().videoWritten, 30);
    EXPECT_FALSE(Access::IsBufferEventSet(Stream()));
    EXPECT_TRUE(m_log.Contains(
        " KVMPDStream::ReadSegmentCacheToBuffer wait next segment to write. Segment remain audio data: 201ll."));
}

TEST_F(CacheFeed, GoesOnWhereItStoppedOnceTheReaderMadeRoom) {
    PushSegments(100, 3, 1000, 600, 30);
    Feed();
    EXPECT_EQ(ReadVideo(0, 500), S_OK);
    EXPECT_TRUE(Access::IsBufferEventSet(Stream()));
    Feed();
    EXPECT_EQ(VideoEnd(), 1499);
    EXPECT_EQ(ReadVideo(500, 999), S_OK);
    EXPECT_EQ(Bytes(), Slice(Concatenation(100, 3, true, 600), 500, 999));
}

TEST_F(CacheFeed, FeedsAReaderThatReadsAllTheWay) {
    PushSegments(100, 5, 1000, 2345, 678);
    const std::vector<BYTE> video = Concatenation(100, 5, true, 2345);
    const std::vector<BYTE> audio = Concatenation(100, 5, false, 678);
    for (size_t done = 0; done < video.size();) {
        const size_t count = std::min<size_t>(237, video.size() - done);
        ASSERT_EQ(ReadVideo(static_cast<LONGLONG>(done), static_cast<DWORD>(count)), S_OK);
        ASSERT_EQ(Bytes(), Slice(video, done, count)) << done;
        done += count;
        const size_t audioAt = done * 678 / 2345;
        if (audioAt >= 50) {
            ASSERT_EQ(ReadAudio(static_cast<LONGLONG>(audioAt - 50), 50), S_OK);
            ASSERT_EQ(Bytes(), Slice(audio, audioAt - 50, 50)) << audioAt;
        }
        Feed();
    }
    EXPECT_EQ(Cache().index, 5u);
    EXPECT_EQ(VideoEnd(), static_cast<LONGLONG>(video.size()));
    EXPECT_EQ(AudioEnd(), static_cast<LONGLONG>(audio.size()));
}

TEST_F(CacheFeed, PassesOverWhatASegmentDoesNotHave) {
    Push(MakeSegment(100, 1000, 0, 30));
    Push(MakeSegment(101, 1000, 300, 0));
    Push(MakeSegment(102, 1000, 0, 0));
    Push(MakeSegment(103, 1000, 200, 20));
    Feed();
    EXPECT_EQ(Cache().index, 4u);
    EXPECT_EQ(VideoEnd(), 500);
    EXPECT_EQ(AudioEnd(), 50);
    EXPECT_EQ(ReadVideo(0, 499), S_OK);
    std::vector<BYTE> expected = MediaBytes(101, true, 300);
    const std::vector<BYTE> rest = MediaBytes(103, true, 199);
    expected.insert(expected.end(), rest.begin(), rest.end());
    EXPECT_EQ(Bytes(), expected);
}

TEST_F(CacheFeed, WaitsAtAFileThatIsGone) {
    PushSegments(100, 2, 1000, 300, 30);
    std::filesystem::remove(m_dir.Path() / "101.mp4");
    Feed();
    EXPECT_EQ(Cache().index, 1u);
    EXPECT_EQ(VideoEnd(), 300);
    EXPECT_FALSE(Access::IsBufferEventSet(Stream()));
    EXPECT_TRUE(m_log.Contains("[Error] CRingBuffer::WriteBinaryFromFile Create file fail, error code: 2"));
}

TEST_F(CacheFeed, WaitsWithoutBuffers) {
    StreamTest::m_stream = std::make_unique<KVMPDStream>(std::make_unique<ScriptedManifests>(m_manifests),
                                                         std::make_unique<ScriptedHttp>(m_media));
    Stream().StopNow(0);
    PushSegments(100, 1, 1000, 300, 30);
    Feed();
    EXPECT_EQ(Cache().index, 0u);
    EXPECT_EQ(ReadVideo(0, 300), S_OK);
    EXPECT_EQ(Bytes(), MediaBytes(100, true, 300));
}

TEST_F(CacheFeed, CopiesNothingOnceTheEngineCloses) {
    PushSegments(100, 2, 1000, 300, 30);
    Access::SetClosing(Stream());
    Feed();
    EXPECT_EQ(VideoEnd(), 0);
}

TEST_F(CacheFeed, ToleratesMoreAudioCountedThanTheSegmentHas) {
    PushSegments(100, 2, 1000, 300, 30);
    Access::SetWritten(Stream(), 0, 31);
    Feed();
    EXPECT_EQ(Cache().index, 2u);
    EXPECT_EQ(AudioEnd(), 30);
}

TEST_F(CacheFeed, LogsAtLevelSix) {
    PushSegments(100, 2, 1000, 600, 30);
    ExpectLevel(6, " KVMPDStream::ReadSegmentCacheToBuffer wait next segment to write.", [this] { Feed(); });
}

TEST_F(CacheFeed, DoesNotForgetACloseByResettingTheEvent) {
    Access::WaitForReader(Stream());
    EXPECT_FALSE(Access::IsBufferEventSet(Stream()));
    Access::SetClosing(Stream());
    Access::WaitForReader(Stream());
    EXPECT_TRUE(Access::IsBufferEventSet(Stream()));
}

}  // namespace
}  // namespace kvmpd::test
