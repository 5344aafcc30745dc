#include "tests/platform/support.h"

using namespace platform_test;

namespace {

constexpr wchar_t kMissing[] = LR"(Software\Kavotra\PlatformTestMissing)";

}  // namespace

TEST(RegOpenKeyExW, OfAMissingKeyIsFileNotFound) {
    HKEY key = nullptr;
    EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, kMissing, 0, KEY_READ, &key), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, kMissing, 0, KEY_READ, &key), ERROR_FILE_NOT_FOUND);
}

TEST(RegOpenKeyExW, OfSoftwareSucceeds) {
    HKEY key = nullptr;
    ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"Software", 0, KEY_READ, &key), kSuccess);
    HKEY below = nullptr;
    EXPECT_EQ(RegOpenKeyExW(key, LR"(Kavotra\PlatformTestMissing)", 0, KEY_READ, &below), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegCloseKey(key), kSuccess);
}

TEST(RegOpenKeyExW, BelowAClosedKeyIsInvalidHandle) {
    HKEY key = nullptr;
    ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"Software", 0, KEY_READ, &key), kSuccess);
    ASSERT_EQ(RegCloseKey(key), kSuccess);
    HKEY below = nullptr;
    EXPECT_EQ(RegOpenKeyExW(key, L"Kavotra", 0, KEY_READ, &below), ERROR_INVALID_HANDLE);
}
