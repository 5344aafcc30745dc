#include "platform/posix/waits.h"

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <span>

#include "platform/posix/clocks.h"
#include "platform/posix/last_error.h"
#include "platform/posix/win32_api.h"

namespace kvmpd::platform {

constinit Lock g_waitLock;

// One object's membership in one wait.
struct WaitLink {
    class Wait* wait = nullptr;
    WaitLink* older = nullptr;
    WaitLink* younger = nullptr;
};

// One call of a wait function, on the stack of the waiting thread. All of it is guarded by g_waitLock but what is
// constant after construction.
class Wait {
  public:
    // `links` has one entry for each object.
    Wait(std::span<const std::shared_ptr<Waitable>> objects, std::span<WaitLink> links, bool all)
        : m_objects(objects), m_links(links), m_all(all) {}

    // The wait function's result.
    DWORD Run(DWORD milliseconds) PLATFORM_EXCLUDES(g_waitLock);

    bool IsServed() const PLATFORM_REQUIRES(g_waitLock) { return m_result.has_value(); }

    // Satisfies the wait when its objects allow it.
    void TryServe() PLATFORM_REQUIRES(g_waitLock);

  private:
    void Sleep(DWORD milliseconds) PLATFORM_REQUIRES(g_waitLock);

    const std::span<const std::shared_ptr<Waitable>> m_objects;
    const std::span<WaitLink> m_links;
    const bool m_all;
    Condition m_served;
    std::optional<DWORD> m_result PLATFORM_GUARDED_BY(g_waitLock);
};

void Wait::TryServe() {
    const auto isSignalled = [](const std::shared_ptr<Waitable>& object)
                                 PLATFORM_REQUIRES(g_waitLock) { return object->IsSignalled(); };
    if (m_all) {
        if (std::all_of(m_objects.begin(), m_objects.end(), isSignalled)) {
            for (const std::shared_ptr<Waitable>& object : m_objects) {
                object->TakeSignal();
            }
            m_result = WAIT_OBJECT_0;
        }
    } else {
        const auto found = std::find_if(m_objects.begin(), m_objects.end(), isSignalled);
        if (found != m_objects.end()) {
            (*found)->TakeSignal();
            m_result = WAIT_OBJECT_0 + static_cast<DWORD>(found - m_objects.begin());
        }
    }
    if (m_result) {
        m_served.Notify();
    }
}

void Wait::Sleep(DWORD milliseconds) {
    for (std::size_t i = 0; i < m_objects.size(); ++i) {
        m_links[i].wait = this;
        m_objects[i]->Append(m_links[i]);
    }
    if (milliseconds == INFINITE) {
        while (!m_result) {
            m_served.Wait(g_waitLock);
        }
    } else {
        const timespec deadline = MonotonicDeadline(milliseconds);
        while (!m_result && m_served.WaitUntil(g_waitLock, deadline)) {
        }
    }
    for (std::size_t i = 0; i < m_objects.size(); ++i) {
        m_objects[i]->Remove(m_links[i]);
    }
}

DWORD Wait::Run(DWORD milliseconds) {
    DWORD result = WAIT_TIMEOUT;
    {
        const LockHold hold(g_waitLock);
        TryServe();
        if (!m_result && milliseconds != 0) {
            Sleep(milliseconds);
        }
        result = m_result.value_or(WAIT_TIMEOUT);
    }
    if (result != WAIT_TIMEOUT) {
        for (const auto& object : m_all ? m_objects : m_objects.subspan(result - WAIT_OBJECT_0, 1)) {
            object->AfterWait();
        }
    }
    return result;
}

void Waitable::Append(WaitLink& link) {
    link.older = m_youngest;
    link.younger = nullptr;
    (m_youngest ? m_youngest->younger : m_oldest) = &link;
    m_youngest = &link;
}

void Waitable::Remove(WaitLink& link) {
    (link.older ? link.older->younger : m_oldest) = link.younger;
    (link.younger ? link.younger->older : m_youngest) = link.older;
}

void Waitable::ServeWaits() {
    // A served wait stays in the list until its thread runs, so the list does not change during the walk.
    for (WaitLink* link = m_oldest; link && IsSignalled(); link = link->younger) {
        if (!link->wait->IsServed()) {
            link->wait->TryServe();
        }
    }
}

}  // namespace kvmpd::platform

using kvmpd::platform::Wait;
using kvmpd::platform::Waitable;
using kvmpd::platform::WaitLink;

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
    const std::shared_ptr<Waitable> object = kvmpd::platform::ObjectOf<Waitable>(handle);
    if (!object) {
        return WAIT_FAILED;
    }
    WaitLink link;
    return Wait({&object, 1}, {&link, 1}, /*all=*/false).Run(milliseconds);
}

DWORD WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL waitAll, DWORD milliseconds) {
    if (count == 0 || count > MAXIMUM_WAIT_OBJECTS || handles == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return WAIT_FAILED;
    }
    std::array<std::shared_ptr<Waitable>, MAXIMUM_WAIT_OBJECTS> objects;
    for (DWORD i = 0; i < count; ++i) {
        objects[i] = kvmpd::platform::ObjectOf<Waitable>(handles[i]);
        if (!objects[i]) {
            return WAIT_FAILED;
        }
        // All of them at once could never be taken from one auto-reset event twice.
        if (waitAll && std::find(objects.begin(), objects.begin() + i, objects[i]) != objects.begin() + i) {
            SetLastError(ERROR_INVALID_PARAMETER);
            return WAIT_FAILED;
        }
    }
    std::array<WaitLink, MAXIMUM_WAIT_OBJECTS> links;
    return Wait(std::span(objects).first(count), std::span(links).first(count), waitAll != FALSE).Run(milliseconds);
}
