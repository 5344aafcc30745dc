#include <cstdint>
#include <future>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "common/ComPtr.h"
#include "directshow/CMemAllocator.h"
#include "tests/directshow/Fakes.h"

namespace kvmpd::test {
namespace {

class Allocator : public testing::Test {
  protected:
    Allocator() { allocator.Attach(CMemAllocator::Create()); }

    HRESULT Set(ALLOCATOR_PROPERTIES wanted) { return allocator->SetProperties(&wanted, &actual); }
    void Ready(LONG buffers) {
        ASSERT_EQ(Set({buffers, 100, 1, 0}), S_OK);
        ASSERT_EQ(allocator->Commit(), S_OK);
    }
    HRESULT Take(ComPtr<IMediaSample>& sample, DWORD flags = AM_GBF_NOWAIT) {
        return allocator->GetBuffer(sample.put(), nullptr, nullptr, flags);
    }

    ComPtr<IMemAllocator> allocator;
    ALLOCATOR_PROPERTIES actual = {};
};

TEST_F(Allocator, GrantsWhatWasAskedRoundedToTheAlignment) {
    ASSERT_EQ(Set({3, 100, 64, 8}), S_OK);
    EXPECT_EQ(actual.cBuffers, 3);
    EXPECT_EQ(actual.cbAlign, 64);
    EXPECT_EQ(actual.cbPrefix, 8);
    EXPECT_EQ((actual.cbBuffer + actual.cbPrefix) % 64, 0);
    EXPECT_GE(actual.cbBuffer, 100);
    ALLOCATOR_PROPERTIES told = {};
    EXPECT_EQ(allocator->GetProperties(&told), S_OK);
    EXPECT_EQ(told.cbBuffer, actual.cbBuffer);
}

TEST_F(Allocator, RefusesWhatItCannotGrant) {
    EXPECT_EQ(Set({1, 100, 0, 0}), VFW_E_BADALIGN);
    EXPECT_EQ(Set({1, 100, 3, 0}), VFW_E_BADALIGN);
    EXPECT_EQ(Set({-1, 100, 1, 0}), E_INVALIDARG);
    EXPECT_EQ(Set({1, -100, 1, 0}), E_INVALIDARG);
    EXPECT_EQ(Set({1, 0x7FFFFFFF, 1024, 0}), E_INVALIDARG);
    ALLOCATOR_PROPERTIES wanted = {1, 1, 1, 0};
    EXPECT_EQ(allocator->SetProperties(&wanted, nullptr), E_POINTER);
    EXPECT_EQ(allocator->SetProperties(nullptr, &actual), E_POINTER);
    EXPECT_EQ(allocator->GetProperties(nullptr), E_POINTER);
}

TEST_F(Allocator, CommitNeedsASize) {
    EXPECT_EQ(allocator->Commit(), VFW_E_SIZENOTSET);
}

TEST_F(Allocator, EveryBufferIsAlignedAndApartFromTheOthers) {
    ASSERT_EQ(Set({4, 100, 256, 16}), S_OK);
    ASSERT_EQ(allocator->Commit(), S_OK);
    std::vector<ComPtr<IMediaSample>> samples(4);
    for (auto& sample : samples) {
        ASSERT_EQ(Take(sample), S_OK);
        BYTE* buffer = nullptr;
        sample->GetPointer(&buffer);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(buffer) % 256, 0u);
        std::fill_n(buffer - 16, 16 + sample->GetSize(), BYTE{0x5A});  // the sanitizer watches the bounds
    }
    EXPECT_EQ(allocator->Decommit(), S_OK);
}

TEST_F(Allocator, LendsNothingBeforeCommitAndAfterDecommit) {
    ASSERT_EQ(Set({1, 100, 1, 0}), S_OK);
    ComPtr<IMediaSample> sample;
    EXPECT_EQ(Take(sample), VFW_E_NOT_COMMITTED);
    ASSERT_EQ(allocator->Commit(), S_OK);
    EXPECT_EQ(allocator->Commit(), S_OK);
    EXPECT_EQ(Take(sample), S_OK);
    sample.Reset();
    EXPECT_EQ(allocator->Decommit(), S_OK);
    EXPECT_EQ(Take(sample), VFW_E_NOT_COMMITTED);
    EXPECT_EQ(allocator->GetBuffer(nullptr, nullptr, nullptr, 0), E_POINTER);
}

TEST_F(Allocator, NoWaitAnswersTimeoutWhenAllAreOut) {
    Ready(1);
    ComPtr<IMediaSample> first;
    ComPtr<IMediaSample> second;
    ASSERT_EQ(Take(first), S_OK);
    EXPECT_EQ(Take(second), VFW_E_TIMEOUT);
}

TEST_F(Allocator, PropertiesAreFixedWhileCommittedOrLent) {
    Ready(1);
    EXPECT_EQ(Set({1, 100, 1, 0}), VFW_E_ALREADY_COMMITTED);
    ComPtr<IMediaSample> sample;
    ASSERT_EQ(Take(sample), S_OK);
    allocator->Decommit();
    EXPECT_EQ(Set({1, 100, 1, 0}), VFW_E_BUFFERS_OUTSTANDING);
    sample.Reset();
    EXPECT_EQ(Set({1, 100, 1, 0}), S_OK);
}

TEST_F(Allocator, AWaiterGetsTheSampleThatComesBack) {
    Ready(1);
    ComPtr<IMediaSample> first;
    ASSERT_EQ(Take(first), S_OK);
    auto waiter = std::async(std::launch::async, [this] {
        ComPtr<IMediaSample> sample;
        return Take(sample, 0);
    });
    first.Reset();
    EXPECT_EQ(waiter.get(), S_OK);
}

TEST_F(Allocator, DecommitWakesWaiters) {
    Ready(1);
    ComPtr<IMediaSample> first;
    ASSERT_EQ(Take(first), S_OK);
    auto wait = [this] {
        ComPtr<IMediaSample> sample;
        return Take(sample, 0);
    };
    auto one = std::async(std::launch::async, wait);
    auto two = std::async(std::launch::async, wait);
    allocator->Decommit();
    EXPECT_EQ(one.get(), VFW_E_NOT_COMMITTED);
    EXPECT_EQ(two.get(), VFW_E_NOT_COMMITTED);
}

TEST_F(Allocator, ALentSampleOutlivesDecommitAndTheAllocatorsLastReference) {
    Ready(2);
    ComPtr<IMediaSample> sample;
    ASSERT_EQ(Take(sample), S_OK);
    allocator->Decommit();
    allocator.Reset();
    BYTE* buffer = nullptr;
    ASSERT_EQ(sample->GetPointer(&buffer), S_OK);
    buffer[0] = 1;
    buffer[99] = 2;
    sample.Reset();
}

TEST_F(Allocator, CommittingAgainWhileASampleIsOutKeepsIt) {
    Ready(1);
    ComPtr<IMediaSample> sample;
    ASSERT_EQ(Take(sample), S_OK);
    allocator->Decommit();
    ASSERT_EQ(allocator->Commit(), S_OK);
    ComPtr<IMediaSample> other;
    EXPECT_EQ(Take(other), VFW_E_TIMEOUT);
    sample.Reset();
    EXPECT_EQ(Take(other), S_OK);
}

TEST_F(Allocator, ManyThreadsShareFewSamples) {
    Ready(2);
    auto churn = [this] {
        for (int i = 0; i < 500; ++i) {
            ComPtr<IMediaSample> sample;
            ASSERT_EQ(Take(sample, 0), S_OK);
            ASSERT_EQ(sample->GetActualDataLength(), 100);
            sample->SetActualDataLength(1);
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back(churn);
    }
    for (auto& thread : threads) {
        thread.join();
    }
}

TEST_F(Allocator, AnswersForItsInterface) {
    ComPtr<IMemAllocator> same;
    EXPECT_EQ(allocator->QueryInterface(IID_IMemAllocator, same.putVoid()), S_OK);
    EXPECT_EQ(same.get(), allocator.get());
    EXPECT_EQ(allocator->ReleaseBuffer(nullptr), E_POINTER);
}

}  // namespace
}  // namespace kvmpd::test
