#include <memory>
#include <new>
#include <optional>

#include "platform/posix/last_error.h"
#include "platform/posix/waits.h"
#include "platform/posix/win32_api.h"

namespace kvmpd::platform {
namespace {

class Semaphore final : public Waitable {
  public:
    Semaphore(LONG initialCount, LONG maximumCount) : m_maximum(maximumCount), m_count(initialCount) {}

    // The count before; empty, and nothing changed, when the maximum would be exceeded.
    std::optional<LONG> Release(LONG count) {
        const LockHold hold(g_waitLock);
        if (count > m_maximum - m_count) {
            return std::nullopt;
        }
        const LONG previous = m_count;
        m_count += count;
        ServeWaits();
        return previous;
    }

    // Waitable
    bool IsSignalled() const override PLATFORM_REQUIRES(g_waitLock) { return m_count > 0; }
    void TakeSignal() override PLATFORM_REQUIRES(g_waitLock) { --m_count; }

  private:
    const LONG m_maximum;
    LONG m_count PLATFORM_GUARDED_BY(g_waitLock);
};

}  // namespace
}  // namespace kvmpd::platform

using kvmpd::platform::FailWith;
using kvmpd::platform::ObjectOf;
using kvmpd::platform::Semaphore;

HANDLE CreateSemaphoreW(LPSECURITY_ATTRIBUTES /*attributes*/, LONG initialCount, LONG maximumCount, LPCWSTR name) {
    if (name != nullptr) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return nullptr;
    }
    if (maximumCount <= 0 || initialCount < 0 || initialCount > maximumCount) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    try {
        const HANDLE handle = OpenHandle(std::make_shared<Semaphore>(initialCount, maximumCount));
        if (handle) {
            SetLastError(NO_ERROR);
        }
        return handle;
    } catch (const std::bad_alloc&) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
}

BOOL ReleaseSemaphore(HANDLE semaphore, LONG releaseCount, LPLONG previousCount) {
    if (releaseCount <= 0) {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    const std::shared_ptr<Semaphore> object = ObjectOf<Semaphore>(semaphore);
    if (!object) {
        return FALSE;
    }
    const std::optional<LONG> previous = object->Release(releaseCount);
    if (!previous) {
        return FailWith(ERROR_TOO_MANY_POSTS);
    }
    if (previousCount) {
        *previousCount = *previous;
    }
    return TRUE;
}
