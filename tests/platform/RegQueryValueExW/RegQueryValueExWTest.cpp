#include "tests/platform/support.h"

using namespace platform_test;

namespace {

class RegQueryValueExWTest : public testing::Test {
  protected:
    RegQueryValueExWTest() { EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"Software", 0, KEY_READ, &m_key), kSuccess); }
    ~RegQueryValueExWTest() override { EXPECT_EQ(RegCloseKey(m_key), kSuccess); }

    HKEY m_key = nullptr;
};

}  // namespace

TEST_F(RegQueryValueExWTest, OfAMissingValueIsFileNotFound) {
    BYTE data[4] = {1, 2, 3, 4};
    DWORD size = sizeof(data);
    EXPECT_EQ(RegQueryValueExW(m_key, L"kavotra platform test", nullptr, nullptr, data, &size), ERROR_FILE_NOT_FOUND);
}

TEST_F(RegQueryValueExWTest, RefusesABufferWithoutItsSize) {
    BYTE data[4] = {};
    EXPECT_EQ(RegQueryValueExW(m_key, L"kavotra platform test", nullptr, nullptr, data, nullptr),
              ERROR_INVALID_PARAMETER);
}

TEST_F(RegQueryValueExWTest, OfNoKeyIsInvalidHandle) {
    EXPECT_EQ(RegQueryValueExW(nullptr, L"log", nullptr, nullptr, nullptr, nullptr), ERROR_INVALID_HANDLE);
}
