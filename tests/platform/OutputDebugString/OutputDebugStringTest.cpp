#include "tests/platform/support.h"

using namespace platform_test;

TEST(DebugOutput, TakesNullAndEmptyTexts) {
    OutputDebugStringA(nullptr);
    OutputDebugStringW(nullptr);
    OutputDebugStringA("");
    OutputDebugStringW(L"");
}
