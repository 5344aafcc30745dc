#include <memory>
#include <new>

#include "platform/posix/waits.h"
#include "platform/posix/win32_api.h"

namespace kvmpd::platform {
namespace {

class Event final : public Waitable {
  public:
    Event(bool manualReset, bool signalled) : m_manualReset(manualReset), m_signalled(signalled) {}

    void Set() {
        const LockHold hold(g_waitLock);
        m_signalled = true;
        ServeWaits();
    }

    void Reset() {
        const LockHold hold(g_waitLock);
        m_signalled = false;
    }

    // Waitable
    bool IsSignalled() const override PLATFORM_REQUIRES(g_waitLock) { return m_signalled; }
    void TakeSignal() override PLATFORM_REQUIRES(g_waitLock) { m_signalled = m_manualReset; }

  private:
    const bool m_manualReset;
    bool m_signalled PLATFORM_GUARDED_BY(g_waitLock);
};

}  // namespace
}  // namespace kvmpd::platform

using kvmpd::platform::Event;
using kvmpd::platform::ObjectOf;

HANDLE CreateEventW(LPSECURITY_ATTRIBUTES /*attributes*/, BOOL manualReset, BOOL initialState, LPCWSTR name) {
    if (name != nullptr) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return nullptr;
    }
    try {
        const HANDLE handle = OpenHandle(std::make_shared<Event>(manualReset != FALSE, initialState != FALSE));
        if (handle) {
            SetLastError(NO_ERROR);
        }
        return handle;
    } catch (const std::bad_alloc&) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
}

BOOL SetEvent(HANDLE event) {
    const std::shared_ptr<Event> object = ObjectOf<Event>(event);
    if (!object) {
        return FALSE;
    }
    object->Set();
    return TRUE;
}

BOOL ResetEvent(HANDLE event) {
    const std::shared_ptr<Event> object = ObjectOf<Event>(event);
    if (!object) {
        return FALSE;
    }
    object->Reset();
    return TRUE;
}
