#include <atomic>
#include <future>
#include <limits>
#include <thread>

#include <gtest/gtest.h>

#include "platform/win32.h"
#include "tests/filter/ReaderFixture.h"
#include "tests/support/LogCapture.h"

namespace kvmpd::test {
namespace {

// A sample outside of any allocator, whose last release is its end.
class LoneSample final : public IMediaSample {
  public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** ppv) override { return *ppv = nullptr, E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_references; }
    ULONG STDMETHODCALLTYPE Release() override { return --m_references; }
    HRESULT STDMETHODCALLTYPE GetPointer(BYTE** ppBuffer) override { return *ppBuffer = m_buffer, S_OK; }
    LONG STDMETHODCALLTYPE GetSize() override { return sizeof m_buffer; }
    HRESULT STDMETHODCALLTYPE GetTime(REFERENCE_TIME* start, REFERENCE_TIME* end) override {
        *start = 0;
        *end = 10 * kUnits;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SetActualDataLength(LONG length) override {
        EXPECT_GT(m_references, 0u) << "used after its last release";
        m_length = length;
        return S_OK;
    }
    LONG STDMETHODCALLTYPE GetActualDataLength() override { return m_length; }
    HRESULT STDMETHODCALLTYPE SetTime(REFERENCE_TIME*, REFERENCE_TIME*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE IsSyncPoint() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetSyncPoint(BOOL) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE IsPreroll() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetPreroll(BOOL) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetMediaType(AM_MEDIA_TYPE**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetMediaType(AM_MEDIA_TYPE*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE IsDiscontinuity() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetDiscontinuity(BOOL) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetMediaTime(LONGLONG*, LONGLONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetMediaTime(LONGLONG*, LONGLONG*) override { return E_NOTIMPL; }

    ULONG References() const { return m_references; }

  private:
    std::atomic<ULONG> m_references{1};
    LONG m_length = 0;
    BYTE m_buffer[64] = {};
};

class OutputPinSample : public ReaderFixture {
  protected:
    OutputPinSample() { MakeSamples(4, 64); }
    ~OutputPinSample() override {
        if (allocator) {
            allocator->Decommit();
        }
    }
    static REFERENCE_TIME StopOf(IMediaSample* sample) {
        REFERENCE_TIME start = 0;
        REFERENCE_TIME stop = 0;
        sample->GetTime(&start, &stop);
        return stop;
    }
};

TEST_F(OutputPinSample, AlignedReadFillsTheSample) {
    LogCapture log(6);
    ComPtr<IMediaSample> sample = SampleFor(20, 10);
    EXPECT_EQ(pull->SyncReadAligned(sample.get()), S_OK);
    EXPECT_EQ(sample->GetActualDataLength(), 10);
    EXPECT_TRUE(HoldsVideoFrom(sample.get(), 20));
    EXPECT_TRUE(log.Contains(" CAsyncOutputPin::SyncReadAligned "));
    EXPECT_TRUE(log.Contains(" CAsyncOutputPin::SyncReadAligned SetDataLength=10"));
    EXPECT_EQ(stream.Calls().back(), "read video 10 aligned");
}

TEST_F(OutputPinSample, AlignedReadTellsWhatItGot) {
    stream.shortBy = 3;
    ComPtr<IMediaSample> sample = SampleFor(20, 10);
    EXPECT_EQ(pull->SyncReadAligned(sample.get()), S_OK);
    EXPECT_EQ(sample->GetActualDataLength(), 7);
}

TEST_F(OutputPinSample, AlignedReadMarksADiscontinuity) {
    stream.Answer({OLE_S_FIRST});
    ComPtr<IMediaSample> sample = SampleFor(20, 10);
    EXPECT_EQ(pull->SyncReadAligned(sample.get()), S_OK);
    EXPECT_EQ(sample->IsDiscontinuity(), S_OK);
}

TEST_F(OutputPinSample, AlignedReadDoesNotWaitForBytes) {
    stream.lastResult = S_FALSE;
    ComPtr<IMediaSample> sample = SampleFor(20, 10);
    EXPECT_EQ(pull->SyncReadAligned(sample.get()), S_FALSE);
    EXPECT_EQ(stream.Reads(), 1u);
}

TEST_F(OutputPinSample, AlignedReadOfASampleWithoutTimesFails) {
    LogCapture log(6);
    ComPtr<IMediaSample> sample = SampleFor(0, 1);
    sample->SetTime(nullptr, nullptr);
    EXPECT_EQ(pull->SyncReadAligned(sample.get()), VFW_E_SAMPLE_TIME_NOT_SET);
    EXPECT_TRUE(log.Contains(" CAsyncOutputPin::SyncReadAligned get Time Failed"));
    EXPECT_EQ(stream.Reads(), 0u);
    EXPECT_EQ(pull->SyncReadAligned(nullptr), E_POINTER);
}

TEST_F(OutputPinSample, AFailedAlignedReadLeavesTheLength) {
    stream.Answer({E_ACCESSDENIED});
    ComPtr<IMediaSample> sample = SampleFor(20, 10);
    EXPECT_EQ(pull->SyncReadAligned(sample.get()), E_ACCESSDENIED);
    EXPECT_EQ(sample->GetActualDataLength(), 64);
}

TEST_F(OutputPinSample, AReadPastTheEndIsCutThere) {
    stream.totalLength = 25;
    ComPtr<IMediaSample> sample = SampleFor(20, 10);
    EXPECT_EQ(pull->SyncReadAligned(sample.get()), S_OK);
    EXPECT_EQ(sample->GetActualDataLength(), 5);
    EXPECT_EQ(StopOf(sample.get()), 25 * kUnits);
}

TEST_F(OutputPinSample, TheEndIsRoundedUpToTheAlignment) {
    stream.totalLength = 25;
    stream.alignment = 8;
    ComPtr<IMediaSample> within = SampleFor(16, 16);
    EXPECT_EQ(pull->SyncReadAligned(within.get()), S_OK);
    EXPECT_EQ(within->GetActualDataLength(), 16);
    EXPECT_EQ(StopOf(within.get()), 32 * kUnits);
    ComPtr<IMediaSample> past = SampleFor(16, 24);
    EXPECT_EQ(pull->SyncReadAligned(past.get()), S_OK);
    EXPECT_EQ(past->GetActualDataLength(), 16);
    EXPECT_EQ(StopOf(past.get()), 32 * kUnits);
}

TEST_F(OutputPinSample, ABytePositionBeforeASeeksTargetCanBeRead) {
    ComPtr<IMediaSample> sample = SampleFor(-20, 10);
    EXPECT_EQ(pull->SyncReadAligned(sample.get()), S_OK);
    EXPECT_TRUE(HoldsVideoFrom(sample.get(), -20));
}

TEST_F(OutputPinSample, TimesThatTheSampleHasNoRoomForAreRefused) {
    ComPtr<IMediaSample> sample = SampleFor(0, 65);
    EXPECT_EQ(pull->SyncReadAligned(sample.get()), VFW_E_BUFFER_OVERFLOW);
    EXPECT_EQ(pull->Request(sample.get(), 0), VFW_E_BUFFER_OVERFLOW);
    REFERENCE_TIME start = 50 * kUnits;
    REFERENCE_TIME stop = 40 * kUnits;
    sample->SetTime(&start, &stop);
    EXPECT_EQ(pull->SyncReadAligned(sample.get()), E_INVALIDARG);
    start = std::numeric_limits<REFERENCE_TIME>::min();
    stop = std::numeric_limits<REFERENCE_TIME>::max();
    sample->SetTime(&start, &stop);
    EXPECT_EQ(pull->SyncReadAligned(sample.get()), E_INVALIDARG);
    stream.totalLength = 10;
    start = 50 * kUnits;
    stop = 60 * kUnits;
    sample->SetTime(&start, &stop);
    EXPECT_EQ(pull->SyncReadAligned(sample.get()), E_INVALIDARG);
    EXPECT_EQ(stream.Reads(), 0u);
}

TEST_F(OutputPinSample, QueuedReadsComeBackFilled) {
    ComPtr<IMediaSample> one = SampleFor(0, 10);
    ComPtr<IMediaSample> two = SampleFor(10, 20);
    ASSERT_EQ(pull->Request(one.get(), 1), S_OK);
    ASSERT_EQ(pull->Request(two.get(), 2), S_OK);
    IMediaSample* back = nullptr;
    DWORD_PTR user = 0;
    ASSERT_EQ(pull->WaitForNext(INFINITE, &back, &user), S_OK);
    EXPECT_EQ(back, one.get());
    EXPECT_EQ(user, 1u);
    EXPECT_EQ(back->GetActualDataLength(), 10);
    EXPECT_TRUE(HoldsVideoFrom(back, 0));
    ASSERT_EQ(pull->WaitForNext(INFINITE, &back, &user), S_OK);
    EXPECT_EQ(back, two.get());
    EXPECT_EQ(back->GetActualDataLength(), 20);
    EXPECT_TRUE(HoldsVideoFrom(back, 10));
    EXPECT_EQ(one->AddRef(), 2u);  // only the requester's own reference and this one
    one->Release();
}

TEST_F(OutputPinSample, ASampleThatOnlyTheQueueHoldsIsFilledBeforeItIsLetGo) {
    LoneSample sample;
    ASSERT_EQ(pull->Request(&sample, 1), S_OK);
    sample.Release();  // the requester's
    IMediaSample* back = nullptr;
    DWORD_PTR user = 0;
    ASSERT_EQ(pull->WaitForNext(INFINITE, &back, &user), S_OK);
    EXPECT_EQ(back, &sample);
    EXPECT_EQ(sample.GetActualDataLength(), 10);
    EXPECT_EQ(sample.References(), 0u);
}

TEST_F(OutputPinSample, ARefusedSampleKeepsItsTimes) {
    stream.totalLength = 100;
    ComPtr<IMediaSample> sample = SampleFor(20, 200);  // 80 bytes are left there, the sample has room for 64
    EXPECT_EQ(pull->SyncReadAligned(sample.get()), VFW_E_BUFFER_OVERFLOW);
    EXPECT_EQ(pull->Request(sample.get(), 0), VFW_E_BUFFER_OVERFLOW);
    EXPECT_EQ(StopOf(sample.get()), 220 * kUnits);
}

TEST_F(OutputPinSample, QueuedReadsAreCutAtTheEnd) {
    stream.totalLength = 25;
    ComPtr<IMediaSample> sample = SampleFor(20, 10);
    ASSERT_EQ(pull->Request(sample.get(), 0), S_OK);
    IMediaSample* back = nullptr;
    DWORD_PTR user = 0;
    ASSERT_EQ(pull->WaitForNext(INFINITE, &back, &user), S_OK);
    EXPECT_EQ(back->GetActualDataLength(), 5);
}

TEST_F(OutputPinSample, QueuedReadsReportMissingBytesAsFailure) {
    stream.lastResult = S_FALSE;
    ComPtr<IMediaSample> sample = SampleFor(0, 10);
    ASSERT_EQ(pull->Request(sample.get(), 5), S_OK);
    IMediaSample* back = nullptr;
    DWORD_PTR user = 0;
    EXPECT_EQ(pull->WaitForNext(INFINITE, &back, &user), E_FAIL);
    EXPECT_EQ(back, sample.get());
    EXPECT_EQ(user, 5u);
}

TEST_F(OutputPinSample, NullArgumentsAreRefused) {
    IMediaSample* back = nullptr;
    DWORD_PTR user = 0;
    LONGLONG length = 0;
    EXPECT_EQ(pull->Request(nullptr, 0), E_POINTER);
    EXPECT_EQ(pull->WaitForNext(0, nullptr, &user), E_POINTER);
    EXPECT_EQ(pull->WaitForNext(0, &back, nullptr), E_POINTER);
    EXPECT_EQ(pull->Length(nullptr, &length), E_POINTER);
    EXPECT_EQ(pull->Length(&length, nullptr), E_POINTER);
    ComPtr<IMediaSample> timeless = SampleFor(0, 1);
    timeless->SetTime(nullptr, nullptr);
    EXPECT_EQ(pull->Request(timeless.get(), 0), VFW_E_SAMPLE_TIME_NOT_SET);
}

TEST_F(OutputPinSample, FlushingWhileAReaderPullsGivesEverySampleBack) {
    for (int round = 0; round < 20; ++round) {
        ComPtr<IMediaSample> samples[3] = {SampleFor(0, 10), SampleFor(10, 10), SampleFor(20, 10)};
        int queued = 0;
        for (auto& sample : samples) {
            queued += pull->Request(sample.get(), 0) == S_OK ? 1 : 0;
        }
        auto collect = std::async(std::launch::async, [&] {
            int back = 0;
            IMediaSample* sample = nullptr;
            DWORD_PTR user = 0;
            while (pull->WaitForNext(INFINITE, &sample, &user) != VFW_E_WRONG_STATE) {
                ++back;
            }
            return back;
        });
        EXPECT_EQ(pull->BeginFlush(), S_OK);
        EXPECT_EQ(collect.get(), queued);
        EXPECT_EQ(pull->EndFlush(), S_OK);
    }
}

TEST_F(OutputPinSample, ClosingEndsAWaitForNext) {
    auto waiter = std::async(std::launch::async, [this] {
        IMediaSample* back = nullptr;
        DWORD_PTR user = 0;
        return pull->WaitForNext(INFINITE, &back, &user);
    });
    reader->CloseReading();
    const HRESULT hr = waiter.get();
    EXPECT_TRUE(hr == VFW_E_WRONG_STATE || hr == E_FAIL) << hr;  // E_FAIL: it came after the pin had closed
    ComPtr<IMediaSample> sample = SampleFor(0, 1);
    EXPECT_EQ(pull->Request(sample.get(), 0), E_FAIL);
    EXPECT_EQ(pull->SyncReadAligned(sample.get()), E_FAIL);
}

TEST_F(OutputPinSample, NothingReachesTheStreamOnceClosed) {
    reader->CloseReading();
    LONGLONG total = 1;
    LONGLONG available = 2;
    EXPECT_EQ(pull->Length(&total, &available), E_FAIL);
    EXPECT_EQ(total, 1);
    ALLOCATOR_PROPERTIES wanted = {2, 1000, 1, 0};
    ComPtr<IMemAllocator> none;
    EXPECT_EQ(pull->RequestAllocator(nullptr, &wanted, none.put()), E_FAIL);
    EXPECT_EQ(pull->BeginFlush(), E_FAIL);
    EXPECT_EQ(pull->EndFlush(), E_FAIL);
}

TEST_F(OutputPinSample, TheReadersOwnAllocatorIsTakenWhenItServes) {
    ComPtr<IMemAllocator> preferred;
    preferred.Attach(CMemAllocator::Create());
    ALLOCATOR_PROPERTIES wanted = {2, 1000, 0, 0};
    stream.alignment = 16;
    ComPtr<IMemAllocator> actual;
    ASSERT_EQ(pull->RequestAllocator(preferred.get(), &wanted, actual.put()), S_OK);
    EXPECT_EQ(actual.get(), preferred.get());
    EXPECT_EQ(wanted.cbAlign, 16);
    EXPECT_EQ(wanted.cBuffers, 2);
    EXPECT_GE(wanted.cbBuffer, 1000);
}

TEST_F(OutputPinSample, AnAllocatorIsMadeWhenThereIsNoneThatServes) {
    ALLOCATOR_PROPERTIES wanted = {2, 1000, 1, 0};
    ComPtr<IMemAllocator> made;
    ASSERT_EQ(pull->RequestAllocator(nullptr, &wanted, made.put()), S_OK);
    EXPECT_TRUE(made);
    ComPtr<IMemAllocator> instead;
    ASSERT_EQ(pull->RequestAllocator(allocator.get(), &wanted, instead.put()), S_OK);  // committed: takes no properties
    EXPECT_NE(instead.get(), allocator.get());
}

TEST_F(OutputPinSample, AnAllocatorThatNobodyCanMakeIsRefused) {
    ALLOCATOR_PROPERTIES impossible = {2, 1000, 3, 0};
    IMemAllocator* none = allocator.get();
    EXPECT_EQ(pull->RequestAllocator(nullptr, &impossible, &none), VFW_E_BADALIGN);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(pull->RequestAllocator(nullptr, nullptr, &none), E_POINTER);
    EXPECT_EQ(pull->RequestAllocator(nullptr, &impossible, nullptr), E_POINTER);
}

}  // namespace
}  // namespace kvmpd::test
