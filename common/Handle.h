// Owners of platform handles. A handle type is a policy: its type, its invalid value and how it is closed. Closing
// keeps the thread's last error, so that an error path may release handles before it reports what went wrong.
#pragma once

#include <utility>

#include "platform/win32.h"

namespace kvmpd {

template <class Policy>
class UniqueHandle {
  public:
    using Type = typename Policy::Type;

    UniqueHandle() = default;
    explicit UniqueHandle(Type handle) noexcept : m_handle(handle) {}
    UniqueHandle(UniqueHandle&& other) noexcept : m_handle(other.release()) {}
    UniqueHandle& operator=(UniqueHandle&& other) noexcept {
        if (this != &other) {
            reset(other.release());
        }
        return *this;
    }
    UniqueHandle(const UniqueHandle&) = delete;
    UniqueHandle& operator=(const UniqueHandle&) = delete;
    ~UniqueHandle() { reset(); }

    Type get() const noexcept { return m_handle; }
    explicit operator bool() const noexcept { return Policy::IsValid(m_handle); }
    Type release() noexcept { return std::exchange(m_handle, Policy::Invalid()); }

    void reset(Type handle = Policy::Invalid()) noexcept {
        const Type old = std::exchange(m_handle, handle);
        if (Policy::IsValid(old)) {
            const DWORD error = GetLastError();
            Policy::Close(old);
            SetLastError(error);
        }
    }

    /// Closes what is held and gives the address for a call that returns a handle through an out argument.
    Type* put() noexcept {
        reset();
        return &m_handle;
    }

  private:
    Type m_handle = Policy::Invalid();
};

struct KernelHandlePolicy {
    using Type = HANDLE;
    static Type Invalid() noexcept { return nullptr; }
    static bool IsValid(Type handle) noexcept { return handle != nullptr; }
    static void Close(Type handle) noexcept { CloseHandle(handle); }
};

/// Files say "invalid" with INVALID_HANDLE_VALUE; a null handle counts as invalid too.
struct FileHandlePolicy {
    using Type = HANDLE;
    static Type Invalid() noexcept { return INVALID_HANDLE_VALUE; }
    static bool IsValid(Type handle) noexcept { return handle != nullptr && handle != INVALID_HANDLE_VALUE; }
    static void Close(Type handle) noexcept { CloseHandle(handle); }
};

struct RegKeyPolicy {
    using Type = HKEY;
    static Type Invalid() noexcept { return nullptr; }
    static bool IsValid(Type key) noexcept { return key != nullptr; }
    static void Close(Type key) noexcept { RegCloseKey(key); }
};

using UniqueEvent = UniqueHandle<KernelHandlePolicy>;
using UniqueThread = UniqueHandle<KernelHandlePolicy>;
using UniqueFile = UniqueHandle<FileHandlePolicy>;
using UniqueRegKey = UniqueHandle<RegKeyPolicy>;

}  // namespace kvmpd
