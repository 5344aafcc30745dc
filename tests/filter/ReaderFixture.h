// A reader filter over a fake stream, with a second pin whose retry pauses are the test's, and samples to read into.
#pragma once

#include <functional>
#include <vector>

#include <gtest/gtest.h>

#include "common/ComPtr.h"
#include "directshow/CMemAllocator.h"
#include "filter/CAsyncReader.h"
#include "tests/directshow/Fakes.h"
#include "tests/filter/FakeStream.h"

namespace kvmpd::test {

inline constexpr LONGLONG kUnits = 10'000'000;

class TestReader final : public CAsyncReader {
  public:
    explicit TestReader(CAsyncStream* stream, HRESULT* phr = nullptr)
        : CAsyncReader(nullptr, stream, phr, kFakeFilterClass) {}
    void OnRenderConnected() override { ++renderConnected; }

    using CAsyncReader::CloseReading;
    CAsyncIo& Io() { return m_Io; }
    CritSec& FilterLock() { return m_csFilter; }
    void SetType(const CMediaType& type) {
        CritSecLock lock(m_csFilter);
        m_mt = type;
    }

    int renderConnected = 0;
};

// A pin of the reader's in which a retry pause is a call of `pause` and takes no time.
class QuickPin final : public CAsyncOutputPin {
  public:
    explicit QuickPin(TestReader& reader) : CAsyncOutputPin(&reader, &reader.Io(), &reader.FilterLock()) {}

    std::vector<DWORD> pauses;
    std::function<void(size_t)> pause = [](size_t) {};

  protected:
    void WaitBeforeRetry(DWORD milliseconds) override {
        pauses.push_back(milliseconds);
        pause(pauses.size());
    }
};

class ReaderFixture : public testing::Test {
  protected:
    ReaderFixture() : reader(new TestReader(&stream)), pin(*reader) {
        reader->FindPin(L"Output", output.put());
        output->QueryInterface(IID_IAsyncReader, pull.putVoid());
    }

    void MakeSamples(LONG count, LONG size) {
        allocator.Attach(CMemAllocator::Create());
        ALLOCATOR_PROPERTIES wanted = {count, size, 1, 0};
        ALLOCATOR_PROPERTIES actual;
        ASSERT_EQ(allocator->SetProperties(&wanted, &actual), S_OK);
        ASSERT_EQ(allocator->Commit(), S_OK);
    }
    // A sample that asks for `length` bytes from `position`.
    ComPtr<IMediaSample> SampleFor(LONGLONG position, LONGLONG length) {
        ComPtr<IMediaSample> sample;
        EXPECT_EQ(allocator->GetBuffer(sample.put(), nullptr, nullptr, AM_GBF_NOWAIT), S_OK);
        REFERENCE_TIME start = position * kUnits;
        REFERENCE_TIME stop = (position + length) * kUnits;
        EXPECT_EQ(sample->SetTime(&start, &stop), S_OK);
        return sample;
    }
    static bool HoldsVideoFrom(IMediaSample* sample, LONGLONG position) {
        BYTE* buffer = nullptr;
        sample->GetPointer(&buffer);
        for (LONG i = 0; i < sample->GetActualDataLength(); ++i) {
            if (buffer[i] != FakeStream::VideoByte(position + i)) {
                return false;
            }
        }
        return true;
    }

    FakeStream stream;
    ComPtr<TestReader> reader;
    QuickPin pin;               // shares the reader's queue
    ComPtr<IPin> output;        // the reader's own pin
    ComPtr<IAsyncReader> pull;  // and its pull interface
    ComPtr<IMemAllocator> allocator;
};

}  // namespace kvmpd::test
