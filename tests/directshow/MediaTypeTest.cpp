#include <cstring>

#include <gtest/gtest.h>

#include "directshow/CBaseFilter.h"
#include "directshow/CMediaType.h"
#include "tests/directshow/Fakes.h"

namespace kvmpd::test {
namespace {

CMediaType WithFormat(const char* text) {
    CMediaType type = MakeType(MEDIATYPE_Stream, kFakeSubtype, kFakeFormat);
    type.cbFormat = static_cast<ULONG>(std::strlen(text));
    type.pbFormat = static_cast<BYTE*>(CoTaskMemAlloc(type.cbFormat));
    std::memcpy(type.pbFormat, text, type.cbFormat);
    return type;
}

TEST(MediaType, StartsEmptyWithFixedSizeSamples) {
    const CMediaType type;
    EXPECT_EQ(type.majortype, GUID_NULL);
    EXPECT_EQ(type.bFixedSizeSamples, TRUE);
    EXPECT_EQ(type.pbFormat, nullptr);
    EXPECT_TRUE(type.IsPartiallySpecified());
}

TEST(MediaType, CopiesOwnTheirFormatBlock) {
    CMediaType original = WithFormat("abc");
    const CMediaType copy = original;
    ASSERT_NE(copy.pbFormat, original.pbFormat);
    original.pbFormat[0] = 'X';
    EXPECT_EQ(std::memcmp(copy.pbFormat, "abc", 3), 0);
    EXPECT_FALSE(copy == original);
}

TEST(MediaType, AssignmentReplacesAndSelfAssignmentKeeps) {
    CMediaType type = WithFormat("first");
    const CMediaType other = WithFormat("second");
    type = other;
    EXPECT_TRUE(type == other);
    const CMediaType& self = type;
    type = self;
    EXPECT_TRUE(type == other);
}

TEST(MediaType, CopyHoldsAReferenceOnTheUnknown) {
    ComPtr<FakeFilter> filter = MakeFilter();
    AM_MEDIA_TYPE source = {};
    source.pUnk = filter->NonDelegatingUnknown();
    AM_MEDIA_TYPE copy;
    ASSERT_EQ(CopyMediaType(&copy, &source), S_OK);
    EXPECT_EQ(filter->AddRef(), 3u);
    filter->Release();
    FreeMediaType(copy);
    EXPECT_EQ(copy.pUnk, nullptr);
    EXPECT_EQ(filter->AddRef(), 2u);
    filter->Release();
}

TEST(MediaType, FormatLengthWithoutABlockIsNoFormat) {
    AM_MEDIA_TYPE source = {};
    source.cbFormat = 12;
    AM_MEDIA_TYPE copy;
    ASSERT_EQ(CopyMediaType(&copy, &source), S_OK);
    EXPECT_EQ(copy.cbFormat, 0u);
    EXPECT_EQ(copy.pbFormat, nullptr);
}

TEST(MediaType, CreatedRecordsAreDeepCopies) {
    const CMediaType original = WithFormat("abc");
    AM_MEDIA_TYPE* record = CreateMediaType(&original);
    ASSERT_NE(record, nullptr);
    EXPECT_TRUE(CMediaType(*record) == original);
    DeleteMediaType(record);
    DeleteMediaType(nullptr);
}

struct Match {
    const char* name;
    CMediaType pattern;
    bool matches;
};

class MediaTypePattern : public testing::TestWithParam<Match> {};

TEST_P(MediaTypePattern, AgreesInWhatItNames) {
    const CMediaType type = WithFormat("abc");
    EXPECT_EQ(type.MatchesPartial(GetParam().pattern), GetParam().matches);
}

INSTANTIATE_TEST_SUITE_P(
    All, MediaTypePattern,
    testing::Values(Match{"Nothing", CMediaType(), true}, Match{"Major", MakeType(MEDIATYPE_Stream), true},
                    Match{"OtherMajor", MakeType(kFakeFormat), false},
                    Match{"Subtype", MakeType(GUID_NULL, kFakeSubtype), true},
                    Match{"OtherSubtype", MakeType(MEDIATYPE_Stream, kFakeFormat), false},
                    Match{"OtherFormatType", MakeType(MEDIATYPE_Stream, kFakeSubtype, kFakeSubtype), false},
                    Match{"SameBlock", WithFormat("abc"), true}, Match{"OtherBlock", WithFormat("abd"), false},
                    Match{"LongerBlock", WithFormat("abcd"), false}),
    [](const auto& each) { return std::string(each.param.name); });

}  // namespace
}  // namespace kvmpd::test
