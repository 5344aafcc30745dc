#include "platform/posix/settings_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <tuple>

#include "platform/posix/settings_for_test.h"
#include "tests/platform/support.h"
#include "tests/support/TempDir.h"

using namespace platform_test;

namespace {

constexpr wchar_t kKey[] = LR"(Software\Kavotra\MpdSource)";

class PosixSettings : public testing::Test {
  protected:
    PosixSettings() { unsetenv(kLogVariable); }
    ~PosixSettings() override { unsetenv(kLogVariable); }

    static constexpr const char* kLogVariable = "KAVOTRA_MPDSOURCE_LOG";

    void WriteMachineSettings(const std::string& text) {
        std::filesystem::create_directories(m_machine.Path() / "kavotra");
        WriteWholeFile(m_machine.Path() / "kavotra" / "mpdsource.conf", text);
    }

    static LSTATUS OpenLogKey(HKEY& key, HKEY root = HKEY_LOCAL_MACHINE) {
        return RegOpenKeyExW(root, kKey, 0, KEY_READ, &key);
    }

    // The way the logger reads its verbosity: four bytes, the type not asked for.
    static std::optional<LONG> ReadNumber(const wchar_t* name = L"log") {
        HKEY key = nullptr;
        if (OpenLogKey(key) != kSuccess) {
            return std::nullopt;
        }
        LONG number = 0;
        DWORD size = sizeof(number);
        const LSTATUS result = RegQueryValueExW(key, name, nullptr, nullptr, reinterpret_cast<LPBYTE>(&number), &size);
        EXPECT_EQ(RegCloseKey(key), kSuccess);
        return result == kSuccess ? std::optional(number) : std::nullopt;
    }

    kvmpd::test::TempDir m_machine;
    kvmpd::test::TempDir m_user;
    kvmpd::platform::SettingsRootsForTest m_roots{m_machine.Path().string(), m_user.Path().string()};
};

}  // namespace

TEST_F(PosixSettings, WithoutTheFileThereIsNoKey) {
    HKEY key = nullptr;
    EXPECT_EQ(OpenLogKey(key), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(key, nullptr);
}

TEST_F(PosixSettings, TheMachinesFileIsTheKey) {
    WriteMachineSettings("log = 6\n");
    EXPECT_EQ(ReadNumber(), 6);
}

TEST_F(PosixSettings, TheUsersFileIsNotTheMachinesKey) {
    std::filesystem::create_directories(m_user.Path() / "kavotra");
    WriteWholeFile(m_user.Path() / "kavotra" / "mpdsource.conf", "log = 6\n");
    EXPECT_EQ(ReadNumber(), std::nullopt);
    HKEY key = nullptr;
    ASSERT_EQ(OpenLogKey(key, HKEY_CURRENT_USER), kSuccess);
    EXPECT_EQ(RegCloseKey(key), kSuccess);
}

TEST_F(PosixSettings, KeyAndValueNamesIgnoreCase) {
    WriteMachineSettings("Log = 3\n");
    HKEY key = nullptr;
    ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, LR"(SOFTWARE\kavotra\MPDSOURCE)", 0, KEY_READ, &key), kSuccess);
    EXPECT_EQ(RegQueryValueExW(key, L"LOG", nullptr, nullptr, nullptr, nullptr), kSuccess);
    EXPECT_EQ(RegCloseKey(key), kSuccess);
}

TEST_F(PosixSettings, AKeyCanBeOpenedStepByStep) {
    WriteMachineSettings("log = 3\n");
    HKEY software = nullptr, vendor = nullptr, key = nullptr;
    ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"Software", 0, KEY_READ, &software), kSuccess);
    ASSERT_EQ(RegOpenKeyExW(software, L"Kavotra", 0, KEY_READ, &vendor), kSuccess);
    ASSERT_EQ(RegOpenKeyExW(vendor, L"MpdSource", 0, KEY_READ, &key), kSuccess);
    EXPECT_EQ(RegQueryValueExW(vendor, L"log", nullptr, nullptr, nullptr, nullptr), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegQueryValueExW(key, L"log", nullptr, nullptr, nullptr, nullptr), kSuccess);
    for (const HKEY open : {software, vendor, key}) {
        EXPECT_EQ(RegCloseKey(open), kSuccess);
    }
}

TEST_F(PosixSettings, NamesCannotLeaveTheFolder) {
    WriteWholeFile(m_machine.Path().parent_path() / "outside.conf", "log = 3\n");
    HKEY key = nullptr;
    EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, LR"(Software\..\outside)", 0, KEY_READ, &key), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, LR"(Software\../outside)", 0, KEY_READ, &key), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(
        RegCreateKeyExW(HKEY_CURRENT_USER, LR"(Software\..\made)", 0, nullptr, 0, KEY_READ, nullptr, &key, nullptr),
        ERROR_FILE_NOT_FOUND);
    std::filesystem::remove(m_machine.Path().parent_path() / "outside.conf");
}

TEST_F(PosixSettings, ANameThatBeginsWithABackslashIsABadPath) {
    HKEY key = nullptr;
    EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, LR"(\Software)", 0, KEY_READ, &key), ERROR_BAD_PATHNAME);
}

TEST_F(PosixSettings, TheEnvironmentMakesTheKeyAndWinsOverTheFile) {
    setenv(kLogVariable, "4", 1);
    EXPECT_EQ(ReadNumber(), 4);
    WriteMachineSettings("log = 6\nother = 1\n");
    EXPECT_EQ(ReadNumber(), 4);
    EXPECT_EQ(ReadNumber(L"other"), 1);
    HKEY key = nullptr;
    EXPECT_EQ(OpenLogKey(key, HKEY_CURRENT_USER), ERROR_FILE_NOT_FOUND);
}

TEST_F(PosixSettings, AnEnvironmentTextThatIsNoValueIsIgnored) {
    WriteMachineSettings("log = 6\n");
    for (const char* text : {"", "loud", "6 7", "0x"}) {
        setenv(kLogVariable, text, 1);
        EXPECT_EQ(ReadNumber(), 6) << text;
    }
}

TEST_F(PosixSettings, AnOpenKeyShowsTheValuesOfItsOpening) {
    WriteMachineSettings("log = 3\n");
    HKEY key = nullptr;
    ASSERT_EQ(OpenLogKey(key), kSuccess);
    WriteMachineSettings("");
    EXPECT_EQ(RegQueryValueExW(key, L"log", nullptr, nullptr, nullptr, nullptr), kSuccess);
    EXPECT_EQ(RegCloseKey(key), kSuccess);
    EXPECT_EQ(ReadNumber(), std::nullopt);
}

TEST_F(PosixSettings, ANumberTellsTypeAndSize) {
    WriteMachineSettings("log = 5\n");
    HKEY key = nullptr;
    ASSERT_EQ(OpenLogKey(key), kSuccess);
    DWORD type = REG_NONE, size = 0;
    EXPECT_EQ(RegQueryValueExW(key, L"log", nullptr, &type, nullptr, &size), kSuccess);
    EXPECT_EQ(type, REG_DWORD);
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(RegCloseKey(key), kSuccess);
}

TEST_F(PosixSettings, TooSmallABufferIsMoreDataAndStaysAsItWas) {
    WriteMachineSettings("name = \"text\"\n");
    HKEY key = nullptr;
    ASSERT_EQ(OpenLogKey(key), kSuccess);
    BYTE data[4] = {1, 2, 3, 4};
    DWORD type = REG_NONE, size = sizeof(data);
    EXPECT_EQ(RegQueryValueExW(key, L"name", nullptr, &type, data, &size), ERROR_MORE_DATA);
    EXPECT_EQ(type, REG_SZ);
    EXPECT_EQ(size, 10u);
    EXPECT_EQ(data[0], 1);
    char16_t text[5] = {};
    size = sizeof(text);
    EXPECT_EQ(RegQueryValueExW(key, L"name", nullptr, nullptr, reinterpret_cast<LPBYTE>(text), &size), kSuccess);
    EXPECT_EQ(std::u16string(text), u"text");
    EXPECT_EQ(RegCloseKey(key), kSuccess);
}

TEST_F(PosixSettings, OneCharacterOfTextFillsTheLoggersFourBytes) {
    WriteMachineSettings("log = \"6\"\n");
    EXPECT_EQ(ReadNumber(), '6');
    WriteMachineSettings("log = \"66\"\n");
    EXPECT_EQ(ReadNumber(), std::nullopt);
}

TEST_F(PosixSettings, ArgumentsAreChecked) {
    WriteMachineSettings("log = 5\n");
    HKEY key = nullptr;
    DWORD reserved = 0;
    EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, KEY_READ, nullptr), ERROR_INVALID_PARAMETER);
    ASSERT_EQ(OpenLogKey(key), kSuccess);
    EXPECT_EQ(RegQueryValueExW(key, L"log", &reserved, nullptr, nullptr, nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(RegQueryValueExW(key, nullptr, nullptr, nullptr, nullptr, nullptr), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegCloseKey(key), kSuccess);
    const OwnedHandle event(AutoEvent());
    EXPECT_EQ(RegCloseKey(reinterpret_cast<HKEY>(static_cast<HANDLE>(event))), ERROR_INVALID_HANDLE);
}

TEST_F(PosixSettings, WhatIsNoSensibleFileIsDamage) {
    WriteMachineSettings(std::string(70'000, '#'));
    HKEY key = nullptr;
    EXPECT_EQ(OpenLogKey(key), ERROR_BADDB);
    std::filesystem::remove(m_machine.Path() / "kavotra" / "mpdsource.conf");
    ASSERT_EQ(mkfifo((m_machine.Path() / "kavotra" / "mpdsource.conf").c_str(), 0600), 0);
    EXPECT_EQ(OpenLogKey(key), ERROR_BADDB);
}

TEST_F(PosixSettings, CreateMakesTheUsersFilePrivateAndThenOpensIt) {
    const mode_t before = umask(0);
    HKEY key = nullptr;
    DWORD disposition = 0;
    const auto create = [&] {
        return RegCreateKeyExW(HKEY_CURRENT_USER, kKey, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_READ | KEY_WRITE,
                               nullptr, &key, &disposition);
    };
    ASSERT_EQ(create(), kSuccess);
    EXPECT_EQ(disposition, REG_CREATED_NEW_KEY);
    EXPECT_EQ(RegCloseKey(key), kSuccess);
    ASSERT_EQ(create(), kSuccess);
    EXPECT_EQ(disposition, REG_OPENED_EXISTING_KEY);
    EXPECT_EQ(RegCloseKey(key), kSuccess);
    umask(before);
    struct stat status {};
    ASSERT_EQ(stat((m_user.Path() / "kavotra" / "mpdsource.conf").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600u);
    ASSERT_EQ(stat((m_user.Path() / "kavotra").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0700u);
}

TEST_F(PosixSettings, CreateInAMachineFolderThatIsNotWritableIsDenied) {
    if (geteuid() == 0) {
        GTEST_SKIP() << "the superuser may write everywhere";
    }
    ASSERT_EQ(chmod(m_machine.Path().c_str(), 0500), 0);
    HKEY key = nullptr;
    EXPECT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, nullptr, 0, KEY_READ, nullptr, &key, nullptr),
              ERROR_ACCESS_DENIED);
    EXPECT_EQ(chmod(m_machine.Path().c_str(), 0700), 0);
}

TEST_F(PosixSettings, WriteAccessNeedsAWritableFile) {
    setenv(kLogVariable, "4", 1);
    HKEY key = nullptr;
    EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, KEY_READ | KEY_WRITE, &key), ERROR_ACCESS_DENIED);
}

// Without the roots of a test: where the user's keys really are.
TEST(PosixSettingsRoots, TheUsersFolderFollowsTheEnvironment) {
    const kvmpd::test::TempDir home;
    const auto valueOf = [](const char* name) {
        const char* const value = std::getenv(name);
        return value ? std::optional<std::string>(value) : std::nullopt;
    };
    const auto put = [](const char* name, const std::optional<std::string>& value) {
        value ? setenv(name, value->c_str(), 1) : unsetenv(name);
    };
    const auto oldHome = valueOf("HOME"), oldXdg = valueOf("XDG_CONFIG_HOME");
    const auto opens = [] {
        HKEY key = nullptr;
        const LSTATUS result = RegOpenKeyExW(HKEY_CURRENT_USER, kKey, 0, KEY_READ, &key);
        return result == kSuccess && RegCloseKey(key) == kSuccess;
    };
    put("HOME", home.Path().string());
    put("XDG_CONFIG_HOME", std::nullopt);
    EXPECT_FALSE(opens());
    std::filesystem::create_directories(home.Path() / ".config" / "kavotra");
    WriteWholeFile(home.Path() / ".config" / "kavotra" / "mpdsource.conf", "");
    EXPECT_TRUE(opens());
    put("XDG_CONFIG_HOME", "relative, so not to be used");
    EXPECT_TRUE(opens());
    put("XDG_CONFIG_HOME", (home.Path() / "elsewhere").string());
    EXPECT_FALSE(opens());
    put("HOME", oldHome);
    put("XDG_CONFIG_HOME", oldXdg);
}

struct Line {
    const char* text;
    std::optional<DWORD> number;
};

class PosixSettingsNumbers : public testing::TestWithParam<Line> {};

TEST_P(PosixSettingsNumbers, AreReadOrTheLineIsSkipped) {
    const auto settings = kvmpd::platform::Settings::Parse(GetParam().text);
    const kvmpd::platform::SettingValue* const value = settings.Find("log");
    ASSERT_EQ(value != nullptr, GetParam().number.has_value());
    if (value) {
        EXPECT_EQ(value->type, REG_DWORD);
        DWORD number = 0;
        ASSERT_EQ(value->data.size(), sizeof(number));
        std::memcpy(&number, value->data.data(), sizeof(number));
        EXPECT_EQ(number, *GetParam().number);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Lines, PosixSettingsNumbers,
    testing::Values(Line{"log = 6", 6}, Line{"log=6", 6}, Line{"\t log \t=\t6\t\r\n", 6}, Line{"log = 6 # all", 6},
                    Line{"# log = 6", std::nullopt}, Line{"log", std::nullopt}, Line{"log =", std::nullopt},
                    Line{"= 6", std::nullopt}, Line{"log = six", std::nullopt}, Line{"log = 6x", std::nullopt},
                    Line{"log = +6", std::nullopt}, Line{"log = --6", std::nullopt}, Line{"log = -1", 0xFFFFFFFFu},
                    Line{"log = -2147483648", 0x80000000u}, Line{"log = -2147483649", std::nullopt},
                    Line{"log = 4294967295", 0xFFFFFFFFu}, Line{"log = 4294967296", std::nullopt},
                    Line{"log = 99999999999999999999999", std::nullopt}, Line{"log = 0x1F", 31},
                    Line{"log = 0x", std::nullopt}, Line{"log = 1\nLOG = 2\n", 2}, Line{"log = 1\nlog = bad\n", 1},
                    Line{"garbage\n\n\"=\"\nlog = 4", 4}, Line{"\xEF\xBB\xBFlog = 5", 5}));

struct TextLine {
    const char* text;
    std::optional<std::u16string> value;
};

class PosixSettingsTexts : public testing::TestWithParam<TextLine> {};

TEST_P(PosixSettingsTexts, AreReadOrTheLineIsSkipped) {
    const auto settings = kvmpd::platform::Settings::Parse(GetParam().text);
    const kvmpd::platform::SettingValue* const value = settings.Find("name");
    ASSERT_EQ(value != nullptr, GetParam().value.has_value());
    if (value) {
        EXPECT_EQ(value->type, REG_SZ);
        const std::u16string& expected = *GetParam().value;
        ASSERT_EQ(value->data.size(), (expected.size() + 1) * 2);
        EXPECT_EQ(std::memcmp(value->data.data(), expected.c_str(), value->data.size()), 0);
    }
}

INSTANTIATE_TEST_SUITE_P(Lines, PosixSettingsTexts,
                         testing::Values(TextLine{"name = \"a b\"", u"a b"}, TextLine{"name = \"\"", u""},
                                         TextLine{"name = \"a # b\" # c", u"a # b"},
                                         TextLine{"name = \"a = b\"", u"a = b"}, TextLine{"name = \"", std::nullopt},
                                         TextLine{"name = \"open", std::nullopt},
                                         TextLine{"name = \"a\" b", std::nullopt},
                                         TextLine{"name = \"a\"b\"", std::nullopt},
                                         TextLine{"name = \"\xC3\xA4\xF0\x9F\x98\x80\"", u"\u00E4\U0001F600"},
                                         TextLine{"name = \"\xFF\"", u"\uFFFD"}));
