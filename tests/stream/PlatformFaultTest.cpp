// What the engine does when the platform has no thread, no memory, or does not keep its word.
#include "tests/stream/PlatformFaults.h"
#include "tests/stream/RingTestAccess.h"
#include "tests/stream/StreamTest.h"

namespace kvmpd::test {
namespace {

constexpr DWORD kRingBytes = 0x1000000;

class PlatformFault : public StreamTest {
  protected:
    PlatformFault() { m_manifests->Fail(E_FAIL); }
};

TEST_F(PlatformFault, AnInitWithoutALoaderThreadFails) {
    const FailingThreadCreation failure(1);
    EXPECT_EQ(Stream().Init(L"http://origin/live.mpd"), static_cast<HRESULT>(0x800700A4));
    EXPECT_TRUE(m_log.Contains("[Error] KVMPDStream::Init Failed to create thread to load playlist: 0x800700A4"));
    EXPECT_FALSE(Access::Downloader(Stream()).IsThreadRunning());
    EXPECT_FALSE(Stream().IsThreadRunning());
    EXPECT_EQ(m_log.CountPrefix(" KVMPDStream::CreateBuffer"), 0u);
}

TEST_F(PlatformFault, AnInitWithoutADownloaderThreadFailsAndLeavesTheLoaderRunning) {
    {
        const FailingThreadCreation failure(2);
        EXPECT_EQ(Stream().Init(L"http://origin/live.mpd"), static_cast<HRESULT>(0x800700A4));
    }
    EXPECT_TRUE(m_log.Contains("[Error] KVMPDStream::Init Failed to create thread to download segment: 0x800700A4"));
    EXPECT_TRUE(Loader().IsThreadRunning());
    EXPECT_FALSE(Stream().IsThreadRunning());
    EXPECT_EQ(Stream().CloseThread(), S_OK);
    EXPECT_FALSE(Loader().IsThreadRunning());
}

TEST_F(PlatformFault, FailedStepsAreLoggedAtLevelThree) {
    int url = 0;
    const auto initWithout = [&](int thread) {
        m_stream = std::make_unique<KVMPDStream>(std::make_unique<ScriptedManifests>(m_manifests),
                                                 std::make_unique<ScriptedHttp>(m_media));
        const FailingThreadCreation failure(thread);
        Stream().Init(L"http://origin/" + std::to_wstring(++url));
    };
    ExpectLevel(3, "[Error] KVMPDStream::Init Failed to create thread to load", [&] { initWithout(1); });
    ExpectLevel(3, "[Error] KVMPDStream::Init Failed to create thread to download", [&] { initWithout(2); });
}

TEST_F(PlatformFault, AnotherUrlWhoseLoaderCannotBeStartedLeavesCacheAndBuffersAlone) {
    EXPECT_EQ(Stream().Init(L"http://origin/live.mpd"), S_OK);
    Loader().CloseThread();
    PushSegments(100, 2, 1000, 300, 30);
    m_log.Clear();
    const FailingThreadCreation failure(1);
    EXPECT_EQ(Stream().Init(L"http://origin/other.mpd"), static_cast<HRESULT>(0x800700A4));
    EXPECT_EQ(Access::CacheSize(Stream()), 2u);
    EXPECT_EQ(m_log.Count(" KVMPDStream::releaseBuffer "), 0u);
    EXPECT_EQ(m_log.Count(" KVMPDStream::resetSegmentCache "), 0u);
    EXPECT_EQ(m_log.CountPrefix("[Error] KVMPDStream::Init"), 0u);
}

TEST_F(PlatformFault, ACallbackWhoseThreadCannotBeStartedIsAnError) {
    {
        const FailingThreadCreation failure(1);
        EXPECT_EQ(Stream().SetCallback(&m_host), static_cast<HRESULT>(0x800700A4));
    }
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::SetCallback set callback: 0x800700A4"));
    EXPECT_FALSE(Stream().EventHandler().IsThreadRunning());
    m_stream.reset();
    EXPECT_EQ(m_host.References(), 0);
}

TEST_F(PlatformFault, AnInitWithoutAFeedThreadIsNotTold) {
    const FailingThreadCreation failure(3);
    EXPECT_EQ(Stream().Init(L"http://origin/live.mpd"), S_OK);
    EXPECT_FALSE(Stream().IsThreadRunning());
}

TEST_F(PlatformFault, BuffersThatCannotBeHadAreCalledASuccessAndReadsComeFromTheFiles) {
    {
        const FailingAllocation failure(1, kRingBytes);
        EXPECT_EQ(Stream().CreateBuffer(kRingBytes), S_OK);
    }
    EXPECT_TRUE(m_log.Contains("[Error] BufferHandler::Init allocate buffer size 16777216 failed"));
    EXPECT_TRUE(m_log.Contains(" KVMPDStream::CreateBuffer allocate audio buffer size 16777216 success"));
    // The empty ring is kept: a second call does not try again.
    m_log.Clear();
    EXPECT_EQ(Stream().CreateBuffer(kRingBytes), S_OK);
    EXPECT_EQ(m_log.Count(" CRingBuffer::CRingBuffer "), 0u);

    PushSegments(100, 1, 1000, 300, 30);
    Stream().ReadSegmentCacheToBuffer();
    EXPECT_EQ(Cache().index, 0u);
    EXPECT_EQ(ReadVideo(0, 300), S_OK);
    EXPECT_EQ(Bytes(), MediaBytes(100, true, 300));
}

TEST(PlatformFaultOfMemory, ARingWithoutItsArrayIsNotCreated) {
    CRingBuffer ring;
    const FailingAllocation failure(1, 64);
    EXPECT_FALSE(ring.Create(64));
    EXPECT_FALSE(ring.HasArray());
    EXPECT_EQ(CRingBufferTestAccess::Size(ring), 0u);
}

TEST(PlatformFaultOfMemory, ARingWithoutItsSpareIsNotCreatedButHasItsSize) {
    CRingBuffer ring;
    const FailingAllocation failure(2, 64);
    EXPECT_FALSE(ring.Create(64));
    EXPECT_FALSE(CRingBufferTestAccess::HasSpare(ring));
    EXPECT_EQ(CRingBufferTestAccess::Size(ring), 64u);
}

TEST(PlatformFaultOfMemory, ARingThatCannotBeMadeAnewHasLostItsArray) {
    CRingBuffer ring;
    EXPECT_TRUE(ring.Create(32));
    const FailingAllocation failure(1, 64);
    EXPECT_FALSE(ring.Create(64));
    EXPECT_FALSE(ring.HasArray());
    EXPECT_EQ(ring.Free(), 0u);
}

TEST(PlatformFaultOfMemory, AHandlerWithoutMemoryKeepsAnEmptyRing) {
    const LogCapture log(4);
    BufferHandler handler;
    {
        const FailingAllocation failure(1, 64);
        EXPECT_EQ(handler.Init(64), E_OUTOFMEMORY);
    }
    EXPECT_TRUE(log.Contains("[Error] BufferHandler::Init allocate buffer size 64 failed"));
    EXPECT_TRUE(handler.HasRing());
    const PatternFile file(8);
    DWORD written = 7;
    EXPECT_EQ(handler.WriteBinaryFromFile(file.Name(), 0, 4, written), E_OUTOFMEMORY);
    EXPECT_EQ(written, 7u);
    BYTE byte = 0;
    EXPECT_EQ(handler.ReadBuffer(0, &byte, 1), 0u);
    handler.Clear();
}

TEST(PlatformFaultOfFiles, AReadThatClaimsMoreThanTheArrayHoldsIsReported) {
    const PatternFile file(64);
    CRingBuffer ring;
    ASSERT_TRUE(ring.Create(16));
    const LogCapture log(6);
    const OverstatingReads lie(10);
    EXPECT_EQ(ring.WriteBinaryFromFile(file.Name(), 0, 10), E_POINTER);
    EXPECT_TRUE(
        log.Contains("[Error] CRingBuffer::WriteBinaryFromFile ReadFile to unexpected buffer area! targetLen: 10, "
                     "dwBytesRead: 20, m_iWritePtr: 20, m_nBufSize: 16"));
    EXPECT_EQ(CRingBufferTestAccess::WriteIndex(ring), 0u);
    EXPECT_TRUE(CRingBufferTestAccess::HoldsFailedFile(ring));
    ring.Clear();
    EXPECT_EQ(CRingBufferTestAccess::Array(ring), std::vector<BYTE>(16));
}

TEST(PlatformFaultOfFiles, AHandlerDoesNotCountAReadThatWentPastTheArray) {
    const PatternFile file(64);
    BufferHandler handler;
    handler.Init(16);
    const OverstatingReads lie(10);
    DWORD written = 7;
    EXPECT_EQ(handler.WriteBinaryFromFile(file.Name(), 0, 10, written), E_POINTER);
    EXPECT_EQ(written, 7u);
    EXPECT_EQ(handler.EndPos(), 0);
}

}  // namespace
}  // namespace kvmpd::test
