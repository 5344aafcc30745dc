#include "tests/platform/support.h"
#include "tests/support/TempDir.h"

using namespace platform_test;

namespace {

class DeleteFileWTest : public testing::Test {
  protected:
    kvmpd::test::TempDir m_folder;
};

}  // namespace

TEST_F(DeleteFileWTest, RemovesTheFile) {
    const std::filesystem::path path = m_folder.Path() / "file";
    WriteWholeFile(path, "x");
    EXPECT_TRUE(DeleteFileW(path.wstring().c_str()));
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(DeleteFileWTest, TellsAMissingFileFromAMissingFolder) {
    EXPECT_FALSE(DeleteFileW((m_folder.Path() / "none").wstring().c_str()));
    EXPECT_TRUE(LastErrorIs(ERROR_FILE_NOT_FOUND));
    EXPECT_FALSE(DeleteFileW((m_folder.Path() / "none" / "below").wstring().c_str()));
    EXPECT_TRUE(LastErrorIs(ERROR_PATH_NOT_FOUND));
}

TEST_F(DeleteFileWTest, RefusesAFolder) {
    const std::filesystem::path path = m_folder.Path() / "folder";
    std::filesystem::create_directory(path);
    EXPECT_FALSE(DeleteFileW(path.wstring().c_str()));
    EXPECT_TRUE(LastErrorIs(ERROR_ACCESS_DENIED));
    EXPECT_TRUE(std::filesystem::exists(path));
}

TEST_F(DeleteFileWTest, RefusesAnEmptyName) {
    EXPECT_FALSE(DeleteFileW(L""));
    EXPECT_TRUE(LastErrorIs(ERROR_PATH_NOT_FOUND));
}

TEST_F(DeleteFileWTest, TakesBackslashes) {
    WriteWholeFile(m_folder.Path() / "7.m4a", "x");
    EXPECT_TRUE(DeleteFileW((m_folder.Path().wstring() + LR"(\7.m4a)").c_str()));
    EXPECT_FALSE(std::filesystem::exists(m_folder.Path() / "7.m4a"));
}
