#include "common/Handle.h"

#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

namespace kvmpd {
namespace {

std::vector<int> g_closed;

/// Handles that are numbers; -1 is none. Closing one disturbs the last error, as a real one may.
struct NumberPolicy {
    using Type = int;
    static Type Invalid() noexcept { return -1; }
    static bool IsValid(Type handle) noexcept { return handle >= 0; }
    static void Close(Type handle) noexcept {
        g_closed.push_back(handle);
        SetLastError(99);
    }
};
using Number = UniqueHandle<NumberPolicy>;

class Handle : public testing::Test {
  protected:
    Handle() { g_closed.clear(); }
};

TEST_F(Handle, ClosesOnceAtItsEnd) {
    {
        const Number number(5);
        EXPECT_TRUE(number);
        EXPECT_EQ(number.get(), 5);
        EXPECT_EQ(g_closed, std::vector<int>{});
    }
    EXPECT_EQ(g_closed, std::vector<int>{5});
}

TEST_F(Handle, WithoutOneClosesNothing) {
    {
        const Number number;
        EXPECT_FALSE(number);
        EXPECT_EQ(number.get(), -1);
    }
    EXPECT_EQ(g_closed, std::vector<int>{});
}

TEST_F(Handle, ClosingKeepsTheLastError) {
    Number number(5);
    SetLastError(1234);
    number.reset();
    EXPECT_EQ(GetLastError(), 1234u);
    EXPECT_EQ(g_closed, std::vector<int>{5});
}

TEST_F(Handle, ResetClosesTheOldAndTakesTheNew) {
    Number number(5);
    number.reset(6);
    EXPECT_EQ(number.get(), 6);
    EXPECT_EQ(g_closed, std::vector<int>{5});
}

TEST_F(Handle, ReleaseGivesItAway) {
    Number number(5);
    EXPECT_EQ(number.release(), 5);
    EXPECT_FALSE(number);
    number.reset();
    EXPECT_EQ(g_closed, std::vector<int>{});
}

TEST_F(Handle, MovingLeavesNothingBehind) {
    Number first(5);
    Number second(std::move(first));
    EXPECT_FALSE(first);  // NOLINT: what is left of a moved-from handle is part of its contract
    Number third(7);
    third = std::move(second);
    EXPECT_EQ(third.get(), 5);
    EXPECT_EQ(g_closed, std::vector<int>{7});
}

TEST_F(Handle, MovingOntoItselfKeepsIt) {
    Number number(5);
    Number& same = number;
    number = std::move(same);
    EXPECT_EQ(number.get(), 5);
    EXPECT_EQ(g_closed, std::vector<int>{});
}

TEST_F(Handle, PutClosesTheOldAndReceivesTheNew) {
    Number number(5);
    *number.put() = 6;
    EXPECT_EQ(g_closed, std::vector<int>{5});
    EXPECT_EQ(number.get(), 6);
}

TEST_F(Handle, CannotBeCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<Number>);
    EXPECT_FALSE(std::is_copy_assignable_v<Number>);
}

TEST(HandleOfAnEvent, IsClosedForGood) {
    HANDLE raw = nullptr;
    {
        const UniqueEvent event(CreateEventW(nullptr, /*manual_reset=*/TRUE, /*initial_state=*/TRUE, nullptr));
        ASSERT_TRUE(event);
        raw = event.get();
        EXPECT_EQ(WaitForSingleObject(raw, 0), WAIT_OBJECT_0);
    }
    EXPECT_EQ(WaitForSingleObject(raw, 0), WAIT_FAILED);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
}

TEST(HandleOfAFile, TakesBothInvalidValuesForNone) {
    EXPECT_EQ(UniqueFile().get(), INVALID_HANDLE_VALUE);
    EXPECT_FALSE(UniqueFile(INVALID_HANDLE_VALUE));
    EXPECT_FALSE(UniqueFile(nullptr));
}

TEST(HandleOfARegistryKey, ReceivesAnOpenedKey) {
    UniqueRegKey key;
    EXPECT_FALSE(key);
    const LSTATUS error = RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"", 0, KEY_READ, key.put());
    ASSERT_EQ(error, ERROR_SUCCESS);
    EXPECT_TRUE(key);
}

}  // namespace
}  // namespace kvmpd
