#include "app/PinReader.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <thread>

#include "app/BoxReader.h"
#include "app/HostObject.h"
#include "tests/app/FakeSource.h"

namespace kvmpd::app {
namespace {

// A pin's reader with canned results.
class FakeAsyncReader final : public HostObject<IAsyncReader, IID_IAsyncReader> {
  public:
    HRESULT result = S_OK;
    LONGLONG position = -1;
    LONGLONG length = -1;
    int alignedReads = 0;
    std::function<void()> onRead;

    HRESULT STDMETHODCALLTYPE SyncRead(LONGLONG where, LONG count, BYTE* buffer) override {
        if (onRead) {
            onRead();
        }
        position = where;
        length = count;
        std::memset(buffer, 0x5A, static_cast<std::size_t>(count));
        return result;
    }
    HRESULT STDMETHODCALLTYPE SyncReadAligned(IMediaSample* sample) override {
        ++alignedReads;
        REFERENCE_TIME start = 0;
        REFERENCE_TIME stop = 0;
        BYTE* buffer = nullptr;
        if (sample->GetTime(&start, &stop) != S_OK || sample->GetPointer(&buffer) != S_OK) {
            return E_UNEXPECTED;
        }
        position = start / 10'000'000;
        length = (stop - start) / 10'000'000;
        if (length > sample->GetSize()) {
            return E_UNEXPECTED;
        }
        std::memset(buffer, 0x5A, static_cast<std::size_t>(length));
        return result == S_OK ? sample->SetActualDataLength(static_cast<LONG>(length)) : result;
    }
    HRESULT STDMETHODCALLTYPE RequestAllocator(IMemAllocator*, ALLOCATOR_PROPERTIES*, IMemAllocator**) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Request(IMediaSample*, DWORD_PTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE WaitForNext(DWORD, IMediaSample**, DWORD_PTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Length(LONGLONG*, LONGLONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE BeginFlush() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE EndFlush() override { return S_OK; }
};

class PinReaderOverAPin : public testing::Test {
  protected:
    static kvmpd::ComPtr<FakeAsyncReader> MakePin() {
        kvmpd::ComPtr<FakeAsyncReader> pin;
        pin.Attach(new FakeAsyncReader);
        return pin;
    }

    kvmpd::ComPtr<FakeAsyncReader> m_pin = MakePin();
    bool m_interrupted = false;
    PinReader m_reader{kvmpd::ComPtr<IAsyncReader>(m_pin.get()), [this] { return m_interrupted; }};
};

struct ResultCase {
    HRESULT result;
    ReadStatus status;
};

class PinResult : public PinReaderOverAPin, public testing::WithParamInterface<ResultCase> {};

TEST_P(PinResult, HasItsMeaningForReadsAndProbes) {
    m_pin->result = GetParam().result;
    test::Bytes bytes(4);
    EXPECT_EQ(m_reader.Read(0, bytes), GetParam().status);
    EXPECT_EQ(m_reader.Probe(0), GetParam().status);
}

INSTANTIATE_TEST_SUITE_P(Results, PinResult,
                         testing::Values(ResultCase{S_OK, ReadStatus::kOk}, ResultCase{S_FALSE, ReadStatus::kNotYet},
                                         ResultCase{E_ACCESSDENIED, ReadStatus::kReleased},
                                         ResultCase{E_FAIL, ReadStatus::kFailed},
                                         ResultCase{VFW_E_TIMEOUT, ReadStatus::kFailed}));

TEST_F(PinReaderOverAPin, ReadsAtAudioPositions) {
    test::Bytes bytes(10);
    EXPECT_EQ(m_reader.Read(kAudioPositionBase + 5, bytes), ReadStatus::kOk);
    EXPECT_EQ(m_pin->position, kAudioPositionBase + 5);
    EXPECT_EQ(m_pin->length, 10);
    EXPECT_EQ(bytes, test::Bytes(10, 0x5A));
}

TEST_F(PinReaderOverAPin, ProbesABoxHeaderThroughASample) {
    EXPECT_EQ(m_reader.Probe(123'456'789'012), ReadStatus::kOk);
    EXPECT_EQ(m_pin->alignedReads, 1);
    EXPECT_EQ(m_pin->position, 123'456'789'012);
    EXPECT_EQ(m_pin->length, 8);
}

TEST_F(PinReaderOverAPin, RefusesToProbeWhereASampleTimeWouldOverflow) {
    EXPECT_EQ(m_reader.Probe(kAudioPositionBase), ReadStatus::kFailed);
    EXPECT_EQ(m_reader.Probe(-1), ReadStatus::kFailed);
    EXPECT_EQ(m_pin->alignedReads, 0);
}

TEST_F(PinReaderOverAPin, DoesNotReadOnceInterrupted) {
    m_interrupted = true;
    test::Bytes bytes(4);
    EXPECT_EQ(m_reader.Read(0, bytes), ReadStatus::kInterrupted);
    EXPECT_EQ(m_reader.Probe(0), ReadStatus::kInterrupted);
    EXPECT_EQ(m_pin->position, -1);
}

TEST_F(PinReaderOverAPin, SaysTheLastErrorInWords) {
    m_pin->result = E_ACCESSDENIED;
    test::Bytes bytes(4);
    m_reader.Read(0, bytes);
    EXPECT_EQ(m_reader.Error(), "the bytes have left the cache (0x80070005)");
    m_pin->result = VFW_E_WRONG_STATE;
    m_reader.Read(0, bytes);
    EXPECT_EQ(m_reader.Error(), "error 0x80040227");
}

TEST_F(PinReaderOverAPin, TakesAFailureForAnInterruptionWhenItWasOne) {
    m_pin->result = E_FAIL;
    m_pin->onRead = [this] { m_interrupted = true; };  // somebody ends the reads
    test::Bytes bytes(4);
    EXPECT_EQ(m_reader.Read(0, bytes), ReadStatus::kInterrupted);
}

TEST_F(PinReaderOverAPin, ReadsFromTheNextPinAfterARestart) {
    const auto next = MakePin();
    m_reader.SetNext(kvmpd::ComPtr<IAsyncReader>(next.get()), 5);
    test::Bytes bytes(4);
    m_reader.Read(7, bytes);
    EXPECT_EQ(m_pin->position, 7);
    EXPECT_EQ(m_reader.SourceId(), 0u) << "a read that fails now is not the next one's fault";
    m_reader.Restarted();
    m_reader.Read(9, bytes);
    EXPECT_EQ(m_reader.SourceId(), 5u);
    EXPECT_EQ(m_pin->position, 7);
    EXPECT_EQ(next->position, 9);
    m_reader.Restarted();  // without another pin the same goes on
    m_reader.Read(11, bytes);
    EXPECT_EQ(next->position, 11);
}

TEST_F(PinReaderOverAPin, TellsWhenAPinIsReadNoMore) {
    const auto next = MakePin();
    m_reader.SetNext(kvmpd::ComPtr<IAsyncReader>(next.get()));
    std::atomic<bool> left = false;
    std::thread closer([&] {
        m_reader.WaitUntilLeft(m_pin.get());
        left = true;
    });
    EXPECT_FALSE(left);
    m_reader.Restarted();
    closer.join();
    const auto another = MakePin();
    m_reader.SetNext(kvmpd::ComPtr<IAsyncReader>(another.get()));
    m_reader.SetNext(kvmpd::ComPtr<IAsyncReader>(m_pin.get()));
    m_reader.WaitUntilLeft(another.get());  // never came to its turn
    m_reader.Close();
    m_reader.WaitUntilLeft(next.get());
    m_reader.WaitUntilLeft(m_pin.get());
    test::Bytes bytes(4);
    EXPECT_EQ(m_reader.Read(0, bytes), ReadStatus::kNotYet);
    EXPECT_EQ(m_reader.Probe(0), ReadStatus::kNotYet);
}

}  // namespace
}  // namespace kvmpd::app
