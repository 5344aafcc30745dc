#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <set>
#include <string>

#include "tests/platform/support.h"
#include "tests/support/TempDir.h"

using namespace platform_test;

namespace {

class PosixFiles : public testing::Test {
  protected:
    kvmpd::test::TempDir m_folder;
    const std::filesystem::path m_path = m_folder.Path() / "file";
};

std::set<int> OpenDescriptors() {
    std::set<int> open;
    for (int fd = 0; fd < 1024; ++fd) {
        if (fcntl(fd, F_GETFD) != -1) {
            open.insert(fd);
        }
    }
    return open;
}

}  // namespace

TEST_F(PosixFiles, ACreatedFileIsItsOwnersAlone) {
    const mode_t before = umask(0);
    for (const DWORD disposition : {CREATE_NEW, CREATE_ALWAYS, OPEN_ALWAYS}) {
        std::filesystem::remove(m_path);
        const OwnedHandle file(Open(m_path, GENERIC_WRITE, disposition));
        struct stat status {};
        ASSERT_EQ(stat(m_path.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, 0600u) << disposition;
    }
    umask(before);
}

TEST_F(PosixFiles, DescriptorsAreNotInheritedAndAreClosedWithTheHandle) {
    const std::set<int> before = OpenDescriptors();
    {
        const OwnedHandle file(Open(m_path, GENERIC_WRITE, CREATE_NEW));
        for (const int fd : OpenDescriptors()) {
            if (!before.contains(fd)) {
                EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
            }
        }
        EXPECT_EQ(OpenDescriptors().size(), before.size() + 1);
    }
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(PosixFiles, CreateNewDoesNotFollowALink) {
    std::filesystem::create_symlink(m_folder.Path() / "elsewhere", m_path);
    EXPECT_EQ(Open(m_path, GENERIC_WRITE, CREATE_NEW), INVALID_HANDLE_VALUE);
    EXPECT_TRUE(LastErrorIs(ERROR_FILE_EXISTS));
    EXPECT_FALSE(std::filesystem::exists(m_folder.Path() / "elsewhere"));
}

TEST_F(PosixFiles, OpenAlwaysEndsOnALinkThatLeadsNowhere) {
    std::filesystem::create_symlink(m_folder.Path() / "elsewhere", m_path);
    EXPECT_EQ(Open(m_path, GENERIC_WRITE, OPEN_ALWAYS), INVALID_HANDLE_VALUE);
    EXPECT_TRUE(LastErrorIs(ERROR_FILE_NOT_FOUND));
}

TEST_F(PosixFiles, AnOpenFileCanBeDeletedAndReadOn) {
    WriteWholeFile(m_path, "text");
    const OwnedHandle file(Open(m_path, GENERIC_READ, OPEN_EXISTING));
    EXPECT_TRUE(DeleteFileW(m_path.wstring().c_str()));
    char buffer[8];
    DWORD read = 0;
    EXPECT_TRUE(ReadFile(file, buffer, sizeof(buffer), &read, nullptr));
    EXPECT_EQ(std::string(buffer, read), "text");
}

TEST_F(PosixFiles, AWriteThatIsCutShortReportsWhatItWrote) {
    // Files of this process may have 4096 bytes for the length of this test.
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    auto* const oldAction = std::signal(SIGXFSZ, SIG_IGN);
    const rlimit small{4096, before.rlim_max};
    const OwnedHandle file(Open(m_path, GENERIC_WRITE, CREATE_NEW));
    const std::string block(5000, 'x');
    DWORD written = 0;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    const BOOL succeeded = WriteFile(file, block.data(), static_cast<DWORD>(block.size()), &written, nullptr);
    const DWORD error = GetLastError();
    setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, oldAction);
    EXPECT_FALSE(succeeded);
    EXPECT_EQ(error, static_cast<DWORD>(ERROR_FILE_TOO_LARGE));
    EXPECT_EQ(written, 4096u);
    EXPECT_EQ(SetFilePointer(file, 0, nullptr, FILE_CURRENT), 4096u);
}

TEST_F(PosixFiles, AFullDiskIsReportedAsSuch) {
    if (!std::filesystem::exists("/dev/full")) {
        GTEST_SKIP() << "this system has no /dev/full";
    }
    const OwnedHandle file(Open("/dev/full", GENERIC_WRITE, OPEN_EXISTING));
    DWORD written = 77;
    EXPECT_FALSE(WriteFile(file, "x", 1, &written, nullptr));
    EXPECT_TRUE(LastErrorIs(ERROR_DISK_FULL));
    EXPECT_EQ(written, 0u);
}

TEST_F(PosixFiles, APipeIsReadAsItComesAndHasNoPosition) {
    ASSERT_EQ(mkfifo(m_path.c_str(), 0600), 0);
    const int keepOpen = open(m_path.c_str(), O_RDWR | O_CLOEXEC);
    const OwnedHandle reader(Open(m_path, GENERIC_READ, OPEN_EXISTING));
    const OwnedHandle writer(Open(m_path, GENERIC_WRITE, OPEN_EXISTING));
    DWORD count = 0;
    EXPECT_TRUE(WriteFile(writer, "abc", 3, &count, nullptr));
    EXPECT_EQ(count, 3u);
    char buffer[8];
    EXPECT_TRUE(ReadFile(reader, buffer, sizeof(buffer), &count, nullptr));
    EXPECT_EQ(std::string(buffer, count), "abc");
    EXPECT_EQ(SetFilePointer(reader, 0, nullptr, FILE_BEGIN), INVALID_SET_FILE_POINTER);
    EXPECT_TRUE(LastErrorIs(ERROR_NOT_SUPPORTED));
    close(keepOpen);
}

TEST_F(PosixFiles, OverlappedTransfersAndMissingCountsAreRefused) {
    const OwnedHandle file(Open(m_path, GENERIC_READ | GENERIC_WRITE, CREATE_NEW));
    char c = 'x';
    DWORD count = 0;
    OVERLAPPED* const some = reinterpret_cast<OVERLAPPED*>(&c);
    EXPECT_FALSE(ReadFile(file, &c, 1, &count, some));
    EXPECT_TRUE(LastErrorIs(ERROR_NOT_SUPPORTED));
    EXPECT_FALSE(WriteFile(file, &c, 1, &count, some));
    EXPECT_TRUE(LastErrorIs(ERROR_NOT_SUPPORTED));
    EXPECT_FALSE(WriteFile(file, &c, 1, nullptr, nullptr));
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_PARAMETER));
    EXPECT_FALSE(ReadFile(file, &c, 1, nullptr, nullptr));
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_PARAMETER));
}

TEST_F(PosixFiles, EveryPositionBelowTwoToTheSixtyThreeCanBeSet) {
    const OwnedHandle file(Open(m_path, GENERIC_READ | GENERIC_WRITE, CREATE_NEW));
    LONG high = 0x7FFFFFFF;
    EXPECT_EQ(SetFilePointer(file, -2, &high, FILE_BEGIN), 0xFFFFFFFEu);
    EXPECT_EQ(high, 0x7FFFFFFF);
    char c = 'x';
    DWORD count = 77;
    EXPECT_TRUE(ReadFile(file, &c, 1, &count, nullptr));
    EXPECT_EQ(count, 0u);
    EXPECT_FALSE(WriteFile(file, &c, 1, &count, nullptr));
    high = 0x7FFFFFFF;
    EXPECT_EQ(SetFilePointer(file, -1, &high, FILE_CURRENT), INVALID_SET_FILE_POINTER);
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_PARAMETER));
}

TEST_F(PosixFiles, ANameThatIsNoUnicodeTextIsRefused) {
    const std::wstring name = m_folder.Path().wstring() + L'/' + static_cast<wchar_t>(0xD800);
    EXPECT_EQ(CreateFileW(name.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr), INVALID_HANDLE_VALUE);
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_NAME));
    EXPECT_FALSE(DeleteFileW(name.c_str()));
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_NAME));
}

TEST_F(PosixFiles, TooLongANameIsItsOwnError) {
    const std::wstring name = m_folder.Path().wstring() + L'/' + std::wstring(300, L'n');
    EXPECT_EQ(CreateFileW(name.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr), INVALID_HANDLE_VALUE);
    EXPECT_TRUE(LastErrorIs(ERROR_FILENAME_EXCED_RANGE));
}

TEST_F(PosixFiles, WithoutPermissionAccessIsDenied) {
    if (geteuid() == 0) {
        GTEST_SKIP() << "the superuser is never denied access";
    }
    WriteWholeFile(m_path, "x");
    ASSERT_EQ(chmod(m_path.c_str(), 0), 0);
    EXPECT_EQ(Open(m_path, GENERIC_READ, OPEN_EXISTING), INVALID_HANDLE_VALUE);
    EXPECT_TRUE(LastErrorIs(ERROR_ACCESS_DENIED));
}
