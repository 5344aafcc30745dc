#include "origin/PatternMedia.h"

#include <gtest/gtest.h>

namespace kvmpd::origin {
namespace {

TEST(PatternMedia, AnyRangeOfASegmentCanBeRecomputed) {
    PatternMedia media({.size = [](int, const SegmentTime&) { return std::size_t{5003}; }});
    const Bytes whole = media.Segment(720, {42, 0, 2000});
    ASSERT_TRUE(whole);
    ASSERT_EQ(whole->size(), 5003u);
    for (const std::size_t offset : {0u, 1u, 7u, 8u, 9u, 1000u, 4999u}) {
        const std::size_t length = std::min<std::size_t>(133, whole->size() - offset);
        EXPECT_EQ(PatternMedia::Range(720, 42, offset, length), whole->substr(offset, length)) << offset;
    }
}

TEST(PatternMedia, SegmentsAndRepresentationsDiffer) {
    const std::string bytes = PatternMedia::Range(720, 42, 0, 64);
    EXPECT_NE(bytes, PatternMedia::Range(720, 43, 0, 64));
    EXPECT_NE(bytes, PatternMedia::Range(360, 42, 0, 64));
    EXPECT_NE(bytes, PatternMedia::Range(720, 42, 64, 64));
}

TEST(PatternMedia, SizesFollowTheBandwidthUnlessSaidOtherwise) {
    EXPECT_EQ(PatternMedia().Size(1, {1, 0, 2000}), 32'000u);
    EXPECT_EQ(PatternMedia().Size(720, {1, 0, 1000}), 250'000u);
    const PatternMedia own({.size = [](int id, const SegmentTime& segment) {
        return static_cast<std::size_t>(id) + static_cast<std::size_t>(segment.number);
    }});
    EXPECT_EQ(own.Size(360, {7, 0, 2000}), 367u);
}

TEST(PatternMedia, ARepresentationItDoesNotHaveHasNoSegments) {
    EXPECT_FALSE(PatternMedia().Segment(999, {1, 0, 2000}));
}

}  // namespace
}  // namespace kvmpd::origin
