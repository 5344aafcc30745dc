#include "tests/platform/support.h"
#include "tests/support/TempDir.h"

using namespace platform_test;

namespace {

class CreateFileWTest : public testing::Test {
  protected:
    std::filesystem::path Path(const char* name) const { return m_folder.Path() / name; }

    kvmpd::test::TempDir m_folder;
};

}  // namespace

TEST_F(CreateFileWTest, CreateNewMakesAnEmptyFile) {
    const OwnedHandle file(Open(Path("new"), GENERIC_WRITE, CREATE_NEW));
    ASSERT_NE(static_cast<HANDLE>(file), INVALID_HANDLE_VALUE);
    EXPECT_EQ(std::filesystem::file_size(Path("new")), 0u);
}

TEST_F(CreateFileWTest, CreateNewRefusesAnExistingFileAndLeavesIt) {
    WriteWholeFile(Path("old"), "kept");
    EXPECT_EQ(Open(Path("old"), GENERIC_WRITE, CREATE_NEW), INVALID_HANDLE_VALUE);
    EXPECT_TRUE(LastErrorIs(ERROR_FILE_EXISTS));
    EXPECT_EQ(ReadWholeFile(Path("old")), "kept");
}

TEST_F(CreateFileWTest, OpenExistingTellsAMissingFileFromAMissingFolder) {
    EXPECT_EQ(Open(Path("none"), GENERIC_READ, OPEN_EXISTING), INVALID_HANDLE_VALUE);
    EXPECT_TRUE(LastErrorIs(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(Open(Path("none") / "below", GENERIC_READ, OPEN_EXISTING), INVALID_HANDLE_VALUE);
    EXPECT_TRUE(LastErrorIs(ERROR_PATH_NOT_FOUND));
}

TEST_F(CreateFileWTest, CreateNewInAMissingFolderIsPathNotFound) {
    EXPECT_EQ(Open(Path("none") / "file", GENERIC_WRITE, CREATE_NEW), INVALID_HANDLE_VALUE);
    EXPECT_TRUE(LastErrorIs(ERROR_PATH_NOT_FOUND));
}

TEST_F(CreateFileWTest, AFileInPlaceOfAFolderIsPathNotFound) {
    WriteWholeFile(Path("file"), "");
    EXPECT_EQ(Open(Path("file") / "below", GENERIC_READ, OPEN_EXISTING), INVALID_HANDLE_VALUE);
    EXPECT_TRUE(LastErrorIs(ERROR_PATH_NOT_FOUND));
}

TEST_F(CreateFileWTest, CreateAlwaysEmptiesAnExistingFileAndSaysSo) {
    WriteWholeFile(Path("old"), "text");
    {
        const OwnedHandle file(Open(Path("old"), GENERIC_WRITE, CREATE_ALWAYS));
        EXPECT_TRUE(LastErrorIs(ERROR_ALREADY_EXISTS));
    }
    EXPECT_EQ(ReadWholeFile(Path("old")), "");
    const OwnedHandle file(Open(Path("new"), GENERIC_WRITE, CREATE_ALWAYS));
    EXPECT_TRUE(LastErrorIs(NO_ERROR));
}

TEST_F(CreateFileWTest, OpenAlwaysKeepsAnExistingFileAndSaysSo) {
    WriteWholeFile(Path("old"), "text");
    {
        const OwnedHandle file(Open(Path("old"), GENERIC_WRITE, OPEN_ALWAYS));
        EXPECT_TRUE(LastErrorIs(ERROR_ALREADY_EXISTS));
    }
    EXPECT_EQ(ReadWholeFile(Path("old")), "text");
    const OwnedHandle file(Open(Path("new"), GENERIC_WRITE, OPEN_ALWAYS));
    EXPECT_TRUE(LastErrorIs(NO_ERROR));
}

TEST_F(CreateFileWTest, TruncateExistingNeedsWriteAccess) {
    if (kvmpd::test::UnderWine()) {
        GTEST_SKIP() << "Wine truncates for a reader, too";
    }
    WriteWholeFile(Path("old"), "text");
    EXPECT_EQ(Open(Path("old"), GENERIC_READ, TRUNCATE_EXISTING), INVALID_HANDLE_VALUE);
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_PARAMETER));
}

TEST_F(CreateFileWTest, TruncateExistingNeedsTheFile) {
    WriteWholeFile(Path("old"), "text");
    EXPECT_EQ(Open(Path("none"), GENERIC_WRITE, TRUNCATE_EXISTING), INVALID_HANDLE_VALUE);
    EXPECT_TRUE(LastErrorIs(ERROR_FILE_NOT_FOUND));
    {
        const OwnedHandle file(Open(Path("old"), GENERIC_WRITE, TRUNCATE_EXISTING));
        EXPECT_NE(static_cast<HANDLE>(file), INVALID_HANDLE_VALUE);
    }
    EXPECT_EQ(ReadWholeFile(Path("old")), "");
}

TEST_F(CreateFileWTest, RefusesAnUnknownDisposition) {
    EXPECT_EQ(Open(Path("file"), GENERIC_WRITE, 0), INVALID_HANDLE_VALUE);
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(Open(Path("file"), GENERIC_WRITE, 6), INVALID_HANDLE_VALUE);
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_PARAMETER));
    EXPECT_FALSE(std::filesystem::exists(Path("file")));
}

TEST_F(CreateFileWTest, RefusesAFolder) {
    EXPECT_EQ(Open(m_folder.Path(), GENERIC_READ, OPEN_EXISTING), INVALID_HANDLE_VALUE);
    EXPECT_TRUE(LastErrorIs(ERROR_ACCESS_DENIED));
}

TEST_F(CreateFileWTest, RefusesAnEmptyName) {
    EXPECT_EQ(CreateFileW(L"", GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr), INVALID_HANDLE_VALUE);
    EXPECT_TRUE(LastErrorIs(ERROR_PATH_NOT_FOUND));
}

TEST_F(CreateFileWTest, TakesTheLongPathPrefixAndBackslashes) {
    const std::filesystem::path folder = m_folder.Path();
    const std::wstring name = LR"(\\?\)" + folder.wstring() + LR"(\1234.mp4)";
    {
        const OwnedHandle file(CreateFileW(name.c_str(), GENERIC_WRITE, FILE_SHARE_WRITE, nullptr, CREATE_NEW,
                                           FILE_ATTRIBUTE_HIDDEN, nullptr));
        EXPECT_NE(static_cast<HANDLE>(file), INVALID_HANDLE_VALUE);
    }
    EXPECT_TRUE(std::filesystem::exists(folder / "1234.mp4"));
}

TEST_F(CreateFileWTest, NamesKeepEveryUnicodeCharacter) {
    const std::filesystem::path path = m_folder.Path() / std::filesystem::path(u8"h\u00F6rbar \u65E5\u672C \U0001F600");
    {
        const OwnedHandle file(
            CreateFileW((m_folder.Path().wstring() + L"/h\u00F6rbar \u65E5\u672C \U0001F600").c_str(), GENERIC_WRITE, 0,
                        nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
        EXPECT_NE(static_cast<HANDLE>(file), INVALID_HANDLE_VALUE);
    }
    EXPECT_TRUE(std::filesystem::exists(path));
}
