#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "filter/RegistryKeyPair.h"
#include "platform/posix/settings_for_test.h"
#include "tests/support/TempDir.h"

namespace kvmpd::test {
namespace {

class KeyPair : public testing::Test {
  protected:
    KeyPair() : roots((folder.Path() / "machine").string(), (folder.Path() / "user").string()) {}

    void Make(const char* root) {
        const auto file = folder.Path() / root / "acme" / "tool.conf";
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file) << "size = 3\n";
    }
    DWORD SizeIn(RegistryKeyPair::Root root) {
        DWORD value = 0;
        DWORD bytes = sizeof value;
        EXPECT_EQ(RegQueryValueExW(keys.Get(root), L"size", nullptr, nullptr, reinterpret_cast<LPBYTE>(&value), &bytes),
                  ERROR_SUCCESS);
        return value;
    }

    TempDir folder;
    platform::SettingsRootsForTest roots;
    RegistryKeyPair keys;
};

TEST_F(KeyPair, StartsEmpty) {
    EXPECT_EQ(keys.Get(RegistryKeyPair::kMachine), nullptr);
    EXPECT_EQ(keys.Get(RegistryKeyPair::kUser), nullptr);
}

TEST_F(KeyPair, MissingKeysLeaveTheirSlotsEmpty) {
    keys.Open(L"Software\\Acme\\Tool", /*create=*/false);
    EXPECT_EQ(keys.Get(RegistryKeyPair::kMachine), nullptr);
    EXPECT_EQ(keys.Get(RegistryKeyPair::kUser), nullptr);
    EXPECT_TRUE(std::filesystem::is_empty(folder.Path()));
}

TEST_F(KeyPair, OpensWhatThereIs) {
    Make("machine");
    keys.Open(L"Software\\Acme\\Tool", false);
    EXPECT_EQ(SizeIn(RegistryKeyPair::kMachine), 3u);
    EXPECT_EQ(keys.Get(RegistryKeyPair::kUser), nullptr);
    Make("user");
    keys.Open(L"Software\\Acme\\Tool", false);
    EXPECT_EQ(SizeIn(RegistryKeyPair::kUser), 3u);
}

TEST_F(KeyPair, OpeningAnotherKeyClosesTheFirst) {
    Make("machine");
    keys.Open(L"Software\\Acme\\Tool", false);
    keys.Open(L"Software\\Acme\\Other", false);
    EXPECT_EQ(keys.Get(RegistryKeyPair::kMachine), nullptr);
}

TEST_F(KeyPair, CreatesTheUsersKeyOnly) {
    keys.Open(L"Software\\Acme\\Tool", /*create=*/true);
    EXPECT_EQ(keys.Get(RegistryKeyPair::kMachine), nullptr);
    EXPECT_NE(keys.Get(RegistryKeyPair::kUser), nullptr);
    EXPECT_FALSE(std::filesystem::exists(folder.Path() / "machine"));
}

}  // namespace
}  // namespace kvmpd::test
