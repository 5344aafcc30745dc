#include "app/QualityList.h"

#include <gtest/gtest.h>

namespace kvmpd::app {
namespace {

constexpr const char* kTwo =
    "{11:{'height': 720,'width': 1280,'bandwidth': 2500000,'frameRate': 30}, "
    "12:{'height': 1080,'width': 1920,'bandwidth': 5000000,'frameRate': 60}}";

TEST(QualityList, IsReadInTheFormTheComponentSends) {
    const auto list = ParseQualityList(kTwo);
    ASSERT_TRUE(list);
    EXPECT_EQ(*list, (std::vector<VideoQuality>{{11, 720, 1280, 2500000, 30}, {12, 1080, 1920, 5000000, 60}}));
}

TEST(QualityList, MayBeEmpty) {
    const auto list = ParseQualityList("{}");
    ASSERT_TRUE(list);
    EXPECT_TRUE(list->empty());
}

TEST(QualityList, SkipsKeysItDoesNotKnow) {
    const auto list = ParseQualityList("{1:{'height': 360,'codec': 7,'width': 640,'bandwidth': 1,'frameRate': 25}}");
    ASSERT_TRUE(list);
    EXPECT_EQ(list->front(), (VideoQuality{1, 360, 640, 1, 25}));
}

TEST(QualityList, KeepsNegativeAndLargeNumbers) {
    const auto list = ParseQualityList("{-1:{'bandwidth': 4294967295}}");
    ASSERT_TRUE(list);
    EXPECT_EQ(list->front(), (VideoQuality{-1, 0, 0, 4294967295, 0}));
}

class NoQualityList : public testing::TestWithParam<const char*> {};

TEST_P(NoQualityList, IsRefused) {
    EXPECT_FALSE(ParseQualityList(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Texts, NoQualityList,
                         testing::Values("", "{", "}", "[]", "{1}", "{1:}", "{1:{}", "{1:{'height'}}",
                                         "{1:{'height': }}", "{1:{'height: 3}}", "{1:{\"height\": 3}}", "{1:{},}",
                                         "{} x", "{1:{'height': 99999999999999999999}}", "{a:{}}"));

TEST(QualityTable, MarksTheChosenOne) {
    EXPECT_EQ(FormatQualityTable(*ParseQualityList(kTwo), 12),
              "        id  picture           bit rate    fps\n"
              "        11  1280x720       2.50 Mbit/s     30\n"
              "*       12  1920x1080      5.00 Mbit/s     60  chosen\n");
}

TEST(QualityTable, SaysSoWhenThereIsNone) {
    EXPECT_EQ(FormatQualityTable({}, std::nullopt), "  the manifest lists no video quality\n");
}

}  // namespace
}  // namespace kvmpd::app
