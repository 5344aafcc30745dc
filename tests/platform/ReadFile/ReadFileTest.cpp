#include <cstring>
#include <string>

#include "tests/platform/support.h"
#include "tests/support/TempDir.h"

using namespace platform_test;

namespace {

class ReadFileTest : public testing::Test {
  protected:
    ReadFileTest() : m_path(m_folder.Path() / "file") { WriteWholeFile(m_path, "0123456789"); }

    kvmpd::test::TempDir m_folder;
    const std::filesystem::path m_path;
    char m_buffer[32] = {};
    DWORD m_read = 77;
};

}  // namespace

TEST_F(ReadFileTest, GoesOnWhereTheLastReadEnded) {
    const OwnedHandle file(Open(m_path, GENERIC_READ, OPEN_EXISTING));
    EXPECT_TRUE(ReadFile(file, m_buffer, 4, &m_read, nullptr));
    EXPECT_EQ(m_read, 4u);
    EXPECT_TRUE(ReadFile(file, m_buffer, 4, &m_read, nullptr));
    EXPECT_EQ(std::string(m_buffer, m_read), "4567");
}

TEST_F(ReadFileTest, AtTheEndSucceedsWithFewerBytesAndThenNone) {
    const OwnedHandle file(Open(m_path, GENERIC_READ, OPEN_EXISTING));
    EXPECT_TRUE(ReadFile(file, m_buffer, sizeof(m_buffer), &m_read, nullptr));
    EXPECT_EQ(m_read, 10u);
    EXPECT_TRUE(ReadFile(file, m_buffer, sizeof(m_buffer), &m_read, nullptr));
    EXPECT_EQ(m_read, 0u);
}

TEST_F(ReadFileTest, BehindTheEndReadsNothing) {
    const OwnedHandle file(Open(m_path, GENERIC_READ, OPEN_EXISTING));
    LONG high = 0x10;
    EXPECT_EQ(SetFilePointer(file, 0, &high, FILE_BEGIN), 0u);
    EXPECT_TRUE(ReadFile(file, m_buffer, 4, &m_read, nullptr));
    EXPECT_EQ(m_read, 0u);
}

TEST_F(ReadFileTest, OfNoBytesSucceeds) {
    const OwnedHandle file(Open(m_path, GENERIC_READ, OPEN_EXISTING));
    EXPECT_TRUE(ReadFile(file, m_buffer, 0, &m_read, nullptr));
    EXPECT_EQ(m_read, 0u);
}

TEST_F(ReadFileTest, NeedsReadAccess) {
    const OwnedHandle file(Open(m_path, GENERIC_WRITE, OPEN_EXISTING));
    EXPECT_FALSE(ReadFile(file, m_buffer, 4, &m_read, nullptr));
    EXPECT_TRUE(LastErrorIs(ERROR_ACCESS_DENIED));
    EXPECT_EQ(m_read, 0u);
}

TEST_F(ReadFileTest, RefusesAClosedHandle) {
    OwnedHandle file(Open(m_path, GENERIC_READ, OPEN_EXISTING));
    const HANDLE closed = file;
    file.Close();
    EXPECT_FALSE(ReadFile(closed, m_buffer, 4, &m_read, nullptr));
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_HANDLE));
    EXPECT_EQ(m_read, 0u);
}

TEST_F(ReadFileTest, TwoHandlesHaveTwoPositions) {
    const OwnedHandle a(Open(m_path, GENERIC_READ, OPEN_EXISTING));
    const OwnedHandle b(Open(m_path, GENERIC_READ, OPEN_EXISTING));
    EXPECT_TRUE(ReadFile(a, m_buffer, 5, &m_read, nullptr));
    EXPECT_TRUE(ReadFile(b, m_buffer, 3, &m_read, nullptr));
    EXPECT_EQ(std::string(m_buffer, m_read), "012");
}
