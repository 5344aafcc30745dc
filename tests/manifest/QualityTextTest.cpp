#include "manifest/QualityText.h"

#include <gtest/gtest.h>

#include "tests/manifest/Records.h"

namespace kvmpd::test {
namespace {

RepresentationInfo Described(LONG id, LONG height, LONG width, LONG bandwidth, LONG frameRate) {
    RepresentationInfo quality = Quality(id, height);
    quality.m_width = width;
    quality.m_bandwidth = bandwidth;
    quality.m_frameRate = frameRate;
    return quality;
}

TEST(QualityText, ListsTheQualitiesInTheFormThatHostsParse) {
    const AdaptationSetInfo set =
        Set("video/mp4", {Described(11, 720, 1280, 2500000, 30), Described(12, 1080, 1920, 5000000, 60)});
    EXPECT_EQ(QualityText(set),
              L"{11:{'height': 720,'width': 1280,'bandwidth': 2500000,'frameRate': 30}, "
              L"12:{'height': 1080,'width': 1920,'bandwidth': 5000000,'frameRate': 60}}");
}

TEST(QualityText, HasNoSeparatorForASingleQuality) {
    EXPECT_EQ(QualityText(Set("video/mp4", {Described(1, 2, 3, 4, 5)})),
              L"{1:{'height': 2,'width': 3,'bandwidth': 4,'frameRate': 5}}");
}

TEST(QualityText, IsAPairOfBracesWithoutQualities) {
    EXPECT_EQ(QualityText(Set("video/mp4", {})), L"{}");
}

TEST(QualityText, WritesZerosAndNegativeNumbersPlainly) {
    EXPECT_EQ(QualityText(Set("video/mp4", {Described(-3, 0, 0, -2147483647 - 1, 0)})),
              L"{-3:{'height': 0,'width': 0,'bandwidth': -2147483648,'frameRate': 0}}");
}

TEST(QualityText, KeepsTheOrderOfTheManifest) {
    const std::wstring text = QualityText(Set("video/mp4", {Quality(9, 1080), Quality(3, 360), Quality(5, 720)}));
    EXPECT_LT(text.find(L"9:{"), text.find(L"3:{"));
    EXPECT_LT(text.find(L"3:{"), text.find(L"5:{"));
}

TEST(FirstVideoSet, SkipsOtherKinds) {
    MPD mpd;
    mpd.m_adaptationSets = {Set("audio/mp4", {}), Set("video/webm", {}), Set("video/mp4", {Quality(1)}),
                            Set("video/mp4", {Quality(2)})};
    EXPECT_EQ(FirstVideoSet(mpd), &mpd.m_adaptationSets[2]);
}

TEST(FirstVideoSet, IsNullWithoutVideo) {
    EXPECT_EQ(FirstVideoSet(Timeline(1, {2000})), nullptr);
}

}  // namespace
}  // namespace kvmpd::test
