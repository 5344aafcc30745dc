#include <limits>

#include "tests/platform/support.h"
#include "tests/support/TempDir.h"

using namespace platform_test;

namespace {

class SetFilePointerTest : public testing::Test {
  protected:
    // What is read at the file pointer; an empty text at the end.
    std::string Next() const {
        char c = 0;
        DWORD read = 0;
        EXPECT_TRUE(ReadFile(m_file, &c, 1, &read, nullptr));
        return {&c, read};
    }

    kvmpd::test::TempDir m_folder;
    const std::filesystem::path m_path = m_folder.Path() / "file";
    const OwnedHandle m_file{(WriteWholeFile(m_path, "0123456789"), Open(m_path, GENERIC_READ, OPEN_EXISTING))};
};

}  // namespace

TEST_F(SetFilePointerTest, CountsFromTheBeginningThePositionAndTheEnd) {
    EXPECT_EQ(SetFilePointer(m_file, 4, nullptr, FILE_BEGIN), 4u);
    EXPECT_EQ(Next(), "4");
    EXPECT_EQ(SetFilePointer(m_file, -2, nullptr, FILE_CURRENT), 3u);
    EXPECT_EQ(Next(), "3");
    EXPECT_EQ(SetFilePointer(m_file, -1, nullptr, FILE_END), 9u);
    EXPECT_EQ(Next(), "9");
    EXPECT_EQ(Next(), "");
}

TEST_F(SetFilePointerTest, TakesAndReturnsTheHighHalf) {
    LONG high = 5;
    EXPECT_EQ(SetFilePointer(m_file, 7, &high, FILE_BEGIN), 7u);
    EXPECT_EQ(high, 5);
    high = 0;
    EXPECT_EQ(SetFilePointer(m_file, 0, &high, FILE_CURRENT), 7u);
    EXPECT_EQ(high, 5);
    EXPECT_EQ(Next(), "");
}

TEST_F(SetFilePointerTest, WithAHighHalfTheLowOneIsUnsigned) {
    LONG high = 0;
    EXPECT_EQ(SetFilePointer(m_file, static_cast<LONG>(0x90000000u), &high, FILE_BEGIN), 0x90000000u);
    EXPECT_EQ(high, 0);
}

TEST_F(SetFilePointerTest, BeforeTheBeginningIsRefusedAndMovesNothing) {
    EXPECT_EQ(SetFilePointer(m_file, 4, nullptr, FILE_BEGIN), 4u);
    EXPECT_EQ(SetFilePointer(m_file, -1, nullptr, FILE_BEGIN), INVALID_SET_FILE_POINTER);
    EXPECT_TRUE(LastErrorIs(ERROR_NEGATIVE_SEEK));
    EXPECT_EQ(SetFilePointer(m_file, -5, nullptr, FILE_CURRENT), INVALID_SET_FILE_POINTER);
    EXPECT_TRUE(LastErrorIs(ERROR_NEGATIVE_SEEK));
    LONG high = -1;
    EXPECT_EQ(SetFilePointer(m_file, 0, &high, FILE_BEGIN), INVALID_SET_FILE_POINTER);
    EXPECT_TRUE(LastErrorIs(ERROR_NEGATIVE_SEEK));
    EXPECT_EQ(Next(), "4");
}

TEST_F(SetFilePointerTest, WithoutAHighHalfThePositionMustFitThirtyTwoBits) {
    if (kvmpd::test::UnderWine()) {
        GTEST_SKIP() << "Wine moves beyond 32 bits without a high half and answers the low one";
    }
    LONG high = 0;
    EXPECT_EQ(SetFilePointer(m_file, static_cast<LONG>(0xF0000000u), &high, FILE_BEGIN), 0xF0000000u);
    EXPECT_EQ(SetFilePointer(m_file, 0x7FFFFFFF, nullptr, FILE_CURRENT), INVALID_SET_FILE_POINTER);
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_PARAMETER));
}

TEST_F(SetFilePointerTest, ALegitimatePositionOfAllOnesClearsTheLastError) {
    LONG high = 0;
    SetLastError(ERROR_ACCESS_DENIED);
    EXPECT_EQ(SetFilePointer(m_file, -1, &high, FILE_BEGIN), INVALID_SET_FILE_POINTER);
    EXPECT_TRUE(LastErrorIs(NO_ERROR));
    EXPECT_EQ(high, 0);
}

TEST_F(SetFilePointerTest, RefusesAnUnknownMethod) {
    EXPECT_EQ(SetFilePointer(m_file, 0, nullptr, 3), INVALID_SET_FILE_POINTER);
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_PARAMETER));
}

TEST_F(SetFilePointerTest, RefusesNull) {
    EXPECT_EQ(SetFilePointer(nullptr, 0, nullptr, FILE_BEGIN), INVALID_SET_FILE_POINTER);
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_HANDLE));
}
