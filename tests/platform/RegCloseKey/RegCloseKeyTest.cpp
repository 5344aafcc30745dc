#include "tests/platform/support.h"

using namespace platform_test;

TEST(RegCloseKey, RefusesAKeyClosedBefore) {
    HKEY key = nullptr;
    ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"Software", 0, KEY_READ, &key), kSuccess);
    EXPECT_EQ(RegCloseKey(key), kSuccess);
    EXPECT_EQ(RegCloseKey(key), ERROR_INVALID_HANDLE);
}

TEST(RegCloseKey, OfAPredefinedKeySucceeds) {
    EXPECT_EQ(RegCloseKey(HKEY_LOCAL_MACHINE), kSuccess);
}
