#include "download/FileSeek.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "tests/support/LogCapture.h"
#include "tests/support/TempDir.h"

namespace kvmpd {
namespace {

class FileSeek : public testing::Test {
  protected:
    FileSeek() { std::ofstream(m_path, std::ios::binary) << "0123456789"; }

    SharedFile Open(std::int64_t offset) const {
        return OpenFileAndSeek(m_path.wstring(), offset, GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING, 0);
    }
    static char ReadByte(HANDLE file) {
        char byte = '\0';
        DWORD count = 0;
        EXPECT_TRUE(ReadFile(file, &byte, 1, &count, nullptr));
        return byte;
    }

    test::TempDir m_dir;
    std::filesystem::path m_path = m_dir.Path() / "file";
    test::LogCapture m_log{3};
};

TEST_F(FileSeek, OpeningAtTheBeginningSeeksNothingAndSaysNothing) {
    const SharedFile file = Open(0);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(ReadByte(file.get()), '0');
    EXPECT_TRUE(m_log.Lines().empty());
}

TEST_F(FileSeek, OpeningAMissingFileIsEmptyAndSaysWhy) {
    EXPECT_EQ(OpenFileAndSeek((m_dir.Path() / "none").wstring(), 0, GENERIC_READ, 0, OPEN_EXISTING, 0), nullptr);
    EXPECT_EQ(m_log.Lines(), std::vector<std::string>{"[Error] OpenFileAndSeek Create file fail, error code: 2"});
}

TEST_F(FileSeek, OpeningAtAnOffsetReadsFromThere) {
    const SharedFile file = Open(3);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(ReadByte(file.get()), '3');
    EXPECT_EQ(m_log.Lines(),
              (std::vector<std::string>{
                  " OpenFileAndSeek Seek to: 3",
                  " OpenFileAndSeek Move file to offset: 3 + 0 offset high: 0x00000000 low: 0x00000003"}));
}

TEST_F(FileSeek, AnOffsetBeyond32BitsIsPassedInTwoParts) {
    ASSERT_NE(Open(0x123456789), nullptr);
    EXPECT_TRUE(m_log.Contains(
        " OpenFileAndSeek Move file to offset: 591751049 + 4294967296 offset high: 0x00000001 low: 0x23456789"));
}

TEST_F(FileSeek, AnOffsetWithAllLowBitsSetIsRejected) {
    EXPECT_EQ(Open(0x1FFFFFFFF), nullptr);
    EXPECT_EQ(m_log.CountPrefix(" OpenFileAndSeek File seek does not correct (expect: 8589934591(0x       1FFFFFFFF) "
                                "seek: 8589934591(0x       1ffffffff)), last error: "),
              1u);
}

TEST_F(FileSeek, ANegativeOffsetIsRejected) {
    EXPECT_EQ(Open(-5), nullptr);
    EXPECT_EQ(m_log.CountPrefix(" OpenFileAndSeek File seek does not correct (expect: 18446744073709551611("), 1u);
    EXPECT_NE(m_log.Lines().back().find("last error: 131"), std::string::npos) << m_log.Lines().back();
}

TEST_F(FileSeek, SeekingMovesAndSaysWhere) {
    const SharedFile file = Open(0);
    EXPECT_EQ(SeekFilePosition(file.get(), 7), 1);
    EXPECT_EQ(ReadByte(file.get()), '7');
    EXPECT_EQ(
        m_log.Lines(),
        std::vector<std::string>{
            " SeekFilePosition Seek file to position: 0x0000000000000007 (7) low: 0x00000007 (7) high: 0x00000000 "
            "(0) Result low: 0x00000007 (7) high: 0x00000000 (0)"});
}

TEST_F(FileSeek, SeekingBeyond32BitsPassesTwoParts) {
    const SharedFile file = Open(0);
    EXPECT_EQ(SeekFilePosition(file.get(), 0x2FFFFFFF0), 1);
    EXPECT_TRUE(m_log.Contains(
        " SeekFilePosition Seek file to position: 0x00000002fffffff0 (12884901872) low: 0xfffffff0 (-16) high: "
        "0x00000002 (2) Result low: 0xfffffff0 (4294967280) high: 0x00000002 (2)"));
}

TEST_F(FileSeek, SeekingBeforeTheBeginningFails) {
    const SharedFile file = Open(0);
    EXPECT_EQ(SeekFilePosition(file.get(), -1), 0);
    EXPECT_EQ(m_log.Lines(), std::vector<std::string>{
                                 "[Error] SeekFilePosition Fail to set file pointer to: 0xffffffffffffffff (-1)"});
}

TEST_F(FileSeek, SeekingWhereAllLowBitsAreSetCountsAsAFailure) {
    const SharedFile file = Open(0);
    EXPECT_EQ(SeekFilePosition(file.get(), 0xFFFFFFFF), 0);
}

TEST_F(FileSeek, TheLastHolderClosesTheFile) {
    SharedFile file = Open(0);
    const HANDLE handle = file.get();
    SharedFile other = file;
    file.reset();
    EXPECT_EQ(SeekFilePosition(handle, 1), 1);
    other.reset();
    EXPECT_EQ(SeekFilePosition(handle, 1), 0);
}

TEST_F(FileSeek, HoldersOfNoFileCloseNothing) {
    ShareFile(nullptr).reset();
    ShareFile(INVALID_HANDLE_VALUE).reset();
}

}  // namespace
}  // namespace kvmpd
