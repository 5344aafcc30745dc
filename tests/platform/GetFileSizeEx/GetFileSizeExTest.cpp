#include "tests/platform/support.h"
#include "tests/support/TempDir.h"

using namespace platform_test;

TEST(GetFileSizeEx, IsTheSizeAtThisMoment) {
    const kvmpd::test::TempDir folder;
    const OwnedHandle file(Open(folder.Path() / "file", GENERIC_WRITE, CREATE_NEW));
    LARGE_INTEGER size{};
    size.QuadPart = -1;
    EXPECT_TRUE(GetFileSizeEx(file, &size));
    EXPECT_EQ(size.QuadPart, 0);
    DWORD written = 0;
    EXPECT_TRUE(WriteFile(file, "12345", 5, &written, nullptr));
    EXPECT_TRUE(GetFileSizeEx(file, &size));
    EXPECT_EQ(size.QuadPart, 5);
}

TEST(GetFileSizeEx, RefusesNull) {
    LARGE_INTEGER size{};
    EXPECT_FALSE(GetFileSizeEx(nullptr, &size));
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_HANDLE));
}
