#include "manifest/ReloadWait.h"

#include <gtest/gtest.h>

namespace kvmpd::test {
namespace {

TEST(ReloadPeriod, IsTheLastDurationOnNews) {
    EXPECT_EQ(ReloadPeriod(4000, false), 4000u);
}
TEST(ReloadPeriod, IsHalfTheLastDurationWithoutNews) {
    EXPECT_EQ(ReloadPeriod(4000, true), 2000u);
}
TEST(ReloadPeriod, IsASecondWhenHalfTheDurationIsLess) {
    EXPECT_EQ(ReloadPeriod(1800, true), 1000u);
}
TEST(ReloadPeriod, IsASecondWhenTheDurationIsLess) {
    EXPECT_EQ(ReloadPeriod(101, false), 1000u);
}
TEST(ReloadPeriod, IsASecondForADurationOfZero) {
    EXPECT_EQ(ReloadPeriod(0, false), 1000u);
}
TEST(ReloadPeriod, IsTheDurationJustAboveASecond) {
    EXPECT_EQ(ReloadPeriod(1001, false), 1001u);
}
TEST(ReloadPeriod, HalvesAnOddDurationDownwards) {
    EXPECT_EQ(ReloadPeriod(4001, true), 2000u);
}

TEST(ReloadWait, IsTheRestOfThePeriod) {
    EXPECT_EQ(ReloadWait(1000, 700), 300u);
}
TEST(ReloadWait, IsAHundredWhenLessIsLeft) {
    EXPECT_EQ(ReloadWait(1000, 950), 100u);
}
TEST(ReloadWait, IsAHundredWhenExactlyAHundredIsLeft) {
    EXPECT_EQ(ReloadWait(1000, 900), 100u);
}
TEST(ReloadWait, IsMoreThanAHundredWhenMoreIsLeft) {
    EXPECT_EQ(ReloadWait(1000, 899), 101u);
}
TEST(ReloadWait, IsAHundredWhenTheCycleTookLongerThanThePeriod) {
    EXPECT_EQ(ReloadWait(1000, 30'000), 100u);
}
TEST(ReloadWait, IsThePeriodWhenTheCycleTookNoTime) {
    EXPECT_EQ(ReloadWait(5000, 0), 5000u);
}
TEST(ReloadWait, IsAHundredAfterACycleOfMoreThan49Days) {
    EXPECT_EQ(ReloadWait(1000, 0x1'0000'0000ULL), 100u);
}

}  // namespace
}  // namespace kvmpd::test
