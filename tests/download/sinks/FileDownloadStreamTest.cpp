#include "download/FileDownloadStream.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>
#include <utility>

#include "common/Text.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TempDir.h"

namespace kvmpd {

class FileDownloadStreamTest : public testing::Test {
  protected:
    static BOOL Write(FileDownloadStream& sink, const std::string& data) {
        return sink.WriteInputStream(reinterpret_cast<const BYTE*>(data.data()), static_cast<DWORD>(data.size()));
    }
    static void PutFile(FileDownloadStream& sink, SharedFile file) { sink.m_file = std::move(file); }
    static const SharedFile& File(const FileDownloadStream& sink) { return sink.m_file; }
    static void SetResumeOffset(FileDownloadStream& sink, std::int64_t offset) { sink.m_resumeOffset = offset; }

    std::string Content() const {
        std::ifstream file(m_file, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    void Occupy(const std::string& content) const { std::ofstream(m_file, std::ios::binary) << content; }

    test::TempDir m_dir;
    std::filesystem::path m_file = m_dir.Path() / "7.mp4";
    test::LogCapture m_log{3};
    FileDownloadStream m_sink{m_file.wstring()};
};

TEST_F(FileDownloadStreamTest, BlocksGoToANewFile) {
    EXPECT_FALSE(std::filesystem::exists(m_file));
    EXPECT_EQ(Write(m_sink, "abc"), 1);
    EXPECT_EQ(Write(m_sink, "de"), 1);
    EXPECT_EQ(m_sink.OnWriteComplete(), 1);
    EXPECT_EQ(Content(), "abcde");
    EXPECT_EQ(m_sink.Written(), 5u);
    EXPECT_EQ(m_log.Lines(), std::vector<std::string>{
                                 " FileDownloadStream::WriteInputStream Target file does not ready. Try to open it."});
}

TEST_F(FileDownloadStreamTest, AnExistingFileIsNeverOverwritten) {
    Occupy("mine");
    EXPECT_EQ(Write(m_sink, "abc"), 0);
    EXPECT_EQ(Content(), "mine");
    EXPECT_EQ(m_sink.Written(), 0u);
    const std::vector<std::string> expected{
        " FileDownloadStream::WriteInputStream Target file does not ready. Try to open it.",
        "[Error] OpenFileAndSeek Create file fail, error code: 80",
        "[Error] FileDownloadStream::OpenResumeFile Error when open file: " + WideToUtf8(m_file.wstring()),
        "[Error] FileDownloadStream::WriteInputStream The file did not ready for write!!"};
    EXPECT_EQ(m_log.Lines(), expected);
}

TEST_F(FileDownloadStreamTest, AnEmptyBodyCreatesNoFile) {
    EXPECT_EQ(m_sink.OnWriteComplete(), 0);
    EXPECT_FALSE(std::filesystem::exists(m_file));
    EXPECT_TRUE(m_log.Contains("[Error] FileDownloadStream::OnWriteComplete The file did not ready!!"));
}

TEST_F(FileDownloadStreamTest, AHolderOfANullHandleCannotBeWritten) {
    PutFile(m_sink, ShareFile(nullptr));
    EXPECT_EQ(Write(m_sink, "abc"), 0);
    EXPECT_EQ(m_log.Lines(),
              std::vector<std::string>{
                  "[Error] FileDownloadStream::WriteInputStream Target file does not correct for write."});
    EXPECT_EQ(m_sink.OnWriteComplete(), 1);
}

TEST_F(FileDownloadStreamTest, AFailedWriteIsReportedAndCountedAllTheSame) {
    Occupy("mine");
    PutFile(m_sink, OpenFileAndSeek(m_file.wstring(), 0, GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING, 0));
    EXPECT_EQ(Write(m_sink, "abc"), 0);
    EXPECT_EQ(m_sink.Written(), 3u);
    EXPECT_EQ(m_log.Lines(),
              std::vector<std::string>{
                  "[Error] FileDownloadStream::WriteInputStream Write buffer to file failed. Write 0 bytes."});
}

TEST_F(FileDownloadStreamTest, AnAttemptAfterACompleteOneFindsTheFileTaken) {
    Write(m_sink, "abc");
    m_sink.OnWriteComplete();
    EXPECT_EQ(Write(m_sink, "def"), 0);
    EXPECT_TRUE(m_log.Contains("[Error] OpenFileAndSeek Create file fail, error code: 80"));
    EXPECT_EQ(Content(), "abc");
}

TEST_F(FileDownloadStreamTest, AnAttemptAfterOneThatStoppedInTheBodyAppends) {
    Write(m_sink, "abc");
    SharedFile file = File(m_sink);
    const SharedFile refusing =
        OpenFileAndSeek((m_dir.Path() / "other").wstring(), 0, GENERIC_READ, FILE_SHARE_READ, OPEN_ALWAYS, 0);
    PutFile(m_sink, refusing);
    EXPECT_EQ(Write(m_sink, "XY"), 0);  // here the first attempt ends, without OnWriteComplete
    EXPECT_EQ(File(m_sink), refusing) << "the failed write lets go of nothing";
    PutFile(m_sink, std::move(file));  // the sink is the last to hold it: it cannot be read while it is held
    m_log.Clear();
    EXPECT_EQ(Write(m_sink, "def"), 1);
    EXPECT_EQ(m_log.Lines(), std::vector<std::string>{}) << "nothing is opened again";
    EXPECT_EQ(m_sink.Written(), 8u);
    EXPECT_EQ(m_sink.OnWriteComplete(), 1);
    EXPECT_EQ(Content(), "abcdef");
}

TEST_F(FileDownloadStreamTest, AnotherHolderKeepsTheFileOpen) {
    SharedFile file =
        OpenFileAndSeek(m_file.wstring(), 0, GENERIC_WRITE, FILE_SHARE_WRITE, CREATE_NEW, FILE_ATTRIBUTE_HIDDEN);
    ASSERT_NE(file, nullptr);
    PutFile(m_sink, file);
    EXPECT_EQ(m_sink.OnWriteComplete(), 1);
    DWORD written = 0;
    EXPECT_TRUE(WriteFile(file.get(), "x", 1, &written, nullptr));
}

TEST_F(FileDownloadStreamTest, WritingMayStartAtAnOffset) {
    SetResumeOffset(m_sink, 4);
    EXPECT_EQ(Write(m_sink, "abc"), 1);
    EXPECT_EQ(m_sink.OnWriteComplete(), 1);
    EXPECT_EQ(Content(), std::string(4, '\0') + "abc");
}

TEST_F(FileDownloadStreamTest, AFolderThatIsMissingFailsTheBlock) {
    FileDownloadStream sink((m_dir.Path() / "none" / "7.mp4").wstring());
    EXPECT_EQ(Write(sink, "abc"), 0);
    EXPECT_TRUE(m_log.Contains("[Error] OpenFileAndSeek Create file fail, error code: 3"));
}

}  // namespace kvmpd
