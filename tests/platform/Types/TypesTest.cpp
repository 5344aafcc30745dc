#include <type_traits>

#include "tests/platform/support.h"

// The widths that the code relies on, on every system.
static_assert(sizeof(LONG) == 4 && std::is_signed_v<LONG>);
static_assert(sizeof(ULONG) == 4 && std::is_unsigned_v<ULONG>);
static_assert(sizeof(DWORD) == 4 && std::is_unsigned_v<DWORD>);
static_assert(sizeof(HRESULT) == 4 && std::is_signed_v<HRESULT>);
static_assert(std::is_same_v<BOOL, int>);
static_assert(std::is_same_v<LONGLONG, long long> || sizeof(LONGLONG) == 8);
static_assert(sizeof(GUID) == 16);
static_assert(MAX_PATH == 260);

TEST(Types, LargeIntegerHalvesAreThoseOfTheWhole) {
    LARGE_INTEGER value;
    value.QuadPart = 0x1234567890ABCDEF;
    EXPECT_EQ(value.LowPart, 0x90ABCDEFu);
    EXPECT_EQ(value.HighPart, 0x12345678);
    EXPECT_EQ(value.u.HighPart, 0x12345678);
}

TEST(Types, ResultCodesHaveTheirPublishedValues) {
    EXPECT_EQ(static_cast<DWORD>(E_NOTIMPL), 0x80004001u);
    EXPECT_EQ(static_cast<DWORD>(E_NOINTERFACE), 0x80004002u);
    EXPECT_EQ(static_cast<DWORD>(E_POINTER), 0x80004003u);
    EXPECT_EQ(static_cast<DWORD>(E_FAIL), 0x80004005u);
    EXPECT_EQ(static_cast<DWORD>(E_UNEXPECTED), 0x8000FFFFu);
    EXPECT_EQ(static_cast<DWORD>(E_ACCESSDENIED), 0x80070005u);
    EXPECT_EQ(static_cast<DWORD>(E_OUTOFMEMORY), 0x8007000Eu);
    EXPECT_EQ(static_cast<DWORD>(E_INVALIDARG), 0x80070057u);
    EXPECT_EQ(static_cast<DWORD>(CLASS_E_NOAGGREGATION), 0x80040110u);
    EXPECT_EQ(static_cast<DWORD>(CLASS_E_CLASSNOTAVAILABLE), 0x80040111u);
}

TEST(Types, SuccessAndFailureGoByTheSign) {
    EXPECT_TRUE(SUCCEEDED(S_OK));
    EXPECT_TRUE(SUCCEEDED(S_FALSE));
    EXPECT_TRUE(FAILED(E_FAIL));
}

TEST(Types, ErrorNumbersBecomeResultsOfTheWin32Facility) {
    EXPECT_EQ(static_cast<DWORD>(HRESULT_FROM_WIN32(ERROR_FILE_EXISTS)), 0x80070050u);
    EXPECT_EQ(static_cast<DWORD>(HRESULT_FROM_WIN32(12002)), 0x80072EE2u);
    EXPECT_EQ(HRESULT_FROM_WIN32(NO_ERROR), S_OK);
    EXPECT_EQ(HRESULT_FROM_WIN32(static_cast<DWORD>(E_FAIL)), E_FAIL);
}

TEST(Types, GuidsCompareByAllTheirBytes) {
    const GUID a{0x2B6F9C14, 0x8E3A, 0x4D75, {0x9F, 0x01, 0xC7, 0xA4, 0xE5, 0x8B, 0x3D, 0x62}};
    GUID b = a;
    EXPECT_TRUE(a == b);
    b.Data4[7] ^= 1;
    EXPECT_TRUE(a != b);
    b = a;
    b.Data1 ^= 0x80000000u;
    EXPECT_FALSE(a == b);
}
