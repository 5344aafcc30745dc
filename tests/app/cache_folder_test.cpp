#include "app/CacheFolder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>

#include "tests/support/TempDir.h"

namespace kvmpd::app {
namespace {

namespace fs = std::filesystem;

class Cache : public testing::Test {
  protected:
    void SetUp() override {
        std::string error;
        m_folder = CacheFolder::Create(m_dir.Path().string(), error);
        ASSERT_TRUE(m_folder) << error;
    }

    void Put(const std::string& name, std::size_t bytes) {
        std::ofstream(fs::path(m_folder->Path()) / name) << std::string(bytes, 'x');
    }

    kvmpd::test::TempDir m_dir;
    std::unique_ptr<CacheFolder> m_folder;
};

TEST_F(Cache, IsPrivateAndInsideTheFolderGiven) {
    struct stat info {};
    ASSERT_EQ(::stat(m_folder->Path().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777u, 0700u);
    EXPECT_EQ(fs::path(m_folder->Path()).parent_path(), m_dir.Path());
    EXPECT_TRUE(fs::path(m_folder->Path()).is_absolute());
}

TEST_F(Cache, IsRemovedWithAllItHolds) {
    Put("1.mp4", 10);
    Put("1.m4a", 10);
    const std::string path = m_folder->Path();
    m_folder.reset();
    EXPECT_FALSE(fs::exists(path));
    EXPECT_TRUE(fs::exists(m_dir.Path()));
}

TEST_F(Cache, TellsASegmentsNumberByItsSize) {
    Put("100.mp4", 50);
    Put("101.mp4", 60);
    Put("102.mp4", 50);
    Put("103.m4a", 70);
    Put("x104.mp4", 70);
    EXPECT_EQ(m_folder->SegmentNumber(-1, 50), 100);
    EXPECT_EQ(m_folder->SegmentNumber(100, 60), 101);
    EXPECT_EQ(m_folder->SegmentNumber(100, 50), 102);
    EXPECT_EQ(m_folder->SegmentNumber(102, 50), std::nullopt);
    EXPECT_EQ(m_folder->SegmentNumber(-1, 70), std::nullopt);
}

TEST_F(Cache, TellsWhetherItCanBeWritten) {
    std::string error;
    EXPECT_TRUE(m_folder->CanBeWritten(error)) << error;
    EXPECT_TRUE(fs::is_empty(m_folder->Path()));
    fs::remove(m_folder->Path());
    EXPECT_FALSE(m_folder->CanBeWritten(error));
    EXPECT_EQ(error, "the cache folder \"" + m_folder->Path() + "\" takes no more files: No such file or directory");
}

TEST(CacheFolderErrors, SayWhatToDo) {
    std::string error;
    EXPECT_FALSE(CacheFolder::Create("/nonexistent/folder", error));
    EXPECT_EQ(error,
              "no cache folder can be made in \"/nonexistent/folder\": No such file or directory; give an existing "
              "folder that you may write to with --cache-dir");
}

}  // namespace
}  // namespace kvmpd::app
