#include "tests/platform/support.h"

using namespace platform_test;

namespace {

DWORD WINAPI ReturnParameter(LPVOID parameter) {
    return static_cast<DWORD>(reinterpret_cast<DWORD_PTR>(parameter));
}

}  // namespace

class GetExitCodeThreadValues : public testing::TestWithParam<DWORD> {};

TEST_P(GetExitCodeThreadValues, AreWhatTheFunctionReturned) {
    const OwnedHandle thread(CreateThread(nullptr, 0, &ReturnParameter,
                                          reinterpret_cast<LPVOID>(static_cast<DWORD_PTR>(GetParam())), 0, nullptr));
    EXPECT_EQ(WaitForSingleObject(thread, INFINITE), kSatisfied);
    DWORD code = ~GetParam();
    EXPECT_TRUE(GetExitCodeThread(thread, &code));
    EXPECT_EQ(code, GetParam());
}

INSTANTIATE_TEST_SUITE_P(Range, GetExitCodeThreadValues, testing::Values(0u, 1u, 259u, 0x80004005u, 0xFFFFFFFFu));

TEST(GetExitCodeThread, IsStillActiveWhileTheThreadRuns) {
    const OwnedHandle gate(ManualEvent());
    const OwnedHandle thread(CreateThread(
        nullptr, 0, [](LPVOID event) -> DWORD { return WaitForSingleObject(event, INFINITE); },
        static_cast<HANDLE>(gate), 0, nullptr));
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeThread(thread, &code));
    EXPECT_EQ(code, 259u);
    EXPECT_TRUE(SetEvent(gate));
    EXPECT_EQ(WaitForSingleObject(thread, INFINITE), kSatisfied);
}

TEST(GetExitCodeThread, RefusesAnEvent) {
    const OwnedHandle event(AutoEvent());
    DWORD code = 0;
    EXPECT_FALSE(GetExitCodeThread(event, &code));
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_HANDLE));
}
