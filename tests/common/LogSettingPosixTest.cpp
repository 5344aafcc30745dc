// Where the verbosity comes from and where lines go, on systems whose settings are files and whose debugger channel is
// standard error.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "common/Log.h"
#include "platform/posix/settings_for_test.h"
#include "tests/support/TempDir.h"

namespace kvmpd {
namespace {

constexpr char kVariable[] = "KAVOTRA_MPDSOURCE_LOG";

/// A machine whose settings are the test's, seen by a process that has not read its verbosity yet.
class LogSetting : public testing::Test {
  protected:
    LogSetting() : m_roots((m_dir.Path() / "machine").string(), (m_dir.Path() / "user").string()) {
        unsetenv(kVariable);
        LogTestHooks::Redirect(nullptr, nullptr);
        LogTestHooks::ForgetLevel();
    }
    ~LogSetting() override {
        unsetenv(kVariable);
        LogTestHooks::SetLevel(0);
    }

    void Write(std::string_view root, std::string_view text) const {
        const std::filesystem::path folder = m_dir.Path() / root / "kavotra";
        std::filesystem::create_directories(folder);
        std::ofstream(folder / "mpdsource.conf") << text;
    }

    /// What standard error receives of one line at each level.
    static std::string WrittenOfEachLevel() {
        testing::internal::CaptureStderr();
        for (LONG level = 3; level <= 6; ++level) {
            Log(level, L" wide %d", level);
            LogA(level, " narrow %d", level);
        }
        return testing::internal::GetCapturedStderr();
    }

  private:
    test::TempDir m_dir;
    platform::SettingsRootsForTest m_roots;
};

TEST_F(LogSetting, WithoutAKeyNothingIsWritten) {
    EXPECT_EQ(WrittenOfEachLevel(), "");
    EXPECT_EQ(GetLogLevel(), 0);
    EXPECT_EQ(ReadLogLevelFromRegistry(), 0);
}

TEST_F(LogSetting, WithoutTheValueNothingIsWritten) {
    Write("machine", "other = 6\n");
    EXPECT_EQ(WrittenOfEachLevel(), "");
    EXPECT_EQ(GetLogLevel(), 0);
}

TEST_F(LogSetting, ThreeWritesOnlyLevelThree) {
    Write("machine", "log = 3\n");
    EXPECT_EQ(WrittenOfEachLevel(), "[MpdSrc] wide 3\n[MpdSrc] narrow 3\n");
}

TEST_F(LogSetting, SixWritesEverything) {
    Write("machine", "log = 6\n");
    EXPECT_EQ(WrittenOfEachLevel(),
              "[MpdSrc] wide 3\n[MpdSrc] narrow 3\n[MpdSrc] wide 4\n[MpdSrc] narrow 4\n"
              "[MpdSrc] wide 5\n[MpdSrc] narrow 5\n[MpdSrc] wide 6\n[MpdSrc] narrow 6\n");
}

TEST_F(LogSetting, NegativeWritesNothing) {
    Write("machine", "log = -1\n");
    EXPECT_EQ(WrittenOfEachLevel(), "");
    EXPECT_EQ(GetLogLevel(), -1);
}

TEST_F(LogSetting, ValueWithTheHighestBitIsNegative) {
    Write("machine", "log = 0xFFFFFFFE\n");
    EXPECT_EQ(GetLogLevel(), -2);
}

// The type of the value is not looked at: a text's first bytes count when there are at most four of them.
TEST_F(LogSetting, TextOfOneCharacterCountsAsItsBytes) {
    Write("machine", "log = \"6\"\n");
    EXPECT_EQ(ReadLogLevelFromRegistry(), '6');
}

TEST_F(LogSetting, EmptyTextCountsAsZero) {
    Write("machine", "log = \"\"\n");
    EXPECT_EQ(ReadLogLevelFromRegistry(), 0);
}

TEST_F(LogSetting, TextOfMoreThanFourBytesCountsAsZero) {
    Write("machine", "log = \"66\"\n");
    EXPECT_EQ(ReadLogLevelFromRegistry(), 0);
    EXPECT_EQ(WrittenOfEachLevel(), "");
}

TEST_F(LogSetting, TheUsersOwnSettingsAreNotConsulted) {
    Write("user", "log = 6\n");
    EXPECT_EQ(WrittenOfEachLevel(), "");
}

TEST_F(LogSetting, ChangeHasNoEffectBeforeTheNextProcess) {
    Write("machine", "log = 3\n");
    EXPECT_EQ(GetLogLevel(), 3);
    Write("machine", "log = 6\n");
    EXPECT_EQ(GetLogLevel(), 3);
    EXPECT_EQ(WrittenOfEachLevel(), "[MpdSrc] wide 3\n[MpdSrc] narrow 3\n");
    EXPECT_EQ(ReadLogLevelFromRegistry(), 6) << "the file itself has changed";
}

TEST_F(LogSetting, MissingKeyIsRememberedToo) {
    EXPECT_EQ(GetLogLevel(), 0);
    Write("machine", "log = 6\n");
    EXPECT_EQ(GetLogLevel(), 0);
}

TEST_F(LogSetting, EnvironmentVariableWinsOverTheFile) {
    Write("machine", "log = 3\n");
    setenv(kVariable, "5", /*overwrite=*/1);
    EXPECT_EQ(GetLogLevel(), 5);
}

TEST_F(LogSetting, ReadingKeepsTheLastError) {
    SetLastError(1234);
    EXPECT_EQ(ReadLogLevelFromRegistry(), 0);
    EXPECT_EQ(GetLastError(), 1234u);
}

TEST_F(LogSetting, SeveralThreadsMayReadItAtOnce) {
    Write("machine", "log = 4\n");
    std::vector<LONG> seen(8);
    {
        std::vector<std::jthread> threads;
        for (LONG& level : seen) {
            threads.emplace_back([&level] { level = GetLogLevel(); });
        }
    }
    EXPECT_EQ(seen, std::vector<LONG>(8, 4));
}

TEST_F(LogSetting, WideLinesReachStandardErrorAsUtf8) {
    Write("machine", "log = 3\n");
    testing::internal::CaptureStderr();
    Log(3, L" %s", L"na\u00EFve");
    LogA(3, " %s", "\xE2\x82\xAC");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "[MpdSrc] na\xC3\xAFve\n[MpdSrc] \xE2\x82\xAC\n");
}

}  // namespace
}  // namespace kvmpd
