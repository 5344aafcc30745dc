#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "tests/net/NetFixture.h"

namespace kvmpd::test {
namespace {

std::string ContentOf(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

class ReceiveToFile : public BothTwins {
  protected:
    TempDir m_dir;
    std::filesystem::path m_file = m_dir.Path() / "body";
};
KV_FOR_BOTH_TWINS(ReceiveToFile);

TEST_P(ReceiveToFile, TheCallersFileGoesBeforeTheStream) {
    m_peer.On("/a", PeerReply::Ok(std::string(200'000, 'x')));
    m_stream.file = L"unused";
    NetKernelBase client;
    EXPECT_EQ(Open(client, m_peer.Url("/a"), &m_stream, {.responseFile = m_file.wstring()}), S_OK);
    EXPECT_EQ(std::filesystem::file_size(m_file), 200'000u);
    EXPECT_TRUE(m_stream.body.empty());
    EXPECT_NE(m_stream.calls.back(), "complete");
}

TEST_P(ReceiveToFile, TheStreamMayNameTheFile) {
    m_peer.On("/a", PeerReply::Ok("abc"));
    m_stream.file = m_file.wstring();
    m_stream.useBuffer = true;  // not asked for
    NetKernelBase client;
    EXPECT_EQ(Open(client, m_peer.Url("/a"), &m_stream), S_OK);
    EXPECT_EQ(ContentOf(m_file), "abc");
}

// What a stream puts in the place of the body in memory, which the observer owns from then on.
BYTE* SomeBuffer() {
    BYTE* const buffer = new BYTE[RecordingStream::kGivenLength];
    std::copy_n("given", RecordingStream::kGivenLength, buffer);
    return buffer;
}

TEST_P(ReceiveToFile, TheStreamsBufferReachesTheObserver) {
    m_peer.On("/a", PeerReply::Ok("abc"));
    m_stream.file = m_file.wstring();
    m_stream.giveBuffer = SomeBuffer;
    RecordingProgress progress;
    NetKernelBase client(nullptr, &progress);
    EXPECT_EQ(Open(client, m_peer.Url("/a"), &m_stream), S_OK);
    EXPECT_EQ(ContentOf(m_file), "abc");
    EXPECT_TRUE(progress.hadBuffer);
    EXPECT_EQ(progress.body, "given");
}

TEST_P(ReceiveToFile, TheStreamsBufferReachesTheObserverWhenTheBodyGoesToTheStreamAfterAll) {
    m_peer.On("/a", PeerReply::Ok("abcde"));
    m_stream.giveBuffer = SomeBuffer;
    RecordingProgress progress;
    NetKernelBase client(nullptr, &progress);
    EXPECT_EQ(Open(client, m_peer.Url("/a"), &m_stream), S_OK);
    EXPECT_EQ(m_stream.body, "abcde");
    EXPECT_EQ(progress.body, "given");
}

TEST_P(ReceiveToFile, ABodyInMemoryGoesBeforeTheStreamsBuffer) {
    m_peer.On("/a", PeerReply::Ok("abcde"));
    std::vector<BYTE> streams(RecordingStream::kGivenLength);  // nobody takes it
    m_stream.giveBuffer = [&streams] { return streams.data(); };
    m_stream.useWrite = false;
    RecordingProgress progress;
    NetKernelBase client(nullptr, &progress);
    EXPECT_EQ(Open(client, m_peer.Url("/a"), &m_stream), S_OK);
    EXPECT_EQ(progress.body, "abcde");
}

TEST_P(ReceiveToFile, ARequestThatFailsLeavesTheStreamItsBuffer) {
    m_peer.On("/a", PeerReply::Ok("abcde"));
    std::vector<BYTE> streams(RecordingStream::kGivenLength);
    m_stream.giveBuffer = [&streams] { return streams.data(); };
    m_stream.writeResult = 0;
    RecordingProgress progress;
    NetKernelBase client(nullptr, &progress);
    EXPECT_EQ(Open(client, m_peer.Url("/a"), &m_stream), E_FAIL);
    EXPECT_EQ(progress.completions, 0);
}

TEST_P(ReceiveToFile, BodiesAreAppended) {
    m_peer.On("/a", PeerReply::Ok("abc"));
    NetKernelBase client;
    Open(client, m_peer.Url("/a"), nullptr, {.responseFile = m_file.wstring()});
    Open(client, m_peer.Url("/a"), nullptr, {.responseFile = m_file.wstring()});
    EXPECT_EQ(ContentOf(m_file), "abcabc");
}

TEST_P(ReceiveToFile, ATruncatedBodySucceedsAllTheSame) {
    m_peer.On("/a", PeerReply::Truncated("abc", 10));
    LogCapture log(3);
    NetKernelBase client;
    EXPECT_EQ(Open(client, m_peer.Url("/a"), nullptr, {.responseFile = m_file.wstring()}), S_OK);
    EXPECT_EQ(ContentOf(m_file), "abc");
    if (UnderWine()) {
        GTEST_SKIP() << kWineEndsAShortBody;
    }
    EXPECT_TRUE(
        log.Contains("[Error] NetKernelBase::ReceiveResponseToFile InternetReadFile failed. Last error: 12030"));
}

TEST_P(ReceiveToFile, ACancelFails) {
    m_peer.On("/a", PeerReply::Ok("0123456789"));
    RecordingProgress progress;
    progress.cancelStage = "receive";
    progress.cancelFrom = 4;
    NetKernelBase client(nullptr, &progress);
    client.SetReceiveChunkSize(4);
    EXPECT_EQ(Open(client, m_peer.Url("/a"), nullptr, {.responseFile = m_file.wstring()}), E_FAIL);
    EXPECT_EQ(ContentOf(m_file), "0123");
}

TEST_P(ReceiveToFile, AFileThatCannotBeOpenedLosesTheBodyWithoutAWord) {
    m_peer.On("/a", PeerReply::Ok("abc"));
    NetKernelBase client;
    EXPECT_EQ(Open(client, m_peer.Url("/a"), nullptr, {.responseFile = (m_dir.Path() / "none" / "x").wstring()}), S_OK);
}

class ReceiveToStreamBuffer : public BothTwins {
  protected:
    void SetUp() override {
        m_stream.useBuffer = true;
        m_stream.area.resize(100);
        m_stream.areaOffered = 100;
    }
    std::string Received(size_t size) const {
        return {m_stream.area.begin(), m_stream.area.begin() + static_cast<std::ptrdiff_t>(size)};
    }
};
KV_FOR_BOTH_TWINS(ReceiveToStreamBuffer);

TEST_P(ReceiveToStreamBuffer, TheBodyIsReadIntoTheStreamsAreas) {
    if (UnderWine()) {
        GTEST_SKIP() << kWineKnowsNoLength;
    }
    m_peer.On("/a", PeerReply::Ok("0123456789"));
    m_stream.areaOffered = 4;
    LogCapture log(4);
    RecordingProgress progress;
    NetKernelBase client(nullptr, &progress);
    EXPECT_EQ(Open(client, m_peer.Url("/a"), &m_stream), S_OK);
    EXPECT_EQ(Received(10), "0123456789");
    EXPECT_EQ(m_stream.blocks, (std::vector<DWORD>{0, 4, 8}));
    EXPECT_EQ(m_stream.calls.back(), "complete");
    EXPECT_TRUE(log.Contains(" NetKernelBase::ReceiveResponseToStream2 End Success: True"));
    EXPECT_EQ(progress.reports.back(), (RecordingProgress::Report{"receive", 10, 10}));
    EXPECT_EQ(client.GetErrorType(), 0u);
}

TEST_P(ReceiveToStreamBuffer, AreasAreUsedUpToTheChunkSize) {
    if (UnderWine()) {
        GTEST_SKIP() << kWineKnowsNoLength;
    }
    m_peer.On("/a", PeerReply::Ok("0123456789"));
    NetKernelBase client;
    client.SetReceiveChunkSize(3);
    EXPECT_EQ(Open(client, m_peer.Url("/a"), &m_stream), S_OK);
    EXPECT_EQ(m_stream.blocks, (std::vector<DWORD>{0, 3, 6, 9}));
}

TEST_P(ReceiveToStreamBuffer, AStreamThatHasNoAreaFailsAtOnce) {
    m_peer.On("/a", PeerReply::Ok("0123456789"));
    m_stream.refuseArea = true;
    NetKernelBase client;
    EXPECT_EQ(Open(client, m_peer.Url("/a"), &m_stream), E_FAIL);
    EXPECT_NE(m_stream.calls.back(), "complete");
}

TEST_P(ReceiveToStreamBuffer, AnAreaOfNothingEndsTheReading) {
    m_peer.On("/a", PeerReply::Ok("0123456789"));
    m_stream.areaOffered = 0;
    LogCapture log(4);
    NetKernelBase client;
    const HRESULT result = Open(client, m_peer.Url("/a"), &m_stream);
    EXPECT_EQ(m_stream.calls.back(), "complete");
    if (UnderWine()) {
        GTEST_SKIP() << kWineKnowsNoLength;
    }
    EXPECT_EQ(result, E_FAIL);
    EXPECT_TRUE(log.Contains(" NetKernelBase::ReceiveResponseToStream2 End Success: False"));
}

TEST_P(ReceiveToStreamBuffer, ABrokenBodyIsErrorType1) {
    if (UnderWine()) {
        GTEST_SKIP() << kWineEndsAShortBody;
    }
    m_peer.On("/a", PeerReply::Truncated("abc", 10));
    LogCapture log(3);
    NetKernelBase client;
    EXPECT_EQ(Open(client, m_peer.Url("/a"), &m_stream), E_FAIL);
    EXPECT_EQ(client.GetErrorType(), 1u);
    EXPECT_TRUE(log.Contains("[Error] NetKernelBase::ReceiveResponseToStream2 Read file failed, last error: 12030"));
}

TEST_P(ReceiveToStreamBuffer, ASilentBodyIsErrorType2) {
    if (UnderWine()) {
        GTEST_SKIP() << kWineTellsSocketErrors;
    }
    m_peer.On("/a", PeerReply::Head(10).Stall());
    NetKernelBase client;
    client.SetReceiveTimeout(80);
    EXPECT_EQ(Open(client, m_peer.Url("/a"), &m_stream), E_FAIL);
    EXPECT_EQ(client.GetErrorType(), 2u);
}

TEST_P(ReceiveToStreamBuffer, ACancelStopsAndCompletes) {
    if (UnderWine()) {
        GTEST_SKIP() << kWineKnowsNoLength;
    }
    m_peer.On("/a", PeerReply::Ok("0123456789"));
    m_stream.areaOffered = 4;
    RecordingProgress progress;
    progress.cancelStage = "receive";
    progress.cancelFrom = 4;
    LogCapture log(4);
    NetKernelBase client(nullptr, &progress);
    EXPECT_EQ(Open(client, m_peer.Url("/a"), &m_stream), E_FAIL);
    EXPECT_TRUE(log.Contains(" NetKernelBase::ReceiveResponseToStream2 Cancel when downloading."));
    EXPECT_EQ(m_stream.calls.back(), "complete");
}

class ReceiveToHeapBuffer : public BothTwins {
  protected:
    RecordingProgress m_progress;
    NetKernelBase m_client{nullptr, &m_progress};
};
KV_FOR_BOTH_TWINS(ReceiveToHeapBuffer);

TEST_P(ReceiveToHeapBuffer, WithoutAStreamTheObserverGetsTheBody) {
    if (UnderWine()) {
        GTEST_SKIP() << kWineKnowsNoLength;
    }
    m_peer.On("/a", PeerReply::Ok(std::string(200'000, 'x')));
    EXPECT_EQ(Open(m_client, m_peer.Url("/a"), nullptr), S_OK);
    EXPECT_TRUE(m_progress.body == std::string(200'000, 'x'));
    EXPECT_EQ(m_progress.statusCode, 200u);
}

TEST_P(ReceiveToHeapBuffer, AStreamThatWantsNoBlocksLeavesItToTheObserver) {
    m_peer.On("/a", PeerReply::Ok("abc"));
    m_stream.useWrite = false;
    EXPECT_EQ(Open(m_client, m_peer.Url("/a"), &m_stream), S_OK);
    EXPECT_EQ(m_progress.body, "abc");
    EXPECT_TRUE(m_stream.body.empty());
}

TEST_P(ReceiveToHeapBuffer, WithoutALengthThereIsRoomForLessThan4096Bytes) {
    m_peer.On("/a", PeerReply::NoLength(std::string(4095, 'x')));
    EXPECT_EQ(Open(m_client, m_peer.Url("/a"), nullptr), S_OK);
    EXPECT_TRUE(m_progress.body == std::string(4095, 'x'));
}

TEST_P(ReceiveToHeapBuffer, AFullBufferKeepsItsFirstHalf) {
    m_peer.On("/a", PeerReply::NoLength(std::string(6000, 'x')));
    EXPECT_EQ(Open(m_client, m_peer.Url("/a"), nullptr), S_OK);
    EXPECT_EQ(m_progress.length, 4096u);
    EXPECT_TRUE(m_progress.body == std::string(2048, 'x') + std::string(2048, '\0'));
}

TEST_P(ReceiveToHeapBuffer, ATruncatedBodySucceedsWithWhatCame) {
    m_peer.On("/a", PeerReply::Truncated("abc", 10));
    LogCapture log(3);
    EXPECT_EQ(Open(m_client, m_peer.Url("/a"), nullptr), S_OK);
    EXPECT_EQ(m_progress.body, "abc");
    if (UnderWine()) {
        GTEST_SKIP() << kWineEndsAShortBody;
    }
    EXPECT_TRUE(
        log.Contains("[Error] NetKernelBase::ReceiveResponseToBuffer InternetReadFile failed. Last error: 12030"));
}

TEST_P(ReceiveToHeapBuffer, ACancelFails) {
    m_peer.On("/a", PeerReply::Ok("abc"));
    m_progress.cancelStage = "receive";
    EXPECT_EQ(Open(m_client, m_peer.Url("/a"), nullptr), E_FAIL);
    EXPECT_EQ(m_progress.completions, 0);
}

TEST_P(ReceiveToHeapBuffer, ALengthThatNoMemoryHoldsFails) {
    if (UnderWine()) {
        GTEST_SKIP() << kWineKnowsNoLength;
    }
    m_peer.On("/a", PeerReply::Truncated("abc", 0x7FFFFFFFFFFFFFFFULL));
    EXPECT_EQ(Open(m_client, m_peer.Url("/a"), nullptr), E_FAIL);
}

TEST_P(ReceiveToHeapBuffer, WithoutAnObserverTheBodyIsReadAndForgotten) {
    m_peer.On("/a", PeerReply::Ok("abc"));
    NetKernelBase client;
    EXPECT_EQ(Open(client, m_peer.Url("/a"), nullptr), S_OK);
}

}  // namespace
}  // namespace kvmpd::test
