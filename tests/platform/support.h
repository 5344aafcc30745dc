// What the conformance tests of the platform calls share. These tests include nothing of the component's but
// platform/win32.h, so that the same source runs against Windows' own calls.
#ifndef TESTS_PLATFORM_SUPPORT_H_
#define TESTS_PLATFORM_SUPPORT_H_

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "platform/win32.h"
#include "tests/support/Environment.h"

namespace platform_test {

// Typed like the results they are compared with; the SDK's macros are not.
inline constexpr DWORD kSatisfied = WAIT_OBJECT_0;
inline constexpr DWORD kTimedOut = WAIT_TIMEOUT;
inline constexpr DWORD kFailed = WAIT_FAILED;
inline constexpr LSTATUS kSuccess = ERROR_SUCCESS;

inline testing::AssertionResult LastErrorIs(DWORD expected) {
    const DWORD actual = GetLastError();
    return actual == expected
               ? testing::AssertionSuccess()
               : testing::AssertionFailure() << "the last error is " << actual << " and should be " << expected;
}

class OwnedHandle {
  public:
    explicit OwnedHandle(HANDLE handle) : m_handle(handle) {}
    ~OwnedHandle() { Close(); }
    OwnedHandle(const OwnedHandle&) = delete;
    OwnedHandle& operator=(const OwnedHandle&) = delete;

    operator HANDLE() const { return m_handle; }

    void Close() {
        if (m_handle != nullptr && m_handle != INVALID_HANDLE_VALUE) {
            EXPECT_TRUE(CloseHandle(m_handle));
        }
        m_handle = nullptr;
    }

  private:
    HANDLE m_handle;
};

inline HANDLE ManualEvent(bool signalled = false) {
    return CreateEventW(nullptr, TRUE, signalled ? TRUE : FALSE, nullptr);
}
inline HANDLE AutoEvent(bool signalled = false) {
    return CreateEventW(nullptr, FALSE, signalled ? TRUE : FALSE, nullptr);
}
inline HANDLE Semaphore(LONG count, LONG maximum) {
    return CreateSemaphoreW(nullptr, count, maximum, nullptr);
}

// Takes the signal when there is one.
inline bool TakesAtOnce(HANDLE handle) {
    return WaitForSingleObject(handle, 0) == kSatisfied;
}

// A handle that was open once.
inline HANDLE ClosedHandle() {
    const HANDLE handle = AutoEvent();
    EXPECT_TRUE(CloseHandle(handle));
    return handle;
}

// Gives another thread time to begin a wait that cannot be observed from outside. Too short a time makes a test easier
// to pass, never fail.
inline void LetOthersReachTheirWait() {
    Sleep(20);
}

inline HANDLE Open(const std::filesystem::path& path, DWORD access, DWORD disposition) {
    return CreateFileW(path.wstring().c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                       disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
}

inline void WriteWholeFile(const std::filesystem::path& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

inline std::string ReadWholeFile(const std::filesystem::path& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

}  // namespace platform_test

#endif  // TESTS_PLATFORM_SUPPORT_H_
