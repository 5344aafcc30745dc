#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "filter/AddressSplit.h"
#include "filter/CAsyncRequest.h"
#include "tests/directshow/Slots.h"
#include "tests/filter/ReaderFixture.h"

namespace kvmpd::test {
namespace {

using Calls = std::vector<std::string>;

struct Split {
    const char* name;
    LONGLONG position;
    StreamPosition expected;
};

class AddressSplit : public testing::TestWithParam<Split> {};

TEST_P(AddressSplit, ChoosesTheStreamAndTheOffset) {
    EXPECT_EQ(SplitPosition(GetParam().position), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(All, AddressSplit,
                         testing::Values(Split{"Zero", 0, {false, 0}},
                                         Split{"Video", 1234567890123, {false, 1234567890123}},
                                         Split{"BeforeASeeksTarget", -5, {false, -5}},
                                         Split{"LastVideo", 0x3FFFFFFFFFFFFFFE, {false, 0x3FFFFFFFFFFFFFFE}},
                                         Split{"FirstAudio", 0x3FFFFFFFFFFFFFFF, {true, 0}},
                                         Split{"SecondAudio", 0x4000000000000000, {true, 1}},
                                         Split{"Last", 0x7FFFFFFFFFFFFFFF, {true, 0x4000000000000000}}),
                         [](const auto& each) { return std::string(each.param.name); });

TEST(AddressSplitBase, IsTheDocumentedNumber) {
    EXPECT_EQ(AUDIO_POSITION_BASE, 4611686018427387903);
}

// The destructor takes two slots in this table layout: one that destroys and one that also frees.
TEST(AsyncStream, SlotsAreInTheContractsOrder) {
    constexpr int kFirst = 2;
    FakeStream stream;
    CAsyncStream* face = &stream;
    BYTE buffer[4] = {};
    DWORD actual = 0;
    LONGLONG one = 0;
    LONGLONG two = 0;
    CallSlot<void>(face, kFirst + 8);  // Lock
    EXPECT_EQ(CallSlot<HRESULT>(face, kFirst + 0, LONGLONG{3}), S_OK);
    EXPECT_EQ(CallSlot<HRESULT>(face, kFirst + 1, LONGLONG{4}), S_OK);
    EXPECT_EQ(CallSlot<HRESULT>(face, kFirst + 2, &buffer[0], DWORD{1}, FALSE, &actual), S_OK);
    EXPECT_EQ(CallSlot<HRESULT>(face, kFirst + 3, &buffer[0], DWORD{2}, TRUE, &actual), S_OK);
    CallSlot<void>(face, kFirst + 9);  // Unlock
    EXPECT_EQ(stream.Calls(), (Calls{"video at 3", "audio at 4", "read video 1", "read audio 2 aligned"}));
    EXPECT_EQ(CallSlot<HRESULT>(face, kFirst + 4, &one, &two), S_OK);
    EXPECT_EQ(one, 10);
    EXPECT_EQ(CallSlot<HRESULT>(face, kFirst + 5, &one, &two), S_OK);
    EXPECT_EQ(one, 30);
    EXPECT_EQ(CallSlot<HRESULT>(face, kFirst + 6, &one, &two), S_OK);
    EXPECT_EQ(two, 0x7FFFFFFFFFFFFFFF);
    stream.alignment = 16;
    EXPECT_EQ(CallSlot<DWORD>(face, kFirst + 7), 16u);
    stream.stopped = 77;
    EXPECT_EQ(CallSlot<BOOL>(face, kFirst + 10), 77);
}

class AsyncRequest : public ReaderFixture {};

TEST_F(AsyncRequest, ReadsVideoBelowTheBase) {
    BYTE buffer[5];
    CAsyncRequest request(100, 5, FALSE, buffer, nullptr, 9);
    EXPECT_EQ(request.Result(), VFW_E_TIMEOUT);
    EXPECT_EQ(request.Complete(stream), S_OK);
    EXPECT_EQ(stream.Calls(), (Calls{"video at 100", "read video 5"}));
    EXPECT_EQ(buffer[4], FakeStream::VideoByte(104));
    EXPECT_EQ(request.ActualLength(), 5);
    EXPECT_EQ(request.User(), 9u);
}

TEST_F(AsyncRequest, ReadsAudioFromTheBaseOn) {
    BYTE buffer[5];
    CAsyncRequest request(AUDIO_POSITION_BASE, 5, TRUE, buffer, nullptr, 0);
    EXPECT_EQ(request.Complete(stream), S_OK);
    EXPECT_EQ(stream.Calls(), (Calls{"audio at 0", "read audio 5 aligned"}));
    EXPECT_EQ(buffer[0], FakeStream::AudioByte(0));
}

TEST_F(AsyncRequest, AFailedPositioningIsTheResultAndNothingIsRead) {
    stream.setPointerResult = E_ACCESSDENIED;
    BYTE buffer[5];
    EXPECT_EQ(CAsyncRequest(1, 5, FALSE, buffer, nullptr, 0).Complete(stream), E_ACCESSDENIED);
    EXPECT_EQ(CAsyncRequest(AUDIO_POSITION_BASE + 1, 5, FALSE, buffer, nullptr, 0).Complete(stream), E_ACCESSDENIED);
    EXPECT_EQ(stream.Calls(), (Calls{"video at 1", "audio at 1"}));
}

TEST_F(AsyncRequest, ADiscontinuityMarksTheSampleAndSucceeds) {
    MakeSamples(1, 16);
    ComPtr<IMediaSample> sample = SampleFor(0, 4);
    BYTE* buffer = nullptr;
    sample->GetPointer(&buffer);
    stream.Answer({OLE_S_FIRST, OLE_S_FIRST, S_OK});
    EXPECT_EQ(CAsyncRequest(0, 4, FALSE, buffer, nullptr, 0).Complete(stream), S_OK);
    EXPECT_EQ(sample->IsDiscontinuity(), S_FALSE);
    EXPECT_EQ(CAsyncRequest(0, 4, FALSE, buffer, sample.get(), 0).Complete(stream), S_OK);
    EXPECT_EQ(sample->IsDiscontinuity(), S_OK);
}

TEST_F(AsyncRequest, AShortReadKeepsTheStreamsResultAndTellsTheLength) {
    stream.shortBy = 2;
    stream.Answer({S_OK, S_FALSE});
    BYTE buffer[5];
    CAsyncRequest done(0, 5, FALSE, buffer, nullptr, 0);
    EXPECT_EQ(done.Complete(stream), S_OK);
    EXPECT_EQ(done.ActualLength(), 3);
    CAsyncRequest early(0, 5, FALSE, buffer, nullptr, 0);
    EXPECT_EQ(early.Complete(stream), S_FALSE);
    EXPECT_EQ(early.ActualLength(), 3);
}

TEST_F(AsyncRequest, AnErrorIsTheResult) {
    stream.Answer({E_FAIL});
    BYTE buffer[5];
    CAsyncRequest request(0, 5, FALSE, buffer, nullptr, 0);
    EXPECT_EQ(request.Complete(stream), E_FAIL);
    EXPECT_EQ(request.Result(), E_FAIL);
    EXPECT_EQ(request.ActualLength(), 5);
    stream.Lock();  // released again, whatever the result
    stream.Unlock();
}

TEST_F(AsyncRequest, KeepsItsSampleAlive) {
    MakeSamples(1, 16);
    ComPtr<IMediaSample> sample = SampleFor(0, 4);
    {
        CAsyncRequest request(0, 4, FALSE, nullptr, sample.get(), 0);
        EXPECT_EQ(sample->AddRef(), 3u);
        sample->Release();
    }
    EXPECT_EQ(sample->AddRef(), 2u);
    sample->Release();
}

}  // namespace
}  // namespace kvmpd::test
