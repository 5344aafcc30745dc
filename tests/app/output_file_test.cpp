#include "app/OutputFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <thread>

#include "tests/app/FakeSource.h"
#include "tests/support/TempDir.h"

namespace kvmpd::app {
namespace {

namespace fs = std::filesystem;
using test::Bytes;

class Output : public testing::Test {
  protected:
    std::string PathOf(const char* name) const { return (m_dir.Path() / name).string(); }

    void Put(const char* name, const std::string& text) { std::ofstream(PathOf(name)) << text; }

    std::string Get(const char* name) {
        std::ifstream file(PathOf(name));
        return {std::istreambuf_iterator<char>(file), {}};
    }

    std::unique_ptr<OutputFile> Open(const std::string& path, bool overwrite = false) {
        m_error.clear();
        return OutputFile::Open(path, overwrite, m_error);
    }

    kvmpd::test::TempDir m_dir;
    std::string m_error;
};

TEST_F(Output, WritesAndSeeks) {
    {
        const auto output = Open(PathOf("a"));
        ASSERT_TRUE(output) << m_error;
        EXPECT_TRUE(output->Seekable());
        EXPECT_TRUE(output->Write(test::ToBytes("hello")));
        EXPECT_TRUE(output->Seek(1));
        EXPECT_TRUE(output->Write(test::ToBytes("E")));
        EXPECT_EQ(output->Position(), 2);
        EXPECT_EQ(output->Size(), 5);
        output->Keep();
    }
    EXPECT_EQ(Get("a"), "hEllo");
}

TEST_F(Output, SetsRoomAsideWithoutGrowing) {
    const auto output = Open(PathOf("a"));
    ASSERT_TRUE(output->Write(test::ToBytes("hello")));
    EXPECT_TRUE(output->Reserve(1 << 20));
    EXPECT_EQ(fs::file_size(PathOf("a")), 5u);
    struct stat info {};
    ASSERT_EQ(::stat(PathOf("a").c_str(), &info), 0);
    if (info.st_blocks * 512 < 1 << 20) {
        GTEST_SKIP() << "the file system here sets no room aside";
    }
    output->EndReserve();
    ASSERT_EQ(::stat(PathOf("a").c_str(), &info), 0);
    EXPECT_LT(info.st_blocks * 512, 64 * 1024);
    EXPECT_EQ(Get("a"), "hello");
}

TEST_F(Output, SaysThatThereIsNoRoomAndCanStillBeWritten) {
    const auto output = Open(PathOf("a"));
    if (!output->Reserve(std::int64_t{1} << 20)) {
        GTEST_SKIP() << "this disk has not even a megabyte: " << output->Error();
    }
    ASSERT_FALSE(output->Reserve(std::int64_t{1} << 60)) << "an exabyte";
    EXPECT_NE(output->Error().find("writing \"" + PathOf("a") + "\" failed: "), std::string::npos) << output->Error();
    EXPECT_EQ(output->GetState(), OutputFile::State::kGood);
    EXPECT_TRUE(output->Write(test::ToBytes("the end")));
}

TEST_F(Output, EmptiesAnOverwrittenFileBeforeRoomIsSetAside) {
    Put("a", std::string(100, 'x'));
    const auto output = Open(PathOf("a"), /*overwrite=*/true);
    EXPECT_EQ(fs::file_size(PathOf("a")), 100u);
    EXPECT_TRUE(output->Reserve(1 << 16));
    EXPECT_TRUE(output->Write(test::ToBytes("new")));
    output->EndReserve();
    EXPECT_EQ(Get("a"), "new");
}

TEST_F(Output, IsRemovedWhenNothingIsWorthKeeping) {
    Open(PathOf("a"))->Write(test::ToBytes("header"));
    EXPECT_FALSE(fs::exists(PathOf("a")));
}

TEST_F(Output, DoesNotReplaceAFileUnasked) {
    Put("a", "precious");
    EXPECT_FALSE(Open(PathOf("a")));
    EXPECT_NE(m_error.find("it exists already"), std::string::npos) << m_error;
    EXPECT_NE(m_error.find("--overwrite"), std::string::npos) << m_error;
    EXPECT_EQ(Get("a"), "precious");
}

TEST_F(Output, ReplacesAFileWithTheFirstByteOnly) {
    Put("a", "precious and long");
    Open(PathOf("a"), /*overwrite=*/true).reset();
    EXPECT_EQ(Get("a"), "precious and long");
    const auto output = Open(PathOf("a"), /*overwrite=*/true);
    ASSERT_TRUE(output);
    EXPECT_TRUE(output->Write(test::ToBytes("new")));
    EXPECT_EQ(Get("a"), "new");
}

TEST_F(Output, SaysWhyItCannotBeWritten) {
    EXPECT_FALSE(Open(PathOf("missing/a")));
    EXPECT_NE(m_error.find("its folder does not exist"), std::string::npos) << m_error;
    EXPECT_FALSE(Open(m_dir.Path().string(), /*overwrite=*/true));
    EXPECT_NE(m_error.find("it is a folder"), std::string::npos) << m_error;
}

TEST_F(Output, MayBeADeviceThatExists) {
    const auto output = Open("/dev/null");
    ASSERT_TRUE(output) << m_error;
    EXPECT_FALSE(output->Seekable());
    EXPECT_TRUE(output->Write(test::ToBytes("x")));
}

TEST_F(Output, TellsThatItsFileWasRemoved) {
    fs::create_directory(PathOf("folder"));
    const auto output = Open(PathOf("folder/a"));
    EXPECT_TRUE(output->Write(test::ToBytes("hello")));
    EXPECT_FALSE(output->Removed());
    fs::rename(PathOf("folder/a"), PathOf("folder/b"));
    EXPECT_FALSE(output->Removed()) << "it has another name, and is there";
    fs::remove_all(PathOf("folder"));
    EXPECT_TRUE(output->Removed());
    EXPECT_TRUE(output->Write(test::ToBytes("nobody will read this")));
}

TEST_F(Output, ThatIsAPipeOrADeviceIsNeverRemoved) {
    ASSERT_EQ(::mkfifo(PathOf("pipe").c_str(), 0600), 0);
    const int reader = ::open(PathOf("pipe").c_str(), O_RDONLY | O_NONBLOCK);
    const auto output = Open(PathOf("pipe"));
    ASSERT_TRUE(output) << m_error;
    fs::remove(PathOf("pipe"));
    EXPECT_FALSE(output->Removed());
    ::close(reader);
    EXPECT_FALSE(Open("/dev/null")->Removed());
}

TEST_F(Output, ToAPipeWithoutAReaderWaitsUntilItIsToldNotTo) {
    ASSERT_EQ(::mkfifo(PathOf("pipe").c_str(), 0600), 0);
    int asked = 0;
    EXPECT_FALSE(OutputFile::Open(PathOf("pipe"), /*overwrite=*/false, m_error,
                                  [&](std::chrono::milliseconds) { return ++asked < 3; }));
    EXPECT_EQ(asked, 3);
    EXPECT_EQ(m_error, "");
    EXPECT_TRUE(fs::exists(PathOf("pipe")));
    EXPECT_FALSE(Open(PathOf("pipe")));
    EXPECT_NE(m_error.find("nobody reads it"), std::string::npos) << m_error;
}

TEST_F(Output, ToAPipeBeginsWhenAReaderComes) {
    ASSERT_EQ(::mkfifo(PathOf("pipe").c_str(), 0600), 0);
    int reader = -1;
    const auto output = OutputFile::Open(PathOf("pipe"), /*overwrite=*/false, m_error, [&](std::chrono::milliseconds) {
        reader = ::open(PathOf("pipe").c_str(), O_RDONLY | O_NONBLOCK);
        return true;
    });
    ASSERT_TRUE(output) << m_error;
    EXPECT_TRUE(output->Write(test::ToBytes("hello")));
    char bytes[5] = {};
    EXPECT_EQ(::read(reader, bytes, sizeof(bytes)), 5);
    ::close(reader);
}

class OutputToAPipe : public Output {
  protected:
    void SetUp() override {
        std::signal(SIGPIPE, SIG_IGN);
        ASSERT_EQ(::mkfifo(PathOf("pipe").c_str(), 0600), 0);
        m_reader = ::open(PathOf("pipe").c_str(), O_RDONLY | O_NONBLOCK);
        ASSERT_GE(m_reader, 0);
        m_output = Open(PathOf("pipe"));
        ASSERT_TRUE(m_output) << m_error;
    }
    void TearDown() override {
        if (m_reader >= 0) {
            ::close(m_reader);
        }
    }

    int m_reader = -1;
    std::unique_ptr<OutputFile> m_output;
};

TEST_F(OutputToAPipe, WaitsForASlowReader) {
    const Bytes bytes(1 << 20, 0x42);
    std::size_t got = 0;
    std::thread reader([&] {
        Bytes buffer(10'000);
        while (got < bytes.size()) {
            const ssize_t n = ::read(m_reader, buffer.data(), buffer.size());
            if (n > 0) {
                got += static_cast<std::size_t>(n);
            } else {
                std::this_thread::yield();
            }
        }
    });
    EXPECT_TRUE(m_output->Write(bytes));
    reader.join();
    EXPECT_EQ(got, bytes.size());
    EXPECT_EQ(m_output->Size(), 1 << 20);
}

TEST_F(OutputToAPipe, NoticesThatTheReaderIsGone) {
    ::close(m_reader);
    m_reader = -1;
    EXPECT_FALSE(m_output->Write(Bytes(10, 1)));
    EXPECT_EQ(m_output->GetState(), OutputFile::State::kReaderGone);
    EXPECT_FALSE(m_output->Write(Bytes(10, 1)));
}

// Takes the moment of grace that a stopped recording gives its reader.
TEST_F(OutputToAPipe, GivesUpAReaderThatTakesNothingWhenAskedToStop) {
    m_output->RequestStop();
    EXPECT_FALSE(m_output->Write(Bytes(1 << 20, 1)));  // more than a pipe holds, and nobody reads
    EXPECT_EQ(m_output->GetState(), OutputFile::State::kReaderGone);
}

}  // namespace
}  // namespace kvmpd::app
