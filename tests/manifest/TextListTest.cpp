#include "manifest/TextList.h"

#include <gtest/gtest.h>

namespace kvmpd::test {
namespace {

TEST(TextList, BeginsEmpty) {
    const TextList list;
    EXPECT_TRUE(list.empty());
    EXPECT_EQ(list.size(), 0u);
}

TEST(TextList, GivesBackWhatItWasGiven) {
    TextList list;
    list.push_back("first");
    list.push_back("a second, longer one that no small buffer holds");
    EXPECT_EQ(list.size(), 2u);
    EXPECT_FALSE(list.empty());
    EXPECT_EQ(list[0], "first");
    EXPECT_EQ(list[1], "a second, longer one that no small buffer holds");
}

TEST(TextList, KeepsEmptyTextsInTheirPlaces) {
    const TextList list{"", "b", "", ""};
    EXPECT_EQ(list.size(), 4u);
    EXPECT_EQ(list[0], "");
    EXPECT_EQ(list[1], "b");
    EXPECT_EQ(list[3], "");
}

TEST(TextList, TellsListsApartByWhereTheirTextsEnd) {
    EXPECT_EQ((TextList{"ab", "c"}), (TextList{"ab", "c"}));
    EXPECT_NE((TextList{"ab", "c"}), (TextList{"a", "bc"}));
    EXPECT_NE((TextList{"ab"}), (TextList{"ab", ""}));
}

TEST(TextList, KeepsItsTextsWhenItGivesMemoryBack) {
    TextList list;
    for (int i = 0; i < 100; ++i) {
        list.push_back(std::to_string(i));
    }
    list.shrink_to_fit();
    EXPECT_EQ(list.size(), 100u);
    EXPECT_EQ(list[0], "0");
    EXPECT_EQ(list[99], "99");
}

}  // namespace
}  // namespace kvmpd::test
