#include <string>

#include "tests/platform/support.h"
#include "tests/support/TempDir.h"

using namespace platform_test;

namespace {

class WriteFileTest : public testing::Test {
  protected:
    kvmpd::test::TempDir m_folder;
    const std::filesystem::path m_path = m_folder.Path() / "file";
    DWORD m_written = 77;
};

}  // namespace

TEST_F(WriteFileTest, AppendsBlockAfterBlock) {
    {
        const OwnedHandle file(Open(m_path, GENERIC_WRITE, CREATE_NEW));
        EXPECT_TRUE(WriteFile(file, "abc", 3, &m_written, nullptr));
        EXPECT_EQ(m_written, 3u);
        EXPECT_TRUE(WriteFile(file, "de", 2, &m_written, nullptr));
        EXPECT_EQ(m_written, 2u);
    }
    EXPECT_EQ(ReadWholeFile(m_path), "abcde");
}

TEST_F(WriteFileTest, OverwritesAtTheFilePointer) {
    WriteWholeFile(m_path, "0123456789");
    {
        const OwnedHandle file(Open(m_path, GENERIC_WRITE, OPEN_EXISTING));
        EXPECT_EQ(SetFilePointer(file, 4, nullptr, FILE_BEGIN), 4u);
        EXPECT_TRUE(WriteFile(file, "xy", 2, &m_written, nullptr));
    }
    EXPECT_EQ(ReadWholeFile(m_path), "0123xy6789");
}

TEST_F(WriteFileTest, BehindTheEndFillsWithZeros) {
    {
        const OwnedHandle file(Open(m_path, GENERIC_WRITE, CREATE_NEW));
        EXPECT_EQ(SetFilePointer(file, 3, nullptr, FILE_BEGIN), 3u);
        EXPECT_TRUE(WriteFile(file, "x", 1, &m_written, nullptr));
    }
    EXPECT_EQ(ReadWholeFile(m_path), std::string("\0\0\0x", 4));
}

TEST_F(WriteFileTest, IsVisibleToAReaderAtOnce) {
    const OwnedHandle writer(Open(m_path, GENERIC_WRITE, CREATE_NEW));
    const OwnedHandle reader(Open(m_path, GENERIC_READ, OPEN_EXISTING));
    EXPECT_TRUE(WriteFile(writer, "abc", 3, &m_written, nullptr));
    char buffer[8] = {};
    DWORD read = 0;
    EXPECT_TRUE(ReadFile(reader, buffer, sizeof(buffer), &read, nullptr));
    EXPECT_EQ(std::string(buffer, read), "abc");
}

TEST_F(WriteFileTest, NeedsWriteAccess) {
    WriteWholeFile(m_path, "kept");
    const OwnedHandle file(Open(m_path, GENERIC_READ, OPEN_EXISTING));
    EXPECT_FALSE(WriteFile(file, "x", 1, &m_written, nullptr));
    EXPECT_TRUE(LastErrorIs(ERROR_ACCESS_DENIED));
    EXPECT_EQ(m_written, 0u);
    EXPECT_EQ(ReadWholeFile(m_path), "kept");
}

TEST_F(WriteFileTest, RefusesNull) {
    EXPECT_FALSE(WriteFile(nullptr, "x", 1, &m_written, nullptr));
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_HANDLE));
    EXPECT_EQ(m_written, 0u);
}
