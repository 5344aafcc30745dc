#include <string>

#include "tests/platform/support.h"

using namespace platform_test;

TEST(OutputDebugString, LeavesTheLastErrorAlone) {
    SetLastError(4711);
    OutputDebugStringA("a line of the narrow debug output\n");
    OutputDebugStringW(L"a line of the wide debug output\n");
    EXPECT_TRUE(LastErrorIs(4711));
}

TEST(OutputDebugString, TakesNullAndEmptyTexts) {
    OutputDebugStringA(nullptr);
    OutputDebugStringW(nullptr);
    OutputDebugStringA("");
    OutputDebugStringW(L"");
}
