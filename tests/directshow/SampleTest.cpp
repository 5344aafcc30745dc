#include <gtest/gtest.h>

#include "common/ComPtr.h"
#include "directshow/CMemAllocator.h"
#include "tests/directshow/Fakes.h"

namespace kvmpd::test {
namespace {

class Sample : public testing::Test {
  protected:
    void SetUp() override {
        allocator.Attach(CMemAllocator::Create());
        ALLOCATOR_PROPERTIES wanted = {1, 64, 1, 0};
        ALLOCATOR_PROPERTIES actual;
        ASSERT_EQ(allocator->SetProperties(&wanted, &actual), S_OK);
        ASSERT_EQ(allocator->Commit(), S_OK);
        Take();
    }
    void Take() { ASSERT_EQ(allocator->GetBuffer(sample.put(), nullptr, nullptr, AM_GBF_NOWAIT), S_OK); }

    ComPtr<IMemAllocator> allocator;
    ComPtr<IMediaSample> sample;
};

TEST_F(Sample, HasABufferOfItsSizeAndIsBornFull) {
    BYTE* buffer = nullptr;
    ASSERT_EQ(sample->GetPointer(&buffer), S_OK);
    EXPECT_NE(buffer, nullptr);
    EXPECT_EQ(sample->GetSize(), 64);
    EXPECT_EQ(sample->GetActualDataLength(), 64);
    EXPECT_EQ(sample->GetPointer(nullptr), E_POINTER);
}

TEST_F(Sample, ActualLengthStaysWithinTheBuffer) {
    EXPECT_EQ(sample->SetActualDataLength(0), S_OK);
    EXPECT_EQ(sample->GetActualDataLength(), 0);
    EXPECT_EQ(sample->SetActualDataLength(65), VFW_E_BUFFER_OVERFLOW);
    EXPECT_EQ(sample->SetActualDataLength(-1), VFW_E_BUFFER_OVERFLOW);
    EXPECT_EQ(sample->GetActualDataLength(), 0);
}

TEST_F(Sample, TimesAreUnsetHalfSetOrSet) {
    REFERENCE_TIME start = 5;
    REFERENCE_TIME stop = 9;
    EXPECT_EQ(sample->GetTime(&start, &stop), VFW_E_SAMPLE_TIME_NOT_SET);
    EXPECT_EQ(sample->SetTime(&start, nullptr), S_OK);
    EXPECT_EQ(sample->GetTime(&start, &stop), VFW_S_NO_STOP_TIME);
    EXPECT_EQ(stop, 6);
    stop = 9;
    EXPECT_EQ(sample->SetTime(&start, &stop), S_OK);
    start = stop = 0;
    EXPECT_EQ(sample->GetTime(&start, &stop), S_OK);
    EXPECT_EQ(start, 5);
    EXPECT_EQ(stop, 9);
    EXPECT_EQ(sample->SetTime(nullptr, nullptr), S_OK);
    EXPECT_EQ(sample->GetTime(&start, &stop), VFW_E_SAMPLE_TIME_NOT_SET);
    EXPECT_EQ(sample->SetTime(nullptr, &stop), E_INVALIDARG);
    EXPECT_EQ(sample->GetTime(nullptr, &stop), E_POINTER);
}

TEST_F(Sample, MediaTimesAreUnsetOrSet) {
    LONGLONG start = 1;
    LONGLONG stop = 2;
    EXPECT_EQ(sample->GetMediaTime(&start, &stop), VFW_E_MEDIA_TIME_NOT_SET);
    EXPECT_EQ(sample->SetMediaTime(&start, nullptr), E_INVALIDARG);
    EXPECT_EQ(sample->SetMediaTime(&start, &stop), S_OK);
    start = stop = 0;
    EXPECT_EQ(sample->GetMediaTime(&start, &stop), S_OK);
    EXPECT_EQ(stop, 2);
    EXPECT_EQ(sample->SetMediaTime(nullptr, nullptr), S_OK);
    EXPECT_EQ(sample->GetMediaTime(&start, &stop), VFW_E_MEDIA_TIME_NOT_SET);
}

TEST_F(Sample, FlagsAnswerYesOrNo) {
    EXPECT_EQ(sample->IsSyncPoint(), S_FALSE);
    EXPECT_EQ(sample->IsPreroll(), S_FALSE);
    EXPECT_EQ(sample->IsDiscontinuity(), S_FALSE);
    sample->SetSyncPoint(TRUE);
    sample->SetPreroll(TRUE);
    sample->SetDiscontinuity(TRUE);
    EXPECT_EQ(sample->IsSyncPoint(), S_OK);
    EXPECT_EQ(sample->IsPreroll(), S_OK);
    EXPECT_EQ(sample->IsDiscontinuity(), S_OK);
}

TEST_F(Sample, MediaTypeIsOnlyThereWhenItChanged) {
    AM_MEDIA_TYPE* type = nullptr;
    EXPECT_EQ(sample->GetMediaType(&type), S_FALSE);
    EXPECT_EQ(type, nullptr);
    CMediaType changed = MakeType(MEDIATYPE_Stream, kFakeSubtype);
    EXPECT_EQ(sample->SetMediaType(&changed), S_OK);
    ASSERT_EQ(sample->GetMediaType(&type), S_OK);
    EXPECT_EQ(type->subtype, kFakeSubtype);
    DeleteMediaType(type);
    EXPECT_EQ(sample->SetMediaType(nullptr), S_OK);
    EXPECT_EQ(sample->GetMediaType(&type), S_FALSE);
    EXPECT_EQ(sample->GetMediaType(nullptr), E_POINTER);
}

TEST_F(Sample, ComesBackAsAFreshOne) {
    REFERENCE_TIME time = 7;
    sample->SetTime(&time, &time);
    sample->SetDiscontinuity(TRUE);
    sample->SetActualDataLength(3);
    CMediaType changed = MakeType(MEDIATYPE_Stream);
    sample->SetMediaType(&changed);
    const IMediaSample* before = sample.get();
    sample.Reset();
    Take();
    EXPECT_EQ(sample.get(), before);
    EXPECT_EQ(sample->GetTime(&time, &time), VFW_E_SAMPLE_TIME_NOT_SET);
    EXPECT_EQ(sample->IsDiscontinuity(), S_FALSE);
    EXPECT_EQ(sample->GetActualDataLength(), 64);
    AM_MEDIA_TYPE* type = nullptr;
    EXPECT_EQ(sample->GetMediaType(&type), S_FALSE);
}

TEST_F(Sample, AnswersForItsInterfacesOnly) {
    ComPtr<IUnknown> unknown;
    EXPECT_EQ(sample->QueryInterface(IID_IUnknown, unknown.putVoid()), S_OK);
    ComPtr<IMediaSample> same;
    EXPECT_EQ(sample->QueryInterface(IID_IMediaSample, same.putVoid()), S_OK);
    EXPECT_EQ(same.get(), sample.get());
    void* none = this;
    EXPECT_EQ(sample->QueryInterface(IID_IPin, &none), E_NOINTERFACE);
    EXPECT_EQ(none, nullptr);
}

}  // namespace
}  // namespace kvmpd::test
