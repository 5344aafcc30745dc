#include <gtest/gtest.h>

#include "filter/RegistryKeyPair.h"
#include "tests/filter/SettingsKeys.h"

namespace kvmpd::test {
namespace {

using Pair = RegistryKeyPair;

class KeyPair : public testing::Test {
  protected:
    DWORD SizeIn(Pair::Root root) {
        DWORD value = 0;
        DWORD bytes = sizeof value;
        EXPECT_EQ(RegQueryValueExW(keys.Get(root), L"size", nullptr, nullptr, reinterpret_cast<LPBYTE>(&value), &bytes),
                  ERROR_SUCCESS);
        return value;
    }

    SettingsKeys settings;
    Pair keys;
};

TEST_F(KeyPair, StartsEmpty) {
    EXPECT_EQ(keys.Get(Pair::kMachine), nullptr);
    EXPECT_EQ(keys.Get(Pair::kUser), nullptr);
}

TEST_F(KeyPair, MissingKeysLeaveTheirSlotsEmpty) {
    keys.Open(settings.Path(L"Tool"), /*create=*/false);
    EXPECT_EQ(keys.Get(Pair::kMachine), nullptr);
    EXPECT_EQ(keys.Get(Pair::kUser), nullptr);
    EXPECT_TRUE(settings.IsEmpty(Pair::kMachine));
    EXPECT_TRUE(settings.IsEmpty(Pair::kUser));
}

TEST_F(KeyPair, OpensWhatThereIs) {
    settings.Make(Pair::kMachine, L"Tool");
    keys.Open(settings.Path(L"Tool"), false);
    EXPECT_EQ(SizeIn(Pair::kMachine), 3u);
    EXPECT_EQ(keys.Get(Pair::kUser), nullptr);
    settings.Make(Pair::kUser, L"Tool");
    keys.Open(settings.Path(L"Tool"), false);
    EXPECT_EQ(SizeIn(Pair::kUser), 3u);
}

TEST_F(KeyPair, OpeningAnotherKeyClosesTheFirst) {
    settings.Make(Pair::kMachine, L"Tool");
    keys.Open(settings.Path(L"Tool"), false);
    keys.Open(settings.Path(L"Other"), false);
    EXPECT_EQ(keys.Get(Pair::kMachine), nullptr);
}

TEST_F(KeyPair, CreatesTheUsersKeyOnly) {
    keys.Open(settings.Path(L"Tool"), /*create=*/true);
    EXPECT_EQ(keys.Get(Pair::kMachine), nullptr);
    EXPECT_NE(keys.Get(Pair::kUser), nullptr);
    EXPECT_TRUE(settings.IsEmpty(Pair::kMachine));
    EXPECT_FALSE(settings.IsEmpty(Pair::kUser));
}

}  // namespace
}  // namespace kvmpd::test
