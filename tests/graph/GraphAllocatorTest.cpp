// Queued reads into samples of the system's own memory allocator.

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "tests/graph/Graph.h"

namespace kvmpd::test {
namespace {

constexpr LONGLONG kTimePerByte = 10'000'000;  // sample times are in units of 100 ns; a byte counts as a second

/// A running graph whose reader has one segment's bytes to give, and an allocator of the system's.
class SystemAllocatorTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(m_module.IsLoaded());
        m_graph = std::make_unique<Graph>(m_module);
        m_session = &m_graph->Session();
        m_session->Load(m_origin.Url());
        ASSERT_EQ(m_graph->Run(), S_OK);
        m_session->ExpectSegments(m_origin, kVideoId, 109, 109);
        m_bytes = m_origin.Segment(kVideoId, 109);
        ASSERT_EQ(CoCreateInstance(CLSID_MemoryAllocator, nullptr, CLSCTX_INPROC_SERVER, IID_IMemAllocator,
                                   m_allocator.putVoid()),
                  S_OK);
    }
    void TearDown() override {
        if (m_allocator) {
            m_allocator->Decommit();
        }
        m_samples.clear();
        m_allocator.Reset();
        m_graph.reset();
        EXPECT_EQ(m_module.CanUnloadNow(), S_OK);
    }

    /// Agrees with the reader on `count` samples of `size` bytes.
    void Agree(LONG count, LONG size) {
        ALLOCATOR_PROPERTIES wanted{count, size, /*cbAlign=*/1, /*cbPrefix=*/0};
        ComPtr<IMemAllocator> agreed;
        ASSERT_EQ(m_session->Reader().RequestAllocator(m_allocator.get(), &wanted, agreed.put()), S_OK);
        ASSERT_EQ(agreed.get(), m_allocator.get());  // the preferred one, as the aligned size can be had from it
        ASSERT_EQ(m_allocator->Commit(), S_OK);
    }

    /// A sample that asks for these bytes; the fixture keeps it, as a requester keeps what it has queued.
    IMediaSample& SampleFor(LONGLONG position, LONGLONG length) {
        ComPtr<IMediaSample> sample;
        EXPECT_EQ(m_allocator->GetBuffer(sample.put(), nullptr, nullptr, 0), S_OK);
        LONGLONG begin = position * kTimePerByte;
        LONGLONG end = (position + length) * kTimePerByte;
        EXPECT_EQ(sample->SetTime(&begin, &end), S_OK);
        m_samples.push_back(sample);
        return *sample.get();
    }

    static std::string BytesOf(IMediaSample& sample) {
        BYTE* data = nullptr;
        EXPECT_EQ(sample.GetPointer(&data), S_OK);
        return {reinterpret_cast<const char*>(data), static_cast<size_t>(sample.GetActualDataLength())};
    }

    ComScope m_com;
    LoadedModule m_module;
    TestOrigin m_origin;
    std::unique_ptr<Graph> m_graph;
    LiveSession* m_session = nullptr;
    ComPtr<IMemAllocator> m_allocator;
    std::vector<ComPtr<IMediaSample>> m_samples;
    std::string m_bytes;
};

TEST_F(SystemAllocatorTest, QueuedReadsComeBackWithTheirBytesAndTags) {
    Agree(3, 4096);
    IAsyncReader& reader = m_session->Reader();
    for (LONGLONG piece = 0; piece < 3; ++piece) {
        ASSERT_EQ(reader.Request(&SampleFor(piece * 4096, 4096), static_cast<DWORD_PTR>(piece) + 1), S_OK);
    }
    std::set<DWORD_PTR> tags;
    for (int i = 0; i < 3; ++i) {
        IMediaSample* sample = nullptr;
        DWORD_PTR tag = 0;
        ASSERT_EQ(reader.WaitForNext(20'000, &sample, &tag), S_OK);
        EXPECT_TRUE(tags.insert(tag).second) << tag;
        ASSERT_TRUE(tag >= 1 && tag <= 3) << tag;
        EXPECT_EQ(BytesOf(*sample), m_bytes.substr((tag - 1) * 4096, 4096));
    }
}

TEST_F(SystemAllocatorTest, AnAlignedReadFillsItsSample) {
    Agree(1, 8192);
    IMediaSample& sample = SampleFor(100, 8192);
    ASSERT_EQ(m_session->Reader().SyncReadAligned(&sample), S_OK);
    EXPECT_EQ(BytesOf(sample), m_bytes.substr(100, 8192));
}

TEST_F(SystemAllocatorTest, WithNothingQueuedTheWaitEndsAtItsLimit) {
    IMediaSample* sample = nullptr;
    DWORD_PTR tag = 0;
    EXPECT_EQ(m_session->Reader().WaitForNext(10, &sample, &tag), VFW_E_TIMEOUT);
}

TEST_F(SystemAllocatorTest, AFlushGivesEverySampleBackAndTheReaderGoesOn) {
    Agree(4, 4096);
    IAsyncReader& reader = m_session->Reader();
    for (LONGLONG piece = 0; piece < 3; ++piece) {
        ASSERT_EQ(reader.Request(&SampleFor(piece * 4096, 4096), 1), S_OK);
    }
    ASSERT_EQ(reader.BeginFlush(), S_OK);
    for (int i = 0; i < 3; ++i) {
        IMediaSample* sample = nullptr;
        DWORD_PTR tag = 0;
        const HRESULT result = reader.WaitForNext(20'000, &sample, &tag);
        EXPECT_TRUE(result == S_OK || result == VFW_E_TIMEOUT) << std::hex << static_cast<unsigned>(result);
        EXPECT_NE(sample, nullptr);  // done or not, it is the caller's again
    }
    IMediaSample* none = nullptr;
    DWORD_PTR noTag = 0;
    EXPECT_EQ(reader.WaitForNext(20'000, &none, &noTag), VFW_E_WRONG_STATE);
    EXPECT_EQ(reader.Request(&SampleFor(0, 4096), 2), VFW_E_WRONG_STATE);
    ASSERT_EQ(reader.EndFlush(), S_OK);
    m_samples.clear();
    ASSERT_EQ(reader.Request(&SampleFor(0, 4096), 9), S_OK);
    IMediaSample* sample = nullptr;
    DWORD_PTR tag = 0;
    ASSERT_EQ(reader.WaitForNext(20'000, &sample, &tag), S_OK);
    EXPECT_EQ(tag, 9u);
    EXPECT_EQ(BytesOf(*sample), m_bytes.substr(0, 4096));
}

}  // namespace
}  // namespace kvmpd::test
